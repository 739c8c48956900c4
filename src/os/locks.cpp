// SPDX-License-Identifier: MIT
#include "os/locks.h"

#include <pthread.h>

namespace tavi {
namespace {

void take_all() {
    g_locks.first_use.lock();
    g_locks.engines.lock();
    g_locks.registry.lock();
    g_locks.pool.lock();
    g_locks.settings.lock();
    g_locks.log.lock();
}

void release_all() {
    g_locks.log.unlock();
    g_locks.settings.unlock();
    g_locks.pool.unlock();
    g_locks.registry.unlock();
    g_locks.engines.unlock();
    g_locks.first_use.unlock();
}

// Not released: a lock for readers and writers takes the child for another thread than the one that holds it.
void make_new() { new (&g_locks) Locks; }

} // namespace

int watch_forks() { return ::pthread_atfork(take_all, release_all, make_new); }

} // namespace tavi
