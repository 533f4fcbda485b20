// Many threads at once: writers on units of their own and on shared units,
// threads that connect and disconnect units sharing a table slot, and the
// flush pass running beside them.  Afterwards every record is checked:
// whole, in each thread's order, none missing and none twice.  Built also
// with ThreadSanitizer, where any unsynchronised access fails the run.
#include <stdio.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

constexpr int kWriters = 6;
constexpr int kStatements = 1500;
constexpr int kChurners = 3;
constexpr int kChurnRounds = 150;

// Lines "<thread> <sequence> <tag>" from many threads: per thread the
// sequence must run 1..count without a gap, and nothing else may stand.
void expect_interleaved(const std::string& text, const char* tag, int threads, int count) {
  std::map<int, int> last;
  size_t from = 0, line = 0;
  for (size_t nl; (nl = text.find('\n', from)) != std::string::npos; from = nl + 1, ++line) {
    const std::string l = text.substr(from, nl - from);
    int t = -1, k = -1, used = 0;
    char word[32] = "";
    ASSERT_EQ(sscanf(l.c_str(), "%d %d %31s%n", &t, &k, word, &used), 3) << tag << ": " << l;
    ASSERT_EQ(used, static_cast<int>(l.size())) << tag << ": " << l;
    ASSERT_STREQ(word, tag) << l;
    ASSERT_EQ(k, last[t] + 1) << tag << ": thread " << t << " at line " << line;
    last[t] = k;
  }
  EXPECT_EQ(from, text.size()) << tag << ": the last record is not ended";
  ASSERT_EQ(static_cast<int>(last.size()), threads) << tag;
  for (auto [t, k] : last) EXPECT_EQ(k, count) << tag << ": thread " << t;
}

std::string own_file(int t) { return "own" + std::to_string(t) + ".txt"; }
std::string churn_file(int c) { return "churn" + std::to_string(c) + ".txt"; }

// Units 300, 1324, 2348, ...: one primary slot and its collision list.
int64_t churn_unit(int c) { return 300 + 1024 * c; }

void writer(int t) {
  const int64_t own = 20 + t;
  for (int k = 1; k <= kStatements; ++k) {
    ASSERT_EQ(FormattedWrite(10, "(I2,1X,I6,1X,A)").all(t, k, "formatted"), 0);
    ASSERT_EQ(ListWrite(11).all(t, k, "list"), 0);
    if (k % 2)
      ASSERT_EQ(FormattedWrite(own, "(I2,1X,I6,1X,A)").all(t, k, "own"), 0);
    else
      ASSERT_EQ(ListWrite(own, SF_NO_FIRST_BLANK).all(t, k, "own"), 0);
  }
}

// OPEN, one record, CLOSE: the record lives and dies while writers and the
// flush pass walk the table around it.
void churner(int c) {
  const int64_t unit = churn_unit(c);
  for (int k = 1; k <= kChurnRounds; ++k) {
    ASSERT_EQ(Open(unit).file(churn_file(c)).position("APPEND").run(), 0);
    ASSERT_EQ(ListWrite(unit, SF_NO_FIRST_BLANK).all(c, k, "churn"), 0);
    ASSERT_EQ(close_unit(unit), 0);
  }
}

}  // namespace

TEST(ThreadStress, EveryRecordWholeInOrderAndOnce) {
  ScratchDir dir;
  ASSERT_EQ(Open(10).file("formatted.txt").run(), 0);
  ASSERT_EQ(Open(11).file("list.txt").run(), 0);
  for (int t = 0; t < kWriters; ++t) ASSERT_EQ(Open(20 + t).file(own_file(t)).run(), 0);

  std::atomic<bool> done{false};
  std::thread flusher([&] {
    while (!done.load()) __f90_flush_all();
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kWriters; ++t) threads.emplace_back(writer, t);
  for (int c = 0; c < kChurners; ++c) threads.emplace_back(churner, c);
  for (std::thread& th : threads) th.join();
  done = true;
  flusher.join();

  for (int unit = 10; unit < 20 + kWriters; ++unit) close_unit(unit);
  // The list records begin with their separator blank: take it off.
  std::string list = dir.read("list.txt");
  std::string trimmed;
  for (size_t from = 0, nl; (nl = list.find('\n', from)) != std::string::npos; from = nl + 1)
    trimmed += list.substr(from + 1, nl - from);
  expect_interleaved(dir.read("formatted.txt"), "formatted", kWriters, kStatements);
  expect_interleaved(trimmed, "list", kWriters, kStatements);
  for (int t = 0; t < kWriters; ++t)
    expect_interleaved(dir.read(own_file(t)), "own", 1, kStatements);
  for (int c = 0; c < kChurners; ++c)
    expect_interleaved(dir.read(churn_file(c)), "churn", 1, kChurnRounds);
}

// One unit, many threads, statements of many items: a statement's items
// never mix with another thread's.
TEST(ThreadStress, LongStatementsOnOneUnitDoNotInterleave) {
  ScratchDir dir;
  ASSERT_EQ(Open(10).file("long.txt").run(), 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int k = 0; k < 300; ++k) {
        FormattedWrite w(10, "(100I5)");
        w.start();
        for (int i = 0; i < 100; ++i) w.item(t * 1000 + i);
        ASSERT_EQ(w.end().status(), 0);
      }
    });
  for (std::thread& th : threads) th.join();
  close_unit(10);
  const std::string text = dir.read("long.txt");
  int records = 0;
  for (size_t from = 0, nl; (nl = text.find('\n', from)) != std::string::npos; from = nl + 1) {
    ASSERT_EQ(nl - from, 500u);
    const int t = atoi(text.substr(from, 5).c_str()) / 1000;
    for (int i = 0; i < 100; ++i)
      ASSERT_EQ(atoi(text.substr(from + 5 * i, 5).c_str()), t * 1000 + i) << "record " << records;
    ++records;
  }
  EXPECT_EQ(records, 1200);
}
