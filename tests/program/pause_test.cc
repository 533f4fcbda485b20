// PAUSE: resumed by SIGINT when standard input is not a terminal, by "go"
// at a terminal, and the cleanup it does even though the program goes on.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "program/units.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/scratch.h"

using namespace qal;
using namespace qal::test;

namespace {

volatile sig_atomic_t program_sigint;
void program_handler(int) { program_sigint = 1; }
void ignore_usr1(int) {}

// The paused program: stderr on a pipe, so the test sees the prompt while
// the child waits; stdout in a file.
void paused_program(int err_pipe) {
  int null = open("/dev/null", O_RDONLY);
  dup2(null, 0);
  dup2(err_pipe, 2);
  int out = open("out", O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(out, 1);
  signal(SIGINT, program_handler);
  signal(SIGUSR1, ignore_usr1);
  write_pending(10, "before pause");
  make_scratch(11);
  __f90_pause("wait", 4);
  struct sigaction now;
  sigaction(SIGINT, nullptr, &now);
  if (now.sa_handler == program_handler && !program_sigint)
    fputs("SIGINT action restored\n", stdout);
  // A new file under the old scratch name must outlive program end.
  close(open("fort.11", O_WRONLY | O_CREAT, 0644));
  exit(0);
}

// Reads from `fd` into `text` until it holds `wanted` or `ms` pass without
// any input; false at the end of input or on the timeout.
bool read_until(int fd, std::string& text, const std::string& wanted, int ms) {
  while (text.find(wanted) == std::string::npos) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, ms) <= 0) return false;
    char buf[512];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n <= 0) return false;
    text.append(buf, static_cast<size_t>(n));
  }
  return true;
}

void read_to_end(int fd, std::string& text) {
  char buf[512];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
}

TEST(Pause, WithoutATerminalWaitsForSigint) {
  ScratchDir dir;
  int err[2];
  ASSERT_EQ(pipe(err), 0);
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(err[0]);
    paused_program(err[1]);
  }
  close(err[1]);
  const std::string prompt = "PAUSE: wait\nTo continue execution, type Control-C or \"kill -2 " +
                             std::to_string(pid) + "\"\n";
  std::string text;
  const bool prompted = read_until(err[0], text, prompt, 10000);
  EXPECT_TRUE(prompted) << text;
  if (prompted) {
    // The program is still waiting, and its files are already written.
    EXPECT_EQ(dir.read("fort.10"), " before pause\n");
    EXPECT_FALSE(dir.exists("fort.11"));
    // Another signal the program catches does not end the pause.
    kill(pid, SIGUSR1);
    EXPECT_FALSE(read_until(err[0], text, "resumed", 200)) << text;
  }
  kill(pid, prompted ? SIGINT : SIGKILL);
  read_to_end(err[0], text);
  close(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(text, prompt + "Execution resumed after PAUSE.\n");
  EXPECT_EQ(dir.read("out"), "SIGINT action restored\n");
  EXPECT_TRUE(dir.exists("fort.11"));
}

struct TerminalCase {
  std::string typed;
  bool resumes;
};

// PAUSE at a terminal, with what the user types.
TEST(Pause, AtATerminalOnlyGoResumes) {
  const std::vector<TerminalCase> cases = {
      {"go\n", true}, {"no\n", false}, {"gone\n", false}, {"GO\n", false}};
  for (const auto& c : cases) {
    int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) GTEST_SKIP() << "no pty";
    int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(write(master, c.typed.data(), c.typed.size()), static_cast<ssize_t>(c.typed.size()));
    auto r = run_in_child([&] {
      dup2(terminal, 0);
      __f90_pause(nullptr, 0);
      exit(3);
    });
    close(terminal);
    close(master);
    const std::string prompt = "PAUSE\nTo continue execution, type \"go\"\n";
    EXPECT_EQ(r.err, c.resumes ? prompt + "Execution resumed after PAUSE.\n" : prompt) << c.typed;
    EXPECT_EQ(r.exit_code, c.resumes ? 3 : 0) << c.typed;
  }
}

}  // namespace
