#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What the library does when the machine refuses: the n-th allocation and the n-th system call of every operation,
# interrupted calls, short transfers; forks among busy threads, work while threads and processes end, loading and
# unloading; forged and damaged files and their peaks of memory, targets that cannot be written, standard streams that
# are closed. x86-64; some twenty seconds after the build.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}" "${test_packages[@]}"
cmake --preset release -DTAVI_BUILD_TESTS=ON >/dev/null
cmake --build --preset release --target faults_test life_test life_static_test reload_test files_test
ctest --preset release -R '^(Faults|Life|Limits|Damage|Targets|Sources)\.' --no-tests=error
