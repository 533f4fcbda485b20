// INQUIRE as compiled code issues it, asking for everything with every
// text place poisoned first, and what it answered.
#pragma once

#include <string.h>

#include <initializer_list>
#include <map>
#include <string>

#include "qal/qal.h"
#include "support/connect.h"
#include "support/statements.h"

namespace qal::test {

struct TextResult {
  const char* name;
  uint32_t flag;
  int missing;  // the error when its place is null
};

inline constexpr TextResult kTexts[] = {
    {"ACCESS", IF_ACCESS, 1111},
    {"ACTION", IF_ACTION, 1112},
    {"BLANK", IF_BLANK, 1114},
    {"DELIM", IF_DELIM, 1115},
    {"DIRECT", IF_DIRECT, 1116},
    {"FORM", IF_FORM, 1119},
    {"FORMATTED", IF_FORMATTED, 1120},
    {"NAME", IF_NAME, 1121},
    {"PAD", IF_PAD, 1122},
    {"POSITION", IF_POSITION, 1123},
    {"READ", IF_READ, 1124},
    {"READWRITE", IF_READWRITE, 1125},
    {"SEQUENTIAL", IF_SEQUENTIAL, 1126},
    {"UNFORMATTED", IF_UNFORMATTED, 1128},
    {"WRITE", IF_WRITE, 1129},
    {"ASYNCHRONOUS", IF_ASYNCHRONOUS, 1172},
    {"DECIMAL", IF_DECIMAL, 1173},
    {"ROUND", IF_ROUND, 1175},
    {"STREAM", IF_STREAM, 1176},
};

inline constexpr uint32_t kAllTexts = [] {
  uint32_t all = 0;
  for (const TextResult& t : kTexts) all |= t.flag;
  return all;
}();
inline constexpr uint32_t kEverything = kAllTexts | IF_POS | IF_SIZE | IF_PENDING;

template <class Block>
InquireText& place(Block& b, int i) {
  InquireText* const places[] = {&b.access,     &b.action,      &b.blank,     &b.delim,
                                 &b.direct,     &b.form,        &b.formatted, &b.name,
                                 &b.pad,        &b.position,    &b.read,      &b.readwrite,
                                 &b.sequential, &b.unformatted, &b.write,     &b.asynchronous,
                                 &b.decimal,    &b.round,       &b.stream};
  return *places[i];
}

// What one INQUIRE wrote.  A text is shown without its blank fill, or as
// "-" when it was left alone; a number left alone is kUntouched.
struct Answers {
  static constexpr int64_t kUntouched = -77;
  int status = 0;
  int64_t number = kUntouched, nextrec = kUntouched, recl = kUntouched;
  int64_t pos = kUntouched, size = kUntouched;
  int32_t exist = -7, opened = -7, named = -7, pending = -7;
  std::map<std::string, std::string> text;
  const std::string& operator[](const std::string& name) const { return text.at(name); }
};

// Runs INQUIRE on a block whose subject is set, asking for `want`, with
// every text place poisoned first.
template <class Block, class Entry>
Answers ask(Block& b, Entry entry, uint32_t want) {
  static const Location where{LOC_INQUIRE, 21, kSourceFile};
  b.iflags = want;
  b.location = &where;
  b.number = b.nextrec = b.recl = b.pos = b.size = Answers::kUntouched;
  b.exist = b.opened = b.named = b.pending = -7;
  char places[19][300];
  memset(places, '#', sizeof places);
  for (int i = 0; i < 19; ++i) place(b, i) = {places[i], i == 7 ? 300 : 20};
  Answers a;
  a.status = entry(&b);
  a.number = b.number;
  a.nextrec = b.nextrec;
  a.recl = b.recl;
  a.pos = b.pos;
  a.size = b.size;
  a.exist = b.exist;
  a.opened = b.opened;
  a.named = b.named;
  a.pending = b.pending;
  for (int i = 0; i < 19; ++i) {
    std::string s(places[i], i == 7 ? 300 : 20);
    if (s.find_first_not_of('#') == std::string::npos)
      s.assign(1, '-');
    else
      s.resize(s.find_last_not_of(' ') + 1);
    a.text.emplace(kTexts[i].name, std::move(s));
  }
  return a;
}

inline Answers inquire_unit(int64_t unit, uint32_t want = kEverything | IF_ERR_RETURN) {
  InquireBlock b{};
  b.unit = unit;
  return ask(b, __f90_inqu, want);
}

inline Answers inquire_file(const std::string& file, uint32_t want = kEverything | IF_ERR_RETURN) {
  InquireFileBlock b{};
  b.file = file.data();
  b.file_length = static_cast<int32_t>(file.size());
  return ask(b, __f90_inqf, want);
}

inline std::string texts(const Answers& a, std::initializer_list<const char*> names) {
  std::string s;
  for (const char* n : names) {
    s.append(n).append("=");
    s.append(a[n]).append(" ");
  }
  return s;
}

inline int rewind_unit(int64_t unit) {
  static const Location where{LOC_REWIND, 3, kSourceFile};
  IoStatementPos p{unit, SF_ERR_RETURN, &where};
  return __f90_rewind(&p);
}

inline int put(const std::string& text, int64_t unit = 10) {
  return FormattedWrite(unit, "(A)", SF_ERR_RETURN).all(text.c_str());
}

}  // namespace qal::test
