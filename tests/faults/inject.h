// SPDX-License-Identifier: MIT
// Lets the n-th allocation, or the n-th system call, of a piece of code fail: those of the libraries below it too.
// Allocations are caught by this program's own malloc, system calls by the kernel, which sends a signal for each one
// that does not come from a few instructions of inject.cpp (syscall user dispatch, x86-64).
#pragma once

enum class Fault {
    none,
    allocation,  ///< no memory
    call,        ///< EIO
    interrupted, ///< EINTR
    short_count  ///< read and write: one byte
};

struct Plan {
    Fault fault = Fault::none;
    int from = 0;            ///< the first one that fails, from 1
    bool persistent = false; ///< and all after it
};

struct Counts {
    int allocations, calls;
    bool hit; ///< something failed
};

/// Blocks that are allocated and not yet freed, by anybody.
long live_blocks();

/// Prepares the process; false where the kernel cannot do it.
bool inject_available();

/// From here to disarm() on this thread things fail as planned and are counted.
void arm(const Plan& plan);
Counts disarm();
