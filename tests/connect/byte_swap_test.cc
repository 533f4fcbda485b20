// Byte-swapped unformatted files: the option lists, the order in which a
// connection finds its settings, the once-only rule, the environment's
// lists, and the element copy that reverses bytes.  The lists are process
// state, so each case runs in its own child.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

Unit* table_entry(int n) { return __f90_small_unit_pointer_table[n]; }

bool swaps(int unit) { return table_entry(unit)->flags2 & UF2_BYTE_SWAP; }
uint32_t alignment(int unit) { return (table_entry(unit)->flags2 & UF2_ALIGNMENT) >> 10; }

void set_lists(const char* keep, const char* swap, const char* third) {
  __f90_set_bsw_files(const_cast<char*>(keep), const_cast<char*>(swap), const_cast<char*>(third));
}

TEST(ByteSwapLists, ConnectionsFindNameThenUnitThenDefault) {
  ScratchDir dir;
  auto r = run_in_child([] {
    set_lists("2:20,keep.dat", "4:10,11,data/swap.dat:3:12,swap.bin", nullptr);
    CHILD_CHECK(Open(10).file("plain").run() == 0);  // unit 10 listed to swap
    CHILD_CHECK(swaps(10) && alignment(10) == 4);
    CHILD_CHECK(Open(12).file("x").run() == 0);  // the second group's code
    CHILD_CHECK(swaps(12) && alignment(12) == 3);
    // A listed name wins over the listed unit.
    CHILD_CHECK(Open(11).file("keep.dat").run() == 0);
    CHILD_CHECK(!swaps(11) && alignment(11) == 2);
    // The last component of a path, and the whole path.
    CHILD_CHECK(Open(13).file("./swap.bin").run() == 0);
    CHILD_CHECK(swaps(13) && alignment(13) == 3);
    CHILD_CHECK(system("mkdir -p data") == 0);
    CHILD_CHECK(Open(14).file("data/swap.dat").run() == 0);
    CHILD_CHECK(swaps(14) && alignment(14) == 4);
    // A name of digits is looked up as a unit number.
    CHILD_CHECK(Open(15).file("20").run() == 0);
    CHILD_CHECK(!swaps(15) && alignment(15) == 2);
    CHILD_CHECK(Open(16).file("11").run() == 0);
    CHILD_CHECK(swaps(16));
    // Not listed: the defaults.
    CHILD_CHECK(Open(17).file("other").run() == 0);
    CHILD_CHECK(!swaps(17) && alignment(17) == 4);
    // A scratch unit never swaps, even when its number is listed; OPEN on a
    // connected unit looks again.
    CHILD_CHECK(close_unit(10) == 0);
    CHILD_CHECK(Open(10).status("SCRATCH").run() == 0);
    CHILD_CHECK(!swaps(10));
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(ByteSwapLists, AllSetsTheDefaultsAndImplicitConnectionsUseThem) {
  ScratchDir dir;
  auto r = run_in_child([] {
    set_lists("1:30", "3:%all", nullptr);
    // The second call changes nothing.
    set_lists(nullptr, "4:31", "2:%all");
    FormattedWrite(40, "(I3)").all(7);  // fort.40, made implicitly
    CHILD_CHECK(swaps(40) && alignment(40) == 3);
    FormattedWrite(30, "(I3)").all(7);
    CHILD_CHECK(!swaps(30) && alignment(30) == 1);
    FormattedWrite(31, "(I3)").all(7);
    CHILD_CHECK(swaps(31) && alignment(31) == 3);
    CHILD_CHECK(Open(41).status("SCRATCH").run() == 0);
    CHILD_CHECK(!swaps(41));
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(ByteSwapLists, BadListsStopTheProgram) {
  ScratchDir dir;
  // %all with an alignment code above 4, and a list without its number:
  // the keep list stops silently, the others after the banner.
  auto keep = run_in_child([] { set_lists("8:%all", nullptr, nullptr); });
  EXPECT_TRUE(keep.aborted());
  EXPECT_EQ(keep.err, "");
  auto swap = run_in_child([] { set_lists("4:%all", "10,11", nullptr); });
  EXPECT_TRUE(swap.aborted());
  EXPECT_EQ(swap.err.rfind(kBanner, 0), 0u) << swap.err;
  auto third = run_in_child([] { set_lists(nullptr, nullptr, "9:%all"); });
  EXPECT_TRUE(third.aborted());
  // Units and names may carry any code; only its low three bits are kept.
  auto fine = run_in_child([] {
    set_lists(nullptr, "12:50", nullptr);
    CHILD_CHECK(Open(50).file("f").run() == 0);
    CHILD_CHECK(swaps(50) && alignment(50) == 4);
  });
  EXPECT_EQ(fine.exit_code, 0) << fine.err;
}

TEST(ByteSwapLists, TheEnvironmentGivesListsOnlyWhenTheProgramGaveNone) {
  ScratchDir dir;
  auto r = run_in_child([] {
    setenv("QAL_BYTE_SWAP", ";2:60,big.dat;", 1);
    CHILD_CHECK(Open(60).file("a").run() == 0);
    CHILD_CHECK(swaps(60) && alignment(60) == 2);
    CHILD_CHECK(Open(61).file("big.dat").run() == 0);
    CHILD_CHECK(swaps(61));
    CHILD_CHECK(Open(62).file("b").run() == 0);
    CHILD_CHECK(!swaps(62));
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  auto program_first = run_in_child([] {
    set_lists(nullptr, "4:63", nullptr);
    setenv("QAL_BYTE_SWAP", ";4:%all;", 1);
    CHILD_CHECK(Open(63).file("c").run() == 0);
    CHILD_CHECK(swaps(63));
    CHILD_CHECK(Open(64).file("d").run() == 0);
    CHILD_CHECK(!swaps(64));
  });
  EXPECT_EQ(program_first.exit_code, 0) << program_first.err;
}

TEST(SwapBuff, ReversesEachElement) {
  unsigned char source[40], out[40];
  for (int i = 0; i < 40; ++i) source[i] = static_cast<unsigned char>(i);
  for (int size : {2, 4, 8, 16}) {
    memset(out, 0xee, sizeof out);
    __f90_swapbuff(out, source, 32, size);
    for (int i = 0; i < 32; ++i)
      ASSERT_EQ(out[i], source[(i / size) * size + size - 1 - i % size]) << size << " " << i;
    EXPECT_EQ(out[32], 0xee);  // nothing beyond `length`
  }
  // In place, as the transfer code swaps its buffer.
  uint32_t words[3] = {0x01020304, 0x05060708, 0x0a0b0c0d};
  __f90_swapbuff(words, words, 12, 4);
  EXPECT_EQ(words[0], 0x04030201u);
  EXPECT_EQ(words[2], 0x0d0c0b0au);
  memset(out, 0xee, sizeof out);
  __f90_swapbuff(out, source, 32, 1);
  __f90_swapbuff(out, source, 32, 3);
  EXPECT_EQ(out[0], 0xee);  // other sizes copy nothing
}

}  // namespace
