#!/usr/bin/env bash
# The operator's hosts are chosen when configuring; what is no host is refused.
#   endpoints_test.sh <source folder> <work folder>
set -euo pipefail
cd "$1"
work_dir=$2
header=$work_dir/generated/foundation/endpoints.h
trap 'rm -rf "$work_dir"' EXIT

# configure <option>...: with the plainest of the presets.
configure() {
    rm -rf "$work_dir"
    cmake --preset native -B "$work_dir" "$@" >/dev/null 2>&1
}

# expect <text>: the header has it.
expect() {
    grep -qF "$1" "$header" || {
        echo "not in the header: $1" >&2
        exit 1
    }
}

configure
expect 'kRedirectHost[] = L"redirect.velt.example";'
expect 'kUpdateHost[] = L"update.velt.example";'

configure -DVELT_REDIRECT_HOST=go.example.org -DVELT_UPDATE_HOST=updates.example.org:8080
expect 'kRedirectHost[] = L"go.example.org";'
expect 'kUpdateHost[] = L"updates.example.org:8080";'

for wrong in '' 'http://host' 'host/path' 'a"b' 'host:' 'two hosts'; do
    if configure "-DVELT_UPDATE_HOST=$wrong"; then
        echo "taken for a host: $wrong" >&2
        exit 1
    fi
done
echo "hosts are what the build was told"
