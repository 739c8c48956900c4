// SPDX-License-Identifier: MIT
#include "faults/inject.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#ifndef PR_SET_SYSCALL_USER_DISPATCH
#define PR_SET_SYSCALL_USER_DISPATCH 59
#define PR_SYS_DISPATCH_ON 1
#endif

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

// The only instructions that reach the kernel while calls are caught, the return from the signal among them.
extern const char inject_begin[], inject_end[];
long inject_syscall(long number, long a, long b, long c, long d, long e, long f);
void inject_restore();
asm(R"(.text
inject_begin:
inject_syscall:
    mov %rdi, %rax
    mov %rsi, %rdi
    mov %rdx, %rsi
    mov %rcx, %rdx
    mov %r8, %r10
    mov %r9, %r8
    mov 8(%rsp), %r9
    syscall
    ret
inject_restore:
    mov $15, %eax
    syscall
    nop # the kernel looks at the address behind the call
inject_end:)");
}

namespace {

volatile char g_blocked = 0; // read by the kernel at each system call
bool g_armed = false;
Plan g_plan;
Counts g_counts;
std::atomic<long> g_live{0};

bool fails(int number) {
    const bool now = number == g_plan.from || (g_plan.persistent && number > g_plan.from);
    g_counts.hit = g_counts.hit || now;
    return now;
}

bool refuse_allocation() {
    return g_armed && fails(++g_counts.allocations * (g_plan.fault == Fault::allocation ? 1 : -1));
}

void* given(void* block) {
    g_live += block != nullptr;
    return block;
}

/// Calls that can fail for reasons outside this process. Not close() and unlink(): nothing is left to be done then.
constexpr long kCanFail[] = {SYS_read,      SYS_write,      SYS_openat,       SYS_lseek,      SYS_newfstatat,
                             SYS_mmap,      SYS_ioctl,      SYS_poll,         SYS_fcntl,      SYS_fsync,
                             SYS_ftruncate, SYS_rename,     SYS_fchmod,       SYS_getdents64, SYS_fchown,
                             SYS_readlink,  SYS_faccessat2, SYS_memfd_create, SYS_getrandom};

bool can_fail(long number) {
    return std::find(std::begin(kCanFail), std::end(kCanFail), number) != std::end(kCanFail);
}

bool can_be_interrupted(long number) {
    return number == SYS_read || number == SYS_write || number == SYS_openat || number == SYS_ioctl ||
           number == SYS_poll;
}

void on_call(int, siginfo_t*, void* context) {
    g_blocked = 0;
    auto* const r = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const long number = r[REG_RAX];
    long length = r[REG_RDX];
    bool fail = false;
    switch (g_plan.fault) {
    case Fault::interrupted:
        fail = can_be_interrupted(number) && fails(++g_counts.calls);
        break;
    case Fault::short_count:
        if ((number == SYS_read || number == SYS_write) && length > 1 && fails(++g_counts.calls))
            length = 1;
        break;
    default:
        fail = can_fail(number) && fails(++g_counts.calls * (g_plan.fault == Fault::call ? 1 : -1));
    }
    r[REG_RAX] = fail ? (g_plan.fault == Fault::interrupted ? -EINTR
                         : number == SYS_mmap               ? -ENOMEM
                                                            : -EIO)
                      : inject_syscall(number, r[REG_RDI], r[REG_RSI], length, r[REG_R10], r[REG_R8], r[REG_R9]);
    g_blocked = 1;
}

} // namespace

extern "C" {
void* malloc(size_t size) { return refuse_allocation() ? (errno = ENOMEM, nullptr) : given(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) {
    return refuse_allocation() ? (errno = ENOMEM, nullptr) : given(__libc_calloc(count, size));
}
void* realloc(void* block, size_t size) {
    if (!block)
        return malloc(size);
    return refuse_allocation() ? (errno = ENOMEM, nullptr) : __libc_realloc(block, size);
}
void* memalign(size_t alignment, size_t size) {
    return refuse_allocation() ? (errno = ENOMEM, nullptr) : given(__libc_memalign(alignment, size));
}
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, size_t alignment, size_t size) {
    void* const made = memalign(alignment, size);
    return made ? (*block = made, 0) : ENOMEM;
}
void free(void* block) {
    g_live -= block != nullptr;
    __libc_free(block);
}
}

long live_blocks() { return g_live; }

bool inject_available() {
    struct { // the kernel's own layout: the C library would put its own return from the signal there
        void (*handler)(int, siginfo_t*, void*);
        unsigned long flags;
        void (*restorer)();
        uint64_t mask;
    } action = {on_call, SA_SIGINFO | 0x04000000ul, inject_restore, 0};
    return ::syscall(SYS_rt_sigaction, SIGSYS, &action, nullptr, 8) == 0 &&
           ::prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, inject_begin, inject_end - inject_begin,
                   &g_blocked) == 0;
}

void arm(const Plan& plan) {
    g_plan = plan;
    g_counts = {};
    g_armed = true;
    g_blocked = 1;
}

Counts disarm() {
    g_blocked = 0;
    g_armed = false;
    return g_counts;
}
