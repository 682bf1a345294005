# Sourced by the commands at the root: brings the packages that building and testing need.
#
#   velt_setup <purpose>   installs what is missing for "build", "run", "test", "bench", "package",
#                          "sign", "lint", "soak", "mutate" or "debian"; fails with the names when it cannot

declare -A velt_packages=(
    # Wine's libraries for 32 and for 64 bits have a type library that ours imports.
    [build]="cmake ninja-build git faketime python3
        g++-mingw-w64-i686-win32 g++-mingw-w64-x86-64-win32 mingw-w64-tools
        libwine-dev wine32:i386 wine64"
    [wine]="wine xvfb fonts-liberation fonts-droid-fallback nginx-light tinyproxy-bin"
    [pictures]="xdotool imagemagick"
    [native]="clang libclang-rt-dev nlohmann-json3-dev"
    [tests]="catch2 clang-format python3 python3-jsonschema iproute2"
    [packing]="msitools gcab zip python3"
    [unpacking]="unzip"
    [signing]="osslsigncode openssl"
    [lint]="clang-tidy"
    [plotting]="gnuplot-nox python3"
    [copying]="rsync"
    [debian]="debootstrap distro-info-data"
)
declare -A velt_purposes=(
    [build]="build"
    [run]="build wine pictures"
    [test]="build wine pictures native tests packing unpacking signing"
    [bench]="build wine native tests"
    [package]="build packing"
    [check_kit]="build tests"
    [soak]="build wine tests plotting"
    [sign]="signing"
    [lint]="build lint"
    [mutate]="build wine pictures native tests packing unpacking signing copying"
    [debian]="debian copying"
)

# velt_missing_packages <package>...: those that are not installed, one a line.
velt_missing_packages() {
    local package
    for package in "$@"; do
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
    local group missing wanted=
    for group in ${velt_purposes[$1]}; do
        wanted+=" ${velt_packages[$group]}"
    done
    missing=$(velt_missing_packages $wanted)
    if [ -n "$missing" ]; then
        velt_install $missing || return 1
    fi
    case "$wanted" in
    *catch2*) velt_catch_sources ;;
    esac
}

# velt_install <package>...
velt_install() {
    if [ "$(id -u)" -ne 0 ] && ! { command -v sudo && sudo -v; } >/dev/null 2>&1; then
        echo "set-up: these packages are missing, and neither root nor sudo is at hand:" >&2
        printf '    %s\n' "$@" >&2
        echo "    (32-bit Wine needs: dpkg --add-architecture i386)" >&2
        return 1
    fi
    echo "set-up: installing" "$@"
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
    # The run level keeps the packages of servers from starting them. Packages are not written
    # through to the disk one by one, which takes most of the time.
    if ! velt_as_root env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 apt-get install -y \
        -o Dpkg::Options::=--force-unsafe-io --no-install-recommends -t "$suite" "$@" >>"$log" 2>&1
    then
        echo "set-up: the packages could not be installed; see ${log#"$velt_root"/}" >&2
        tail -n 5 "$log" >&2
        return 1
    fi
}

# Catch2 is a single header up to version 2. Version 3 is a library, and the package has it for this
# very system: for Windows it is compiled from the sources of the package.
velt_catch_sources() {
    local folder=$velt_root/build/catch2
    [ ! -e /usr/include/catch2/catch.hpp ] && [ ! -e "$folder/catch_amalgamated.cpp" ] || return 0
    echo "set-up: fetching the sources of catch2"
    local log=$velt_root/build/logs/catch2.log work=$velt_root/build/catch2.partial
    rm -rf "$work"
    mkdir -p "$work/lists/partial" "${log%/*}"
    # The indices of sources are this folder's matter, not the system's.
    local keys=/usr/share/keyrings/debian-archive-keyring.gpg
    apt-get indextargets --format "deb-src [signed-by=$keys] \$(REPO_URI) \$(CODENAME) \$(COMPONENT)" \
        'Created-By: Packages' 'Origin: Debian' | sort -u >"$work/sources.list"
    local options=(-o "Dir::Etc::SourceList=$work/sources.list" -o Dir::Etc::SourceParts=-
        -o "Dir::State::Lists=$work/lists" -o APT::Sandbox::User=root
        -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache=)
    if ! {
        apt-get "${options[@]}" update &&
            (cd "$work" && apt-get "${options[@]}" source --download-only catch2) &&
            tar -xf "$work"/catch2_*.orig.tar.* -C "$work" --strip-components=2 --wildcards \
                '*/extras/catch_amalgamated.*' &&
            rm -rf "$work"/{lists,sources.list} "$work"/catch2_* && mv "$work" "$folder"
    } >"$log" 2>&1; then
        echo "set-up: the sources of catch2 cannot be had; see ${log#"$velt_root"/}" >&2
        tail -n 5 "$log" >&2
        return 1
    fi
}
