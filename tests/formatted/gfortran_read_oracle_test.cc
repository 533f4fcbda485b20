// Formatted READ against gfortran.  Random records of integers, reals in
// every form, logicals and text, with blanks, short lines and comma
// separators, are read with random formats (I, B, O, Z, F, E, D, EN, ES,
// G, L, A with and without widths, T, TL, TR, X, slashes, repeat groups,
// BN/BZ, P, DC) by a gfortran program and by the library.  The outcome
// (done, end of file, end of record, error) and, when done, every stored
// value bit for bit must agree.  Skipped where gfortran is missing.
//
// Left out, where the two differ by design (each is tested on its own
// against the library's rules):
//   - I, B, O, Z, L and G without a width: gfortran refuses them on input.
//   - A blank L field, or one of a period alone: ours reads false, gfortran
//     reports an error.  A separator behind an L field: ours ends the field
//     there, gfortran reads on.
//   - A sign with nothing after it in a real field: ours reads -0.0 for
//     "-", gfortran +0.0.
//   - Exponent letters with no exponent digits ("1.5E"): ours reads 15, as
//     the exponent stays at its start; gfortran reports an error.
//   - Blanks inside a B, O or Z field under BZ: ours takes them as zero
//     digits, gfortran stops the field there.
//   - NaN: ours stores every fraction bit set (7FFFFFFF), gfortran the
//     default quiet NaN; only NaN-ness and the sign are compared.
//   - T and TL after a field that ran past the end of a short record, or
//     after a field that a separator cut short: gfortran misplaces the
//     next field.  Formats with T or TL get neither short records nor
//     separators, and never move back over what the record holds.
//   - A semicolon ending a field under DECIMAL='COMMA': gfortran reads on.
//   - The positions of a field past the end of a short record under BZ:
//     ours reads them as zeros (I4 of "12" is 1200), gfortran ignores them.
//   - Aw with w above the item's length on a record shorter than the field:
//     ours takes the rightmost characters of the whole field, blanks past
//     the record's end included; gfortran takes them from what the record
//     holds.  So records are not cut behind such a field, nor under BZ.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

enum class Type { I4, I8, R4, R8, L4, Ch };

// "X3", "d17": a prefix and a number.
std::string numbered(const char* prefix, long n) {
  char text[32];
  snprintf(text, sizeof text, "%s%ld", prefix, n);
  return text;
}

struct Item {
  Type type;
  int length = 0;  // of a character item
};

struct Case {
  std::string format;  // without the parentheses' quotes, as Fortran text
  std::vector<Item> items;
  std::string text;  // the file
};

class Generator {
 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  Case make() {
    Case c;
    comma_ = pick(8) == 0;
    std::vector<std::string> pieces;
    records_.assign(1, std::string());
    pos_ = 0;
    no_cut_ = false;
    tabs_ = pick(2) == 0;
    if (comma_) pieces.push_back("DC");
    if (pick(6) == 0) {
      pieces.push_back("BZ");
      blank_zero_ = true;
    } else {
      blank_zero_ = false;
    }
    const int items = 1 + pick(5);
    for (int k = 0; k < items; ++k) {
      if (pick(4) == 0) pieces.push_back(position());
      Item item{static_cast<Type>(pick(6))};
      if (item.type == Type::Ch) item.length = 1 + pick(8);
      pieces.push_back(field(item));
      c.items.push_back(item);
    }
    for (size_t k = 0; k < pieces.size(); ++k) c.format += (k ? "," : "") + pieces[k];
    c.format = "(" + c.format + ")";
    for (std::string& r : records_) {
      // Short lines: the record may stop before its last field ends.
      if (!tabs_ && !no_cut_ && !blank_zero_ && pick(6) == 0 && !r.empty())
        r.resize(r.size() - static_cast<size_t>(pick(int(r.size()))));
      c.text += r + "\n";
    }
    if (pick(10) == 0) c.text.pop_back();  // no final newline
    return c;
  }

 private:
  int pick(int n) { return n <= 0 ? 0 : static_cast<int>(rng_() % static_cast<uint32_t>(n)); }

  // Puts `text` at the current position of the current record.
  void put(const std::string& text) {
    std::string& r = records_.back();
    if (r.size() < pos_ + text.size()) r.resize(pos_ + text.size(), ' ');
    r.replace(pos_, text.size(), text);
    pos_ += text.size();
  }

  std::string position() {
    switch (pick(5)) {
      case 0: {
        const int n = 1 + pick(4);
        put(std::string(static_cast<size_t>(n), ' '));
        return std::to_string(n) + "X";
      }
      case 1:
        if (tabs_) {
          // Never back over what the record holds.
          const size_t n = records_.back().size() + 1 + static_cast<size_t>(pick(4));
          if (pos_ < n - 1) put(std::string(n - 1 - pos_, ' '));
          pos_ = n - 1;
          return numbered("T", static_cast<long>(n));
        }
        [[fallthrough]];
      case 2:
        if (tabs_ && pos_ > records_.back().size()) {
          const int n = 1 + pick(static_cast<int>(pos_ - records_.back().size()));
          pos_ -= static_cast<size_t>(n);
          return numbered("TL", n);
        }
        [[fallthrough]];
      case 3: {
        const int n = 1 + pick(3);
        put(std::string(static_cast<size_t>(n), ' '));
        return numbered("TR", n);
      }
      default:
        records_.emplace_back();
        pos_ = 0;
        return "/";
    }
  }

  // Right-justifies `text` in w columns; a wider text is cut on the left
  // of its digits (still a number of the kind).
  static std::string justify(const std::string& text, int w) {
    if (static_cast<int>(text.size()) >= w)
      return text.substr(text.size() - static_cast<size_t>(w));
    return std::string(static_cast<size_t>(w) - text.size(), ' ') + text;
  }

  // The field text of width w, sometimes cut short by a separator.
  void place(std::string text, int w) {
    if (!tabs_ && !comma_ && w > 2 && pick(10) == 0) {
      const std::string value = text.substr(text.find_first_not_of(' ') == std::string::npos
                                                ? text.size()
                                                : text.find_first_not_of(' '));
      if (static_cast<int>(value.size()) + 1 < w) {
        put(value + (comma_ ? ";" : ","));
        return;
      }
    }
    put(text);
  }

  std::string digits(int n, int radix) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s;
    for (int k = 0; k < n; ++k) s += kDigits[pick(radix)];
    return s;
  }

  std::string field(const Item& item) {
    switch (item.type) {
      case Type::I4:
      case Type::I8:
        return integer_field(item.type == Type::I8 ? 8 : 4);
      case Type::R4:
      case Type::R8:
        return real_field();
      case Type::L4: {
        static const char* kTexts[] = {"T", "F", ".T.", ".F.", "TRUE", "false", "t", " .f"};
        const char* text = kTexts[pick(8)];
        const int w = static_cast<int>(strlen(text)) + pick(3);
        put(justify(text, w));
        no_cut_ = true;  // a short record would leave it blank
        return numbered("L", w);
      }
      default: {
        std::string s;
        const int w = pick(3) == 0 ? 0 : 1 + pick(10);
        for (int k = 0; k < (w ? w : item.length); ++k) s += static_cast<char>('a' + pick(26));
        put(s);
        if (w > item.length) no_cut_ = true;
        return w ? numbered("A", w) : "A";
      }
    }
  }

  std::string integer_field(int bytes) {
    const int kind = pick(4);
    if (kind == 0) {  // I
      const int w = 1 + pick(bytes == 8 ? 20 : 11);
      std::string text = std::to_string(static_cast<int64_t>(rng_()) >> pick(60));
      if (bytes == 4) text = std::to_string(static_cast<int32_t>(rng_()) >> pick(30));
      if (pick(8) == 0 && text[0] != '-') text = "+" + text;
      if (pick(8) == 0 && text.size() > 2) text.insert(1, " ");
      place(justify(text, w), w);
      return numbered("I", w);
    }
    static const int kRadix[] = {2, 8, 16};
    static const char kLetter[] = {'B', 'O', 'Z'};
    const int r = pick(3);
    const int max = kRadix[r] == 2 ? 8 * bytes : kRadix[r] == 8 ? (8 * bytes) / 3 : 2 * bytes;
    const int w = 1 + pick(max);
    std::string text = digits(1 + pick(w), kRadix[r]);
    if (!blank_zero_ && pick(6) == 0 && text.size() > 1) text.insert(1, " ");
    place(justify(text, w), w);
    return std::string(1, kLetter[r]) + std::to_string(w);
  }

  std::string real_field() {
    static const char* kForms[] = {"F", "E", "ES", "EN", "D", "G"};
    const char* form = kForms[pick(6)];
    const int w = 2 + pick(24);
    const int d = pick(w);
    std::string text;
    const char point = comma_ ? ',' : '.';
    switch (pick(6)) {
      case 0:  // digits alone: the point is implied
        text = digits(1 + pick(9), 10);
        break;
      case 1:
        text = digits(pick(6), 10) + point + digits(pick(8), 10);
        break;
      case 2: {
        static const char* kLetters[] = {"E", "e", "D", "d", "Q", "E+", "E-", "+", "-"};
        const std::string letter = kLetters[pick(9)];
        text = digits(1 + pick(4), 10) + point + digits(pick(10), 10) + letter +
               digits(1 + pick(2), 10);
        no_cut_ = true;  // a cut could leave the letter without its digits
        break;
      }
      case 3:
        text = digits(1 + pick(18), 10) + point + digits(1 + pick(18), 10);
        break;
      case 4: {
        static const char* kWords[] = {"Inf", "Infinity", "NaN", "inf", "nan"};
        text = kWords[pick(5)];
        break;
      }
      default:
        text = "";
        break;
    }
    if (pick(3) == 0 && !text.empty()) text = (pick(2) ? "-" : "+") + text;
    std::string piece = std::string(form) + std::to_string(w) + numbered(".", d);
    if (pick(8) == 0) piece = std::to_string(pick(5) - 2) + "P," + piece;
    // Too long for the field: its digits, whatever the form, from the right.
    if (static_cast<int>(text.size()) > w) text = digits(w, 10);
    place(justify(text, w), w);
    return piece;
  }

  std::mt19937 rng_;
  std::vector<std::string> records_;
  size_t pos_ = 0;
  bool comma_ = false;
  bool blank_zero_ = false;
  bool no_cut_ = false;
  bool tabs_ = false;
};

const char* fortran_type(const Item& item, std::string& buffer) {
  switch (item.type) {
    case Type::I4:
      return "integer(4)";
    case Type::I8:
      return "integer(8)";
    case Type::R4:
      return "real(4)";
    case Type::R8:
      return "real(8)";
    case Type::L4:
      return "logical(4)";
    default:
      buffer = numbered("character(len=", item.length) + ")";
      return buffer.c_str();
  }
}

// The program: one subroutine a case, each reading its own file and
// writing its outcome and values to unit 6 in the form `describe` writes.
std::string fortran_program(const std::vector<Case>& cases) {
  std::ostringstream f;
  f << "program oracle\n  implicit none\n";
  for (size_t k = 0; k < cases.size(); ++k) f << "  call case" << k << "()\n";
  f << "contains\n";
  for (size_t k = 0; k < cases.size(); ++k) {
    const Case& c = cases[k];
    f << "subroutine case" << k << "()\n  integer :: ios\n";
    std::string buffer;
    for (size_t j = 0; j < c.items.size(); ++j)
      f << "  " << fortran_type(c.items[j], buffer) << " :: v" << j << "\n";
    for (size_t j = 0; j < c.items.size(); ++j) {
      const Item& item = c.items[j];
      f << "  v" << j << " = "
        << (item.type == Type::L4   ? ".false."
            : item.type == Type::Ch ? numbered("repeat('?', ", item.length) + ")"
                                    : "0")
        << "\n";
    }
    f << "  open(11, file='d" << k << ".txt', status='old')\n";
    f << "  read(11, '" << c.format << "', iostat=ios)";
    for (size_t j = 0; j < c.items.size(); ++j) f << (j ? ", " : " ") << "v" << j;
    f << "\n  close(11)\n";
    f << "  if (ios == 0) then\n    write(*, '(A)') 'done'\n";
    for (size_t j = 0; j < c.items.size(); ++j) {
      switch (c.items[j].type) {
        case Type::I4:
        case Type::R4:
        case Type::L4:
          f << "    write(*, '(Z8.8)') transfer(v" << j << ", 0_4)\n";
          break;
        case Type::I8:
        case Type::R8:
          f << "    write(*, '(Z16.16)') transfer(v" << j << ", 0_8)\n";
          break;
        default:
          f << "    write(*, '(A,A,A)') '[', v" << j << ", ']'\n";
      }
    }
    f << "  else if (ios == -1) then\n    write(*, '(A)') 'end of file'\n";
    f << "  else if (ios == -2) then\n    write(*, '(A)') 'end of record'\n";
    f << "  else\n    write(*, '(A)') 'error'\n  end if\n";
    f << "end subroutine\n";
  }
  f << "end program\n";
  return f.str();
}

std::string hex(uint64_t v, int digits) {
  char text[24];
  snprintf(text, sizeof text, "%0*llX", digits, static_cast<unsigned long long>(v));
  return text;
}

// NaNs of either side as "NaN" and its sign; everything else as it is.
std::string value_text(Type type, const std::string& hex_text) {
  if (type != Type::R4 && type != Type::R8) return hex_text;
  const uint64_t v = strtoull(hex_text.c_str(), nullptr, 16);
  const bool wide = type == Type::R8;
  const uint64_t exponent = wide ? (v >> 52) & 0x7ff : (v >> 23) & 0xff;
  const uint64_t fraction = wide ? v & ((uint64_t{1} << 52) - 1) : v & 0x7fffff;
  const bool nan = exponent == (wide ? 0x7ffu : 0xffu) && fraction != 0;
  if (!nan) return hex_text;
  return (v >> (wide ? 63 : 31)) & 1 ? "-NaN" : "NaN";
}

// The library's reading of case k, described as the program does.
std::string describe(const Case& c, size_t k) {
  std::vector<std::vector<unsigned char>> values;
  for (const Item& item : c.items)
    values.emplace_back(item.type == Type::Ch                              ? item.length
                        : (item.type == Type::I8 || item.type == Type::R8) ? 8
                                                                           : 4,
                        item.type == Type::Ch ? '?' : 0);
  if (Open(11).file(numbered("d", k) + ".txt").status("OLD").run() != 0) return "no file";
  FormattedRead r(11, c.format, SF_ERR_RETURN | SF_END_RETURN | SF_EOR_RETURN);
  r.start();
  for (size_t j = 0; j < c.items.size(); ++j) {
    void* v = values[j].data();
    switch (c.items[j].type) {
      case Type::I4:
        r.item(static_cast<int32_t*>(v));
        break;
      case Type::I8:
        r.item(static_cast<int64_t*>(v));
        break;
      case Type::R4:
        r.item(static_cast<float*>(v));
        break;
      case Type::R8:
        r.item(static_cast<double*>(v));
        break;
      case Type::L4:
        r.item(LogicalOut{v});
        break;
      default:
        r.item(CharOut{static_cast<char*>(v), c.items[j].length});
    }
  }
  r.end();
  close_unit(11);
  const int status = r.status();
  if (status == -1) return "end of file\n";
  if (status == -2) return "end of record\n";
  if (status != 0) return "error\n";
  std::string out = "done\n";
  for (size_t j = 0; j < c.items.size(); ++j) {
    const auto& b = values[j];
    if (c.items[j].type == Type::Ch) {
      out += "[" + std::string(b.begin(), b.end()) + "]\n";
      continue;
    }
    uint64_t v = 0;
    memcpy(&v, b.data(), b.size());
    // A logical is 1 or 0 on both sides.
    out += value_text(c.items[j].type, hex(v, static_cast<int>(2 * b.size()))) + "\n";
  }
  return out;
}

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

}  // namespace

TEST(GfortranReadOracle, RandomRecordsAndFormatsReadAlike) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  ScratchDir dir;
  Generator g(20261124);
  std::vector<Case> cases;
  for (int k = 0; k < 1500; ++k) {
    cases.push_back(g.make());
    dir.write(numbered("d", k) + ".txt", cases.back().text);
  }
  dir.write("oracle.f90", fortran_program(cases));
  ASSERT_EQ(system("gfortran -ffree-line-length-none -o oracle oracle.f90 2>compile.txt && "
                   "./oracle >expected.txt"),
            0)
      << dir.read("compile.txt");
  std::istringstream expected(dir.read("expected.txt"));
  std::string line;
  int mismatches = 0;
  for (size_t k = 0; k < cases.size(); ++k) {
    std::string want;
    std::getline(expected, line);
    want = line + "\n";
    if (line == "done")
      for (size_t j = 0; j < cases[k].items.size() && std::getline(expected, line); ++j)
        want += value_text(cases[k].items[j].type, line) + "\n";
    const std::string got = describe(cases[k], k);
    if (got != want && ++mismatches <= 15)
      ADD_FAILURE() << "case " << k << ": format " << cases[k].format << "\nfile:\n"
                    << cases[k].text << "\ngfortran:\n"
                    << want << "ours:\n"
                    << got;
  }
  EXPECT_EQ(mismatches, 0);
}
