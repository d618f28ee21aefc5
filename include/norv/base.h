/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/base.h - what all containers share: their names, memory, the log.
 */
#ifndef VELMORA_NORV_BASE_H
#define VELMORA_NORV_BASE_H

/* Marks what the shared library exports, and routines with a printf format. */
#if defined(__GNUC__)
#define NORV_API __attribute__((visibility("default")))
#define NORV_PRINTF __attribute__((format(printf, 1, 2)))
#else
#define NORV_API
#define NORV_PRINTF
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The records; each header of a kind defines its own. */
typedef struct vec vec;
typedef struct perm perm;
typedef struct permcycle permcycle;
typedef struct bitvec bitvec;
typedef struct prioq prioq;
typedef struct jdxlist jdxlist;
typedef struct linop linop;
typedef struct smat smat;
typedef struct smat_col_index smat_col_index;
typedef struct dmat dmat;
typedef struct bmat bmat;
typedef struct sbmat sbmat;
typedef struct ldu ldu;

/* Abstract linear operator.  gemv computes y = alpha A x + beta y, gemv_trans
 * the same with the transpose; y is allocated and must not be x. */
#define NORV_LINOP_TAG 0x25109500
typedef void (*linop_gemv_fn)(double alpha, double beta, const void* data, const vec* x, vec* y);
struct linop {
  int tag;    /* NORV_LINOP_TAG */
  int m;      /* rows */
  int n;      /* columns */
  void* data; /* handed to gemv */
  const char* name;
  linop_gemv_fn gemv;
  linop_gemv_fn gemv_trans;
};

/* ---------------------------------------------------------------------------
 * Allocation.  All exit with code 7 when memory runs out, after a message on
 * standard output and "Backtrace not available.".  Release with free().
 * The number of bytes, count * size, is a 32-bit number: a larger request ends
 * the process in the same way.
 * ------------------------------------------------------------------------- */

NORV_API void* _norv_malloc(unsigned int count, unsigned int size);
NORV_API void* _norv_calloc(unsigned int count, unsigned int size);
NORV_API void* _norv_realloc(void* ptr, unsigned int count, unsigned int size);

/* ---------------------------------------------------------------------------
 * Logging.  Every message is appended to "./velmora-ml.out" of the current
 * directory, which is opened and closed for each one; standard error takes
 * over when it can't be opened.
 *
 *   level >= 1   error  "[VELMORA/ML]>> ERROR: text\n"
 *                warn   "[VELMORA/ML]>> WARNING: text\n"
 *                stat   "[VELMORA/ML]>> text\n"
 *   level >= 2   iter   "[VELMORA/ML]>> text\n"
 *                debug  the format as it stands; the library's own debug
 *                       messages are "[VELMORA/ML]>> \tNORV/corelib/<file>: text\n"
 * ------------------------------------------------------------------------- */

/* The level is 0 at first, which is silent.  norv_log_init() empties the file.  "Error while
 * opening file ./velmora-ml.out" goes to standard error when it can't be made. */
NORV_API void norv_log_init(void);
NORV_API void norv_debug_set_level(int level);
NORV_API int norv_debug_get_level(void);

/* printf-style messages of falling urgency, from errors to debugging output. */
NORV_API void _norv_print_error_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_warn_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_stat_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_iter_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_debug_msg(const char* format, ...) NORV_PRINTF;

/* Wall clock: start_timing() stores the time of day, get_time_span() gives the
 * seconds since then. */
struct timeval;
NORV_API void start_timing(struct timeval* tv);
NORV_API double get_time_span(const struct timeval* tv);

/* Error "Function not implemented.", then exit code 7. */
NORV_API void norv_not_implemented(void);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_BASE_H */
