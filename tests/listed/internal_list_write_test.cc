// List-directed output to internal files: records are the elements of a
// character variable, written in place.
#include <string>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

TEST(InternalListWrite, ScalarIsBlankFilled) {
  char v[21] = {};
  EXPECT_EQ(InternalListWrite(v, 20).all(1, int64_t{-22}, Logical{1}), 0);
  EXPECT_EQ(std::string(v, 20), " 1 -22 T            ");
  char w[12] = {};
  EXPECT_EQ(InternalListWrite(w, 11).all("ab", "cd", 5, "e"), 0);
  EXPECT_EQ(std::string(w, 11), " abcd 5 e  ");
}

TEST(InternalListWrite, ItemsMoveToTheNextElement) {
  char a[3][4];
  memset(a, '?', sizeof a);
  EXPECT_EQ(InternalListWrite(&a[0][0], 4, {3}, {4}).all(123, 45), 0);
  // " 123" fills the first element exactly; 45 goes on in the second, and
  // the third element, never reached, is left as it was.
  EXPECT_EQ(std::string(&a[0][0], 12), " 123 45 ????");
}

TEST(InternalListWrite, LongTextRunsAcrossElements) {
  char a[3][5];
  memset(a, '?', sizeof a);
  EXPECT_EQ(InternalListWrite(&a[0][0], 5, {3}, {5}).all("abcdefghi"), 0);
  EXPECT_EQ(std::string(&a[0][0], 15), " abcd efgh i   ");
}

TEST(InternalListWrite, StridedSectionLeavesOtherElementsAlone) {
  char a[4][3];
  memset(a, '.', sizeof a);
  // WRITE(A(1:4:2),*) 1, 2 writes elements 1 and 3.
  EXPECT_EQ(InternalListWrite(&a[0][0], 3, {2}, {6}).all(1, 2), 0);
  EXPECT_EQ(std::string(&a[0][0], 12), " 1 ... 2 ...");
}

TEST(InternalListWrite, TwoDimensionsInElementOrder) {
  char a[2][2][2];
  memset(a, '.', sizeof a);
  // A CHARACTER*2 array of shape (2,2): the first index runs fastest.
  EXPECT_EQ(InternalListWrite(&a[0][0][0], 2, {2, 2}, {2, 4}).all(1, 2, 3, 4), 0);
  EXPECT_EQ(std::string(&a[0][0][0], 8), " 1 2 3 4");
}

TEST(InternalListWrite, Failures) {
  char v[8];
  EXPECT_EQ(InternalListWrite(v, 4, SF_ERR_RETURN).all(1, 2, 3), ERR_PAST_INTERNAL_END);
  EXPECT_EQ(InternalListWrite(v, 4, SF_ERR_RETURN).all(12345), ERR_RECORD_TOO_LONG);
  EXPECT_EQ(InternalListWrite(v, 1, SF_ERR_RETURN).all("a"), ERR_RECORD_TOO_LONG);
  EXPECT_EQ(InternalListWrite(nullptr, 4, SF_ERR_RETURN).all(1), ERR_UNASSOCIATED_INTERNAL);
  EXPECT_EQ(InternalListWrite(v, 4, {0}, {4}, SF_ERR_RETURN).all(1), ERR_EMPTY_INTERNAL);
  EXPECT_EQ(InternalListWrite(nullptr, 4, {1}, {4}, SF_ERR_RETURN).all(1),
            ERR_UNASSOCIATED_INTERNAL);

  auto r = run_in_child([&] { InternalListWrite(v, 4).all(1, 2, 3); });
  EXPECT_TRUE(r.aborted());
  // No unit, so no Unit or File line.
  EXPECT_EQ(r.err,
            "\n ******  FORTRAN RUN-TIME SYSTEM  ******\n"
            " Error 1060:  tried to write past end of internal file\n"
            " Location:  the WRITE statement at line 9 of \"test.f90\"\n");
}

TEST(InternalListWrite, OldDialect) {
  char v[9] = {};
  EXPECT_EQ(InternalListWrite(v, 8, SF_F77_WRITE).all("ab", "cd"), 0);
  EXPECT_EQ(std::string(v, 8), " abcd   ");
  // Text that does not fit breaks the line inside the record, then is cut.
  char w[7] = {};
  EXPECT_EQ(InternalListWrite(w, 6, SF_F77_WRITE | SF_ERR_RETURN).all("abc", "defg"),
            ERR_PAST_INTERNAL_END);
  EXPECT_EQ(std::string(w, 6), " abc\n ");
}
