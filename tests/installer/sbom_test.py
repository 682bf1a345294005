#!/usr/bin/env python3
"""Has the list of materials made of what is built, and holds it against the rules of SPDX 2.3 and
against the files.

    sbom_test.py <source folder> <work folder> <build folder>...
"""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys

UNKNOWN = "NOASSERTION"
EPOCH = "1700000000"
ID = re.compile(r"SPDXRef-[A-Za-z0-9.-]+")
# The licences that the document may name.
LICENCES = {UNKNOWN, "ZPL-2.1", "GPL-3.0-or-later WITH GCC-exception-3.1"}
PURPOSES = {"APPLICATION", "LIBRARY", "OTHER"}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "STATIC_LINK"}

failures = []


def check(what, holds):
    print(("ok      " if holds else "FAILED  ") + what)
    if not holds:
        failures.append(what)


def all_of(what, entries, rule):
    """One line for a rule that holds for each entry."""
    wrong = [entry for entry in entries if not rule(entry)]
    check(what + (f", not {wrong[0]}" if wrong else ""), not wrong)


def make(program, *arguments, epoch=EPOCH, **environment):
    environment = {**os.environ, "SOURCE_DATE_EPOCH": epoch, **environment}
    return subprocess.run([program, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          check=False, env={key: value for key, value in environment.items() if value})


def checksum(algorithm, path):
    with open(path, "rb") as file:
        return hashlib.new(algorithm, file.read()).hexdigest()


def stage(build, folder):
    """As packages have it, and files that are awkward to list."""
    shutil.copytree(os.path.join(build, "bin"), folder)
    samples = os.path.join(folder, "samples", "update_agent")
    os.makedirs(samples)
    shutil.copy(os.path.join(build, "samples", "update_agent", "sample_agent.exe"), samples)
    for name, content in (("samples/a b.js", "1"), ("samples/a-b.js", "2"), ("samples/\u00e4.js", "1"),
                          ("samples/empty", "")):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(content)


def debian_version(package):
    return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], check=True,
                          stdout=subprocess.PIPE, text=True).stdout


def check_structure(content):
    """What the format requires, and how it writes things."""
    check("the format's version and licence, and the document's own name",
          (content["spdxVersion"], content["dataLicense"], content["SPDXID"], content["name"]) ==
          ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT", "VeltHTTPClient-1.2.3.4"))
    check("the namespace is an address without a fragment",
          re.fullmatch(r"urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}",
                       content["documentNamespace"]) is not None)
    check("it was made at the given time", content["creationInfo"]["created"] == "2023-11-14T22:13:20Z")
    check("its makers are named",
          content["creationInfo"]["creators"] == ["Tool: make_sbom.py", "Organization: Publisher"])
    known = {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo",
             "packages", "files", "relationships"}
    check("nothing else is in it", set(content) == known)

    identifiers = [entry["SPDXID"] for entry in content["packages"] + content["files"]]
    all_of("identifiers are written as they should be", identifiers, ID.fullmatch)
    check("no identifier stands for two", len(set(identifiers)) == len(identifiers))

    packages = content["packages"]
    all_of("packages have a name, a version and a supplier", packages, lambda package:
           package["name"] and package["versionInfo"] and
           re.fullmatch("Organization: .+", package["supplier"]))
    all_of("packages say that nobody downloads them", packages, lambda package:
           package["downloadLocation"] == UNKNOWN)
    all_of("packages have licences by their identifiers", packages, lambda package:
           {package["licenseConcluded"], package["licenseDeclared"]} <= LICENCES and
           package["copyrightText"] == UNKNOWN and package["primaryPackagePurpose"] in PURPOSES)
    all_of("packages whose files are listed have their checksum, others do not", packages,
           lambda package: package["filesAnalyzed"] ==
           ("packageVerificationCode" in package) == ("licenseInfoFromFiles" in package))

    all_of("files have a relative name, both checksums and the fields about licences", content["files"],
           lambda file: file["fileName"].startswith("./") and
           [entry["algorithm"] for entry in file["checksums"]] == ["SHA1", "SHA256"] and
           re.fullmatch("[0-9a-f]{40}", file["checksums"][0]["checksumValue"]) and
           re.fullmatch("[0-9a-f]{64}", file["checksums"][1]["checksumValue"]) and
           file["licenseConcluded"] == UNKNOWN and file["licenseInfoInFiles"] == [UNKNOWN] and
           file["copyrightText"] == UNKNOWN and file["fileTypes"] in (["TEXT"], ["BINARY"]))

    relationships = content["relationships"]
    all_of("relationships are of what is there", relationships, lambda relation:
           {relation["spdxElementId"], relation["relatedSpdxElement"]} <=
           set(identifiers) | {"SPDXRef-DOCUMENT"} and relation["relationshipType"] in RELATIONSHIPS)
    all_of("relationships are given once", relationships, lambda relation:
           relationships.count(relation) == 1)
    described = [relation["relatedSpdxElement"] for relation in relationships
                 if relation["relationshipType"] == "DESCRIBES"]
    check("the document describes the product", described == ["SPDXRef-Package-VeltHTTPClient"])


def check_content(content, folders):
    """That it is about these files and what is linked into them."""
    on_disk = {f"./{os.path.basename(folder)}/{os.path.relpath(os.path.join(path, name), folder)}":
               os.path.join(path, name)
               for folder in folders for path, _, names in os.walk(folder) for name in names}
    listed = [file["fileName"] for file in content["files"]]
    check(f"every file is listed once: {len(on_disk)}", sorted(listed) == sorted(on_disk))
    check("the files are sorted", listed == sorted(listed))
    all_of("the checksums are right", content["files"], lambda file:
           [entry["checksumValue"] for entry in file["checksums"]] ==
           [checksum(algorithm, on_disk[file["fileName"]]) for algorithm in ("sha1", "sha256")])

    def related(one, kind):
        return [relation["relatedSpdxElement"] for relation in content["relationships"]
                if (relation["spdxElementId"], relation["relationshipType"]) == (one, kind)]

    packages = {package["SPDXID"]: package for package in content["packages"]}
    files = {file["SPDXID"]: file for file in content["files"]}
    own = related("SPDXRef-Package-VeltHTTPClient", "CONTAINS")
    check("the product has three packages for each edition", [packages[one]["name"] for one in own] == [
        f"VeltHTTPClient {part} ({os.path.basename(folder)})" for folder in folders
        for part in ("component", "tools", "documents and samples")])
    check("every file is in one of them",
          sorted(file for one in own for file in related(one, "CONTAINS")) == sorted(files))
    all_of("their checksums are those of their files", own, lambda one:
           packages[one]["packageVerificationCode"]["packageVerificationCodeValue"] ==
           hashlib.sha1("".join(sorted(files[file]["checksums"][0]["checksumValue"]
                                       for file in related(one, "CONTAINS"))).encode()).hexdigest())
    all_of("the product's licence is left to its owner", own + ["SPDXRef-Package-VeltHTTPClient"],
           lambda one: packages[one]["licenseDeclared"] == UNKNOWN)

    for folder, part in ((folder, part) for folder in folders
                         for part in ("component", "tools", "samples")):
        edition = os.path.basename(folder)
        processor = "i686" if edition == "32-bit" else "x86-64"
        expected = {
            f"g++-mingw-w64-{processor}-win32": "GPL-3.0-or-later WITH GCC-exception-3.1",
            f"gcc-mingw-w64-{processor}-win32": "GPL-3.0-or-later WITH GCC-exception-3.1",
            f"mingw-w64-{processor}-dev": "ZPL-2.1",
        }
        found = {}
        for one in related(f"SPDXRef-Package-{part}-{edition}", "STATIC_LINK"):
            locator = packages[one]["externalRefs"][0]["referenceLocator"]
            name = re.match(r"pkg:deb/debian/([^@]*)@", locator).group(1).replace("%2B", "+")
            found[name] = packages[one]["licenseDeclared"]
            version = debian_version(name)
            check(f"{name} is Debian's {version}", packages[one]["versionInfo"] == version and
                  f"@{version.replace('+', '%2B')}?" in locator)
        check(f"what is linked into the {part} of the {edition} edition", found == expected)


def check_linked(content, build):
    """What the linker says it has taken from the system into the component, by Debian's packages."""
    with open(os.path.join(build, "VeltHTTPClient12OEM.map"), encoding="utf-8") as file:
        taken = file.read().split("Discarded input sections")[0]
    libraries = {os.path.realpath(path) for path in re.findall(r"^(/usr/\S+\.a)\(", taken, re.M)}
    owners = subprocess.run(["dpkg-query", "-S", *libraries], check=True, stdout=subprocess.PIPE,
                            text=True).stdout
    named = {reference["referenceLocator"].split("/")[2].split("@")[0].replace("%2B", "+")
             for package in content["packages"] for reference in package.get("externalRefs", ())}
    linked = set(re.findall("^([^:]+):", owners, re.M))
    check(f"what is linked is listed: {', '.join(sorted(linked))}", linked and linked <= named)


def check_by_tools(path):
    """By the tools of the format's makers, where they are installed."""
    try:
        from spdx_tools.spdx.parser.parse_anything import parse_file
        from spdx_tools.spdx.validation.document_validator import validate_full_spdx_document
    except ImportError:
        print("not looked at: what spdx_tools says, which Debian 12 has not")
        return
    messages = validate_full_spdx_document(parse_file(path), "SPDX-2.3")
    check(f"spdx_tools finds nothing wrong {[message.validation_message for message in messages]}",
          not messages)


def main():
    source, work, *builds = sys.argv[1:]
    program = os.path.join(source, "src", "installer", "make_sbom.py")
    shutil.rmtree(work, ignore_errors=True)
    folders = []
    for build in builds:
        with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
            edition = re.search("^VELT_EDITION:INTERNAL=(.*)$", cache.read(), re.M).group(1)
        folders.append(os.path.join(work, "one", edition))
        stage(build, folders[-1])
    folders.sort()
    arguments = ["--version", "1.2.3.4", "--publisher", "Publisher"]

    made = make(program, *arguments, *folders)
    check(f"the document is made {made.stderr.decode()}", made.returncode == 0 and not made.stderr)
    content = json.loads(made.stdout)
    check_structure(content)
    check_content(content, folders)
    for build in builds:
        check_linked(content, build)
    path = os.path.join(work, "product.spdx.json")
    with open(path, "wb") as file:
        file.write(made.stdout)
    check_by_tools(path)

    others = []
    for folder in reversed(folders):
        others.append(os.path.join(work, "two", os.path.basename(folder)))
        shutil.copytree(folder, others[-1])
    again = make(program, *arguments, *(folder + "/" for folder in others), TZ="Pacific/Auckland",
                 LC_ALL="C", PYTHONHASHSEED="7")
    check("the same files elsewhere make the same bytes", again.stdout == made.stdout)
    with open(os.path.join(others[0], "samples", "empty"), "w", encoding="utf-8") as file:
        file.write("not any more")
    other = json.loads(make(program, *arguments, *others).stdout)
    check("other files make another document",
          other["documentNamespace"] != content["documentNamespace"])
    anonymous = json.loads(make(program, "--version", "1.2.3.4", *folders).stdout)
    check("without a publisher there is no supplier",
          anonymous["packages"][0]["supplier"] == UNKNOWN and
          anonymous["creationInfo"]["creators"] == ["Tool: make_sbom.py"])

    few = os.path.join(work, "few")
    os.makedirs(few)
    with open(os.path.join(few, "dpkg-query"), "w", encoding="utf-8") as file:
        file.write("#!/bin/sh\nexit 1\n")
    os.chmod(os.path.join(few, "dpkg-query"), 0o755)
    for what, says, bad in (
            ("a folder that is missing", "no such folder", make(program, *arguments, work + "/none")),
            ("two folders of one name", "the same name", make(program, *arguments, folders[0], others[-1])),
            ("no time", "SOURCE_DATE_EPOCH", make(program, *arguments, *folders, epoch="")),
            ("compilers that are not installed", "is not installed",
             make(program, *arguments, *folders, PATH=few + ":" + os.environ["PATH"])),
            ("no version", "--version", make(program, *folders))):
        check(f"{what}: {bad.stderr.decode().strip().splitlines()[-1:]}",
              bad.returncode != 0 and not bad.stdout and says in bad.stderr.decode())
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
