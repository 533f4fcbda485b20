// Catalogue readers, the report writers that fatal reports are built from,
// the IOMSG= text and the check entries of compiled code.
#include "qal/diagnostics.h"

#include <errno.h>
#include <nl_types.h>
#include <stdlib.h>
#include <string.h>

#include "frame/report.h"
#include "qal/errors.h"

namespace qal {
namespace {

// The translated catalogue; null while there is none, and then every
// reader gives the built-in text.  Set once, before threads exist.
constinit nl_catd catalogue = nullptr;

constexpr char kCatalogueName[] = "KORV_XYLO_TQ_libf90";
constexpr size_t kCataloguePathSize = 4096;

enum CatalogueSet { SET_ERRORS = 1, SET_LOCATIONS = 2, SET_MISC = 3, SET_STOP_PAUSE = 4 };

const char* lookup(int set, int number, const char* fallback) {
  if (catalogue == nullptr) return fallback;
  // A missing message sets errno; a report must not disturb the caller's.
  int saved = errno;
  const char* text = catgets(catalogue, set, number, fallback);
  errno = saved;
  return text;
}

// The text of an error number, or null when it has none; a number past the
// end of its table has none rather than a read beyond it.
const char* message_text(int32_t number) {
  if (number >= 1 && number <= 999) return strerror(number);
  if (number >= 1000 && number < 2000) {
    return number - 1000 < RUNTIME_ERROR_COUNT ? __f90_rmsg(number) : nullptr;
  }
  if (number >= 2000) return number - 2000 < POSIX9_ERROR_COUNT ? __f90_pmsg(number) : nullptr;
  return nullptr;
}

void write_line(const char* format, ReportArgs args = {}) {
  write_report(format, args);
  fflush(stderr);
}

// ---- catalogue search ----

struct Part {
  const char* text;
  size_t length;
};

// language_territory.codeset@modifier; a part whose separator is missing is
// empty, and the language then runs to the end.
struct LocaleName {
  Part whole, language, territory, codeset;
};

LocaleName split_locale(const char* name) {
  size_t n = strlen(name);
  LocaleName l{{name, n}, {name, n}, {"", 0}, {"", 0}};
  const char* underscore = strchr(name, '_');
  if (underscore == nullptr) return l;
  l.language.length = static_cast<size_t>(underscore - name);
  const char* territory = underscore + 1;
  const char* dot = strchr(territory, '.');
  l.territory = {territory,
                 dot != nullptr ? static_cast<size_t>(dot - territory) : strlen(territory)};
  if (dot == nullptr) return l;
  const char* codeset = dot + 1;
  const char* at = strchr(codeset, '@');
  l.codeset = {codeset, at != nullptr ? static_cast<size_t>(at - codeset) : strlen(codeset)};
  return l;
}

// One expanded template.  The text is built after a "./" so that a path
// without a "/" is still taken as a file name and not searched for:
//
//   path: . / e x p a n s i o n \0
//         ^   ^
//         |   start once a "/" has been copied
//         start until then
class CataloguePath {
 public:
  bool full() const { return full_; }

  void add(char c) {
    if (length_ + 1 >= kCataloguePathSize) {
      full_ = true;
      return;
    }
    if (c == '/') slash_ = true;
    text_[length_++] = c;
  }

  void add(Part p) {
    for (size_t i = 0; i < p.length && !full_; ++i) add(p.text[i]);
  }

  const char* path() {
    text_[length_] = '\0';
    return slash_ ? text_ + 2 : text_;
  }

 private:
  char text_[kCataloguePathSize] = {'.', '/'};
  size_t length_ = 2;
  bool full_ = false;
  bool slash_ = false;
};

bool try_catalogue(const char* path) {
  nl_catd d = catopen(path, NL_CAT_LOCALE);
  if (d == reinterpret_cast<nl_catd>(-1)) return false;
  catalogue = d;
  return true;
}

const char* locale_name() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "C";
}

// Tries the templates of `nlspath` in order; true at the first catalogue
// that opens.
bool search_catalogue(const char* nlspath) {
  const LocaleName locale = split_locale(locale_name());
  const Part name{kCatalogueName, sizeof kCatalogueName - 1};
  const char* p = nlspath;
  while (*p != '\0') {
    if (*p == ':') {
      CataloguePath empty;
      empty.add(name);
      if (try_catalogue(empty.path())) return true;
      ++p;
      continue;
    }
    CataloguePath path;
    // A template that overflows is cut; what fitted is still tried.
    for (; *p != '\0' && *p != ':'; ++p) {
      if (path.full()) continue;
      if (*p != '%') {
        path.add(*p);
        continue;
      }
      // A % at the end of a template stands for nothing.
      if (p[1] == '\0' || p[1] == ':') continue;
      switch (*++p) {
        case 'N':
          path.add(name);
          break;
        case 'L':
          path.add(locale.whole);
          break;
        case 'l':
          path.add(locale.language);
          break;
        case 't':
          path.add(locale.territory);
          break;
        case 'c':
          path.add(locale.codeset);
          break;
        default:
          path.add(*p);
          break;
      }
    }
    if (try_catalogue(path.path())) return true;
    if (*p == ':') ++p;
  }
  return false;
}

// ---- check entries ----

struct SourceSite {
  int64_t line;
  int64_t column;
  const char* file;
};

// Banner, the first line, the location with its column, an optional last
// line, then abort.
[[noreturn]] void check_failed(const char* first, ReportArgs first_args, SourceSite site,
                               const char* last = nullptr, ReportArgs last_args = {}) {
  __f90_banner();
  write_line(first, first_args);
  write_line(__f90_lfmt(LOC_LINE_COLUMN), {site.line, site.column, site.file});
  if (last != nullptr) write_line(last, last_args);
  abort();
}

[[noreturn]] void shape_error(int64_t dim, int64_t found, int64_t wanted, SourceSite site) {
  check_failed(__f90_mfmt(MISC_SHAPE), {dim, found, wanted}, site);
}

[[noreturn]] void reshape_error(int64_t found, int64_t wanted, SourceSite site) {
  check_failed(__f90_mfmt(MISC_RESHAPE), {found, wanted}, site);
}

[[noreturn]] void subscript_error(int64_t subscript, int64_t value, const char* array,
                                  SourceSite site) {
  check_failed(__f90_rmsg(ERR_SUBSCRIPT_RANGE), {}, site, __f90_mfmt(MISC_SUBSCRIPT),
               {subscript, value, array});
}

// Ends are 2 for the ending point, anything else for the starting point.
[[noreturn]] void substring_error(int64_t which_end, int64_t value, const char* variable,
                                  SourceSite site) {
  int misc = which_end == 2 ? MISC_SUBSTRING_END : MISC_SUBSTRING_START;
  check_failed(__f90_rmsg(ERR_SUBSTRING_RANGE), {}, site, __f90_mfmt(misc), {value, variable});
}

}  // namespace

// ---- readers ----

QAL_EXPORT const char* __f90_rmsg(int32_t number) {
  return lookup(SET_ERRORS, number, __f90_runtime_error[number - 1000]);
}

QAL_EXPORT const char* __f90_pmsg(int32_t number) {
  return lookup(SET_ERRORS, number, __f90_posix9_error[number - 2000]);
}

QAL_EXPORT const char* __f90_lfmt(int32_t kind) {
  return lookup(SET_LOCATIONS, kind, __f90_loc_format[kind]);
}

QAL_EXPORT const char* __f90_mfmt(int32_t n) { return lookup(SET_MISC, n, __f90_misc_format[n]); }

QAL_EXPORT const char* __f90_psfmt(int32_t n) {
  return lookup(SET_STOP_PAUSE, n, __f90_ps_format[n]);
}

QAL_EXPORT void __f90_opencat(void) {
  const char* nlspath = getenv("NLSPATH");
  if (catalogue == nullptr && nlspath != nullptr) search_catalogue(nlspath);
  errno = 0;
}

// ---- report writers ----

QAL_EXPORT void __f90_banner(void) {
  // Files are flushed and scratch files removed before the process dies.
  __f90_cleanup();
  write_report(__f90_mfmt(MISC_BANNER));
}

QAL_EXPORT void __f90_write_message(int32_t number) {
  const char* text = message_text(number);
  if (text != nullptr && *text != '\0') {
    write_line(__f90_mfmt(MISC_ERROR_TEXT), {number, text});
  } else {
    write_line(__f90_mfmt(MISC_ERROR_NUMBER), {number});
  }
}

QAL_EXPORT void __f90_write_system_message(int32_t errnum) {
  const char* text = strerror(errnum);
  if (text != nullptr && *text != '\0') {
    write_line(__f90_mfmt(MISC_ERROR_TEXT), {errnum, text});
  } else {
    write_line(__f90_mfmt(MISC_ERROR_NUMBER), {errnum});
  }
}

QAL_EXPORT void __f90_write_loc(const Location* location) {
  if (location == nullptr || location->kind < 0 || location->kind >= LOC_FORMAT_COUNT) return;
  const char* format = __f90_lfmt(location->kind);
  if (location->kind >= LOC_LIB_F90_INIT && location->kind <= LOC_LIB_TTYNAM) {
    write_line(format);
  } else {
    write_line(format, {location->line, location->file});
  }
}

QAL_EXPORT void __f90_write_unit_number(int64_t unit) {
  if (unit < 0) {
    write_line(__f90_mfmt(MISC_UNIT_DEFAULT));
  } else {
    write_line(__f90_mfmt(MISC_UNIT), {unit});
  }
}

QAL_EXPORT void __f90_write_filename(const char* name) {
  if (name != nullptr) write_line(__f90_mfmt(MISC_FILE), {name});
}

QAL_EXPORT void __f90_write_record_number(int64_t record) {
  write_line(__f90_mfmt(MISC_RECORD_NUMBER), {record});
}

QAL_EXPORT void __f90_write_status(const char* text) {
  write_line(__f90_mfmt(MISC_STATUS), {text});
}

QAL_EXPORT void __f90_write_bytes_requested(uint64_t bytes) {
  write_line(__f90_mfmt(MISC_BYTES_REQUESTED), {bytes});
}

QAL_EXPORT void __f90_write_byte_discrepancy(uint64_t expected, uint64_t got) {
  write_line(__f90_mfmt(MISC_BYTE_DISCREPANCY), {expected, got});
}

QAL_EXPORT void __f90_write_eof(void) { write_line(__f90_mfmt(MISC_END_OF_FILE)); }

QAL_EXPORT void __f90_write_eor(void) { write_line(__f90_mfmt(MISC_END_OF_RECORD)); }

// `pointer_line` is blanks up to the offending character of `text`.
QAL_EXPORT void __f90_write_bad_format(int32_t kind, const char* text, const char* pointer_line) {
  if (kind == 1) {
    write_line(__f90_mfmt(MISC_FORMAT_EMPTY));
  } else if (kind == 2) {
    write_line(__f90_mfmt(MISC_FORMAT_TEXT), {text});
    write_line(__f90_mfmt(MISC_FORMAT_CARET), {pointer_line});
  } else {
    write_line(__f90_mfmt(MISC_FORMAT_NO_PAREN));
  }
}

QAL_EXPORT void __f95_error_message_and_abort(int32_t number, const Location* location) {
  __f90_banner();
  __f90_write_message(number);
  __f90_write_loc(location);
  abort();
}

// ---- IOMSG= ----

QAL_EXPORT void __f90_assign_iomsg(int32_t number, char* buffer, int64_t length) {
  if (buffer == nullptr || length <= 0) return;
  const char* text = number == ERR_END_OF_FILE     ? __f90_mfmt(MISC_END_OF_FILE)
                     : number == ERR_END_OF_RECORD ? __f90_mfmt(MISC_END_OF_RECORD)
                                                   : message_text(number);
  if (text == nullptr || *text == '\0') text = __f90_mfmt(MISC_UNKNOWN_ERROR);
  int64_t n = 0;
  if (text != nullptr) {
    while (n < length && text[n] != '\0' && text[n] != '\n') {
      buffer[n] = text[n];
      ++n;
    }
  }
  memset(buffer + n, ' ', static_cast<size_t>(length - n));
}

// ---- check entries ----

QAL_EXPORT void __f95_missing_optional_err(const char* name, int32_t line, int32_t column,
                                           const char* file) {
  check_failed(__f90_mfmt(MISC_MISSING_OPTIONAL), {name}, {line, column, file});
}

// `which` is 0 for a POINTER, 1 for an ALLOCATABLE.
QAL_EXPORT void __f95_null_pointer_err(const char* name, int32_t which, int32_t line,
                                       int32_t column, const char* file) {
  int32_t misc = MISC_NULL_POINTER + which;
  const char* first = misc >= 0 && misc < MISC_FORMAT_COUNT ? __f90_mfmt(misc) : nullptr;
  check_failed(first, {name}, {line, column, file});
}

QAL_EXPORT void __f90_shape_err(int32_t dim, int32_t found, int32_t wanted, int32_t line,
                                int32_t column, const char* file) {
  shape_error(dim, found, wanted, {line, column, file});
}

QAL_EXPORT void __f90_shape_err_long(int64_t dim, int64_t found, int64_t wanted, int64_t line,
                                     int64_t column, const char* file) {
  shape_error(dim, found, wanted, {line, column, file});
}

QAL_EXPORT void __f90_reshape_err(int32_t found, int32_t wanted, int32_t line, int32_t column,
                                  const char* file) {
  reshape_error(found, wanted, {line, column, file});
}

QAL_EXPORT void __f90_reshape_err_long(int64_t found, int64_t wanted, int64_t line, int64_t column,
                                       const char* file) {
  reshape_error(found, wanted, {line, column, file});
}

QAL_EXPORT void __f90_shape_arguments_err(int32_t dim, int32_t found, int32_t wanted, int32_t line,
                                          int32_t column, const char* file, const char* function) {
  check_failed(__f90_mfmt(MISC_SHAPE_ARGUMENTS), {function, dim, found, wanted},
               {line, column, file});
}

QAL_EXPORT void __f90_cb_error(int32_t subscript, int32_t value, const char* array, int32_t line,
                               int32_t column, const char* file) {
  subscript_error(subscript, value, array, {line, column, file});
}

QAL_EXPORT void __f90_cb_error_long(int64_t subscript, int64_t value, const char* array,
                                    int64_t line, int64_t column, const char* file) {
  subscript_error(subscript, value, array, {line, column, file});
}

QAL_EXPORT void __f90_cb_err_str(int32_t which_end, int32_t value, const char* variable,
                                 int32_t line, int32_t column, const char* file) {
  substring_error(which_end, value, variable, {line, column, file});
}

QAL_EXPORT void __f90_cb_err_str_long(int64_t which_end, int64_t value, const char* variable,
                                      int64_t line, int64_t column, const char* file) {
  substring_error(which_end, value, variable, {line, column, file});
}

}  // namespace qal
