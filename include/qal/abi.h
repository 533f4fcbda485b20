/* Common macros of the libqal public headers.  Every header compiles as C11
 * and as C++20; in C++ the types and entries live in namespace qal, with C
 * linkage so that the symbol names are the plain entry names. */
#ifndef QAL_ABI_H
#define QAL_ABI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define QAL_BEGIN_DECLS \
  namespace qal {       \
  extern "C" {
#define QAL_END_DECLS \
  }                   \
  }
#define QAL_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define QAL_BEGIN_DECLS
#define QAL_END_DECLS
#define QAL_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif

/* Entries and data that the shared object exports.  The version script
 * decides which of them are visible and under which node. */
#define QAL_EXPORT __attribute__((visibility("default")))
#define QAL_NORETURN __attribute__((noreturn))

#define QAL_OFFSET(type, field, value) \
  QAL_STATIC_ASSERT(offsetof(type, field) == (value), #type "." #field " moved")

#endif
