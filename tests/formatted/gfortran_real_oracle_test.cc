// Real editing against gfortran: random finite non-zero doubles and floats
// through E, ES, EN, D, F and G with many widths, digit counts, exponent
// widths and scale factors, in the default rounding and under RU, RD and
// RZ.  Both sides write the same statements to unit 10 and the files are
// compared record by record.  Skipped where gfortran is missing.
//
// Where the two differ by design is listed, and tested against the texts
// each case must have, in real_output_apart_from_gfortran_test.cc.  The
// statements drawn here keep clear of it: no zeros, infinities or NaNs, no
// F0.d or Gw.0, full significands (so no exact decimal ties), no RN or RC,
// EN in the default rounding only, and F's last place under RU and RD
// allowed for where gfortran drops it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using qal::test::close_unit;
using qal::test::FormattedWrite;
using qal::test::ScratchDir;

namespace {

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

// A value with a full significand and a decimal exponent in [-lo, hi].
double random_double(std::mt19937_64& random, int span) {
  const double mantissa = 1.0 + static_cast<double>(random() >> 11) / 9007199254740992.0;
  const int exponent = static_cast<int>(random() % (2 * span + 1)) - span;
  double x = mantissa * pow(10.0, exponent);
  uint64_t bits;
  memcpy(&bits, &x, 8);
  bits |= 1;  // an odd last bit: never a short binary fraction
  memcpy(&x, &bits, 8);
  return (random() & 1) ? -x : x;
}

// Random descriptors of every real form.
std::string random_format(std::mt19937_64& random, bool directed) {
  // E and D need a digit behind the point without a scale factor.
  const int d = static_cast<int>(random() % 12);
  const int ed = d == 0 ? 1 : d;
  const int w = d + 8 + static_cast<int>(random() % 10);
  const int e = 1 + static_cast<int>(random() % 3);
  std::ostringstream f;
  uint64_t form = random() % 9;
  if (directed && form == 3) form = 0;  // no EN under directed rounding
  switch (form) {
    case 0:
      f << "E" << w << "." << ed;
      break;
    case 1:
      f << "E" << w << "." << ed << "E" << e;
      break;
    case 2:
      f << "ES" << w << "." << d;
      break;
    case 3:
      f << "EN" << w + 2 << "." << d;
      break;
    case 4:
      f << "D" << w << "." << ed;
      break;
    case 5:
      f << "F" << w + 10 << "." << d;
      break;
    case 6:
      f << "G" << w << "." << (d + 1);
      break;
    case 7:
      f << "G" << w + 2 << "." << (d + 1) << "E" << e;
      break;
    default: {
      // A scale factor within the range E allows for d.
      const int k = d == 0 ? 1 : static_cast<int>(random() % (d + 1)) - d / 2;
      f << k << "PE" << w << "." << (d == 0 ? 1 : d) << "," << k << "PF" << w + 10 << "." << d;
    }
  }
  return f.str();
}

struct Statement {
  std::string format;  // inside the parentheses, without the mode
  double value;
  bool single;  // the item is REAL*4
};

std::string full_format(const std::string& mode, const std::string& format) {
  std::ostringstream f;
  f << "(";
  if (!mode.empty()) f << mode << ",";
  f << format << ")";
  return f.str();
}

// gfortran's zero where a directed rounding needs the last place: the two
// fields differ only in their last digit, 0 there and 1 here, and every
// other digit is 0.
bool gfortran_drops_last_place(const std::string& ours, const std::string& theirs) {
  if (ours.size() != theirs.size()) return false;
  size_t last = std::string::npos;
  for (size_t i = 0; i < ours.size(); ++i)
    if (ours[i] >= '0' && ours[i] <= '9') last = i;
  if (last == std::string::npos || ours[last] != '1' || theirs[last] != '0') return false;
  for (size_t i = 0; i < ours.size(); ++i)
    if (i != last && (ours[i] != theirs[i] || (ours[i] >= '1' && ours[i] <= '9'))) return false;
  return true;
}

void compare(const std::vector<Statement>& statements, const std::string& mode) {
  ScratchDir dir;
  std::ostringstream values;
  values.precision(17);
  for (const Statement& s : statements) values << s.value << "\n";
  std::ofstream("values.txt") << values.str();
  std::ostringstream p;
  p << "program oracle\n  real(8) :: v\n  real(4) :: f\n"
    << "  open(11, file='values.txt', status='old')\n";
  for (const Statement& s : statements) {
    p << "  read(11, *) v\n";
    const std::string fmt = full_format(mode, s.format);
    if (s.single)
      p << "  f = real(v, 4)\n  write(10, '" << fmt << "') f\n";
    else
      p << "  write(10, '" << fmt << "') v\n";
  }
  p << "end program\n";
  std::ofstream("oracle.f90") << p.str();
  ASSERT_EQ(system("gfortran -o oracle oracle.f90 && ./oracle"), 0);
  const std::string theirs = dir.read("fort.10");
  ASSERT_EQ(system("rm -f fort.10"), 0);

  for (const Statement& s : statements) {
    const std::string fmt = full_format(mode, s.format);
    if (s.single)
      FormattedWrite(10, fmt).all(static_cast<float>(s.value));
    else
      FormattedWrite(10, fmt).all(s.value);
  }
  close_unit(10);
  const std::string ours = dir.read("fort.10");
  std::istringstream a(ours), b(theirs);
  std::string x, y;
  int mismatches = 0;
  for (const Statement& s : statements) {
    std::getline(a, x);
    std::getline(b, y);
    if (x != y && !gfortran_drops_last_place(x, y) && ++mismatches <= 10)
      ADD_FAILURE() << mode << " (" << s.format << ") of " << s.value
                    << (s.single ? " (REAL*4)" : "") << "\n  ours:     [" << x << "]\n  gfortran: ["
                    << y << "]";
  }
  EXPECT_EQ(mismatches, 0);
}

void run_mode(const std::string& mode, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<Statement> statements;
  for (int i = 0; i < 1500; ++i) {
    const bool single = random() % 4 == 0;
    statements.push_back(
        {random_format(random, !mode.empty()), random_double(random, single ? 30 : 120), single});
  }
  compare(statements, mode);
}

TEST(GfortranRealOracle, DefaultRounding) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  run_mode("", 1);
}

TEST(GfortranRealOracle, RoundUp) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  run_mode("RU", 2);
}

TEST(GfortranRealOracle, RoundDown) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  run_mode("RD", 3);
}

TEST(GfortranRealOracle, RoundTowardZero) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  run_mode("RZ", 4);
}

}  // namespace
