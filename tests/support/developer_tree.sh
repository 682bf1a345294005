#!/usr/bin/env bash
# Makes the folder of a developer package with what is built: one edition.
#
#   developer_tree.sh <source folder> <build folder> x86|x64 <folder>
set -eu
source_dir=$1
build=$2
edition=$3
folder=$4

rm -rf "$folder"
mkdir -p "$folder"/{cmake,docs,idl,include,"$edition"}
cp "$build"/bin/*.* "$folder/$edition/"
cp "$build"/bin/include/* "$folder/include/"
cp "$source_dir/src/server/provider_lib.idl" "$folder/idl/"
cp "$source_dir"/src/installer/cmake/*.cmake "$source_dir"/cmake/*w64*.cmake "$folder/cmake/"
cp "$source_dir/src/installer/developer/README.md" "$source_dir"/src/installer/{NOTICES,LICENSE}.md \
    "$source_dir/CHANGELOG.md" "$folder/"
for name in host-guide installer-guide reference skin stability trace translating velt; do
    cp "$source_dir/docs/$name.md" "$folder/docs/"
done

# Samples that need the package only; the sample agent goes as a program.
cp -R "$source_dir/samples" "$folder/"
find "$folder/samples/update_agent" -type f ! -name '*.ini' -delete
rm "$folder/samples/CMakeLists.txt" "$folder/samples/fetch_host.cpp"
cp "$build/samples/update_agent/sample_agent.exe" "$folder/samples/update_agent/"
