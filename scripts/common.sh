# Sourced by the commands at the root.

velt_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
velt_logs=$velt_root/build/logs
. "$velt_root/scripts/setup.sh"

# velt_logged <name> <command...>: runs quietly; the output goes to build/logs/<name>.log, and its
# end is shown when the command fails.
velt_logged() {
    local log=$velt_logs/$1.log
    shift
    mkdir -p "$velt_logs"
    if ! "$@" >"$log" 2>&1; then
        echo "failed: $*" >&2
        tail -n 40 "$log" >&2
        echo "the whole log: ${log#"$velt_root"/}" >&2
        return 1
    fi
}

# velt_build <preset> [target...]: configures one preset and builds the targets; by default what is
# shipped, and the samples.
velt_build() {
    local preset=$1
    shift
    echo "building: $preset" "$@"
    (cd "$velt_root" &&
        velt_logged "configure-$preset" cmake --preset "$preset" &&
        velt_logged "build-$preset" cmake --build --preset "$preset" ${1+--target "$@"})
}

# velt_edition_of <argument>: the preset of the edition that it names; release, and an exit code, when
# it names none.
velt_edition_of() {
    case "${1:-}" in
    release | release64) echo "$1" ;;
    *)
        echo release
        return 1
        ;;
    esac
}
