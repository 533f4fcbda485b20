// The format walk, written once for both directions and every kind of
// record: sequential and stream units, direct-access records and internal
// files, output and input, differ only in the record policy the walk is
// instantiated with.  What an op means in one direction and not the other
// is a member of the policy, never a test of which policy it is.
//
// A record policy P offers:
//
//   P::stmt                  the statement head: stmt_flags, format,
//                            format_index, format_counters, radix,
//                            scale_factor
//   cursor()                 the holder of the record pointers record_start,
//                            record_pos, record_high and record_end (the unit,
//                            or the statement itself for internal files)
//   advance_records(n)       a slash: end the current record and n - 1 more
//                            (output), or take n records (input).  A
//                            failure is already reported.
//   next_pass()              the format ran out with an item waiting: the
//                            record boundary of reversion
//   no_data_edit()           the number for a pass that met no data edit
//                            descriptor
//   literal(op)              a character string or Hollerith constant
//   blank_mode(zero)         BN (false) or BZ (true)
//   sign_mode(mode)          S, SS (2), SP (1), SU (3)
//   at_data_edit()           the walk stops for an item
//   fail(err, bytes)         the statement's failure exit; returns err.  For
//                            12, `bytes` is the size asked for (0: the size
//                            of the policy's own failed allocation)
//   stop_at_dollar()         the end walk met `$`
//   finish_record()          the end walk met what needs an item, a colon
//                            or the end of the format
//   kEndTakesRounding        whether RU..RP may stand after the last item
//                            (output) or make the format corrupt (input)
//
// The record pointers:
//
//   record_start          record_high    record_pos
//        |  field  field  |    (nothing)     |
//
// T, TL, TR and X only move record_pos; on output the bytes between
// record_high and record_pos do not exist until a field is written beyond
// them, so they add nothing at the end of a record.
#pragma once

#include <string.h>

#include <concepts>

#include "format/format_ops.h"
#include "qal/errors.h"
#include "qal/statement.h"

namespace qal {

template <class P>
concept RecordPolicy = requires(P& p, const int32_t* op, int32_t n, bool b) {
  p.stmt->format_index;
  p.stmt->format_counters;
  p.stmt->radix;
  p.stmt->scale_factor;
  p.cursor()->record_pos;
  { p.advance_records(n) } -> std::same_as<int>;
  { p.next_pass() } -> std::same_as<int>;
  { p.no_data_edit() } -> std::same_as<int>;
  { p.literal(op) } -> std::same_as<int>;
  p.blank_mode(b);
  p.sign_mode(n);
  p.at_data_edit();
  { p.fail(n, uint64_t{0}) } -> std::same_as<int>;
  { p.stop_at_dollar() } -> std::same_as<int>;
  { p.finish_record() } -> std::same_as<int>;
  { P::kEndTakesRounding } -> std::convertible_to<bool>;
};

// The position and mode actions, one per op, shared by the walk and by the
// entries that take descriptors one call at a time.
template <class Cursor>
inline void tab_to(Cursor* r, int32_t n) {
  r->record_pos = n > 0 ? r->record_start + (n - 1) : r->record_start;
}
template <class Cursor>
inline void tab_left(Cursor* r, int32_t n) {
  r->record_pos = r->record_pos - r->record_start >= n ? r->record_pos - n : r->record_start;
}
template <class Cursor>
inline void tab_right(Cursor* r, int32_t n) {
  r->record_pos += n;
}
inline void set_decimal_mode(uint32_t& flags, bool comma) {
  flags = (flags & ~SF_DECIMAL) | (comma ? SF_DECIMAL_COMMA : SF_DECIMAL_POINT);
}
// RU..RP are 88..93, and the round field counts 1..6 in the same order.
inline void set_round_mode(uint32_t& flags, int32_t code) {
  flags = (flags & ~SF_ROUND) | (static_cast<uint32_t>(code - FMT_RU + 1) * SF_ROUND_UP);
}

enum class Walk {
  Forward,  // an item waits: stop at the next data edit descriptor
  End,      // the list is done: perform what stands before the next stop
};

template <Walk kind, RecordPolicy P>
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
      p.at_data_edit();
      return 0;
    }
    switch (code) {
      case FMT_END:
        bound();
        if constexpr (kind == Walk::End) {
          return p.finish_record();
        } else {
          // A whole pass without a data edit descriptor cannot take the item.
          if (s->stmt_flags & SF_AT_FORMAT_END) return p.fail(p.no_data_edit(), 0);
          s->stmt_flags |= SF_AT_FORMAT_END;
          if (int err = p.next_pass()) return err;
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
        tab_to(r, op[1]);
        i += 2;
        continue;
      case FMT_TL:
        tab_left(r, op[1]);
        i += 2;
        continue;
      case FMT_TR:
      case FMT_X:
        tab_right(r, op[1]);
        i += 2;
        continue;
      case FMT_SLASH:
        if (op[1] >= 1) {
          bound();
          if (int err = p.advance_records(op[1])) return err;
        }
        i += 2;
        continue;
      case FMT_STRING:
      case FMT_HOLLERITH:
        bound();
        if (int err = p.literal(op)) return err;
        i += op_words(op);
        continue;
      default:
        break;
    }
    // Mode changes: in force for the rest of the statement, reversion or
    // not; after the last item they no longer matter.
    const bool rounding = code >= FMT_RU && code <= FMT_RP;
    const bool mode = (code >= FMT_BN && code <= FMT_SU) || code == FMT_DC || code == FMT_DP;
    if (!mode && !(rounding && (kind == Walk::Forward || P::kEndTakesRounding))) {
      bound();
      return p.fail(ERR_CORRUPTED_FORMAT, 0);
    }
    if constexpr (kind == Walk::Forward) {
      switch (code) {
        case FMT_BN:
        case FMT_BZ:
          p.blank_mode(code == FMT_BZ);
          break;
        case FMT_P:
          s->scale_factor = op[1];
          break;
        case FMT_RADIX:
          s->radix = op[1];
          break;
        case FMT_S_DEFAULT:
        case FMT_SS:
          p.sign_mode(2);
          break;
        case FMT_SP:
          p.sign_mode(1);
          break;
        case FMT_SU:
          p.sign_mode(3);
          break;
        case FMT_DC:
        case FMT_DP:
          set_decimal_mode(s->stmt_flags, code == FMT_DC);
          break;
        default:
          set_round_mode(s->stmt_flags, code);
          break;
      }
    }
    i += op_words(op);
  }
}

// Runs the format to the data edit descriptor of the next item.
template <RecordPolicy P>
int walk_to_data_edit_descriptor(P& p) {
  return walk_format<Walk::Forward>(p);
}

// Performs the rest of the format after the last item and ends the record.
template <RecordPolicy P>
int finish_format(P& p) {
  return walk_format<Walk::End>(p);
}

}  // namespace qal
