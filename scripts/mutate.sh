#!/usr/bin/env bash
# Measures what the tests would miss: makes small wrong edits of the product, one at a time, and says
# which of them no test notices.
#
#   mutate.sh [--seed N] [--count N] [--workers N] [--survivors] [folder...]
#
# The folders are those below src/; all that are code by default. The same seed chooses the same edits
# of the same text, and a change of the text changes the choice by as much only. Each edit is made in a
# copy of the work tree below build/mutants/, built, and given to those tests with the label of its folder
# that use what it changes, until one fails: native ones first, then the release's, file by file of each
# program, those first that are quick or likely to notice it.
# What does not compile, or is the same program, is left out of the count. Results are kept in
# tests/mutants as they come: the same command goes on where it was ended. Edits that same_program.txt
# names there are not made. With --survivors, what survived in the folders is tried again, and nothing
# else is. Exit code 1 for a failure of the run itself, not for survivors.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
velt_setup mutate
exec python3 "$velt_root/scripts/mutate.py" "$@"
