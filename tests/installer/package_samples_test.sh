#!/usr/bin/env bash
# Builds and runs each C++ sample for an edition by the commands that its first lines name, in the
# folder of the unpacked developer package.
#
#   package_samples_test.sh <source folder> <zip> x86|x64 <work folder> <prefix>
set -uo pipefail
source_dir=$1
zip=$2
edition=$3
work=$4
prefix=$5
failures=0

windows=()
[ "$edition" = x86 ] || windows=(--both)
# in_prefix <command of in_wine.sh...>
in_prefix() {
    "$source_dir/scripts/in_wine.sh" "${windows[@]}" "$@"
}

# for_edition: text that names x86, with the edition's folder.
for_edition() {
    sed -E "s/x86([\\\\/])/$edition\\1/g"
}

# fails <what> <log>
fails() {
    printf 'FAILED: %s\n' "$1"
    sed 's/^/    /' "$2"
    failures=$((failures + 1))
}

# build_command <sample>: the lines that are set in, continued ones joined; one command a line. They
# name the compiler for 32 bits, and the text above them the other one.
build_command() {
    local compiler=i686-w64-mingw32
    [ "$edition" = x86 ] || compiler=$(sed -nE 's|^// .*64-bit edition with ([^ ]+)-g\+\+.*|\1|p' "$1")
    sed -nE '/^\/\/ Build it/,/^\/\/ Run it/s|^//   ( *)|\1|p' <(tr -d '\r' <"$1") | for_edition | sed "s/i686-w64-mingw32/$compiler/g" |
        awk '/^ /  { sub(/^ +/, " "); line = line $0; next }
             line  { print line }
                   { line = $0 }
             END   { print line }'
}

# run_command <sample>: the first one that it names.
run_command() {
    sed -nE 's|^// Run it as: ([^ ]+\.exe( [^ ]+)*).*|\1|p' <(tr -d '\r' <"$1") |
        sed -E 's/ {2,}.*//' | for_edition
}

rm -rf "$work"
mkdir -p "$work"
unzip -q "$zip" -d "$work" || exit 1
cd "$work"/*/ || exit 1

samples=$(find samples -maxdepth 1 -name '*.cpp' | sort)
building=()
for sample in $samples; do
    build_command "$sample" >"$sample.sh"
    bash -e "$sample.sh" >"$sample.log" 2>&1 &
    building+=($!)
    if [ "${#building[@]}" -gt 1 ]; then
        wait "${building[-2]}"
    fi
done
wait

# What each sample prints when it did what it is for; each must be known here.
declare -A expected=(
    [collection_host]='DllCanUnloadNow after the last release: 0'
    [eula_host]=accepted
    [registration_free]='    Count = 0'
    [service_host]='    there is an update agent: no'
    [viewer_host]='    the viewer shows'
)
in_prefix "$prefix" regsvr32 /s "$edition\\VeltHTTPClient12OEM.dll" || failures=1
for sample in $samples; do
    name=$(basename -s .cpp "$sample")
    if [ ! -e "$edition/$name.exe" ]; then
        fails "$name is built by: $(cat "$sample.sh")" "$sample.log"
        continue
    fi
    beside=()
    [ "$name" != eula_host ] ||
        beside=(--beside "'$source_dir/scripts/answer_dialog.sh' '$work/eula.png' accept")
    command=$(run_command "$sample")
    in_prefix --keep "${beside[@]}" "$prefix" $command >"$sample.log" 2>&1
    status=$?
    if [ "$status" -eq 0 ] && tr -d '\r' <"$sample.log" | grep -q "^${expected[$name]:?}"; then
        printf 'ok: %s\n' "$command"
    else
        fails "$command, which ended with $status" "$sample.log"
    fi
done
[ "$(wc -w <<<"$samples")" -eq "${#expected[@]}" ] || failures=1
exit "$((failures > 0))"
