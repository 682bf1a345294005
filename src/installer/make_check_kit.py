#!/usr/bin/env python3
"""Packs what a machine with Windows can be checked with, for those who have nothing else there.

    make_check_kit.py <output.zip> <build folder>... [--tests <regular expression>]

For each build: facts.exe, the component with its programs, and the test programs, in folders as in the
build, with the files that they look for there. What needs an administrator lies apart. What is left out
is named in left_out.txt: programs that name a folder of this machine, need a server or arguments, or do
what a user's machine is not for, and tests that are scripts. With --tests, only tests of such names.
SOURCE_DATE_EPOCH sets the time that the files carry.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
COMPONENT = "VeltHTTPClient12OEM.dll"

# Why tests that could run are left out: nothing may stay behind that cannot be taken back when the check
# is ended midway.
NOT_FOR_USERS = {
    "facts_test": "is about the facts under Wine",
    "documents_test": "is about the documents",
    "server_library_test": "takes libraries of the system away, by a setting of Wine's",
    "server_module_test": "denies rights to the machine's classes",
    "server_registration_test": "denies rights to the machine's classes",
    "service_registered_test": "keeps cookies for the user",
    "service_soak_test": "keeps cookies for the user",
    "service_test": "keeps cookies for the user",
    "velt_program_test": "takes libraries away and denies rights to the machine's classes",
    "velt_service_test": "keeps cookies for the user",
}
ADMINISTRATORS = {"server_lifetime_test"} # sets a flag of the machine's for its own program

# What tests look for beside or above them, by its place in the kit: of the build, and of the source.
OF_THE_BUILD = {
    "samples/update_agent/sample_agent.exe": "samples/update_agent/sample_agent.exe",
    "tests/connection_thread_library.dll": "tests/connection/connection_thread_library.dll",
    "tests/support/velt_empty_module.dll": "tests/support/velt_empty_module.dll",
}
OF_THE_SOURCE = ["samples/eula"]


def cached(build, name):
    match = re.search(rf"^{name}:[A-Z]*=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE)
    return match[1] if match else ""


def kind_of(program):
    """x86 or x64, from the file's header."""
    with open(program, "rb") as file:
        image = file.read(4096)
    place = int.from_bytes(image[0x3C:0x40], "little") + 4
    return {0x014C: "x86", 0x8664: "x64"}[int.from_bytes(image[place:place + 2], "little")]


def names_folder(program, build):
    """Whether a program's bytes name the build's folder, as this system writes it or as Windows."""
    image = program.read_bytes()
    for path in (str(build), str(build).replace("/", "\\"), str(ROOT),
                 str(ROOT).replace("/", "\\")):
        if path.encode() in image or path.encode("utf-16-le") in image:
            return True
    return False


def tests_of(build):
    """The names of the tests, each with its program, or None and why it is left out."""
    listed = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                            capture_output=True, text=True).stdout
    for test in json.loads(listed)["tests"]:
        command = test.get("command", [])
        if any(part.endswith("with_servers.sh") for part in command):
            yield test["name"], None, "needs a web server"
        elif not command or not command[-1].endswith(".exe") or "_test.exe" not in command[-1]:
            yield test["name"], None, "is a script, or takes arguments"
        elif not os.path.exists(command[-1]):
            yield test["name"], None, "is not built"
        elif test["name"] in NOT_FOR_USERS:
            yield test["name"], None, NOT_FOR_USERS[test["name"]]
        elif names_folder(pathlib.Path(command[-1]), build):
            yield test["name"], None, "needs files of the build's folder"
        else:
            yield test["name"], pathlib.Path(command[-1]), ""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("builds", type=pathlib.Path, nargs="+")
    parser.add_argument("--tests", default="")
    options = parser.parse_args()
    moment = time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", "946684800")))[:6]
    left_out = []
    files = {"check.cmd": HERE / "check_kit/check.cmd"}
    for folder in OF_THE_SOURCE:
        files |= {str(file.relative_to(ROOT)): file
                  for file in sorted((ROOT / folder).rglob("*")) if file.is_file()}
    with tempfile.TemporaryDirectory() as work:
        for build in (build.resolve() for build in options.builds):
            facts = build / "tests/facts/facts.exe"
            if not facts.exists():
                sys.exit(f"{build} has no tests; build the target tests")
            kind = kind_of(facts)
            files |= {f"{kind}/bin/{file.name}": file for file in (build / "bin").iterdir()
                      if file.suffix in (".dll", ".exe", ".manifest", ".tlb")}
            files |= {f"{kind}/{place}": build / name for place, name in OF_THE_BUILD.items()}
            programs = {f"{kind}/facts.exe": facts}
            for name, program, why in tests_of(build):
                if program and re.search(options.tests, name):
                    folder = "tests/admin" if name in ADMINISTRATORS else "tests"
                    programs[f"{kind}/{folder}/{program.name}"] = program
                elif not program:
                    left_out.append(f"{kind} {name}: {why}")
            for name, program in programs.items():
                stripped = pathlib.Path(work) / name
                stripped.parent.mkdir(parents=True, exist_ok=True)
                subprocess.run([cached(build, "CMAKE_STRIP"), "-o", stripped, program],
                               check=True, env=os.environ | {"SOURCE_DATE_EPOCH": "946684800"})
                files[name] = stripped
        listed = pathlib.Path(work) / "left_out.txt"
        listed.write_text("".join(f"left out {line}\r\n" for line in sorted(left_out)))
        files["left_out.txt"] = listed
        folder = f"VeltHTTPClient-{cached(options.builds[0], 'CMAKE_PROJECT_VERSION')}-check"
        options.output.parent.mkdir(parents=True, exist_ok=True)
        with zipfile.ZipFile(options.output, "w", zipfile.ZIP_DEFLATED) as kit:
            for name, file in sorted(files.items()):
                kit.writestr(zipfile.ZipInfo(f"{folder}/{name}", moment), file.read_bytes(),
                             zipfile.ZIP_DEFLATED)
        print(f"{options.output}: {sum(name.endswith('_test.exe') for name in files)} test programs, "
              f"{len(left_out)} tests left out")


if __name__ == "__main__":
    main()
