// The specifier parsers of OPEN and CLOSE, and the ASYNCHRONOUS=, ROUND= and
// DECIMAL= workers the transfer statements share.  Each clears its field of
// the word, then sets it from a text that must begin with one of its values
// (in any case) and continue with blanks only.
#include <string.h>

#include "connect/connect.h"

using namespace qal;

namespace {

struct Choice {
  const char* value;  // upper case
  uint32_t bits;
};

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

bool only_blanks(const char* p, const char* end) {
  for (; p < end; ++p)
    if (*p != ' ') return false;
  return true;
}

// `text` begins with `value`, ignoring case, and has only blanks after it.
bool matches(const char* text, int64_t length, const char* value) {
  const size_t n = strlen(value);
  if (length < 0 || static_cast<uint64_t>(length) < n) return false;
  for (size_t i = 0; i < n; ++i)
    if (upper(text[i]) != value[i]) return false;
  return only_blanks(text + n, text + length);
}

int fail(const uint32_t* word, int err, const Location* location) {
  if (*word & OF_ERR_RETURN) return err;
  report_and_abort(err, location, false, 0, nullptr);
}

// One parser: its field, its two errors, its values.
template <uint32_t field, int unassociated, int unknown, size_t N>
int parse(uint32_t* word, const char* text, int64_t length, const Location* location,
          const Choice (&choices)[N]) {
  *word &= ~field;
  initialise_for(*word, location);
  if (!text) return fail(word, unassociated, location);
  for (const Choice& c : choices)
    if (matches(text, length, c.value)) {
      *word |= c.bits;
      return 0;
    }
  return fail(word, unknown, location);
}

constexpr Choice kForms[] = {{"FORMATTED", OF_FORM_FORMATTED},
                             {"UNFORMATTED", OF_FORM_UNFORMATTED},
                             {"BINARY", OF_FORM_BINARY}};
constexpr Choice kFormsOld[] = {{"FORMATTED", OF_FORM_FORMATTED},
                                {"UNFORMATTED", OF_FORM_UNFORMATTED},
                                {"BINARY", OF_FORM_BINARY},
                                {"PRINT", OF_FORM_PRINT}};
constexpr Choice kAccesses[] = {{"SEQUENTIAL", OF_ACCESS_SEQUENTIAL},
                                {"DIRECT", OF_ACCESS_DIRECT},
                                {"STREAM", OF_ACCESS_STREAM}};
constexpr Choice kAccessesOld[] = {{"SEQUENTIAL", OF_ACCESS_SEQUENTIAL},
                                   {"DIRECT", OF_ACCESS_DIRECT},
                                   {"STREAM", OF_ACCESS_STREAM},
                                   {"APPEND", OF_ACCESS_APPEND}};
constexpr Choice kStatuses[] = {{"OLD", OF_STATUS_OLD},
                                {"NEW", OF_STATUS_NEW},
                                {"UNKNOWN", OF_STATUS_UNKNOWN},
                                {"REPLACE", OF_STATUS_REPLACE},
                                {"SCRATCH", OF_STATUS_SCRATCH}};
constexpr Choice kBlanks[] = {{"NULL", 0}, {"ZERO", OF_BLANK_ZERO}};
constexpr Choice kPositions[] = {
    {"ASIS", 0}, {"REWIND", OF_POSITION_REWIND}, {"APPEND", OF_POSITION_APPEND}};
constexpr Choice kActions[] = {
    {"READ", OF_ACTION_READ}, {"WRITE", OF_ACTION_WRITE}, {"READWRITE", OF_ACTION_READWRITE}};
constexpr Choice kDelims[] = {
    {"NONE", 0}, {"APOSTROPHE", OF_DELIM_APOSTROPHE}, {"QUOTE", OF_DELIM_QUOTE}};
constexpr Choice kPads[] = {{"YES", 0}, {"NO", OF_PAD_NO}};
constexpr Choice kAsynchronous[] = {{"YES", OF_ASYNCHRONOUS}, {"NO", 0}};
constexpr Choice kRounds[] = {{"UP", SF_ROUND_UP},
                              {"DOWN", SF_ROUND_DOWN},
                              {"ZERO", SF_ROUND_ZERO},
                              {"NEAREST", SF_ROUND_NEAREST},
                              {"COMPATIBLE", SF_ROUND_COMPATIBLE},
                              {"PROCESSOR_DEFINED", SF_ROUND_PROCESSOR_DEFINED}};
constexpr Choice kDecimals[] = {{"POINT", OF_DECIMAL_POINT}, {"COMMA", OF_DECIMAL_COMMA}};
constexpr Choice kCloseStatuses[] = {{"KEEP", CF_STATUS_KEEP}, {"DELETE", CF_STATUS_DELETE}};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// BUFFER [blanks] = [blanks] [+|-] [blanks] digit {digit|blank}: true with
// the value when the text has that shape.  A magnitude past 63 bits stops
// growing and sets *overflow.
bool parse_buffer_size(const char* p, const char* end, int64_t* value, bool* overflow) {
  static const char kWord[] = "BUFFER";
  for (const char* w = kWord; *w; ++w, ++p)
    if (p == end || upper(*p) != *w) return false;
  while (p < end && *p == ' ') ++p;
  if (p == end || *p != '=') return false;
  ++p;
  while (p < end && *p == ' ') ++p;
  bool negative = false;
  if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  while (p < end && *p == ' ') ++p;
  if (p == end || !is_digit(*p)) return false;
  uint64_t magnitude = 0;
  *overflow = false;
  for (; p < end; ++p) {
    if (*p == ' ') continue;
    if (!is_digit(*p)) return false;
    uint64_t next;
    if (*overflow || __builtin_mul_overflow(magnitude, 10u, &next) ||
        __builtin_add_overflow(next, static_cast<uint64_t>(*p - '0'), &next) ||
        next > uint64_t{INT64_MAX})
      *overflow = true;
    else
      magnitude = next;
  }
  *value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
  return true;
}

}  // namespace

namespace qal {

void initialise_for(uint32_t word, const Location* location) {
  if (initio_done()) return;
  if (word & OF_ERR_RETURN)
    __f90_initio_r();
  else
    __f90_initio_a(location);
}

}  // namespace qal

namespace qal {
extern "C" {

QAL_EXPORT int __f90_open_form(uint32_t* word, const char* text, int64_t length,
                               const Location* location) {
  return parse<OF_FORM, ERR_UNASSOCIATED_FORM, ERR_BAD_FORM>(word, text, length, location, kForms);
}
QAL_EXPORT int __f90_open_form_f77compat(uint32_t* word, const char* text, int64_t length,
                                         const Location* location) {
  return parse<OF_FORM, ERR_UNASSOCIATED_FORM, ERR_BAD_FORM>(word, text, length, location,
                                                             kFormsOld);
}
QAL_EXPORT int __f90_open_access(uint32_t* word, const char* text, int64_t length,
                                 const Location* location) {
  return parse<OF_ACCESS, ERR_UNASSOCIATED_ACCESS, ERR_BAD_ACCESS>(word, text, length, location,
                                                                   kAccesses);
}
QAL_EXPORT int __f90_open_access_f77compat(uint32_t* word, const char* text, int64_t length,
                                           const Location* location) {
  return parse<OF_ACCESS, ERR_UNASSOCIATED_ACCESS, ERR_BAD_ACCESS>(word, text, length, location,
                                                                   kAccessesOld);
}
QAL_EXPORT int __f90_open_status(uint32_t* word, const char* text, int64_t length,
                                 const Location* location) {
  return parse<OF_STATUS, ERR_UNASSOCIATED_STATUS, ERR_BAD_STATUS>(word, text, length, location,
                                                                   kStatuses);
}
QAL_EXPORT int __f90_open_blank(uint32_t* word, const char* text, int64_t length,
                                const Location* location) {
  return parse<OF_BLANK_ZERO, ERR_UNASSOCIATED_BLANK, ERR_BAD_BLANK>(word, text, length, location,
                                                                     kBlanks);
}
QAL_EXPORT int __f90_open_position(uint32_t* word, const char* text, int64_t length,
                                   const Location* location) {
  return parse<OF_POSITION, ERR_UNASSOCIATED_POSITION, ERR_BAD_POSITION>(word, text, length,
                                                                         location, kPositions);
}
QAL_EXPORT int __f90_open_action(uint32_t* word, const char* text, int64_t length,
                                 const Location* location) {
  return parse<OF_ACTION, ERR_UNASSOCIATED_ACTION, ERR_BAD_ACTION>(word, text, length, location,
                                                                   kActions);
}
QAL_EXPORT int __f90_open_delim(uint32_t* word, const char* text, int64_t length,
                                const Location* location) {
  return parse<OF_DELIM, ERR_UNASSOCIATED_DELIM, ERR_BAD_DELIM>(word, text, length, location,
                                                                kDelims);
}
QAL_EXPORT int __f90_open_pad(uint32_t* word, const char* text, int64_t length,
                              const Location* location) {
  return parse<OF_PAD_NO, ERR_UNASSOCIATED_PAD, ERR_BAD_PAD>(word, text, length, location, kPads);
}
QAL_EXPORT int __f90_parse_asynchronous(uint32_t* word, const char* text, int64_t length,
                                        const Location* location) {
  return parse<OF_ASYNCHRONOUS, ERR_UNASSOCIATED_ASYNCHRONOUS, ERR_BAD_ASYNCHRONOUS>(
      word, text, length, location, kAsynchronous);
}
QAL_EXPORT int __f90_parse_round(uint32_t* word, const char* text, int64_t length,
                                 const Location* location) {
  return parse<OF_ROUND, ERR_UNASSOCIATED_ROUND, ERR_BAD_ROUND>(word, text, length, location,
                                                                kRounds);
}
QAL_EXPORT int __f90_parse_decimal(uint32_t* word, const char* text, int64_t length,
                                   const Location* location) {
  return parse<OF_DECIMAL, ERR_UNASSOCIATED_DECIMAL, ERR_BAD_DECIMAL>(word, text, length, location,
                                                                      kDecimals);
}
QAL_EXPORT int __f90_close_status(uint32_t* word, const char* text, int64_t length,
                                  const Location* location) {
  return parse<CF_STATUS, ERR_UNASSOCIATED_STATUS, ERR_BAD_CLOSE_STATUS>(word, text, length,
                                                                         location, kCloseStatuses);
}

// The OPEN spellings of the workers the transfer statements share.
QAL_EXPORT int __f90_open_asynchronous(uint32_t* word, const char* text, int64_t length,
                                       const Location* location) {
  return __f90_parse_asynchronous(word, text, length, location);
}
QAL_EXPORT int __f90_open_round(uint32_t* word, const char* text, int64_t length,
                                const Location* location) {
  return __f90_parse_round(word, text, length, location);
}
QAL_EXPORT int __f90_open_decimal(uint32_t* word, const char* text, int64_t length,
                                  const Location* location) {
  return __f90_parse_decimal(word, text, length, location);
}

// FILEOPT=: EOF, NOPAD or BUFFER=N.  Without a place for N (buffer_size
// null) BUFFER=N is accepted and forgotten.
QAL_EXPORT int __f90_parse_fileopt(uint32_t* word, const char* text, int64_t length,
                                   const Location* location, int64_t* buffer_size) {
  *word &= ~static_cast<uint32_t>(OF_FILEOPT);
  initialise_for(*word, location);
  if (!text) return fail(word, ERR_UNASSOCIATED_FILEOPT, location);
  if (matches(text, length, "EOF")) {
    *word |= OF_FILEOPT_EOF;
    return 0;
  }
  if (matches(text, length, "NOPAD")) {
    *word |= OF_FILEOPT_NOPAD;
    return 0;
  }
  int64_t value = 0;
  bool overflow = false;
  if (length <= 0 || !parse_buffer_size(text, text + length, &value, &overflow))
    return fail(word, ERR_BAD_FILEOPT, location);
  if (overflow) return fail(word, ERR_BUFFER_SIZE_RANGE, location);
  if (buffer_size) {
    *buffer_size = value;
    *word |= OF_FILEOPT_BUFFER;
  }
  return 0;
}
QAL_EXPORT int __f90_open_fileopt(uint32_t* word, const char* text, int64_t length,
                                  const Location* location) {
  return __f90_parse_fileopt(word, text, length, location, nullptr);
}
QAL_EXPORT int __f95_open_fileopt(uint32_t* word, const char* text, int64_t length,
                                  const Location* location, int64_t* buffer_size) {
  return __f90_parse_fileopt(word, text, length, location, buffer_size);
}

}  // extern "C"
}  // namespace qal
