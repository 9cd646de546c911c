/* The one export mark of libKvdDat.so. Everything in the library is hidden unless declared with
 * KVD_API: the plain C functions of the table layer, nothing else. */
#ifndef KVD_EXPORT_H
#define KVD_EXPORT_H

#ifdef __cplusplus
#define KVD_EXTERN_C extern "C"
#else
#define KVD_EXTERN_C
#endif

#define KVD_API KVD_EXTERN_C __attribute__((visibility("default")))

#endif
