// Whole WRITE statements against gfortran.  Random formats of integer,
// logical and character descriptors, with positioning, strings, slashes,
// colons, sign modes, repeat counts, nested groups and reversion, get random
// items of the types their descriptors take; some statements are
// non-advancing and the next statement continues their record.  Both sides
// write every statement of a batch to unit 10, a marker record closes each
// chain of statements, and the two files are compared record by record.
// Skipped where gfortran is missing.
//
// Left out, where the two differ by design or gfortran is at fault:
//   - I, B, O and Z without a width: gfortran refuses them.
//   - L without a width: ours is 2 wide, gfortran's 1.
//   - A field of no characters (A of an empty item, an empty string) right
//     after X, TR or a T past the end of the record: gfortran fills the
//     skipped positions with blanks; ours adds nothing, as nothing is
//     written there.
//   - A position edit right after another: gfortran misplaces some T and
//     TL there; (A,T10,T3,A) of 'abcdef', 'X' gives abcXef, not abXdef, and
//     (4X,T2,A) of 'X' gives "    X", not " X".
//   - B, O and Z with m = 0 of the least 8-byte integer: gfortran writes
//     blanks, as for zero.
//   - In a non-advancing statement, T and TL, and X or TR that no string
//     follows: gfortran begins the next statement at the position they
//     leave.  Ours begins it behind the last byte written, as every
//     statement starts at the end of the data in the buffer (tested in
//     FormatRecords.NonAdvancingRecordContinuesBehindItsLastByte).
// So the random formats put behind every position edit a slash or a field
// of at least one character, and never give B, O or Z with m = 0 the least
// 8-byte integer.
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "gtest/gtest.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using qal::test::close_unit;
using qal::test::FormattedWrite;
using qal::test::Logical;
using qal::test::ScratchDir;

namespace {

constexpr int64_t kUnit = 10;

// What a data edit descriptor asks of its item.
enum class Want {
  Integer,
  IntegerButLeast,  // anything but the least 8-byte value
  Logical,
  Character,
  Text,  // at least one character
};

using Item = std::variant<int8_t, int16_t, int32_t, int64_t, Logical, std::string>;

struct Statement {
  std::string format;
  std::vector<Item> items;
  bool advancing = true;
};

// Non-advancing statements, then the advancing one that ends their record.
using Chain = std::vector<Statement>;

// One element of a format list: its text and the types of the items it
// takes in one pass.
struct Piece {
  std::string text;
  std::vector<Want> takes;
  bool group = false;
};

// Characters of format strings and character items: no '@', which marks
// the end of a chain in the files.
constexpr std::string_view kTextChars = "abcxyzABCXYZ0189 .,;:-+*/()=<>'\"";

class Generator {
 public:
  explicit Generator(uint64_t seed) : random_(seed) {}

  // Up to `longest` statements, all but the last non-advancing; `revert`
  // makes every statement run past the end of its format at least once.
  Chain chain(int longest, bool revert) {
    Chain c;
    const int length = pick(1, longest);
    for (int k = 0; k < length; ++k) c.push_back(statement(revert, k == length - 1));
    return c;
  }

 private:
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random_); }
  bool chance(int percent) { return pick(1, 100) <= percent; }
  std::string number(int lo, int hi) { return std::to_string(pick(lo, hi)); }
  char text_char() {
    return kTextChars[static_cast<size_t>(pick(0, static_cast<int>(kTextChars.size()) - 1))];
  }

  Statement statement(bool revert, bool advancing) {
    restricted_ = !advancing;
    for (;;) {
      std::vector<Piece> pieces = list(1, pick(1, 6));
      if (!restricted_ && chance(25)) pieces.push_back({bare_position(), {}});
      // Reversion goes to the last group of the outermost list, else to
      // the start of the format.
      size_t from = 0;
      for (size_t i = 0; i < pieces.size(); ++i)
        if (pieces[i].group) from = i;
      std::vector<Want> first, again;
      for (size_t i = 0; i < pieces.size(); ++i) {
        first.insert(first.end(), pieces[i].takes.begin(), pieces[i].takes.end());
        if (i >= from) again.insert(again.end(), pieces[i].takes.begin(), pieces[i].takes.end());
      }
      if (revert && (again.empty() || (!pieces[from].group && chance(80)))) continue;
      size_t n = 0;
      if (revert)
        n = first.size() + static_cast<size_t>(pick(1, 2 * static_cast<int>(again.size()) + 1));
      else if (!first.empty())
        n = static_cast<size_t>(pick(0, static_cast<int>(first.size() + again.size())));
      Statement s{"(" + join(pieces) + ")", {}, advancing};
      for (size_t k = 0; k < n; ++k)
        s.items.push_back(
            item(k < first.size() ? first[k] : again[(k - first.size()) % again.size()]));
      return s;
    }
  }

  static std::string join(const std::vector<Piece>& pieces) {
    std::string text;
    for (const Piece& p : pieces) text += (text.empty() ? "" : ",") + p.text;
    return text;
  }

  std::vector<Piece> list(int depth, int count) {
    std::vector<Piece> pieces;
    for (int k = 0; k < count; ++k) pieces.push_back(element(depth));
    return pieces;
  }

  // An element of a list `depth` parentheses deep.
  Piece element(int depth) {
    const int roll = pick(1, 100);
    if (roll <= 40) return data_edit();
    if (roll <= 52) return string(false);
    if (roll <= 68) return position();
    if (roll <= 73) return {chance(60) ? "/" : number(2, 3) + "/", {}};
    if (roll <= 77) return {":", {}};
    if (roll <= 85) {
      static constexpr const char* kSigns[] = {"SP", "SS", "S"};
      return {kSigns[pick(0, 2)], {}};
    }
    return depth < 4 ? group(depth) : data_edit();
  }

  Piece group(int depth) {
    const int repeat = chance(50) ? 1 : pick(2, 3);
    const std::vector<Piece> inner = list(depth + 1, pick(1, 4));
    Piece g{(repeat > 1 ? std::to_string(repeat) : "") + "(" + join(inner) + ")", {}, true};
    for (int k = 0; k < repeat; ++k)
      for (const Piece& p : inner) g.takes.insert(g.takes.end(), p.takes.begin(), p.takes.end());
    return g;
  }

  // `led`: a position edit stands right before it.
  Piece data_edit(bool led = false) {
    Piece d;
    const int roll = pick(1, 10);
    if (roll <= 6) {
      static constexpr std::string_view kLetters = "IBOZ";
      const char letter = kLetters[static_cast<size_t>(pick(0, 3))];
      const int widest = letter == 'B' ? 70 : letter == 'O' ? 26 : letter == 'Z' ? 20 : 24;
      const int w = chance(20) ? 0 : pick(1, widest);
      const int m = chance(45) ? pick(0, w ? w : widest - 2) : -1;
      d.text = letter + std::to_string(w) + (m < 0 ? "" : "." + std::to_string(m));
      d.takes = {letter != 'I' && m == 0 ? Want::IntegerButLeast : Want::Integer};
    } else if (roll <= 8) {
      d = {"L" + number(1, 7), {Want::Logical}};
    } else {
      d = {chance(40) ? "A" : "A" + number(1, 12), {led ? Want::Text : Want::Character}};
    }
    if (chance(20)) {
      const int n = pick(2, 4);
      d.text = std::to_string(n) + d.text;
      d.takes.assign(static_cast<size_t>(n), d.takes[0]);
    }
    return d;
  }

  std::string bare_position() {
    switch (pick(0, 3)) {
      case 0:
        return "T" + number(1, 40);
      case 1:
        return "TL" + number(1, 12);
      case 2:
        return "TR" + number(1, 6);
      default:
        return number(1, 6) + "X";
    }
  }

  // A position edit and what follows it: a field of at least one
  // character, a string of at least one, or a slash.  In a non-advancing
  // statement only X or TR, and a string.
  Piece position() {
    if (restricted_) {
      const std::string skip = chance(50) ? "TR" + number(1, 6) : number(1, 6) + "X";
      return {skip + "," + string(true).text, {}};
    }
    const std::string at = bare_position() + ",";
    const int roll = pick(1, 10);
    if (roll == 1) return {at + "/", {}};
    if (roll <= 4) return {at + string(true).text, {}};
    Piece d = data_edit(true);
    d.text = at + d.text;
    return d;
  }

  // A quoted string, its delimiter doubled inside now and then.
  Piece string(bool nonempty) {
    const char quote = chance(50) ? '\'' : '"';
    std::string s(1, quote);
    for (int n = pick(nonempty ? 1 : 0, 6); n > 0; --n) {
      const char c = chance(10) ? quote : text_char();
      s += c;
      if (c == quote) s += quote;
    }
    return {s + quote, {}};
  }

  template <class T>
  T integer() {
    switch (pick(0, 9)) {
      case 0:
        return std::numeric_limits<T>::min();
      case 1:
        return std::numeric_limits<T>::max();
      case 2:
        return 0;
      case 3:
        return -1;
      default: {
        const uint64_t bits = random_() >> (64 - pick(1, 8 * sizeof(T)));
        return static_cast<T>(chance(35) ? 0 - bits : bits);
      }
    }
  }

  Item item(Want want) {
    static constexpr int kKinds[] = {1, 2, 4, 8};
    switch (want) {
      case Want::Logical:
        return Logical{chance(50) ? 1 : 0, kKinds[pick(0, 3)]};
      case Want::Character:
      case Want::Text: {
        std::string s;
        const bool empty = want == Want::Character && chance(15);
        for (int n = empty ? 0 : pick(1, 14); n > 0; --n) s += text_char();
        return s;
      }
      default:
        switch (pick(0, 3)) {
          case 0:
            return integer<int8_t>();
          case 1:
            return integer<int16_t>();
          case 2:
            return integer<int32_t>();
          default: {
            const int64_t v = integer<int64_t>();
            const bool least = v == std::numeric_limits<int64_t>::min();
            return least && want == Want::IntegerButLeast ? v + 1 : v;
          }
        }
    }
  }

  std::mt19937_64 random_;
  bool restricted_ = false;
};

// A character literal of either language's source, delimited by `'`.
std::string literal(std::string_view text) {
  std::string s = "'";
  for (char c : text) s += c == '\'' ? std::string("''") : std::string(1, c);
  return s + "'";
}

// The item as a Fortran expression of its own kind.
std::string fortran(const Item& item) {
  return std::visit(
      [](const auto& v) -> std::string {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return literal(v);
        } else if constexpr (std::is_same_v<T, Logical>) {
          return (v.value ? ".true._" : ".false._") + std::to_string(v.kind);
        } else {
          if (v == std::numeric_limits<int64_t>::min()) return "(-huge(0_8)-1_8)";
          return "int(" + std::to_string(v) + "_8," + std::to_string(sizeof(T)) + ")";
        }
      },
      item);
}

std::string program(const std::vector<Chain>& chains) {
  std::ostringstream p;
  p << "program oracle\n";
  for (size_t k = 0; k < chains.size(); ++k) {
    for (const Statement& s : chains[k]) {
      p << "  write(" << kUnit << ", " << literal(s.format)
        << (s.advancing ? ")" : ", advance='no')");
      for (size_t i = 0; i < s.items.size(); ++i) p << (i ? ", " : " ") << fortran(s.items[i]);
      p << "\n";
    }
    p << "  write(" << kUnit << ", '(A,I0)') '@@', " << k << "\n";
  }
  p << "end program\n";
  return p.str();
}

std::string describe(const Chain& chain) {
  std::ostringstream d;
  for (const Statement& s : chain) {
    d << "  WRITE " << s.format << (s.advancing ? "" : " ADVANCE='NO'");
    for (const Item& item : s.items) d << "  " << fortran(item);
    d << "\n";
  }
  return d.str();
}

// The same statements through the library; a failing statement is reported.
void write_ours(const std::vector<Chain>& chains) {
  for (size_t k = 0; k < chains.size(); ++k) {
    for (const Statement& s : chains[k]) {
      FormattedWrite w(kUnit, s.format, qal::SF_ERR_RETURN);
      w.start();
      if (!s.advancing) w.advance("NO");
      for (const Item& item : s.items)
        std::visit(
            [&](const auto& v) {
              if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::string>)
                w.item(std::string_view(v));
              else
                w.item(v);
            },
            item);
      w.end();
      EXPECT_EQ(w.status(), 0) << describe(chains[k]);
    }
    FormattedWrite marker(kUnit, "(A,I0)", qal::SF_ERR_RETURN);
    EXPECT_EQ(marker.all("@@", static_cast<int32_t>(k)), 0);
  }
}

// The records of a file by chain: those before the marker of chain 0, then
// those before the marker of chain 1, and so on; whatever stands behind the
// last marker comes as one more, normally empty, list.
std::vector<std::vector<std::string>> records_by_chain(const std::string& text, size_t chains) {
  std::vector<std::vector<std::string>> by_chain(1);
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (by_chain.size() <= chains && line == "@@" + std::to_string(by_chain.size() - 1))
      by_chain.emplace_back();
    else
      by_chain.back().push_back(line);
  }
  by_chain.resize(chains + 1);
  return by_chain;
}

std::string show(const std::vector<std::string>& records) {
  std::string s;
  for (const std::string& r : records) s += "  [" + r + "]\n";
  return s;
}

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

// Writes the chains on both sides and reports each chain whose records
// differ, with its statements and both texts.
void compare(const std::vector<Chain>& chains) {
  ScratchDir dir;
  write_ours(chains);
  ASSERT_EQ(close_unit(kUnit), 0);
  const std::string ours = dir.read("fort.10");
  ASSERT_EQ(remove("fort.10"), 0);

  std::ofstream("oracle.f90") << program(chains);
  ASSERT_EQ(system("gfortran -ffree-line-length-none -o oracle oracle.f90 2>compile.txt && "
                   "./oracle 2>run.txt"),
            0)
      << dir.read("compile.txt") << dir.read("run.txt");
  const std::string theirs = dir.read("fort.10");

  const auto a = records_by_chain(ours, chains.size());
  const auto b = records_by_chain(theirs, chains.size());
  int reported = 0;
  for (size_t k = 0; k <= chains.size() && reported < 12; ++k) {
    if (a[k] == b[k]) continue;
    ++reported;
    ADD_FAILURE() << (k < chains.size() ? describe(chains[k]) : "  behind the last chain\n")
                  << "ours:\n"
                  << show(a[k]) << "gfortran:\n"
                  << show(b[k]);
  }
}

std::vector<Chain> random_chains(uint64_t seed, int count, int longest, bool revert) {
  Generator g(seed);
  std::vector<Chain> chains;
  for (int k = 0; k < count; ++k) chains.push_back(g.chain(longest, revert));
  return chains;
}

TEST(GfortranStatementOracle, RandomAdvancingStatements) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  compare(random_chains(20261122, 300, 1, false));
}

TEST(GfortranStatementOracle, RandomStatementsRunningPastTheirFormat) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  compare(random_chains(20261123, 150, 1, true));
}

TEST(GfortranStatementOracle, RandomNonAdvancingChains) {
  if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
  compare(random_chains(20261124, 150, 4, false));
}

}  // namespace
