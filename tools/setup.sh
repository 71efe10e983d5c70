# Sourced by ./demo and ./check: installs what is missing of Debian's packages.
# setup_packages PACKAGE …

setup_packages() {
    local missing=() package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "needs root or sudo to install: ${missing[*]}" >&2; return 1; }
        as_root=(sudo)
    fi
    echo "installing ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get -q update &&
           "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
               apt-get -q install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

# What a build of library, server and tools takes.
build_packages=(g++ cmake ninja-build pkg-config libyang2-dev libxml2-dev libcli11-dev)
# The real models of demo and tests.
model_packages=(libyuma-base)
# What packages take beyond that, and the fresh system that they are tried in.
package_packages=(libsystemd-dev dpkg-dev file lintian debootstrap)
# What the checks of the documentation take: its sessions and exchanges, the reference, and an example in libuv's loop.
docs_packages=(python3 doxygen libuv1-dev)
