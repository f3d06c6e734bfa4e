/* Services of the companion core library (libqor_core.so) that the kernel
 * library calls.  Another core library of the family may replace ours as long
 * as it exports these names with these signatures. */
#ifndef QOR_CORE_H
#define QOR_CORE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QOR_CORE_API __attribute__((visibility("default")))

/* Aligned allocation; alignment is a power of two (0 or 1 mean the platform's
 * default).  Returns null on failure or on a zero size. */
QOR_CORE_API void *qor_serv_allocate(size_t size, int alignment);
QOR_CORE_API void qor_serv_deallocate(void *ptr);

/* Bounded copy: copies count bytes when they fit into dst_size.  Returns 0 on
 * success; on a null pointer or a count above dst_size it returns a non-zero
 * code and, when dst is usable, clears dst_size bytes of it. */
QOR_CORE_API int qor_serv_memcpy_s(void *dst, size_t dst_size, const void *src, size_t count);

/* Process-wide lock objects: a zero-initialised qor_lock_t is unlocked, so
 * locks can live in static storage without constructors. */
typedef struct qor_lock_t {
  int32_t word;
} qor_lock_t;
#define QOR_LOCK_INITIALIZER {0}
QOR_CORE_API void qor_serv_lock(qor_lock_t *lock);
QOR_CORE_API void qor_serv_unlock(qor_lock_t *lock);

/* Copies the value of environment variable name into buffer (at most size - 1
 * characters, NUL-terminated) and returns the number of characters copied.
 * A result below 1 means that the variable has no usable value. */
QOR_CORE_API int qor_serv_getenv(const char *name, char *buffer, int size);

/* Prints numbered message msg_no of the core library's catalogue to standard
 * error.  argc is the number of variadic arguments, which must match the
 * message's own argument list (strings as const char *, indices as int,
 * element values as double).  Level 0 is informational, 1 an error. */
QOR_CORE_API void qor_serv_print(int level, int msg_no, int argc, ...);

/* Ends the process with the given exit code after flushing standard error. */
QOR_CORE_API void qor_serv_exit(int code) __attribute__((noreturn));

/* Non-zero when the processor (and the operating system) support VAES and
 * AVX-512F. */
QOR_CORE_API int qor_serv_cpuisicx(void);

/* Parallel-for: calls routine(index, thread, context) once for every index in
 * [0, count), spread over at most `threads` workers (the caller's thread being
 * one of them); thread is the worker's number in [0, threads).  Runs serially
 * on the calling thread when threads <= 1 or count <= 1.  Returns when every
 * call has returned. */
typedef void (*qor_threader_routine)(int64_t index, int thread, void *context);
QOR_CORE_API void qor_rix_serv_threader_for(int64_t count, int threads, void *context,
                                            qor_threader_routine routine);

/* The number of threads that a parallel-for may usefully run at once. */
QOR_CORE_API int qor_rix_serv_threader_get_num_threads_limit(void);

#ifdef __cplusplus
}
#endif

#endif
