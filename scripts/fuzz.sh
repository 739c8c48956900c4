#!/usr/bin/env bash
# Installs what is missing, builds every fuzzer with AddressSanitizer and UBSan and runs them one after the other on
# copies of fuzz/corpus/. Prints what they reached; a finding fails and stays in build/fuzz/findings/.
# Usage: fuzz.sh [MINUTES], of all fuzzers together, default 1; 0 replays the corpora and nothing else
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
minutes=${1:-1}
[[ $minutes =~ ^[0-9]+$ ]] || { echo "usage: fuzz.sh [MINUTES], a whole number" >&2; exit 2; }
need "${build_packages[@]}" clang libclang-rt-dev llvm

build=build/fuzz
cmake -B $build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_CXX_FLAGS="-fprofile-instr-generate -fcoverage-mapping" -DTAVI_SANITIZE=fuzzer-no-link,address,undefined \
    -DTAVI_BUILD_FUZZ=ON -DTAVI_BUILD_TESTS=OFF -DTAVI_BUILD_TOOLS=OFF >/dev/null
fuzzers=(jpeg png bmp pnm exif record)
ninja -C $build "${fuzzers[@]/%/_fuzz}" >$build/build.log || { cat $build/build.log; exit 1; }

here=$PWD/$build
findings=$here/findings
mkdir -p "$findings"
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=64 UBSAN_OPTIONS=print_stacktrace=1

# covered FILES PROFILE BINARY...: of the lines of src/ in the binaries, those of files so named, how many ran.
covered() {
    llvm-cov report -instr-profile="$2" "$3" "${@:4}" 2>/dev/null |
        awk -v files="$1" '$1 ~ "(^|/)src/" && $1 ~ files {lines += $8; missed += $9}
            END {if (lines) printf "%d of %d, %.1f %%", lines - missed, lines, 100 - 100 * missed / lines; else print "-"}'
}

row() { printf '%-8s %10s %8s   %-24s %s\n' "$@"; }
failed=0
ran=()
row fuzzer runs corpus "lines of src/ that ran" "of its own files"
for name in "${fuzzers[@]}"; do
    work=$here/run/$name
    rm -rf "$work"
    mkdir -p "$work/corpus"
    cp fuzz/corpus/"$name"/* "$work/corpus/"
    limit=(-runs=0)
    [ "$minutes" -eq 0 ] || limit=(-max_total_time=$((minutes * 60 / ${#fuzzers[@]})))
    (cd "$work" && LLVM_PROFILE_FILE=profile.raw "$here/fuzz/${name}_fuzz" "${limit[@]}" -max_len=2000 -timeout=20 \
        -rss_limit_mb=1024 -print_final_stats=1 -artifact_prefix="$findings/$name-" corpus) >"$work/log" 2>&1 || {
        failed=1
        tail -n 60 "$work/log"
        echo "$name: a finding, kept as $(grep -o "${findings}/[^ ]*" "$work/log" | tail -n 1)" >&2
        continue
    }
    llvm-profdata merge -o "$work/profile" "$work/profile.raw"
    row "$name" "$(awk '/number_of_executed_units/ {print $2}' "$work/log")" "$(find "$work/corpus" -type f | wc -l)" \
        "$(covered . "$work/profile" "$here/fuzz/${name}_fuzz")" \
        "$(covered "files/$name" "$work/profile" "$here/fuzz/${name}_fuzz")"
    ran+=("$name")
done
if [ ${#ran[@]} -gt 0 ]; then
    profiles=("${ran[@]/#/$here/run/}")
    llvm-profdata merge -o "$here/run/profile" "${profiles[@]/%//profile}"
    objects=("${ran[@]/#/-object=$here/fuzz/}")
    row all "" "" "$(covered . "$here/run/profile" "$here/fuzz/${ran[0]}_fuzz" "${objects[@]/%/_fuzz}")" ""
fi
exit $failed
