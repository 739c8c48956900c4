// SPDX-License-Identifier: MIT
// Bytes as the codecs see them: input from a file, a pipe or memory, and output to wherever it goes, such as a file
// that appears whole or not at all.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "image/refusal.h"
#include "os/unique_fd.h"

namespace tavi {

struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
};
/// Heap bytes of malloc.
using Bytes = std::unique_ptr<uint8_t[], FreeDeleter>;

/// Null when the heap refuses or the count does not fit into memory.
Bytes allocate_bytes(uint64_t count);

class Input {
public:
    Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input();

    /// Opens the file and reads its first bytes ahead; false with errno set.
    bool open(const char* path);
    /// Takes bytes in memory, which must stay while they are read: they are not copied.
    void open(const void* bytes, size_t size);
    /// What was opened in memory, from its first byte on; null for a file.
    const uint8_t* memory() const { return memory_; }

    /// The bytes read ahead, which stay to be read: enough for every signature and the sides of a PNG.
    const uint8_t* head() const { return head_; }
    size_t head_size() const { return head_size_; }

    /// True when all of it came.
    bool read(void* to, size_t size) { return read_some(to, size) == size; }
    bool skip(uint64_t size); ///< seeks where it can
    bool knows_its_length() const { return size_ != UINT64_MAX; }
    /// How many bytes are left to be read, as a regular file or memory says; more than any file has where nothing
    /// says it.
    uint64_t left() const { return size_ - position_; }
    /// The next byte, or -1 at the end.
    int next();
    /// Appends the next `count` bytes, or what there is of them, to the `size` bytes that are there; false with errno
    /// set when the heap refuses or reading fails.
    bool append(Bytes& bytes, size_t& size, size_t count);
    /// Appends all that is left, up to `limit` bytes in all; false with errno set: EFBIG beyond the limit, where the
    /// length is known before anything is read.
    bool append_rest(Bytes& bytes, size_t& size, size_t limit);

private:
    size_t read_some(void* to, size_t size);

    std::FILE* file_ = nullptr;
    const uint8_t* memory_ = nullptr;
    uint8_t head_[32] = {};
    size_t head_size_ = 0;
    size_t head_used_ = 0;       ///< of a file
    uint64_t size_ = UINT64_MAX; ///< of a regular file or of memory
    uint64_t position_ = 0;
};

/// Where encoded bytes go.
class ByteSink {
public:
    virtual bool write(const void* from, size_t size) = 0;
    /// Why the last write failed.
    virtual Refusal why() const = 0;

protected:
    ~ByteSink() = default;
};

/// Writes under a temporary name in the target's own directory; commit() renames. What is not committed is removed.
/// A target that is there and no regular file (a pipe, a device) is written straight. A file that is replaced keeps
/// its permissions, and its owner where the process may give it away; set-id bits stay with the owner.
class Output final : public ByteSink {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    /// False with errno set.
    bool open(const char* path);
    /// Takes what is open already, and is written straight; empty fails with the errno of that.
    bool open(UniqueFd fd);
    bool is_open() const { return file_ != nullptr; }
    bool write(const void* from, size_t size) override;
    Refusal why() const override;
    /// Flushes, closes and renames; false with errno set, and then nothing has changed under the target's name.
    bool commit();

private:
    UniqueFd create_temporary(mode_t mode);

    std::FILE* file_ = nullptr;
    char target_[4096] = ""; ///< the name behind symbolic links, so that a link stays one, dangling or not
    char temporary_[4096] = "";
};

} // namespace tavi
