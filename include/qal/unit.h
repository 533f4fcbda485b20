/* The unit record, its flag words, the unit table and the frame entries that
 * every external-file statement shares. */
#ifndef QAL_UNIT_H
#define QAL_UNIT_H

#include <pthread.h>
#include <stdio.h>

#include "qal/abi.h"
#include "qal/location.h"

QAL_BEGIN_DECLS

/* Connection word `flags`. */
enum UnitFlags {
  UF_CONNECTED = 0x00000001,
  UF_RECORD_LOADED = 0x00000002,
  UF_NESTED = 0x00000004,
  UF_RETRY_EINTR = 0x00000008,
  UF_STANDARD_STREAM = 0x00000010,
  UF_BUFFER_GROWN = 0x00000020,
  UF_AT_EOF_DATA = 0x00000040,
  UF_AFTER_ENDFILE = 0x00000080,
  UF_LAST_READ = 0x00000100,
  UF_LAST_WRITE = 0x00000200,
  UF_READABLE = 0x00000400,
  UF_WRITABLE = 0x00000800,
  UF_SEQUENTIAL = 0x00001000,
  UF_FORMATTED = 0x00002000,
  UF_PRINT_FORM = 0x00004000,
  UF_BINARY = 0x00008000,
  UF_BLANK_ZERO = 0x00010000,
  UF_NOPAD = 0x00020000,
  UF_DELIM = 0x000c0000,
  UF_DELIM_APOSTROPHE = 0x00040000,
  UF_DELIM_QUOTE = 0x000c0000,
  UF_SCRATCH = 0x00100000,
  UF_REGULAR_FILE = 0x00200000,
  UF_STREAM = 0x01000000,
  UF_ASYNCHRONOUS = 0x02000000,
  UF_DECIMAL_COMMA = 0x04000000,
  UF_ROUND = 0x38000000,
  UF_ROUND_UP = 0x08000000,
  UF_ROUND_DOWN = 0x10000000,
  UF_ROUND_ZERO = 0x18000000,
  UF_ROUND_NEAREST = 0x20000000,
  UF_ROUND_COMPATIBLE = 0x28000000,
  UF_ROUND_PROCESSOR_DEFINED = 0x30000000,
  UF_BLANK_NULL = 0x40000000,

  /* sequential-like: UF_SEQUENTIAL or UF_STREAM */
  UF_SEQUENTIAL_LIKE = 0x01001000,
  /* formatted: UF_FORMATTED or UF_PRINT_FORM */
  UF_FORMATTED_LIKE = 0x00006000
};

/* Second connection word `flags2`. */
/* UF2_RECORD_BROKEN and UF2_LOSS_REPORTED are the library's own: a failed
 * output statement left its record to be ended by the next start, flush or
 * close; the end-of-run pass has already said that this unit's output could
 * not be written. */
enum UnitFlags2 {
  UF2_BYTE_SWAP = 0x0200,
  UF2_ALIGNMENT = 0x1c00,
  UF2_TRUNCATE_PENDING = 0x2000,
  UF2_RECORD_BROKEN = 0x4000,
  UF2_LOSS_REPORTED = 0x8000
};

typedef struct Unit {
  pthread_mutex_t lock;     /* guards owner, waiters, hold_count, removal */
  pthread_cond_t available; /* waited on while another thread holds it */
  pthread_t owner;          /* thread that last took the unit */
  uint32_t waiters;
  uint32_t hold_count; /* takes not yet released; 0 means free */
  int32_t unit_number;
  /* Everything from here to the end is zeroed by CLOSE. */
  uint32_t flags;
  char* file_name; /* malloc'ed; null for the default units */
  int32_t fd;
  FILE* stream; /* the libc stream of a usable default unit */
  uint64_t device;
  uint64_t inode;
  int64_t record_number;
  uint64_t record_length;
  uint64_t line_limit;
  uint64_t inquire_record_length;
  int64_t column;
  uint64_t item_count;
  uint64_t blocksize;
  uint64_t buffer_size;
  char* buffer;
  char* buffer_end;
  char* flush_ptr;
  char* data_ptr;
  char* data_end;
  char* record_start;
  char* record_pos;
  char* record_high;
  char* record_end;
  uint64_t secondary_size;
  char* secondary_buffer;
  char* secondary_ptr;
  char* secondary_end;
  void* secondary_head;
  void* secondary_tail;
  void* io_error_handler;
  int64_t handler_pos;
  int64_t handler_tried;
  int64_t handler_tried_count;
  uint32_t flags2;
} Unit;

QAL_OFFSET(Unit, lock, 0);
QAL_OFFSET(Unit, available, 40);
QAL_OFFSET(Unit, owner, 88);
QAL_OFFSET(Unit, waiters, 96);
QAL_OFFSET(Unit, hold_count, 100);
QAL_OFFSET(Unit, unit_number, 104);
QAL_OFFSET(Unit, flags, 108);
QAL_OFFSET(Unit, file_name, 112);
QAL_OFFSET(Unit, fd, 120);
QAL_OFFSET(Unit, stream, 128);
QAL_OFFSET(Unit, device, 136);
QAL_OFFSET(Unit, inode, 144);
QAL_OFFSET(Unit, record_number, 152);
QAL_OFFSET(Unit, record_length, 160);
QAL_OFFSET(Unit, line_limit, 168);
QAL_OFFSET(Unit, inquire_record_length, 176);
QAL_OFFSET(Unit, column, 184);
QAL_OFFSET(Unit, item_count, 192);
QAL_OFFSET(Unit, blocksize, 200);
QAL_OFFSET(Unit, buffer_size, 208);
QAL_OFFSET(Unit, buffer, 216);
QAL_OFFSET(Unit, data_end, 248);
QAL_OFFSET(Unit, record_end, 280);
QAL_OFFSET(Unit, secondary_size, 288);
QAL_OFFSET(Unit, secondary_tail, 328);
QAL_OFFSET(Unit, io_error_handler, 336);
QAL_OFFSET(Unit, handler_tried_count, 360);
QAL_OFFSET(Unit, flags2, 368);
QAL_STATIC_ASSERT(sizeof(Unit) == 376, "Unit size");

/* A cell of a collision list: units of 128 and above whose number shares
 * the low ten bits with the unit in the primary slot. */
typedef struct UnitListCell {
  struct UnitListCell* next;
  Unit* unit;
} UnitListCell;

enum { SMALL_UNIT_TABLE_SIZE = 128, UNIT_TABLE_SIZE = 1024, UNIT_TABLE_MASK = 0x3ff };

/* The unit table and the three preconnected records. */
extern QAL_EXPORT pthread_mutex_t __f90_io_master_lock;
extern QAL_EXPORT Unit* __f90_small_unit_pointer_table[SMALL_UNIT_TABLE_SIZE];
extern QAL_EXPORT Unit* __f90_unit_pointer_table[UNIT_TABLE_SIZE];
extern QAL_EXPORT UnitListCell* __f90_unit_collision_table[UNIT_TABLE_SIZE];
extern QAL_EXPORT Unit __f90_default_error_unit;
extern QAL_EXPORT Unit __f90_default_input_unit;
extern QAL_EXPORT Unit __f90_default_output_unit;
extern QAL_EXPORT int32_t __f90_initio_done;

/* Line lengths of the default output units.  A program may define its own
 * copies of these to change where list-directed output wraps. */
extern QAL_EXPORT int64_t __f90_stdout_reclen;
extern QAL_EXPORT int64_t __f90_stderr_reclen;

/* Non-zero: sequential truncation waits for the end of the statement. */
extern QAL_EXPORT int32_t __f90_io_delay_ftrunc;

/* Initialisation of the default units: done once, by the first of these or
 * by any start entry. */
QAL_EXPORT void __f90_initio_a(const Location* location);
QAL_EXPORT void __f90_initio_f(void);
QAL_EXPORT int __f90_initio_r(void);

/* Find or create the record of a unit number and take it for this thread.
 * The result is taken whether or not it is connected. */
QAL_EXPORT void __f90_get_numbered_unit_a(Unit** result, int64_t unit, const Location* location);
QAL_EXPORT void __f90_get_numbered_unit_f(Unit** result, int64_t unit, const Location* location);
QAL_EXPORT int __f90_get_numbered_unit_r(Unit** result, int64_t unit);
QAL_EXPORT Unit* __f90_get_default_input_unit(void);
QAL_EXPORT Unit* __f90_get_default_output_unit(void);

/* Allocate and zero a record.  Called with __f90_io_master_lock held; on
 * failure they unlock it. */
QAL_EXPORT void __f90_new_unit_a(Unit** result, const Location* location);
QAL_EXPORT void __f90_new_unit_f(Unit** result, const Location* location);
QAL_EXPORT int __f90_new_unit_r(Unit** result);

/* Undo one take; frees the record of an unconnected unit nobody uses. */
QAL_EXPORT void __f90_release_unit(Unit* unit);

/* Implicit connection of a taken, unconnected unit to fort.N. */
QAL_EXPORT void __f90_open_for_input_a(int64_t unit, Unit* u, const Location* location);
QAL_EXPORT int __f90_open_for_input_r(int64_t unit, Unit* u);
QAL_EXPORT void __f90_open_for_output_a(int64_t unit, Unit* u, const Location* location);
QAL_EXPORT int __f90_open_for_output_r(int64_t unit, Unit* u);

/* The name a diagnostic shows; buffer holds at least 4097 bytes. */
QAL_EXPORT const char* __f90_copy_filename(const Unit* u, char* buffer);

QAL_EXPORT QAL_NORETURN void __f90_system_error_a(int errnum, Unit* u, int64_t unit,
                                                  const Location* location);
QAL_EXPORT int __f90_io_malloc(void** result, uint32_t stmt_flags, uint64_t size,
                               const Location* location);

/* Write all bytes to the unit's stream or descriptor.  The return twin
 * releases the unit itself on failure. */
QAL_EXPORT void __f90_write_a(Unit* u, const void* data, uint64_t length, int64_t unit,
                              const Location* location);
QAL_EXPORT int __f90_write_r(Unit* u, const void* data, uint64_t length);

QAL_EXPORT void __f90_flush_unit_a(Unit* u, int64_t unit, const Location* location);
QAL_EXPORT int __f90_flush_unit_r(Unit* u);

QAL_EXPORT int32_t __f90_get_synchronous_flag(void);
QAL_EXPORT int32_t __f90_set_synchronous_flag(int32_t value);

/* End-of-run pass: write every unit's pending output and remove scratch
 * files.  __f90_flush_all does the same but keeps scratch files. */
QAL_EXPORT void __f90_cleanup(void);
QAL_EXPORT void __f90_flush_all(void);

QAL_EXPORT void __f90_io_delay_ftruncate(void);

QAL_END_DECLS

#endif
