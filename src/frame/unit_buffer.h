// The buffer of a unit, for output and input alike.  Every mode fills,
// empties, slides, grows and shrinks it through these functions only.
//
// Output:
//
//   buffer   flush_ptr        data_ptr             data_end      buffer_end
//     | written | finished records | open record    |   free      |
//
//   flush_ptr..data_end still has to reach the file.
//
// Input:
//
//   buffer        data_ptr                   data_end       buffer_end
//     | taken       |  read ahead, not taken   |   free       |
//                   record_start .. record_end: the current record
//
// Every pointer of the unit that points into the buffer (flush_ptr,
// data_ptr, data_end and the four record pointers) moves with it.
#pragma once

#include <stdint.h>

#include "qal/unit.h"

namespace qal {

// Point the three buffer cursors at the start of the buffer.
inline void reset_cursors(Unit* u) { u->flush_ptr = u->data_ptr = u->data_end = u->buffer; }

// A buffer of `size` bytes with its cursors at the start; false when memory
// runs out (nothing changed then).
bool allocate_buffer(Unit* u, uint64_t size);

// Writes flush_ptr..upto.  flush_ptr follows every write that gets through,
// a short one too, so that bytes that reached the file never go out again
// when a later write fails and the flush is tried once more.
int push_out(Unit* u, const char* upto);

// Moves `from`..data_end to the start of the buffer.  Pointers at or behind
// `from` move with the bytes; the ones before it come to the start.
void slide_to_front(Unit* u, char* from);

// Reallocates the buffer to `size` bytes (at least what it holds) and moves
// every pointer with it; false when memory runs out (nothing changed then).
bool resize_buffer(Unit* u, uint64_t size);

// Input: reads what the file has next into the free space, first sliding
// the unread bytes to the front or, with nothing to slide, growing the
// buffer by 8192 bytes (UF_BUFFER_GROWN).  Returns the bytes read, 0 at the
// end of the file, or -1 with *err set (an errno value, or 12 with
// *failed_size the size asked for).
int64_t fill_buffer(Unit* u, int* err, uint64_t* failed_size);

// Unformatted input: reads what the file has next into the free space of
// a buffer that never grows.  Taken bytes go first: with nothing unread the
// cursors return to the start, and unread bytes at the buffer's end slide
// to its front.  A stream is read to the end of the space or of the file,
// not of a line.  Returns the bytes read; 0 at the end of the file, which
// sets UF_AT_EOF_DATA so that later calls return 0 at once; or -1 with *err
// set to an errno value.
int64_t fill_block(Unit* u, int* err);

// Input: frees the buffer and forgets every pointer into it, after the end
// of the file or a read error.
void drop_buffer(Unit* u);

// Input, at a statement boundary: gives back what the record getter grew.
// No unread bytes: the buffer goes.  Unread bytes filling half of it or
// more: it stays.  Otherwise they move to the front and the buffer shrinks
// to the block size, or to exactly them when they are more.  0, or 12 with
// *failed_size.
int shrink_buffer(Unit* u, uint64_t* failed_size);

}  // namespace qal
