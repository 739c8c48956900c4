/* SPDX-License-Identifier: MIT */
/**
 * @file tavi_mem.h
 * The memory service: heap and device memory, with a registry of what it gave out. All calls may come from any
 * thread.
 */
#ifndef TAVI_MEM_H
#define TAVI_MEM_H

#include "tavi_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of memory. */
enum {
    TAVI_MEM_TYPE_HEAP = 0,      /**< ordinary memory of this service: pooled, 64-byte aligned */
    TAVI_MEM_TYPE_DEVICE = 1,    /**< a DMA buffer, or the nearest thing the machine has; the default */
    TAVI_MEM_TYPE_CONTIGUOUS = 2 /**< a physically contiguous DMA buffer, or nothing */
};

#define TAVI_MEM_TYPE_COUNT 3

/** Which source served an allocation, in `flags` of its record. */
enum {
    TAVI_MEM_SOURCE_HEAP = 0,       /**< the service's own pool */
    TAVI_MEM_SOURCE_CONTIGUOUS = 1, /**< a contiguous heap of /dev/dma_heap */
    TAVI_MEM_SOURCE_SYSTEM = 2,     /**< the system heap of /dev/dma_heap */
    TAVI_MEM_SOURCE_UDMABUF = 3,    /**< /dev/udmabuf over a sealed memfd */
    TAVI_MEM_SOURCE_MEMFD = 4       /**< a plain memfd: shared between processes, not importable by engines */
};

/** What an allocation is. Eight fields, 32 bits each on a 32-bit machine. */
typedef struct tavi_mem_record_t {
    uint32_t handle;   /**< number of the allocation, never 0, not reused soon */
    uint32_t type;     /**< TAVI_MEM_TYPE_* */
    void* virt_addr;   /**< where the CPU sees it */
    void* phys_addr;   /**< always null: no kernel interface tells it */
    int32_t fd;        /**< descriptor, 0 for heap memory; owned by the service */
    uint32_t size;     /**< bytes asked for */
    uint32_t flags;    /**< TAVI_MEM_SOURCE_* */
    uint32_t reserved; /**< 0 */
} tavi_mem_record_t;

/** Counts of one memory type. */
typedef struct tavi_mem_stats_t {
    uint32_t live_count;   /**< allocations not yet freed */
    uint64_t live_bytes;   /**< their bytes */
    uint64_t peak_bytes;   /**< the most that live_bytes has been */
    uint64_t pooled_bytes; /**< freed bytes kept for reuse */
} tavi_mem_stats_t;

/**
 * Allocates memory. Contents are undefined for type 0 and zero for fresh device memory.
 * @param size   bytes, 1 to 2 GiB - 1; a single device allocation is at most 256 MiB.
 * @param type   TAVI_MEM_TYPE_*.
 * @param record receives the allocation; untouched on failure.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR for a null record, a size of 0 or less or beyond the bound, or an
 *         unknown type; TAVI_RET_FAIL when there is no such memory.
 */
TAVI_API int tavi_mem_alloc(int size, int type, tavi_mem_record_t* record);

/**
 * Asks whether an address belongs to a live allocation.
 * @param addr  any address.
 * @param where 0: it must be the start of an allocation; 1: anywhere inside one counts.
 * @return 0 when it does, TAVI_RET_FAIL when not, TAVI_RET_PARAM_ERR for another `where`.
 */
TAVI_API int tavi_mem_check_record_by_virt_addr(void* addr, int where);

/**
 * Looks up the allocation that an address lies in.
 * @param addr   any address.
 * @param where  as for tavi_mem_check_record_by_virt_addr().
 * @param record receives the allocation; may be null.
 * @return as for tavi_mem_check_record_by_virt_addr().
 */
TAVI_API int tavi_mem_get_record_by_virt_addr(void* addr, int where, tavi_mem_record_t* record);

/**
 * Frees an allocation.
 * @param addr start of the allocation.
 * @return TAVI_RET_SUCCESS; TAVI_RET_PARAM_ERR when no live allocation starts there.
 */
TAVI_API int tavi_mem_free_by_virt_addr(void* addr);

/**
 * Statistics of one memory type.
 * @param type  TAVI_MEM_TYPE_*.
 * @param stats receives the counts.
 * @return TAVI_RET_PARAM_ERR for an unknown type or null `stats`.
 */
TAVI_API int tavi_mem_get_stats(int type, tavi_mem_stats_t* stats);

/**
 * Gives back what is kept for later: the pool of heap blocks, what the calling thread keeps for temporaries, and what
 * the C library keeps of freed blocks. Live allocations stay.
 */
TAVI_API void tavi_mem_trim(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVI_MEM_H */
