#!/usr/bin/env bash
# Installs the library into a folder and compiles, links and runs the examples of the documentation against what is there:
# scripts/test-install.sh
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}" "${test_packages[@]}"
build=build/install # its tests are not built: configuring takes the examples out of the pages
cmake --preset release -B "$build" -DTAVI_BUILD_TESTS=ON -DTAVI_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target tavi_image tavi_image_static
prefix=$PWD/$build/prefix
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig:$prefix/lib/$(gcc -print-multiarch)/pkgconfig
read -ra flags <<<"$(pkg-config --cflags tavi_image)"
read -ra libraries <<<"$(pkg-config --libs tavi_image)"
objects=$build/objects
rm -rf "$objects"
mkdir -p "$objects"
for example in "$build"/tests/backends/example_*; do
    case $example in
    *.c) gcc -std=c99 -Wall -Wextra -Werror "${flags[@]}" -c "$example" -o "$objects/$(basename "$example").o" ;;
    *) g++ -std=c++17 -Wall -Wextra -Werror "${flags[@]}" -c "$example" -o "$objects/$(basename "$example").o" ;;
    esac
done
g++ -std=c++17 -Iinclude -Isrc -Isrc/services -Itests -DTAVI_ASSETS="\"$PWD/assets\"" tests/backends/examples_test.cpp \
    "$objects"/*.o "${libraries[@]}" -Wl,-rpath,"$(pkg-config --variable=libdir tavi_image)" -lgtest -lgtest_main -pthread \
    -o "$build/examples"
# Each in a process of its own: settings are read once.
for name in $("$build/examples" --gtest_list_tests | sed -n 's/^  //p'); do
    "$build/examples" --gtest_brief=1 --gtest_filter="Examples.$name"
done
