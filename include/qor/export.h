/* Visibility of the kernel library's ABI names.  Everything else is hidden. */
#ifndef QOR_EXPORT_H
#define QOR_EXPORT_H

#define QOR_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define QOR_EXTERN_C extern "C"
#else
#define QOR_EXTERN_C
#endif

#endif
