// The integer editors against gfortran: the same values through the same
// descriptors, compared line by line.  Skipped where gfortran is missing.
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "formatted/output_edit.h"
#include "formatted/record.h"
#include "gtest/gtest.h"
#include "qal/errors.h"
#include "support/scratch.h"

using namespace qal;
using qal::test::ScratchDir;
using qal::test::StringRecord;

namespace {

struct Descriptor {
  const char* format;  // as gfortran sees it
  char letter;         // I, B, O or Z
  int32_t w, m;
  int32_t sign_mode;
};

// Descriptors without .m hand the editors m = 1, as the format walk does.
const Descriptor kDescriptors[] = {
    {"(I12)", 'I', 12, 1, SIGN_SUPPRESS},   {"(I0)", 'I', 0, 1, SIGN_SUPPRESS},
    {"(I7.5)", 'I', 7, 5, SIGN_SUPPRESS},   {"(I3)", 'I', 3, 1, SIGN_SUPPRESS},
    {"(I5.0)", 'I', 5, 0, SIGN_SUPPRESS},   {"(I0.0)", 'I', 0, 0, SIGN_SUPPRESS},
    {"(SP,I9)", 'I', 9, 1, SIGN_PLUS},      {"(SP,I0.4)", 'I', 0, 4, SIGN_PLUS},
    {"(SP,I6.5)", 'I', 6, 5, SIGN_PLUS},    {"(SS,I21)", 'I', 21, 1, SIGN_SUPPRESS},
    {"(B0)", 'B', 0, 1, SIGN_SUPPRESS},     {"(B40.33)", 'B', 40, 33, SIGN_SUPPRESS},
    {"(B12)", 'B', 12, 1, SIGN_SUPPRESS},   {"(O0.3)", 'O', 0, 3, SIGN_SUPPRESS},
    {"(O23)", 'O', 23, 1, SIGN_SUPPRESS},   {"(SP,Z0)", 'Z', 0, 1, SIGN_PLUS},
    {"(Z17.9)", 'Z', 17, 9, SIGN_SUPPRESS}, {"(Z5)", 'Z', 5, 1, SIGN_SUPPRESS},
    {"(SP,I6.0)", 'I', 6, 0, SIGN_PLUS},    {"(Z3.0)", 'Z', 3, 0, SIGN_SUPPRESS},
};

template <class T>
std::string ours(const Descriptor& d, T v) {
  StringRecord r(d.sign_mode);
  switch (d.letter) {
    case 'I':
      wrt_iwm<T>(r.f, d.w, d.m, v);
      break;
    case 'B':
      wrt_bwm<T>(r.f, d.w, d.m, v);
      break;
    case 'O':
      wrt_owm<T>(r.f, d.w, d.m, v);
      break;
    default:
      wrt_zwm<T>(r.f, d.w, d.m, v);
  }
  return r.text;
}

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

// Runs one gfortran program that reads `values` of `kind` and writes each
// through every descriptor; returns its output lines.
template <class T>
std::vector<std::string> theirs(const std::vector<T>& values, int kind) {
  std::ofstream("values.txt") << [&] {
    std::ostringstream s;
    for (T v : values) s << v << '\n';
    return s.str();
  }();
  std::ostringstream p;
  p << "program oracle\n  integer(" << kind << ") :: v\n  integer :: ios\n"
    << "  open(10, file='values.txt', status='old')\n  do\n"
    << "    read(10, *, iostat=ios) v\n    if (ios /= 0) exit\n";
  for (const Descriptor& d : kDescriptors) p << "    write(*, '" << d.format << "') v\n";
  p << "  end do\nend program\n";
  std::ofstream("oracle.f90") << p.str();
  EXPECT_EQ(system("gfortran -o oracle oracle.f90 && ./oracle > out.txt"), 0);
  std::vector<std::string> lines;
  std::ifstream in("out.txt");
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

template <class T>
void compare(int kind) {
  std::mt19937_64 random(20261121);
  std::vector<T> values = {
      0, 1, -1, 7, -8, std::numeric_limits<T>::max(), std::numeric_limits<T>::min() + 1};
  for (int i = 0; i < 300; ++i) {
    const int bits = 1 + static_cast<int>(random() % (8 * sizeof(T)));
    values.push_back(static_cast<T>(random() >> (64 - bits)));
  }
  ScratchDir dir;
  const auto lines = theirs(values, kind);
  ASSERT_EQ(lines.size(), values.size() * std::size(kDescriptors));
  size_t at = 0;
  for (T v : values)
    for (const Descriptor& d : kDescriptors)
      EXPECT_EQ(ours(d, v), lines[at++]) << d.format << " of " << v;
}

TEST(GfortranOracle, IntegerFamilyOfFourByteValues) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  compare<int32_t>(4);
}

TEST(GfortranOracle, IntegerFamilyOfEightByteValues) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  compare<int64_t>(8);
}

}  // namespace
