#include "support/child.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace qal::test {

namespace {

std::string slurp(int fd) {
  std::string s;
  lseek(fd, 0, SEEK_SET);
  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
  return s;
}

int temp_file() {
  char name[] = "/tmp/qal-child-XXXXXX";
  int fd = mkstemp(name);
  if (fd >= 0) unlink(name);
  return fd;
}

}  // namespace

ChildResult run_in_child(const std::function<void()>& body, const std::string& input) {
  ChildResult r;
  // Files rather than pipes: the child may write more than a pipe holds
  // before anyone reads, and nothing need drain them concurrently.
  int out = temp_file(), err = temp_file(), in = temp_file();
  if (out < 0 || err < 0 || in < 0) return r;
  if (!input.empty() && write(in, input.data(), input.size()) < 0) return r;
  lseek(in, 0, SEEK_SET);
  fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out, 1);
    dup2(err, 2);
    if (input.empty()) {
      int null = open("/dev/null", O_RDONLY);
      dup2(null, 0);
    } else {
      dup2(in, 0);
    }
    body();
    exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) {
    r.exited = true;
    r.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    r.signal = WTERMSIG(status);
  }
  r.out = slurp(out);
  r.err = slurp(err);
  close(out);
  close(err);
  close(in);
  return r;
}

}  // namespace qal::test
