#!/usr/bin/env bash
# Which tests a change concerns: those of its folder and of the folders that may include it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
. scripts/folders.sh
failures=0

# concerns <labels> <path>...
concerns() {
    local expected=$1 labels
    shift
    labels=$(velt_labels_of "$@" | paste -sd ' ')
    if [ "$labels" != "$expected" ]; then
        printf 'FAILED: %s\n  expected: %s\n  actual:   %s\n' "$*" "$expected" "$labels"
        failures=$((failures + 1))
    fi
}

concerns "installer server service tools" src/service/sink_list.cpp
concerns "connection installer internet server service tools update" src/internet/file_url.h
concerns "collection connection foundation installer internet server service tools ui update" \
    src/foundation/utf.cpp
concerns "installer tools" src/tools/velt/main.cpp
concerns "installer" src/installer/make_package.sh
concerns "service" tests/service/notify_test.cpp
concerns "tools" tests/tools/velt/report_test.cpp
concerns "fuzz" tests/fuzz/corpus/utf/seed
concerns "docs installer" README.md docs/wine.md
concerns "installer samples" samples/collection.js
concerns "" tests/benchmarks/ui_bench.cpp bench .ci/run
concerns "service structure" tests/structure/x tests/service/y
for anything in CMakeLists.txt cmake/VeltOptions.cmake scripts/in_wine.sh test \
    tests/CMakeLists.txt tests/support/http_server.cpp; do
    concerns all "$anything"
done

# Each label is one that tests have, each folder of the product has one.
labels=$({
    sed -nE 's/^ *FOLDER (.*)$/\1/p; s/^ *velt_label_test\([^ ]+ (.*)\)$/\1/p' \
        $(git ls-files 'tests/*CMakeLists.txt') | tr ' ' '\n'
} | sort -u)
for folder in src/*/; do
    for label in $(velt_labels_of "${folder}file"); do
        grep -qx "$label" <<<"$labels" || {
            echo "FAILED: no test is labelled $label"
            failures=$((failures + 1))
        }
    done
done
exit "$((failures > 0))"
