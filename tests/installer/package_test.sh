#!/usr/bin/env bash
# Makes the packages twice, under different circumstances, and looks into them.
#
#   package_test.sh <source folder> <work folder> <build folder>...      one for each edition
#
# The packages of the first time stay in the work folder, for the tests that install them; so do those
# of an earlier version, in earlier/.
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
        cp -R "$build/bin" "$build/symbols" "$copy/"
        cp "$build/samples/update_agent/sample_agent.exe" "$copy/samples/update_agent/"
        copies+=("$copy")
    done
    "$make_package" "$second" "${copies[@]}"

    # Sources with a file that does not belong to them, and without their history.
    if git -C "$source_dir" rev-parse >/dev/null 2>&1; then
        git clone -q "$source_dir" "$work/clone"
        for folder in src/installer docs samples; do
            cp -R "$source_dir/$folder" "$work/clone/$(dirname "$folder")/"
        done
        echo 'not to be shipped' >"$work/clone/samples/draft.js"
        "$work/clone/src/installer/make_package.sh" "$work/cloned" "${copies[@]}"
        rm -rf "$work/clone/.git"
        "$work/clone/src/installer/make_package.sh" "$work/archived" "${copies[@]}"
    fi

    # An earlier version, which had a file that is there no more.
    for copy in "${copies[@]}"; do
        sed -i -E 's/^(CMAKE_PROJECT_VERSION:STATIC)=.*/\1=11.9.0.0/' "$copy/CMakeCache.txt"
    done
    echo 'not any more' >"${copies[0]}/bin/withdrawn.txt"
    "$make_package" "$work/earlier" "${copies[@]}"
) >"$work/again.log" 2>&1 || { cat "$work/again.log" && exit 1; }
cd "$work"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "${builds[0]}/CMakeCache.txt")
name=VeltHTTPClient-$version
editions=(x86)
[ ${#builds[@]} -eq 1 ] || editions+=(x64)
expect "the packages" "$(printf "$name%s\n" .spdx.json -developer.zip -runtime.zip -symbols.zip \
    "${editions[@]/%/.msi}" | sed -E 's/(.*[0-9])(x..\.msi)/\1-\2/' | sort)" "$(ls VeltHTTPClient-* | sort)"
for file in "$name"* SHA256SUMS; do
    expect "$file is the same bytes both times" same "$(cmp "$file" "$second/$file" && echo same)"
done
expect "the checksums are right" "$(ls "$name"* | wc -l)" "$(sha256sum -c SHA256SUMS | grep -c ': OK$')"
expect "an explicit time is obeyed" "19800102.000000" "$(
    SOURCE_DATE_EPOCH=315619200 "$make_package" "$second" "${builds[@]}" >/dev/null &&
        zipinfo -T "$second"/*-developer.zip | sed -nE 's/.* ([0-9]{8}\.[0-9]{6}) .*/\1/p' | sort -u
)"

if "$make_package" --sign --pkcs12 "$work/none.p12" -- "$second" "${builds[@]}" >/dev/null 2>&1; then
    expect "signing without a certificate fails" failed done
fi
expect "packages that cannot be made leave those that are there" 315619200 \
    "$(stat -c %Y "$(cd "$second" && unzip -q -o ./*-runtime.zip -d out && find "$PWD/out" -name LICENSE.md)")"

if [ -e clone ]; then
    expect "a file that git does not know is not shipped" 0 \
        "$(unzip -Z1 cloned/*-developer.zip | grep -c '/samples/draft\.js$')"
    expect "sources without history make the same files, and all that lie there" draft.js "$(
        comm -13 <(unzip -Z1 cloned/*-developer.zip | sort) \
            <(unzip -Z1 archived/*-developer.zip | sort) | xargs -n1 basename | sort -u
    )"
else
    echo "not looked at: files that git does not know, because the sources are not git's"
fi

# contents <zip>: what is in it, below the one folder that it has.
contents() {
    unzip -Z1 "$name-$1.zip" | sed "s|^$name/||"
}
for zip in developer runtime symbols; do
    inside=$(unzip -Z1 "$name-$zip.zip")
    expect "$zip: everything lies in one folder" "$name" "$(cut -d/ -f1 <<<"$inside" | sort -u)"
    expect "$zip: the names are sorted" "$inside" "$(LC_ALL=C sort <<<"$inside")"
    unzip -q "$name-$zip.zip" -d "unpacked-$zip"
done
expect "what ships with a program" "$({
    printf '%s\n' LICENSE.md NOTICES.md
    printf '%s/VeltHTTPClient12OEM.Assembly.manifest\n' "${editions[@]}"
    printf '%s/VeltHTTPClient12OEM.dll\n' "${editions[@]}"
} | LC_ALL=C sort)" "$(contents runtime | LC_ALL=C sort)"
expect "symbols" "$(
    for edition in "${editions[@]}"; do
        printf "$edition/%s.debug\n" VeltHTTPClient12OEM sample_agent velt velt-trace
    done | LC_ALL=C sort
)" "$(contents symbols | LC_ALL=C sort)"
for i in "${!builds[@]}"; do
    edition=${editions[i]}
    expect "what is shipped of $edition is what was built" "" "$(
        cd "${builds[i]}/bin"
        for file in *.*; do
            cmp "$file" "$work/unpacked-developer/$name/$edition/$file"
        done 2>&1
    )"
    expect "the run-time files of $edition are those" "" "$(
        diff -r "unpacked-runtime/$name/$edition" "unpacked-developer/$name/$edition" |
            grep -v '^Only in unpacked-developer'
    )"
    format=pei-i386
    [ "$edition" = x86 ] || format=pei-x86-64
    expect "its programs are of its kind" "$format" "$(
        objdump -f "unpacked-developer/$name/$edition"/*.{dll,exe} |
            sed -n 's/.*file format //p' | sort -u
    )"
done
developer=$(contents developer)
for file in README.md CHANGELOG.md LICENSE.md NOTICES.md idl/provider_lib.idl \
    include/provider_lib.h include/provider_lib_i.c cmake/VeltHTTPClientConfig.cmake \
    docs/{host-guide,installer-guide,reference,skin,stability,trace,translating,velt}.md \
    samples/{collection,http_service}.{js,vbs} samples/eula_script.js \
    samples/registration_free.{cpp,rc,exe.manifest} \
    samples/{collection,eula,service,viewer}_host.cpp samples/cmake_host/CMakeLists.txt \
    samples/eula/agreement.rtf samples/eula/texts/JPN.xml \
    samples/update_agent/sample_agent.exe samples/update_agent/update_agent.ini; do
    expect "developers get $file" 1 "$(grep -cxF "$file" <<<"$developer")"
done
expect "texts have the line ends of Windows" "" "$(
    cd "unpacked-developer/$name"
    find . -name '*.md' -o -name '*.cpp' -o -name '*.h' -o -name '*.js' -o -name '*.cmake' |
        while read -r file; do
            [ "$(grep -c '' "$file")" = "$(grep -c $'\r$' "$file")" ] || echo "$file"
        done
)"
# For their readers only: no path of the maker's machine, but in the symbols, which name no folder
# of it either.
expect "no path of the build inside" "" "$(grep -rlF "$source_dir/" unpacked-* || true)"
rm -rf unpacked-* again copy clone cloned archived again.log
exit "$((failures > 0))"
