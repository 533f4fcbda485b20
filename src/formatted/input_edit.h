// Input editors: one field of text into one list item.
//
// An editor is handed the field as the record found it and the statement's
// modes; it never sees the unit, the buffer or the statement, so each one
// is compiled once and serves sequential, direct and internal reads alike.
// Finding the field (the width, the separator, the record's end), moving
// the record position afterwards, SIZE= and the end-of-record and PAD='NO'
// outcomes belong to the record policy that calls it.
//
// The field:
//
//   begin                end          begin + w
//     |  the characters  |  (record's end)  |
//                         <-- shortfall --->
//
// A field ends at its width, at the separator (';' under DECIMAL='COMMA',
// else ','), or at the record's end.  `shortfall` counts the positions of
// the width that lie past the record's end (0 when a separator cut the
// field); under BZ they read as trailing blanks, thus zeros.
// `past_end_nopad` says that the width reaches past the record's end under
// PAD='NO': a blank field then leaves the item as it was, and a real is
// never stored (the statement fails with 1190 after the editor returns).
//
// Results: 0, an error number (1030, 1033, 1079, 1080, 1081, 1082, 1101),
// or kRescanField (below).  On an error the item may be partly written.
#pragma once

#include <stdint.h>

#include "qal/convert.h"

namespace qal {

// What an input editor needs of the statement.
struct InputModes {
  int32_t radix = 10;        // nR: I takes letters as digits above 9
  int32_t scale_factor = 0;  // kP, for reals without an exponent
  bool blank_zero = false;   // BZ: blanks in a numeric field are zeros
  char decimal = '.';        // ',' under DC or DECIMAL='COMMA'
  bool f77 = false;          // the old dialect: O and Z drop bits that do not fit
};

struct InputField {
  char* begin;
  char* end;
  int64_t shortfall = 0;
  bool past_end_nopad = false;
};

// The answer-back for a character an editor cannot take.  Without a
// handler the editor returns its own error number.  With one, the handler
// gets the address of the bad character in the record and returns an error
// number (handed back as it is), or 0 once it has stored a corrected
// character there.  A corrected blank or separator makes the editor return
// kRescanField: the caller finds the field again and calls the editor
// anew.  Any other corrected character makes the editor parse again from
// the field's first non-blank character (a blank field if there is none).
struct BadCharacterHook {
  int (*handler)(void* context, char* bad) = nullptr;
  void* context = nullptr;
  char separator = ',';
};
inline constexpr int kRescanField = -100;

// A, Aw: the field is the width's characters up to the record's end, no
// separator looked for.  An item at least `w` long takes them at its start;
// a shorter one takes the rightmost `length` of the w.  The rest of the
// item is blank, unless past_end_nopad.
int rd_aw(const InputField& f, int32_t w, char* item, int64_t length);

// I of a 1-, 2-, 4- or 8-byte item, signed or unsigned, in `radix`.
template <class T>
int rd_iw(const InputField& f, const InputModes& m, const BadCharacterHook& hook, T* item);
inline constexpr auto rd_iw_i1 = rd_iw<int8_t>;
inline constexpr auto rd_iw_i2 = rd_iw<int16_t>;
inline constexpr auto rd_iw_i4 = rd_iw<int32_t>;
inline constexpr auto rd_iw_i8 = rd_iw<int64_t>;
inline constexpr auto rd_iw_u1 = rd_iw<uint8_t>;
inline constexpr auto rd_iw_u2 = rd_iw<uint16_t>;
inline constexpr auto rd_iw_u4 = rd_iw<uint32_t>;
inline constexpr auto rd_iw_u8 = rd_iw<uint64_t>;

// I, B, O, Z of an item of any length taken as one number: `_n` leaves it
// in the machine's little-endian order (16-byte integers, and items of odd
// sizes in the old dialect), `_ch` with the first byte most significant
// (character items).
int rd_iw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length);
int rd_iw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length);
int rd_bw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length);
int rd_bw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length);
int rd_ow_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length);
int rd_ow_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length);
int rd_zw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length);
int rd_zw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length);

// L of a 1-, 2-, 4- or 8-byte item: 1 or 0 at the item's width.
template <class T>
int rd_logical(const InputField& f, const BadCharacterHook& hook, T* item);

// The real family (D, E, EN, ES, F, G): the field's number as a decimal
// record, `d` the digits after an implied point.  A blank field gives
// ndigits 0, or -1 when past_end_nopad (store nothing).
int rd_decimal_record(const InputField& f, const InputModes& m, int32_t d,
                      const BadCharacterHook& hook, DecimalRecord* rec);

}  // namespace qal
