// SPDX-License-Identifier: MIT
// The engine of this process and the contexts of it that are kept open. Opening one costs several times what a job of
// it costs, so they are kept, bounded in number, found by what they are set to, and dropped when what they hold is to
// go.
#pragma once

#include <utility>

#include "backends/blit/m2m_context.h"

namespace tavi {

/// Looks at /dev/video0 and up, or at `only`; `why_not` is null for a usable engine. Stops when `visit` answers
/// false.
void visit_engines(const char* only, bool (*visit)(const EngineInfo& info, const char* why_not, void* user),
                   void* user);

class ContextPool {
    struct Slot {
        M2mContext context;
        bool busy = false;
        bool doomed = false; ///< to be closed by whoever has it now
        uint64_t last_used = 0;
        Memory src, dst; ///< what it holds imported; inode 0 = nothing
    };

public:
    static constexpr int kMost = 8;

    static ContextPool& instance();

    /// Copies what is known of the engine; false when there is none. Looks for it when that has not been done yet.
    bool engine(EngineInfo& info);

    /// One context, this thread's alone until the lease ends.
    class Lease {
    public:
        Lease() = default;
        explicit Lease(const Refusal& no) : refusal_(no) {}
        Lease(Lease&& other) noexcept
            : pool_(std::exchange(other.pool_, nullptr)), slot_(other.slot_), refusal_(other.refusal_) {}
        Lease& operator=(Lease&&) = delete;
        ~Lease();

        explicit operator bool() const { return pool_ != nullptr; }
        /// Why it is empty.
        const Refusal& refusal() const { return refusal_; }
        /// Whether the context was opened for this lease.
        bool opened() const { return slot_->context.opened(); }
        /// One job. When it has failed the end of the lease stops the stream: not before may software write.
        Refusal run(const Memory& src, const Memory& dst);

    private:
        friend class ContextPool;
        ContextPool* pool_ = nullptr;
        Slot* slot_ = nullptr;
        Refusal refusal_; ///< of the lease, or of its last job
    };

    /// A context set up as asked, when all are busy as soon as one is free; empty when the engine will not have it
    /// so.
    Lease lease(const Setup& setup);

    /// Closes every context that is not busy; busy ones are closed when their lease ends.
    void drop_all();
    /// The same, and the engine is looked for again: it has gone away.
    void forget_engine();
    /// Closes the contexts that hold a buffer.
    void drop_holders(const Buffer& buffer);

private:
    ContextPool() = default;
    static const int forks_are_watched;
    Slot* pick(const Setup& setup);
    void give_back(Slot* slot, const Refusal& no);
    template <class Match>
    void drop_if(Match match);
    static void in_child();

    bool looked_ = false;
    bool present_ = false;
    EngineInfo engine_;
    uint64_t clock_ = 0;
    Slot slots_[kMost];
};

/// A descriptor as a buffer: false when it has no size, which is no buffer.
bool identify_buffer(int fd, Buffer& buffer);

} // namespace tavi
