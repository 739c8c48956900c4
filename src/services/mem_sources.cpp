// SPDX-License-Identifier: MIT
#define TAVI_LOG_TAG "tavi-mem"
#include "services/mem_sources.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <linux/dma-heap.h>
#include <linux/udmabuf.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include "os/open_file.h"
#include "services/log.h"
#include "services/mem_hooks.h"
#include "services/tavi_mem.h"

namespace tavi {

namespace {

constexpr char kHeapFolder[] = "/dev/dma_heap";
constexpr char kUdmabufNode[] = "/dev/udmabuf";
constexpr size_t kNameBytes = 64;
constexpr int kMostHeaps = 8;
constexpr uint64_t kPage = 4096;

/// The heaps to ask, in order: the one that the setting names, contiguous ones by name, `system`.
struct HeapList {
    char name[kMostHeaps][kNameBytes];
    int count = 0;

    void add(const char* heap) {
        for (int i = 0; i < count; ++i) {
            if (std::strcmp(name[i], heap) == 0)
                return;
        }
        if (count < kMostHeaps && std::strlen(heap) < kNameBytes)
            std::strcpy(name[count++], heap);
    }
};

bool is_system(const char* heap) { return std::strcmp(heap, "system") == 0; }

HeapList list_heaps() {
    static std::atomic<bool> reported{false}; // what is wrong with the setting is said once
    HeapList heaps;
    const char* const wanted = ::secure_getenv("TAVI_DMA_HEAP");
    if (wanted && *wanted) {
        if (std::strcmp(wanted, "none") == 0)
            return heaps;
        const bool is_name = !std::strchr(wanted, '/') && std::strlen(wanted) < kNameBytes;
        if (is_name)
            heaps.add(wanted);
        else if (!reported.exchange(true))
            LOG_AS("tavi_mem_alloc", TAVI_LOG_ERROR,
                   "TAVI_DMA_HEAP=%s: the name of a heap in %s, or none, is allowed", wanted, kHeapFolder);
    }
    const bool named = heaps.count > 0;
    // The folder lists in no particular order; sorted, a machine takes the same heap every time.
    dirent** entries = nullptr;
    const int found = ::scandir(
        kHeapFolder, &entries, [](const dirent* e) { return e->d_name[0] == '.' ? 0 : 1; }, ::alphasort);
    bool system = false, has_wanted = false;
    for (int i = 0; i < found; ++i) {
        has_wanted = has_wanted || (named && std::strcmp(entries[i]->d_name, heaps.name[0]) == 0);
        if (is_system(entries[i]->d_name))
            system = true;
        else
            heaps.add(entries[i]->d_name);
        std::free(entries[i]);
    }
    std::free(entries);
    if (named && !has_wanted && !reported.exchange(true))
        LOG_AS("tavi_mem_alloc", TAVI_LOG_WARN, "TAVI_DMA_HEAP=%s: no such heap in %s, others serve", wanted,
               kHeapFolder);
    if (system)
        heaps.add("system");
    return heaps;
}

UniqueFd from_heap(const char* path, uint32_t bytes) {
    UniqueFd heap = open_file(path, O_RDONLY);
    if (!heap)
        return {};
    dma_heap_allocation_data request{};
    request.len = bytes;
    request.fd_flags = O_RDWR | O_CLOEXEC;
    int result;
    do {
        result = ::ioctl(heap.get(), DMA_HEAP_IOCTL_ALLOC, &request);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? UniqueFd() : UniqueFd(static_cast<int>(request.fd));
}

/// A memfd that cannot shrink under those who have mapped it.
UniqueFd from_memfd(uint32_t bytes) {
    UniqueFd fd = above_standard(UniqueFd(::memfd_create("tavi", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    const auto whole_pages = static_cast<off_t>((bytes + (kPage - 1)) & ~(kPage - 1));
    if (!fd || ::ftruncate(fd.get(), whole_pages) != 0 || ::fcntl(fd.get(), F_ADD_SEALS, F_SEAL_SHRINK) != 0)
        return {};
    return fd;
}

UniqueFd from_udmabuf(uint32_t bytes) {
    UniqueFd node = open_file(kUdmabufNode, O_RDWR);
    if (!node)
        return {};
    UniqueFd memory = from_memfd(bytes);
    if (!memory)
        return {};
    udmabuf_create request{};
    request.memfd = static_cast<uint32_t>(memory.get());
    request.flags = UDMABUF_FLAGS_CLOEXEC;
    request.size = (bytes + (kPage - 1)) & ~(kPage - 1);
    return UniqueFd(::ioctl(node.get(), UDMABUF_CREATE, &request)); // keeps the pages itself
}

/// Asks one source, and once more after everybody has let go of what they keep when it was out of memory.
template <class Ask>
UniqueFd ask_twice(const char* name, uint32_t bytes, Ask ask) {
    UniqueFd fd = ask();
    if (!fd && errno == ENOMEM) {
        notify_mem_listener(MemEvent::allocation_failed, -1);
        fd = ask();
    }
    const int error = errno;
    if (!fd)
        LOG_AS("tavi_mem_alloc", TAVI_LOG_DEBUG, "%s: no %u bytes: %s", name, bytes, std::strerror(error));
    return above_standard(std::move(fd));
}

} // namespace

DeviceBuffer allocate_device(uint32_t bytes, bool contiguous) {
    const HeapList heaps = list_heaps();
    for (int i = 0; i < heaps.count; ++i) {
        const bool system = is_system(heaps.name[i]);
        if (contiguous && system)
            continue;
        char path[sizeof(kHeapFolder) + kNameBytes];
        std::snprintf(path, sizeof(path), "%s/%s", kHeapFolder, heaps.name[i]);
        if (UniqueFd fd = ask_twice(path, bytes, [&] { return from_heap(path, bytes); }))
            return {std::move(fd), system ? uint32_t{TAVI_MEM_SOURCE_SYSTEM} : uint32_t{TAVI_MEM_SOURCE_CONTIGUOUS}};
    }
    if (contiguous)
        return {};
    if (UniqueFd fd = ask_twice(kUdmabufNode, bytes, [&] { return from_udmabuf(bytes); }))
        return {std::move(fd), TAVI_MEM_SOURCE_UDMABUF};
    if (UniqueFd fd = ask_twice("memfd", bytes, [&] { return from_memfd(bytes); }))
        return {std::move(fd), TAVI_MEM_SOURCE_MEMFD};
    return {};
}

void visit_sources(void (*visit)(const SourceReport& report, void* user), void* user) {
    const auto report = [&](const char* path, uint32_t source, int flags) {
        const UniqueFd node = open_file(path, flags);
        visit({path, source, node ? 0 : errno}, user);
    };
    const HeapList heaps = list_heaps();
    for (int i = 0; i < heaps.count; ++i) {
        char path[sizeof(kHeapFolder) + kNameBytes];
        std::snprintf(path, sizeof(path), "%s/%s", kHeapFolder, heaps.name[i]);
        report(path, is_system(heaps.name[i]) ? TAVI_MEM_SOURCE_SYSTEM : TAVI_MEM_SOURCE_CONTIGUOUS, O_RDONLY);
    }
    if (heaps.count == 0) // an empty folder, or one that a setting hides, has no heap either
        visit({kHeapFolder, TAVI_MEM_SOURCE_SYSTEM, ENOENT}, user);
    report(kUdmabufNode, TAVI_MEM_SOURCE_UDMABUF, O_RDWR);
    visit({"memfd", TAVI_MEM_SOURCE_MEMFD, from_memfd(1) ? 0 : errno}, user);
}

} // namespace tavi
