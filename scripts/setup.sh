# Sourced by the commands at the root: brings the packages that building and testing need.
#
#   velt_setup        installs what is missing; fails with the names when it cannot

velt_packages=(
    cmake ninja-build git
    g++-mingw-w64-i686-win32 mingw-w64-tools libwine-dev
    wine wine32:i386 xvfb faketime
    catch2 clang clang-format clang-tidy libclang-rt-14-dev
    nginx-light tinyproxy-bin
    nsis zip unzip
    python3 fonts-liberation fonts-droid-fallback xdotool imagemagick
)

# The packages of the list that are not installed, one a line.
velt_missing_packages() {
    local package
    for package in "${velt_packages[@]}"; do
        dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' ||
            echo "$package"
    done
}

velt_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

velt_setup() {
    if ! command -v dpkg-query >/dev/null; then
        echo "set-up: this is not a Debian system; see README.md for what to install" >&2
        return 1
    fi
    local missing
    missing=$(velt_missing_packages)
    [ -z "$missing" ] && return 0

    if [ "$(id -u)" -ne 0 ] && ! { command -v sudo && sudo -v; } >/dev/null 2>&1; then
        echo "set-up: these packages are missing, and neither root nor sudo is at hand:" >&2
        echo "$missing" | sed 's/^/    /' >&2
        echo "    (32-bit Wine needs: dpkg --add-architecture i386)" >&2
        return 1
    fi
    echo "set-up: installing" $missing
    local log=$velt_root/build/logs/setup.log
    mkdir -p "${log%/*}"
    # One suite for both architectures: where the mirrors of two archives are out of step, packages
    # of i386 and amd64 from different ones do not go together. A failed refresh is only a warning.
    local suite
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    dpkg --print-foreign-architectures | grep -qx i386 ||
        velt_as_root dpkg --add-architecture i386
    velt_as_root apt-get update >"$log" 2>&1 ||
        echo "set-up: a package index could not be refreshed; going on with what there is"
    # The run level keeps the packages of servers from starting them.
    if ! velt_as_root env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 apt-get install -y \
        --no-install-recommends -t "$suite" $missing >>"$log" 2>&1; then
        echo "set-up: the packages could not be installed; see ${log#"$velt_root"/}" >&2
        tail -n 5 "$log" >&2
        return 1
    fi
}
