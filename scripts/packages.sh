# Sourced by the other scripts: the Debian packages they need, and a function that installs what is missing.
build_packages=(g++ cmake ninja-build pkg-config libyuv-dev libturbojpeg0-dev libpng-dev libcli11-dev
    nlohmann-json3-dev)
test_packages=(libgtest-dev python3-pil)

# need PACKAGE...: installs those that are not there yet; asks for root only when it must.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}" >&2
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
