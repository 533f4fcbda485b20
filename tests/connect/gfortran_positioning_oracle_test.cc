// Random programs of WRITE, READ, BACKSPACE, REWIND and ENDFILE on one
// formatted or unformatted sequential file, run by a gfortran-compiled
// interpreter and by the library: what every READ returns and the file left
// behind must be the same.  Records are of random lengths, empty ones and
// ones far longer than either library's buffer among them.  The programs
// stay within what the standard allows (after an end of file or ENDFILE
// only BACKSPACE or REWIND), which a model of the file keeps track of.
// Skipped where gfortran is missing.
#include <stdlib.h>

#include <random>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"
#include "unformatted/unformatted_statements.h"

using namespace qal;
using namespace qal::test;

namespace {

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

constexpr int kLongest = 70000;

// The script: a first line F or U, then one statement a line: "W n s"
// writes record n of seed s, "R e" reads a record (e = 1: one the model
// knows to be empty, read with no list), "B", "Z" (REWIND), "E" (ENDFILE).
// Each statement prints one line of what it did.
const char* kInterpreter = R"(
program positioning
  implicit none
  character(len=256) :: script, data
  character(len=1) :: kind, op
  character(len=70000) :: text
  integer(1) :: b(70000)
  integer :: n, s, e, ios, i
  call get_command_argument(1, script)
  call get_command_argument(2, data)
  open(20, file=script, status='old')
  read(20, '(A)') kind
  if (kind == 'F') then
    open(10, file=data, status='replace')
  else
    open(10, file=data, form='unformatted', status='replace')
  end if
  do
    read(20, '(A1)', advance='no', iostat=ios) op
    if (ios < 0) exit
    select case (op)
    case ('W')
      read(20, *) n, s
      if (kind == 'F') then
        do i = 1, n
          text(i:i) = achar(65 + mod(i * s + n, 26))
        end do
        write(10, '(A)') text(1:n)
      else if (n == 0) then
        write(10)
      else
        do i = 1, n
          b(i) = int(mod(i * s + n, 256) - 128, 1)
        end do
        write(10) n, b(1:n)
      end if
      print '(A)', 'W'
    case ('R')
      read(20, *) e
      n = 0
      if (kind == 'F') then
        read(10, '(A)', iostat=ios) text
        if (ios == 0) then
          n = len_trim(text)
          do i = 1, n
            b(i) = int(iachar(text(i:i)), 1)
          end do
        end if
      else if (e == 1) then
        read(10, iostat=ios)
      else
        read(10, iostat=ios) n, (b(i), i = 1, n)
      end if
      call report('R', ios, n)
    case ('B')
      read(20, *)
      backspace(10, iostat=ios)
      call report('B', ios, 0)
    case ('Z')
      read(20, *)
      rewind(10, iostat=ios)
      call report('Z', ios, 0)
    case ('E')
      read(20, *)
      endfile(10, iostat=ios)
      call report('E', ios, 0)
    end select
  end do
  close(10)
contains
  subroutine report(what, ios, n)
    character(len=*) :: what
    integer :: ios, n, j
    integer(8) :: sum
    sum = 0
    do j = 1, n
      sum = mod(sum + int(b(j), 8) * j, 1000003_8)
    end do
    if (ios < 0) then
      print '(2A)', what, ' end'
    else if (ios > 0) then
      print '(2A)', what, ' error'
    else
      print '(2A,I0,1X,I0)', what, ' ok ', n, sum
    end if
  end subroutine
end program
)";

struct Record {
  int length;
  int seed;
};

// A random program that stays within the standard, as a script.
std::string random_script(std::mt19937& rng, bool formatted, int statements) {
  std::vector<Record> file;
  size_t next = 0;         // the record the next READ gets
  bool after_end = false;  // past the end: only BACKSPACE or REWIND
  // After an ENDFILE that cut records off, gfortran's BACKSPACE goes wrong
  // (a second one stays where the first left it, and a WRITE after reading
  // the end again leaves a hole), so such an ENDFILE is followed by REWIND.
  bool cut_by_endfile = false;
  std::string script = formatted ? "F\n" : "U\n";
  const auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  for (int k = 0; k < statements; ++k) {
    int roll = pick(100);
    if (after_end) roll = roll < 80 ? 80 : 90;
    if (cut_by_endfile) roll = 90;
    if (roll < 40) {
      const int size_class = pick(20);
      const int length = size_class < 3    ? 0
                         : size_class < 16 ? pick(100)
                         : size_class < 19 ? 4000 + pick(200)
                                           : kLongest - pick(100);
      const Record r{length, 1 + pick(1000)};
      file.resize(next);
      file.push_back(r);
      next = file.size();
      script += "W " + std::to_string(r.length) + " " + std::to_string(r.seed) + "\n";
    } else if (roll < 70) {
      const bool empty = next < file.size() && file[next].length == 0;
      script += empty ? "R 1\n" : "R 0\n";
      if (next == file.size())
        after_end = true;
      else
        ++next;
    } else if (roll < 90) {
      script += "B\n";
      if (after_end)
        after_end = false;
      else if (next > 0)
        --next;
    } else if (roll < 95) {
      script += "Z\n";
      next = 0;
      after_end = false;
      cut_by_endfile = false;
    } else {
      script += "E\n";
      if (next < file.size()) cut_by_endfile = true;
      file.resize(next);
      after_end = true;
    }
  }
  return script;
}

// The same script through the library, printing what the interpreter
// prints.
class LibraryRun {
 public:
  std::string run(const std::string& script, const std::string& data) {
    const bool formatted = script[0] == 'F';
    const int open = formatted ? Open(10).file(data).status("replace").run()
                               : Open(10).file(data).form("UNFORMATTED").status("replace").run();
    if (open) return "OPEN failed " + std::to_string(open);
    size_t at = 2;
    while (at < script.size()) {
      const size_t end = script.find('\n', at);
      const std::string line = script.substr(at, end - at);
      at = end + 1;
      switch (line[0]) {
        case 'W': {
          int n = 0, s = 0;
          sscanf(line.c_str() + 2, "%d %d", &n, &s);
          write(formatted, n, s);
          out_ += "W\n";
          break;
        }
        case 'R':
          read(formatted, line[2] == '1');
          break;
        case 'B':
          report("B", position(__f90_backspace), 0);
          break;
        case 'Z':
          report("Z", position(__f90_rewind), 0);
          break;
        case 'E':
          report("E", position(__f90_endfile), 0);
          break;
      }
    }
    close_unit(10);
    return out_;
  }

 private:
  void write(bool formatted, int n, int s) {
    for (int i = 1; i <= n; ++i) {
      const int v = (i * s + n) % (formatted ? 26 : 256);
      bytes_[i - 1] = static_cast<char>(formatted ? 65 + v : v - 128);
    }
    int status;
    if (formatted)
      status = FormattedWrite(10, "(A)", SF_ERR_RETURN).all(std::string(bytes_.data(), n).c_str());
    else if (n == 0)
      status = UnformattedWrite(10).start().end();
    else
      status = UnformattedWrite(10).start().i4(n).bytes(bytes_.data(), n).end();
    if (status) out_ += "write failed " + std::to_string(status) + "\n";
  }
  void read(bool formatted, bool empty) {
    int status;
    int32_t n = 0;
    if (formatted) {
      status = FormattedRead(10, "(A)", kReturnAll).all(CharOut{bytes_.data(), kLongest});
      if (status == 0) {
        n = kLongest;
        while (n > 0 && bytes_[n - 1] == ' ') --n;
      }
    } else if (empty) {
      status = UnformattedRead(10).start().end();
    } else {
      UnformattedRead r(10);
      r.start().value(&n);
      if (r.status() == 0) r.bytes(bytes_.data(), n);
      status = r.end();
      if (status) n = 0;
    }
    report("R", status, n);
  }
  int position(int (*entry)(IoStatementPos*)) {
    static const Location where{LOC_BACKSPACE, 1, kSourceFile};
    IoStatementPos p{10, SF_ERR_RETURN, &where};
    return entry(&p);
  }
  void report(const char* what, int status, int n) {
    int64_t sum = 0;
    for (int j = 1; j <= n; ++j)
      sum = (sum + static_cast<int8_t>(bytes_[j - 1]) * int64_t{j}) % 1000003;
    out_ += what;
    if (status < 0)
      out_ += " end\n";
    else if (status > 0)
      out_ += " error\n";
    else
      out_ += " ok " + std::to_string(n) + " " + std::to_string(sum) + "\n";
  }
  std::vector<char> bytes_ = std::vector<char>(kLongest);
  std::string out_;
};

}  // namespace

TEST(GfortranPositioning, RandomProgramsReadAndLeaveTheSame) {
  if (!have_gfortran()) GTEST_SKIP() << "gfortran not found";
  ScratchDir dir;
  dir.write("positioning.f90", kInterpreter);
  ASSERT_EQ(system("gfortran -O1 -o positioning positioning.f90"), 0);
  std::mt19937 rng(20261125);
  for (int program = 0; program < 60; ++program) {
    const bool formatted = program % 2 == 0;
    const std::string script = random_script(rng, formatted, 20 + program);
    dir.write("script", script);
    ASSERT_EQ(system("./positioning script theirs > theirs.out"), 0) << script;
    const std::string ours = LibraryRun().run(script, "ours");
    ASSERT_EQ(ours, dir.read("theirs.out")) << "program " << program << ":\n" << script;
    ASSERT_EQ(dir.read("ours") == dir.read("theirs"), true) << "program " << program << ":\n"
                                                            << script;
  }
}
