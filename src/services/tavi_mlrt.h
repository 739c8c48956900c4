// SPDX-License-Identifier: MIT
/**
 * @file tavi_mlrt.h
 * The interface of the inference runtime, as far as this library borrows it: its allocator. Applications that have
 * a runtime derive from TaviMlRuntime and hand a TaviMlHandle to tavi_mem_alloc_from_mlrt().
 */
#ifndef TAVI_MLRT_H
#define TAVI_MLRT_H

#include <cstddef>

/** The runtime object. Release follows allocation directly in the list of virtual operations. */
class TaviMlRuntime {
public:
    virtual ~TaviMlRuntime() = default;

    /**
     * Allocates memory of the runtime.
     * @param memory receives the address.
     * @param size   bytes.
     * @param type   the runtime's own kind of memory.
     * @return the runtime's own result.
     */
    virtual int AllocateMemory(void** memory, size_t size, int type) = 0;

    /** Gives memory back; parameters as allocated. */
    virtual int ReleaseMemory(void* memory, size_t size, int type) = 0;
};

/** One runtime instance; this library reads only the third field. */
struct TaviMlContext {
    void* model;            /**< the runtime's own */
    void* options;          /**< the runtime's own */
    TaviMlRuntime* runtime; /**< the object whose allocator is borrowed */
};

/** What a runtime handle points to; the context comes first. */
struct TaviMlHandle {
    TaviMlContext* context; /**< null: not initialised */
};

#endif // TAVI_MLRT_H
