/* Zero-filled blocks from the run-time heap, released by the caller with free(). */
#ifndef KVD_MEMORY_H
#define KVD_MEMORY_H

#ifdef __cplusplus
extern "C" {
#endif

/* The flags change nothing. */
void* KvGlobalGetMem(unsigned short flags, unsigned long size);
/* Null when the memory is exhausted. */
void* KvAllocMem(unsigned int size);

#ifdef __cplusplus
}
#endif

#endif
