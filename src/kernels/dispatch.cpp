// SPDX-License-Identifier: MIT
// Which builds this machine runs, and which of them is used.
#include <cstdlib>
#include <cstring>

#include "kernels/kernels.h"
#include "os/locks.h"

#define TAVI_LOG_TAG "tavi-kernels"
#include "services/log.h"

#if defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#endif

namespace tavi {
namespace {

#if defined(__x86_64__) || defined(__i386__)
#define TAVI_SIMD_BUILD avx2
bool has_simd() { return __builtin_cpu_supports("avx2"); }
#elif defined(__aarch64__)
#define TAVI_SIMD_BUILD neon
bool has_simd() { return true; } // part of the architecture
#elif defined(__arm__) && defined(__linux__)
#define TAVI_SIMD_BUILD neon
bool has_simd() {
    constexpr unsigned long kHwcapNeon = 1UL << 12; // HWCAP_NEON of the 32-bit ARM kernel
    return getauxval(AT_HWCAP) & kHwcapNeon;
}
#endif

} // namespace

#ifdef TAVI_SIMD_BUILD
namespace TAVI_SIMD_BUILD { // a kind a file
void use_colour(Kernels& k);
void use_orders(Kernels& k);
void use_scale(Kernels& k);
void use_taps(Kernels& k);
void use_geometry(Kernels& k);
void use_elements(Kernels& k);
} // namespace TAVI_SIMD_BUILD

namespace {

#define TAVI_TEXT_OF(name) #name
#define TAVI_TEXT(name) TAVI_TEXT_OF(name)

const Kernels& simd_kernels() {
    static FirstUse<Kernels> table;
    return table.get([] {
        Kernels k = plain_kernels();
        k.name = TAVI_TEXT(TAVI_SIMD_BUILD);
        TAVI_SIMD_BUILD::use_colour(k);
        TAVI_SIMD_BUILD::use_orders(k);
        TAVI_SIMD_BUILD::use_scale(k);
        TAVI_SIMD_BUILD::use_taps(k);
        TAVI_SIMD_BUILD::use_geometry(k);
#if TAVI_WITH_FRAMES
        TAVI_SIMD_BUILD::use_elements(k);
#endif
        return k;
    });
}

} // namespace
#endif

Builds builds() {
    Builds all = {{&plain_kernels()}, 1};
#ifdef TAVI_SIMD_BUILD
    if (has_simd())
        all.list[all.count++] = &simd_kernels();
#endif
    return all;
}

namespace {

const Kernels& choose() {
    const Builds all = builds();
    const Kernels& best = *all.list[all.count - 1];
    const char* const wanted = ::secure_getenv("TAVI_KERNELS");
    if (!wanted)
        return best;
    for (const Kernels* build : all)
        if (std::strcmp(wanted, build->name) == 0)
            return *build;
    LOG_AS("kernels", TAVI_LOG_ERROR, "TAVI_KERNELS=\"%s\": this machine allows plain%s%s; %s is used", wanted,
           all.count > 1 ? " and " : "", all.count > 1 ? best.name : "", best.name);
    return best;
}

} // namespace

const Kernels& kernels() {
    struct Choice {
        const Kernels* build;
    };
    static FirstUse<Choice> choice;
    return *choice.get([] { return Choice{&choose()}; }).build;
}

} // namespace tavi
