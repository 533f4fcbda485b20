/* Times fork + exec + wait of several programs, interleaved so that the
 * machine's drift hits all of them alike.
 *
 *   exec_timer ROUNDS NAME=PATH [NAME=PATH ...]
 *
 * Every round runs each program once, starting with a different one each
 * round; the first rounds only warm the page cache and are not counted.
 * Output: one line "NAME MEDIAN_NS" per program.  The programs' standard
 * output and error go to /dev/null. */
#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { WARM_ROUNDS = 10, MAX_PROGRAMS = 16 };

static int64_t now_ns(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (int64_t)t.tv_sec * 1000000000 + t.tv_nsec;
}

static int compare_i64(const void* a, const void* b) {
  const int64_t x = *(const int64_t*)a, y = *(const int64_t*)b;
  return (x > y) - (x < y);
}

static int64_t run_once(const char* path, int devnull) {
  const int64_t t0 = now_ns();
  const pid_t pid = fork();
  if (pid < 0) {
    perror("fork");
    exit(2);
  }
  if (pid == 0) {
    dup2(devnull, 1);
    dup2(devnull, 2);
    char* const argv[] = {(char*)path, NULL};
    execv(path, argv);
    _exit(127);
  }
  int status;
  if (waitpid(pid, &status, 0) < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    fprintf(stderr, "exec_timer: %s failed\n", path);
    exit(2);
  }
  return now_ns() - t0;
}

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: exec_timer ROUNDS NAME=PATH...\n");
    return 2;
  }
  const int rounds = atoi(argv[1]);
  const int n = argc - 2;
  if (rounds < 1 || n > MAX_PROGRAMS) return 2;
  const char* name[MAX_PROGRAMS];
  const char* path[MAX_PROGRAMS];
  int64_t* times[MAX_PROGRAMS];
  for (int i = 0; i < n; ++i) {
    char* eq = strchr(argv[i + 2], '=');
    if (!eq) return 2;
    *eq = '\0';
    name[i] = argv[i + 2];
    path[i] = eq + 1;
    times[i] = malloc(sizeof(int64_t) * (size_t)rounds);
    if (!times[i]) return 2;
  }
  const int devnull = open("/dev/null", O_WRONLY);
  if (devnull < 0) return 2;
  for (int r = -WARM_ROUNDS; r < rounds; ++r) {
    for (int k = 0; k < n; ++k) {
      const int i = (k + (r < 0 ? 0 : r)) % n;
      const int64_t t = run_once(path[i], devnull);
      if (r >= 0) times[i][r] = t;
    }
  }
  for (int i = 0; i < n; ++i) {
    qsort(times[i], (size_t)rounds, sizeof(int64_t), compare_i64);
    printf("%s %lld\n", name[i], (long long)times[i][rounds / 2]);
    free(times[i]);
  }
  return 0;
}
