// The format walk of formatted output, written once for every kind of
// record: sequential and stream units, direct-access records and internal
// files differ only in the record policy the walk is instantiated with.
//
// A record policy P offers:
//
//   P::stmt                  the statement head: stmt_flags, format,
//                            format_index, format_counters, radix,
//                            scale_factor, sign_mode
//   cursor()                 the holder of the record pointers record_start,
//                            record_pos, record_high and record_end (the unit,
//                            or the statement itself for internal files)
//   end_record(n)            end the current record, then n - 1 empty ones;
//                            begin the next.  A failure is already reported.
//   allocate_field(size, &err)
//                            reserve `size` bytes at record_pos, advance
//                            record_pos past them and return where they
//                            start; null with err set, not yet reported
//   fail(err, bytes)         the statement's failure exit; returns err.  For
//                            12, `bytes` is the size asked for (0: the size
//                            of the policy's own failed allocation)
//   stop_at_dollar()         the end walk met `$`
//   finish_record()          the end walk met what needs an item, a colon
//                            or the end of the format
//
// The record pointers of a write:
//
//   record_start          record_high    record_pos
//        |  field  field  |    (nothing)     |
//
// Bytes between record_high and record_pos do not exist until a field is
// written beyond them, so T, TR and X at the end of a record add nothing.
#pragma once

#include <string.h>

#include <concepts>

#include "format/format_ops.h"
#include "qal/errors.h"
#include "qal/statement.h"

namespace qal {

template <class P>
concept OutputRecordPolicy = requires(P& p, int32_t n, int64_t size, int* err) {
  p.stmt->format_index;
  p.stmt->format_counters;
  p.stmt->sign_mode;
  p.cursor()->record_pos;
  { p.end_record(n) } -> std::same_as<int>;
  { p.allocate_field(size, err) } -> std::same_as<char*>;
  { p.fail(n, uint64_t{0}) } -> std::same_as<int>;
  { p.stop_at_dollar() } -> std::same_as<int>;
  { p.finish_record() } -> std::same_as<int>;
};

enum class Walk {
  Forward,  // an item waits: stop at the next data edit descriptor
  End,      // the list is done: perform what stands before the next stop
};

template <Walk kind, OutputRecordPolicy P>
int walk_format(P& p) {
  auto* s = p.stmt;
  auto* r = p.cursor();
  const int32_t* const format = s->format;
  int32_t i = s->format_index;
  // A negative X may leave record_pos left of the record; no walk ends so.
  const auto bound = [r] {
    if (r->record_pos < r->record_start) r->record_pos = r->record_start;
  };
  for (;;) {
    const int32_t* op = format + i;
    const int32_t code = op[0];
    if (is_data_edit(code)) {
      bound();
      if constexpr (kind == Walk::End) return p.finish_record();
      s->stmt_flags &= ~SF_AT_FORMAT_END;
      s->format_index = i;
      return 0;
    }
    switch (code) {
      case FMT_END:
        bound();
        if constexpr (kind == Walk::End) {
          return p.finish_record();
        } else {
          // A whole pass without a data edit descriptor cannot take the item.
          if (s->stmt_flags & SF_AT_FORMAT_END)
            return p.fail((s->stmt_flags & SF_F77_WRITE) ? ERR_FORMAT : ERR_NO_DATA_EDIT, 0);
          s->stmt_flags |= SF_AT_FORMAT_END;
          if (int err = p.end_record(1)) return err;
          i = op[1];
        }
        continue;
      case FMT_REPEAT:
        s->format_counters[op[1]] = op[2];
        i += 3;
        continue;
      case FMT_END_REPEAT:
        // The body has run once already when this is first met.
        i = --s->format_counters[op[1]] < 1 ? i + 3 : op[2];
        continue;
      case FMT_COLON:
        if constexpr (kind == Walk::End) {
          bound();
          return p.finish_record();
        }
        i += 1;
        continue;
      case FMT_DOLLAR:
        if constexpr (kind == Walk::End) {
          bound();
          return p.stop_at_dollar();
        }
        i += 1;
        continue;
      case FMT_T:
        r->record_pos = op[1] > 0 ? r->record_start + (op[1] - 1) : r->record_start;
        i += 2;
        continue;
      case FMT_TL:
        r->record_pos =
            r->record_pos - r->record_start >= op[1] ? r->record_pos - op[1] : r->record_start;
        i += 2;
        continue;
      case FMT_TR:
      case FMT_X:
        r->record_pos += op[1];
        i += 2;
        continue;
      case FMT_SLASH:
        if (op[1] >= 1) {
          bound();
          if (int err = p.end_record(op[1])) return err;
        }
        i += 2;
        continue;
      case FMT_STRING:
      case FMT_HOLLERITH: {
        bound();
        int err = 0;
        char* field = p.allocate_field(op[1], &err);
        if (!field) return p.fail(err, 0);
        memcpy(field, op + 2, static_cast<size_t>(op[1]));
        i += op_words(op);
        continue;
      }
      case FMT_BN:
      case FMT_BZ:
        i += 1;
        continue;
      default:
        break;
    }
    // Mode changes: in force for the rest of the statement, reversion or
    // not; after the last item they no longer matter.
    if constexpr (kind == Walk::Forward) {
      switch (code) {
        case FMT_P:
          s->scale_factor = op[1];
          break;
        case FMT_RADIX:
          s->radix = op[1];
          break;
        case FMT_S_DEFAULT:
        case FMT_SS:
          s->sign_mode = 2;
          break;
        case FMT_SP:
          s->sign_mode = 1;
          break;
        case FMT_SU:
          s->sign_mode = 3;
          break;
        case FMT_DC:
          s->stmt_flags = (s->stmt_flags & ~SF_DECIMAL) | SF_DECIMAL_COMMA;
          break;
        case FMT_DP:
          s->stmt_flags = (s->stmt_flags & ~SF_DECIMAL) | SF_DECIMAL_POINT;
          break;
        case FMT_RU:
        case FMT_RD:
        case FMT_RZ:
        case FMT_RN:
        case FMT_RC:
        case FMT_RP:
          // RU..RP are 88..93, and the round field counts 1..6 in the same order.
          s->stmt_flags = (s->stmt_flags & ~SF_ROUND) |
                          (static_cast<uint32_t>(code - FMT_RU + 1) * SF_ROUND_UP);
          break;
        default:
          bound();
          return p.fail(ERR_CORRUPTED_FORMAT, 0);
      }
    } else {
      const bool mode = (code >= FMT_P && code <= FMT_SU) || (code >= FMT_DC && code <= FMT_RP);
      if (!mode) {
        bound();
        return p.fail(ERR_CORRUPTED_FORMAT, 0);
      }
    }
    i += op_words(op);
  }
}

// Runs the format to the data edit descriptor of the next item.
template <OutputRecordPolicy P>
int write_to_data_edit_descriptor(P& p) {
  return walk_format<Walk::Forward>(p);
}

// Performs the rest of the format after the last item and ends the record.
template <OutputRecordPolicy P>
int finish_format(P& p) {
  return walk_format<Walk::End>(p);
}

}  // namespace qal
