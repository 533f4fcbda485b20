// Output statements against files that refuse bytes: a file-size limit
// (short writes, then EFBIG), a full device, a 64 KiB file system, a file
// the process may not write, a directory.  For each: the number returned,
// no byte written twice, nothing lost that a statement had accepted, and a
// file of whole records afterwards.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

// The numbers a child logged, one a line.
std::vector<int> statuses(const std::string& file) {
  std::vector<int> status;
  if (FILE* log = fopen(file.c_str(), "r")) {
    for (int s; fscanf(log, "%d", &s) == 1;) status.push_back(s);
    fclose(log);
  }
  return status;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t from = 0;
  for (size_t nl; (nl = text.find('\n', from)) != std::string::npos; from = nl + 1)
    lines.push_back(text.substr(from, nl - from));
  if (from < text.size()) lines.push_back(text.substr(from) + "<no newline>");
  return lines;
}

// One numbered statement, formatted or list-directed, writing one record.
struct Workload {
  const char* name;
  int (*write)(int64_t unit, int i);
  std::string (*record)(int i);
};

int formatted_write(int64_t unit, int i) {
  return FormattedWrite(unit, "(I6,1X,A,1X,I6)", SF_ERR_RETURN).all(i, "record", i * 7);
}
std::string formatted_record(int i) {
  char text[64];
  snprintf(text, sizeof text, "%6d record %6d", i, i * 7);
  return text;
}
int list_write(int64_t unit, int i) {
  return ListWrite(unit, SF_ERR_RETURN).all(i, "record", i * 7);
}
std::string list_record(int i) {
  char text[64];
  snprintf(text, sizeof text, " %d record %d", i, i * 7);
  return text;
}

const Workload kWorkloads[] = {{"formatted", formatted_write, formatted_record},
                               {"list", list_write, list_record}};

// The file a run of numbered statements left, against their statuses: the
// record of every statement that returned 0 stands once, whole and in order;
// a failed statement left at most a beginning of its record, ended.
void expect_each_accepted_record_once(const Workload& w, const std::string& text,
                                      const std::vector<int>& status) {
  const std::vector<std::string> lines = lines_of(text);
  size_t at = 0;
  for (int i = 1; i <= static_cast<int>(status.size()); ++i) {
    const std::string want = w.record(i);
    if (status[static_cast<size_t>(i - 1)] == 0) {
      ASSERT_LT(at, lines.size()) << w.name << ": record " << i << " missing";
      ASSERT_EQ(lines[at], want) << w.name << ": line " << at + 1;
      ++at;
    } else if (at < lines.size() && lines[at] != w.record(i + 1) &&
               want.compare(0, lines[at].size(), lines[at]) == 0) {
      ++at;  // what the failed statement had edited
    }
  }
  EXPECT_EQ(at, lines.size()) << w.name << ": more lines than statements";
}

// Runs `statements` of workload `w` on unit 10 in a child under a file-size
// limit of `limit` bytes, lifted after the `failures`-th failed statement.
// Returns the statuses; the file is out.txt of the scratch directory.
std::vector<int> run_under_size_limit(const Workload& w, rlim_t limit, int statements,
                                      int failures) {
  const ChildResult r = run_in_child([&] {
    signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead
    CHILD_CHECK(Open(10).file("out.txt").run() == 0);
    rlimit small{limit, RLIM_INFINITY};
    CHILD_CHECK(setrlimit(RLIMIT_FSIZE, &small) == 0);
    std::vector<int> status;
    int failed = 0;
    for (int i = 1; i <= statements; ++i) {
      status.push_back(w.write(10, i));
      CHILD_CHECK(status.back() == 0 || status.back() == EFBIG);
      if (status.back() != 0 && ++failed == failures) {
        rlimit none{RLIM_INFINITY, RLIM_INFINITY};
        CHILD_CHECK(setrlimit(RLIMIT_FSIZE, &none) == 0);
      }
    }
    CHILD_CHECK(close_unit(10) == 0);
    FILE* log = fopen("status.txt", "w");
    for (int s : status) fprintf(log, "%d\n", s);
    fclose(log);
  });
  EXPECT_TRUE(r.exited && r.exit_code == 0) << r.err;
  return statuses("status.txt");
}

// Inside a fresh user namespace: this process's user and group keep their
// numbers, so that the files it makes belong to somebody.
bool map_identity(uid_t uid, gid_t gid) {
  auto put = [](const char* file, const std::string& text) {
    const int fd = open(file, O_WRONLY);
    const bool ok = fd >= 0 && write(fd, text.data(), text.size()) == ssize_t(text.size());
    if (fd >= 0) close(fd);
    return ok;
  };
  return put("/proc/self/setgroups", "deny") &&
         put("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1") &&
         put("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
}

}  // namespace

// Records go out a buffer at a time; the write that crosses the limit is
// short, the next fails.  The bytes that got through must count as written.
TEST(FileSizeLimit, AcceptedRecordsReachTheFileOnce) {
  for (const Workload& w : kWorkloads) {
    for (int failures : {1, 3}) {
      ScratchDir dir;
      const std::vector<int> status = run_under_size_limit(w, 20000, 3000, failures);
      int failed = 0;
      for (int s : status) failed += s != 0;
      EXPECT_EQ(failed, failures) << w.name;
      expect_each_accepted_record_once(w, dir.read("out.txt"), status);
    }
  }
}

// The limit never lifted: CLOSE reports the error and keeps the connection,
// the end of the run says what was lost, and the file holds whole records.
TEST(FileSizeLimit, OutputLeftAtTheEndOfTheRunIsReported) {
  ScratchDir dir;
  const ChildResult r = run_in_child([] {
    signal(SIGXFSZ, SIG_IGN);
    CHILD_CHECK(Open(10).file("out.txt").run() == 0);
    rlimit small{10000, RLIM_INFINITY};
    CHILD_CHECK(setrlimit(RLIMIT_FSIZE, &small) == 0);
    int i = 1;
    while (formatted_write(10, i) == 0) ++i;
    CHILD_CHECK(close_unit(10) == EFBIG);
  });
  EXPECT_TRUE(r.exited && r.exit_code == 0);
  EXPECT_EQ(r.err.rfind(" Output lost:  ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find(" of unit 10, file out.txt, could not be written: File too large\n"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  const std::string text = dir.read("out.txt");
  EXPECT_EQ(text.size(), 10000u);
  // The limit may cut the last record; every other record is whole.
  const std::vector<std::string> lines = lines_of(text);
  for (size_t k = 0; k + 1 < lines.size(); ++k) EXPECT_EQ(lines[k], formatted_record(int(k) + 1));
}

TEST(FullDevice, EveryWriteRefusedWithEnospc) {
  ScratchDir dir;
  const ChildResult r = run_in_child([] {
    CHILD_CHECK(Open(10).file("/dev/full").run() == 0);
    // Buffered: the statements succeed until the buffer must go out.
    CHILD_CHECK(formatted_write(10, 1) == 0);
    CHILD_CHECK(list_write(10, 2) == 0);
    // CLOSE cannot write them: ENOSPC, and the unit stays connected.
    CHILD_CHECK(close_unit(10) == ENOSPC);
    CHILD_CHECK(close_unit(10) == ENOSPC);
    // A statement that fills the buffer fails where the buffer must go out.
    int i = 3;
    while (formatted_write(10, i) == 0) ++i;
    CHILD_CHECK(formatted_write(10, i + 1) == ENOSPC);
  });
  EXPECT_TRUE(r.exited && r.exit_code == 0);
  EXPECT_EQ(r.err.rfind(" Output lost:  ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("of unit 10, file /dev/full, could not be written: No space left on device"),
            std::string::npos);
}

// A real device that fills: a 64 KiB file system of a private mount
// namespace.  Space is freed after the error, and the run goes on.
TEST(SmallDevice, RecordsAfterTheDeviceFilledAndWasFreedAgain) {
  for (const Workload& w : kWorkloads) {
    ScratchDir dir;
    mkdir(dir.file("small").c_str(), 0777);
    const ChildResult r = run_in_child([&] {
      const uid_t uid = geteuid();
      const gid_t gid = getegid();
      if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !map_identity(uid, gid) ||
          mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
          mount("tmpfs", "small", "tmpfs", 0, "size=64k") != 0)
        _exit(77);
      CHILD_CHECK(Open(10).file("small/out.txt").run() == 0);
      const int filler = open("small/filler", O_WRONLY | O_CREAT, 0666);
      const std::string block(4096, 'f');
      while (write(filler, block.data(), block.size()) > 0) {
      }
      close(filler);
      FILE* log = fopen("status.txt", "w");
      int failed = 0;
      for (int i = 1; i <= 2000; ++i) {
        const int s = w.write(10, i);
        CHILD_CHECK(s == 0 || s == ENOSPC);
        if (s != 0 && ++failed == 2) unlink("small/filler");
        fprintf(log, "%d\n", s);
      }
      fclose(log);
      CHILD_CHECK(close_unit(10) == 0);
      // The mount goes with the child: keep the file.
      const int in = open("small/out.txt", O_RDONLY);
      const int out = open("out.txt", O_WRONLY | O_CREAT | O_TRUNC, 0666);
      char buf[4096];
      for (ssize_t n; (n = read(in, buf, sizeof buf)) > 0;) CHILD_CHECK(write(out, buf, n) == n);
    });
    if (r.exited && r.exit_code == 77) GTEST_SKIP() << "no private mount namespace here";
    ASSERT_TRUE(r.exited && r.exit_code == 0) << r.err;
    const std::vector<int> status = statuses("status.txt");
    EXPECT_EQ(std::count(status.begin(), status.end(), ENOSPC), 2) << w.name;
    expect_each_accepted_record_once(w, dir.read("out.txt"), status);
  }
}

// Files this process may not write.  As root every file is writable, so
// the child gives up root first.
TEST(Refusals, ReadOnlyFileAndDirectory) {
  ScratchDir dir;
  dir.write("ro.txt", "kept\n");
  chmod(dir.file("ro.txt").c_str(), 0444);
  chmod(dir.path().c_str(), 0777);
  mkdir(dir.file("sub").c_str(), 0777);
  const ChildResult r = run_in_child([] {
    if (geteuid() == 0) CHILD_CHECK(setuid(65534) == 0);
    CHILD_CHECK(Open(10).file("ro.txt").action("WRITE").run() == EACCES);
    CHILD_CHECK(Open(10).file("ro.txt").action("READWRITE").run() == EACCES);
    // Without ACTION= the connection falls back to reading.
    CHILD_CHECK(Open(10).file("ro.txt").run() == 0);
    CHILD_CHECK(formatted_write(10, 1) == ERR_WRITING_NOT_ALLOWED);
    CHILD_CHECK(list_write(10, 1) == ERR_WRITING_NOT_ALLOWED);
    CHILD_CHECK(close_unit(10) == 0);
    CHILD_CHECK(Open(11).file("sub").run() == ERR_OPEN_DIRECTORY);
    CHILD_CHECK(symlink("sub", "fort.12") == 0);
    CHILD_CHECK(list_write(12, 1) == ERR_OPEN_DIRECTORY);
  });
  EXPECT_TRUE(r.exited && r.exit_code == 0) << r.err;
  EXPECT_EQ(dir.read("ro.txt"), "kept\n");
}

// A statement that fails half-way through a record ends that record: the
// next statement starts a record of its own, whatever made it fail.
TEST(FailedStatementRecords, NextStatementStartsAFreshRecord) {
  ScratchDir dir;
  // WRITE(10,'(I3,L2)',IOSTAT=ios) 1, 2; then WRITE(10,'(I3)') 2
  EXPECT_EQ(FormattedWrite(10, "(I3,L2)", SF_ERR_RETURN).all(1, 2), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedWrite(10, "(I3)").all(2), 0);
  // A record kept open by ADVANCE='NO' is ended by the failure too.
  EXPECT_EQ(FormattedWrite(10, "(A)").advance("NO").all("kept"), 0);
  EXPECT_EQ(FormattedWrite(10, "(L2)", SF_ERR_RETURN).all(4), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedWrite(10, "(I3)").all(3), 0);
  // A failure before the statement wrote anything leaves nothing.
  EXPECT_EQ(FormattedWrite(10, "(L2)", SF_ERR_RETURN).all(5), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(close_unit(10), 0);
  EXPECT_EQ(dir.read("fort.10"), "  1\n  2\nkept\n  3\n");

  // List-directed: an item too long for RECL= after one that fitted.
  ASSERT_EQ(Open(11).file("l.txt").recl(8).run(), 0);
  EXPECT_EQ(ListWrite(11, SF_ERR_RETURN).all(1, 123456789), ERR_RECORD_TOO_LONG);
  EXPECT_EQ(ListWrite(11).all(2), 0);
  EXPECT_EQ(close_unit(11), 0);
  EXPECT_EQ(dir.read("l.txt"), " 1\n 2\n");
}
