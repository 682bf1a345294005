#!/usr/bin/env bash
# Makes the packages twice, under different circumstances, and looks into them.
#
#   package_test.sh <source folder> <work folder> <build folder>...      one for each edition
#
# The packages of the first time stay in the work folder, for the test that installs them; so does
# one of an earlier version, in earlier/.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
work=$2
shift 2
builds=("$@")
make_package=$source_dir/src/installer/make_package.sh

rm -rf "$work"
"$make_package" "$work" "${builds[@]}"
second=$work/again/in/another/folder
mkdir -p "$second"
touch "$second/left over"
# Another user's circumstances, and files that were built at another time.
(
    export TZ=Pacific/Auckland LANG=C.UTF-8 LC_ALL=C.UTF-8
    umask 077
    copies=()
    for build in "${builds[@]}"; do
        copy=$work/copy/$(basename "$build")
        mkdir -p "$copy/samples/update_agent"
        cp "$build/CMakeCache.txt" "$copy/"
        cp -R "$build/bin" "$copy/bin"
        cp "$build/samples/update_agent/sample_agent.exe" "$copy/samples/update_agent/"
        copies+=("$copy")
    done
    "$make_package" "$second" "${copies[@]}"

    # Sources with a file that does not belong to them, and without their history.
    if git -C "$source_dir" rev-parse >/dev/null 2>&1; then
        git clone -q "$source_dir" "$work/clone"
        cp -R "$source_dir/src/installer" "$work/clone/src/"
        echo 'not to be shipped' >"$work/clone/docs/draft.md"
        "$work/clone/src/installer/make_package.sh" "$work/cloned" "${copies[@]}"
        rm -rf "$work/clone/.git"
        "$work/clone/src/installer/make_package.sh" "$work/archived" "${copies[@]}"
    fi

    # An earlier version, which had a file that is there no more.
    for copy in "${copies[@]}"; do
        sed -i -E 's/^(CMAKE_PROJECT_VERSION:STATIC)=.*/\1=11.9.0.0/' "$copy/CMakeCache.txt"
        mkdir "$copy/bin/withdrawn"
        echo 'not any more' >"$copy/bin/withdrawn/withdrawn.txt"
    done
    "$make_package" "$work/earlier" "${copies[@]}"
) >"$work/again.log" 2>&1
cd "$work"
for file in *.zip *.exe SHA256SUMS; do
    expect "$file is the same bytes both times" same "$(cmp "$file" "$second/$file" && echo same)"
done
expect "an installer for each edition, the zip and the checksums" $((${#builds[@]} + 2)) "$(find . -maxdepth 1 -type f ! -name again.log | wc -l)"
expect "the checksums are right" $((${#builds[@]} + 1)) "$(sha256sum -c SHA256SUMS | grep -c ': OK$')"
expect "an explicit time is obeyed" "19800102.000000" "$(
    SOURCE_DATE_EPOCH=315619200 "$make_package" "$second" "${builds[@]}" >/dev/null &&
        zipinfo -T "$second"/*.zip | sed -nE 's/.* ([0-9]{8}\.[0-9]{6}) .*/\1/p' | sort -u
)"

if [ -e clone ]; then
    expect "a file that git does not know is not shipped" 0 \
        "$(unzip -Z1 cloned/*.zip | grep -c '/docs/draft\.md$')"
    expect "sources without history make the same files, and all that lie there" draft.md "$(
        comm -13 <(unzip -Z1 cloned/*.zip | sort) <(unzip -Z1 archived/*.zip | sort) |
            xargs -n1 basename | sort -u
    )"
else
    echo "not looked at: files that git does not know, because the sources are not git's"
fi

zip=$(echo *.zip)
name=${zip%.zip}
inside=$(unzip -Z1 "$zip")
expect "everything lies in one folder" "$name" "$(cut -d/ -f1 <<<"$inside" | sort -u)"
expect "the names are sorted" "$inside" "$(LC_ALL=C sort <<<"$inside")"
unzip -q "$zip" -d unpacked
editions=()
for build in "${builds[@]}"; do
    edition=$(sed -n 's/^VELT_EDITION:INTERNAL=//p' "$build/CMakeCache.txt")
    editions+=("$edition")
    for file in $(cd "$build/bin" && find . -type f -printf '%P\n') \
        docs/{architecture,host-guide,installer-guide,reference,skin,trace,translating,velt,wine}.md \
        samples/{collection,http_service}.{js,vbs} samples/eula_script.js \
        samples/registration_free.{cpp,rc,exe.manifest} \
        VeltHTTPClient12OEM.{dll,tlb,Assembly.manifest} velt.exe velt-trace.exe \
        include/provider_lib.h include/provider_lib_i.c README.md CONTRIBUTING.md \
        samples/{collection,eula,service,viewer}_host.cpp \
        samples/eula/agreement.rtf samples/eula/texts/JPN.xml \
        samples/update_agent/sample_agent.exe samples/update_agent/update_agent.ini; do
        expect "the zip has $edition/$file" 1 "$(grep -cxF "$name/$edition/$file" <<<"$inside")"
    done
    expect "what is shipped of the $edition edition is what was built" same "$(
        cd "$build/bin" && find . -type f -print0 |
            xargs -0 -I{} cmp {} "$work/unpacked/$name/$edition/{}" && echo same
    )"
    format=pei-i386
    [ "$edition" = 32-bit ] || format=pei-x86-64
    expect "its programs are of its kind" "$format" "$(
        find "unpacked/$name/$edition" -name '*.dll' -o -name '*.exe' | xargs objdump -f |
            sed -n 's/.*file format //p' | sort -u
    )"
    expect "there is an installer of the $edition edition" 1 \
        "$(find . -maxdepth 1 -name "*-$edition-setup.exe" | wc -l)"
done
expect "the zip has a folder for each edition" "$(printf '%s\n' "${editions[@]}" | sort)" \
    "$(cut -d/ -f2 <<<"$inside" | sort -u)"
# A program for its reader only: no path of the maker's machine.
expect "no path of the build inside" 0 "$(
    { grep -rlF "$source_dir/" unpacked || true; } | wc -l
)"

# Every link between the documents leads to a file in the package.
broken=$(
    cd "unpacked/$name"
    find . -name '*.md' -printf '%P\n' | while read -r document; do
        { grep -oP '\]\(\K[^)#]+(?=[)#])' "$document" || true; } | grep -v '://' | while read -r target; do
            [ -e "$(dirname "$document")/$target" ] || echo "$document: $target"
        done || true
    done
)
expect "links between the documents lead somewhere" "" "$broken"
rm -rf unpacked again copy clone cloned archived again.log
exit "$((failures > 0))"
