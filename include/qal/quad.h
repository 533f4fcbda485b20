/* REAL*16 arithmetic: IEEE binary128 computed in software.
 *
 * A quad value is a QuadImage, four 32-bit words in memory with word 0 the
 * least significant.  Word 3 holds the sign (bit 31), the biased exponent
 * (bits 30..16, bias 16383) and the top 16 fraction bits; words 2, 1, 0 the
 * other 96 fraction bits.  On x86-64 that is the byte layout of a
 * little-endian 128-bit integer holding the IEEE encoding.  An image needs
 * only 4-byte alignment.
 *
 * Every operand is passed by pointer, quad or not; a quad result is written
 * through the first pointer, which may point at an operand.  Results are
 * rounded in the direction held in the SSE control register (MXCSR bits 13
 * and 14).  Only _Qmul, _Qdiv and _Qqtod touch the exception flags, and only
 * when the result is below the normal range and inexact: they then raise
 * underflow and inexact.  Everything else, overflow and invalid operations
 * included, leaves the flags alone. */
#ifndef QAL_QUAD_H
#define QAL_QUAD_H

#include "qal/abi.h"

QAL_BEGIN_DECLS

typedef struct QuadImage {
  uint32_t word[4];
} QuadImage;

QAL_STATIC_ASSERT(sizeof(QuadImage) == 16, "a quad image is 16 bytes");

/* result = a op b.  A NaN operand gives a NaN (quiet; of two NaNs the quiet
 * one, else the first); invalid operations give the default NaN, word 3
 * 0x7fffffff and the others 0xffffffff.  x/0 is an infinity signed as the
 * quotient would be. */
QAL_EXPORT void _Qadd(QuadImage* result, const QuadImage* a, const QuadImage* b);
QAL_EXPORT void _Qsub(QuadImage* result, const QuadImage* a, const QuadImage* b);
QAL_EXPORT void _Qmul(QuadImage* result, const QuadImage* a, const QuadImage* b);
QAL_EXPORT void _Qdiv(QuadImage* result, const QuadImage* a, const QuadImage* b);
/* result = a with its sign flipped, NaNs included. */
QAL_EXPORT void _Qneg(QuadImage* result, const QuadImage* a);

/* 1 when the relation holds, else 0.  With a NaN operand only _Qne holds;
 * +0 and -0 are equal. */
QAL_EXPORT int _Qeq(const QuadImage* a, const QuadImage* b);
QAL_EXPORT int _Qne(const QuadImage* a, const QuadImage* b);
QAL_EXPORT int _Qlt(const QuadImage* a, const QuadImage* b);
QAL_EXPORT int _Qle(const QuadImage* a, const QuadImage* b);
QAL_EXPORT int _Qgt(const QuadImage* a, const QuadImage* b);
QAL_EXPORT int _Qge(const QuadImage* a, const QuadImage* b);

/* Exact widenings.  A NaN double keeps its payload bits, quiet bit
 * included. */
QAL_EXPORT void _Qdtoq(QuadImage* result, const double* x);
QAL_EXPORT void _Qitoq(QuadImage* result, const int32_t* i);
QAL_EXPORT void _Qlltoq(QuadImage* result, const int64_t* i);
QAL_EXPORT void _Qulltoq(QuadImage* result, const uint64_t* i);

/* Narrowing to double, rounded in the current direction.  A NaN stays a NaN
 * (quieted, the top fraction bits kept); overflow gives an infinity or the
 * largest double by direction. */
QAL_EXPORT double _Qqtod(const QuadImage* a);
/* Truncation toward zero.  A NaN, an infinity or a value of magnitude 2**31
 * (2**63, 2**64 for the unsigned form) or more gives the sign bit alone:
 * 0x80000000, 0x8000000000000000.  _Qqtoull converts a negative value by
 * its magnitude and negates the result modulo 2**64. */
QAL_EXPORT int32_t _Qqtoi(const QuadImage* a);
QAL_EXPORT int64_t _Qqtoll(const QuadImage* a);
QAL_EXPORT uint64_t _Qqtoull(const QuadImage* a);

/* a*b and a/b in double precision, in the current direction; *status is 1
 * when this one operation raised any of the invalid, divide-by-zero,
 * overflow, underflow or inexact flags, else 0.  Flags raised before the
 * call stay raised, and the operation's own flags are added to them. */
QAL_EXPORT double __mul_set(int* status, double a, double b);
QAL_EXPORT double __div_set(int* status, double a, double b);

QAL_END_DECLS

#endif
