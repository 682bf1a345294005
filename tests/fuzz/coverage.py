#!/usr/bin/env python3
"""Says which lines of the code under test no input of the fuzz targets reaches.

    coverage.py [target...]        the targets as in tests/fuzz/corpus/; all by default

A target is about the sources of the headers that it names. It is built once more, with counters, and
runs through its seeds and what longer runs have found; the table has a row for each source, and the
numbers of the lines that stay unreached.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/fuzz-coverage"
FOUND = ROOT / "build/native/tests/fuzz"
CORPUS = ROOT / "tests/fuzz/corpus"
COUNTERS = "-fprofile-instr-generate -fcoverage-mapping"


def run(*command, **options):
    return subprocess.run(command, cwd=ROOT, check=True, **options)


def sources_of(target):
    text = (ROOT / f"tests/fuzz/{target}_fuzz.cpp").read_text(encoding="utf-8")
    named = re.findall(r'#include "((?!tests/)[^"]+)\.h"', text)
    return [path for name in named if (ROOT / (path := f"src/{name}.cpp")).exists()]


def reached(segments):
    """The lines that have counters, each with whether a counter has counted there."""
    lines = {}
    count, counted = 0, False
    for index, (line, _, count, counted, *_) in enumerate(segments):
        end = segments[index + 1][0] if index + 1 < len(segments) else line
        if counted:
            for each in range(line, end + 1):
                lines[each] = lines.get(each, False) or count > 0
    return lines


def ranges(numbers):
    text, numbers = [], sorted(numbers)
    while numbers:
        last = 0
        while last + 1 < len(numbers) and numbers[last + 1] == numbers[last] + 1:
            last += 1
        text.append(str(numbers[0]) if last == 0 else f"{numbers[0]}-{numbers[last]}")
        numbers = numbers[last + 1:]
    return ", ".join(text)


def look_at(target):
    program = BUILD / f"tests/fuzz/{target}_fuzz"
    raw, merged = BUILD / f"{target}.profraw", BUILD / f"{target}.profdata"
    inputs = [folder for folder in (CORPUS / target, FOUND / target) if folder.is_dir()]
    run(program, "-runs=0", "-timeout=60", *inputs, env={**os.environ, "LLVM_PROFILE_FILE": raw},
        stderr=subprocess.DEVNULL)  # fmt: skip
    run("llvm-profdata", "merge", raw, "-o", merged)
    export = run("llvm-cov", "export", program, f"-instr-profile={merged}", capture_output=True)
    files = json.loads(export.stdout)["data"][0]["files"]
    for source in sources_of(target):
        segments = [file["segments"] for file in files if file["filename"].endswith(source)]
        lines = reached(segments[0]) if segments else {}
        missed = [line for line, is_reached in lines.items() if not is_reached]
        share = 100 * (len(lines) - len(missed)) / max(1, len(lines))
        print(f"| {target} | `{source}` | {share:.1f} % | {ranges(missed)} |", flush=True)


def main():
    known = sorted(path.name for path in CORPUS.iterdir())
    targets = sys.argv[1:] or known
    if not set(targets) <= set(known):
        sys.exit(f"usage: coverage.py [target...]; targets: {' '.join(known)}")
    run("cmake", "--preset", "native", "-B", BUILD, f"-DCMAKE_CXX_FLAGS={COUNTERS}",
        stdout=subprocess.DEVNULL)  # fmt: skip
    run("cmake", "--build", BUILD, "--target", *(f"{target}_fuzz" for target in targets),
        stdout=subprocess.DEVNULL)  # fmt: skip
    print("| target | source | lines reached | lines that are not |\n|---|---|---:|---|")
    for target in targets:
        look_at(target)


if __name__ == "__main__":
    main()
