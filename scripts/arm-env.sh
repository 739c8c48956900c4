# Sourced by the scripts for the ARM targets: what cross compiling and running need, for 32 bits or, with arm_arch=arm64
# set before, for 64. Sets and exports TAVI_ARM_SYSROOT (libraries of the target, unpacked, none installed),
# TAVI_LIBYUV_SOURCE_DIR, and TAVI_ARM_ROOT (the same libraries with the compiler's C library, for the emulator).
# The packages are downloaded by a package manager of its own state, since plain installation beside the machine's own
# architecture is often refused.
. "$(dirname "${BASH_SOURCE[0]}")/packages.sh"
arm_cache=${TAVI_ARM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tavi-arm}
arm_arch=${arm_arch:-armhf}
arm_sources=$arm_cache # of both targets
if [ "$arm_arch" = arm64 ]; then
    arm_triplet=aarch64-linux-gnu
    arm_cache=$arm_cache/arm64
else
    arm_triplet=arm-linux-gnueabihf
fi
arm_packages=(libturbojpeg0 libturbojpeg0-dev libjpeg62-turbo libpng16-16 libpng-dev zlib1g zlib1g-dev libgtest-dev)

# arm_apt ARGUMENT...: apt-get for the target, with the machine's sources and nothing else of it.
arm_apt() {
    apt-get -qq -o APT::Architecture="$arm_arch" -o APT::Architectures="$arm_arch" -o Dir::State="$arm_cache/apt" \
        -o Dir::State::status="$arm_cache/apt/status" -o Dir::Cache="$arm_cache/apt/cache" \
        -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$arm_cache/apt/sources" \
        -o APT::Sandbox::User=root "$@"
}

# arm_prepare_apt: the machine's Debian sources, with those of source packages; refreshed once a day.
arm_prepare_apt() {
    [ -z "$(find "$arm_cache/apt/fresh" -mtime -1 2>/dev/null)" ] || return 0
    mkdir -p "$arm_cache"/apt/{sources,lists/partial,cache/archives/partial}
    : >"$arm_cache/apt/status"
    local file
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
        grep -qs debian-archive-keyring "$file" || grep -Eqs '^deb .*bookworm' "$file" || continue
        sed -E 's/^Types: deb$/Types: deb deb-src/; /^Architectures:/d; s/^deb (.*)/deb \1\ndeb-src \1/' "$file" \
            >"$arm_cache/apt/sources/$(basename "$file")"
    done
    arm_apt update || echo "some package lists could not be fetched; going on with the others" >&2
    touch "$arm_cache/apt/fresh"
}

# arm_unpack FOLDER PACKAGE...: downloads packages of the target and unpacks them, once.
arm_unpack() {
    local folder=$1 package
    shift
    mkdir -p "$folder/.done"
    for package in "$@"; do
        [ ! -e "$folder/.done/$package" ] || continue
        arm_prepare_apt
        rm -rf "$folder/.deb" && mkdir "$folder/.deb"
        (cd "$folder/.deb" && arm_apt download "$package")
        dpkg-deb -x "$folder"/.deb/*.deb "$folder"
        touch "$folder/.done/$package"
    done
    rm -rf "$folder/.deb"
}

# arm_unpack_all FOLDER PACKAGE...: the same with everything that the packages depend on.
arm_unpack_all() {
    local folder=$1 file
    shift
    [ ! -e "$folder/.all" ] || return 0
    arm_prepare_apt
    rm -rf "$folder" && mkdir -p "$folder/.deb/partial"
    arm_apt install -y --no-install-recommends --download-only -o Dir::Cache::archives="$folder/.deb" "$@"
    for file in "$folder"/.deb/*.deb; do
        dpkg-deb -x "$file" "$folder"
    done
    rm -rf "$folder/.deb"
    touch "$folder/.all"
}

# arm_relink FOLDER: absolute links are meant for a root of their own.
arm_relink() {
    find "$1" -lname '/*' ! -lname "$1/*" -printf '%p\t%l\n' | while IFS=$'\t' read -r link target; do
        ln -sf "$1$target" "$link"
    done
}

need "g++-$arm_triplet" "gcc-$arm_triplet" qemu-user cmake ninja-build pkg-config xz-utils
export TAVI_ARM_SYSROOT=$arm_cache/sysroot
arm_unpack "$TAVI_ARM_SYSROOT" "${arm_packages[@]}"
arm_relink "$TAVI_ARM_SYSROOT"

# libyuv's source, as Debian has it: its binary package for the target contains no NEON code.
export TAVI_LIBYUV_SOURCE_DIR=${TAVI_LIBYUV_SOURCE_DIR:-$arm_sources/libyuv}
if [ ! -e "$TAVI_LIBYUV_SOURCE_DIR/include/libyuv.h" ]; then
    arm_prepare_apt
    rm -rf "$arm_cache/libyuv.part" && mkdir -p "$arm_cache/libyuv.part/tree"
    (cd "$arm_cache/libyuv.part" && arm_apt source --download-only libyuv && tar -C tree -xf ./*.orig.tar.*)
    folder=$(dirname "$(find "$arm_cache/libyuv.part/tree" -path '*/include/libyuv.h')")
    mkdir -p "$(dirname "$TAVI_LIBYUV_SOURCE_DIR")"
    mv "$(dirname "$folder")" "$TAVI_LIBYUV_SOURCE_DIR"
    rm -rf "$arm_cache/libyuv.part"
fi

# What a program sees as its root in the emulator. The emulator shows the machine's own /proc/cpuinfo otherwise, in
# which libyuv finds no NEON.
export TAVI_ARM_ROOT=$arm_cache/root
for kind in root root-without-neon; do
    [ $arm_arch = armhf ] || [ $kind = root ] || continue
    [ ! -e "$arm_cache/$kind/.done" ] || continue
    rm -rf "${arm_cache:?}/$kind"
    mkdir -p "$arm_cache/$kind"/{lib,proc,"usr/lib/$arm_triplet"}
    cp -a "/usr/$arm_triplet"/lib/*.so* "$arm_cache/$kind/lib/"
    cp -a "$TAVI_ARM_SYSROOT/usr/lib/$arm_triplet"/*.so* "$arm_cache/$kind/usr/lib/$arm_triplet/"
    [ ! -d "$TAVI_ARM_SYSROOT/lib/$arm_triplet" ] ||
        cp -a "$TAVI_ARM_SYSROOT/lib/$arm_triplet"/*.so* "$arm_cache/$kind/usr/lib/$arm_triplet/"
    if [ $arm_arch = arm64 ]; then # nothing there asks /proc/cpuinfo for NEON
        touch "$arm_cache/$kind/.done"
        continue
    fi
    features="half thumb fastmult vfp edsp vfpv3 vfpv3d16 tls vfpd32 lpae evtstrm"
    [ $kind = root-without-neon ] || features="half thumb fastmult vfp edsp neon vfpv3 tls vfpv4 idiva idivt vfpd32 lpae evtstrm"
    printf 'processor\t: 0\nmodel name\t: ARMv7 Processor rev 3 (v7l)\nFeatures\t: %s\nCPU implementer\t: 0x41\nCPU architecture: 7\nCPU part\t: 0xc0f\n\nHardware\t: emulated\n' \
        "$features" >"$arm_cache/$kind/proc/cpuinfo"
    touch "$arm_cache/$kind/.done"
done
