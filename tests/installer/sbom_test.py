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
import struct
import subprocess
import sys

UNKNOWN = "NOASSERTION"
EPOCH = "1700000000"
ID = re.compile(r"SPDXRef-[A-Za-z0-9.-]+")
# The licences that the document may name.
LICENCES = {UNKNOWN, "ZPL-2.1", "GPL-3.0-or-later WITH GCC-exception-3.1"}
PURPOSES = {"APPLICATION", "LIBRARY", "OTHER"}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "STATIC_LINK"}
SIGNED = "The programs are signed."
NOT_SIGNED = "The programs are not signed."
SOME_SIGNED = "Only some of the programs are signed."

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


def stage(source, folder, builds):
    """As the packages have it, and files that are awkward to list."""
    subprocess.run([os.path.join(source, "src", "installer", "stage.sh"), folder, *builds], check=True)
    for name, content in (("a b.js", "1"), ("a-b.js", "2"), ("\u00e4.js", "1"), ("empty", "")):
        with open(os.path.join(folder, "samples", name), "w", encoding="utf-8") as file:
            file.write(content)


def programs_in(folder):
    """Their names in the folder, by what they are called and not by their content."""
    return sorted(os.path.relpath(os.path.join(path, name), folder)
                  for path, _, names in os.walk(folder) for name in names
                  if name.endswith((".dll", ".exe")))


def marks(content):
    """What the document says of itself, and its files' comments by their names."""
    return content["comment"], {file["fileName"][2:]: file["comment"] for file in content["files"]
                                if "comment" in file}


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
             "comment", "packages", "files", "relationships"}
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


def check_content(content, folder, editions):
    """That it is about these files and what is linked into them."""
    on_disk = {f"./{os.path.relpath(os.path.join(path, name), folder)}": os.path.join(path, name)
               for path, _, names in os.walk(folder) for name in names}
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
    expected = [f"VeltHTTPClient {part} ({edition})" for edition in editions
                for part in ("component", "tools")] + ["VeltHTTPClient developer files"]
    check(f"the product has {', '.join(expected)}", [packages[one]["name"] for one in own] == expected)
    for edition in editions:
        for part, names in (
                ("component", ["VeltHTTPClient12OEM.Assembly.manifest", "VeltHTTPClient12OEM.dll",
                               "VeltHTTPClient12OEM.tlb"]),
                ("tools", ["velt-trace.exe", "velt.exe"])):
            check(f"the {part} of {edition} are its files",
                  [files[one]["fileName"] for one in
                   related(f"SPDXRef-Package-{part}-{edition}", "CONTAINS")] ==
                  [f"./{edition}/{name}" for name in names])
    check("every file is in one of them",
          sorted(file for one in own for file in related(one, "CONTAINS")) == sorted(files))
    all_of("their checksums are those of their files", own, lambda one:
           packages[one]["packageVerificationCode"]["packageVerificationCodeValue"] ==
           hashlib.sha1("".join(sorted(files[file]["checksums"][0]["checksumValue"]
                                       for file in related(one, "CONTAINS"))).encode()).hexdigest())
    all_of("the product's licence is left to its owner", own + ["SPDXRef-Package-VeltHTTPClient"],
           lambda one: packages[one]["licenseDeclared"] == UNKNOWN)

    # The sample agent is that of the first edition.
    for part, edition in [(f"{part}-{edition}", edition) for edition in editions
                          for part in ("component", "tools")] + [("developer", editions[0])]:
        processor = "i686" if edition == "x86" else "x86-64"
        expected = {
            f"g++-mingw-w64-{processor}-win32": "GPL-3.0-or-later WITH GCC-exception-3.1",
            f"gcc-mingw-w64-{processor}-win32": "GPL-3.0-or-later WITH GCC-exception-3.1",
            f"mingw-w64-{processor}-dev": "ZPL-2.1",
        }
        found = {}
        for one in related(f"SPDXRef-Package-{part}", "STATIC_LINK"):
            locator = packages[one]["externalRefs"][0]["referenceLocator"]
            name = re.match(r"pkg:deb/debian/([^@]*)@", locator).group(1).replace("%2B", "+")
            found[name] = packages[one]["licenseDeclared"]
            version = debian_version(name)
            check(f"{name} is Debian's {version}", packages[one]["versionInfo"] == version and
                  f"@{version.replace('+', '%2B')}?" in locator)
        check(f"what is linked into {part}", found == expected)


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


def check_signed(work, source, folder, make_of):
    """That programs which sign.sh has signed are told from others."""
    programs = programs_in(folder)
    check(f"without signatures, for {len(programs)} programs",
          marks(make_of(folder)) == (NOT_SIGNED, dict.fromkeys(programs, "not signed")))
    if not shutil.which("osslsigncode"):
        print("not looked at: signed programs, for osslsigncode is missing")
        return
    key, certificate, pkcs12 = (os.path.join(work, "publisher." + kind) for kind in ("key", "pem", "p12"))
    openssl = {"check": True, "stderr": subprocess.DEVNULL}
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key,
                    "-out", certificate, "-days", "2", "-subj", "/CN=Publisher of the test",
                    "-addext", "keyUsage=digitalSignature,keyCertSign",
                    "-addext", "extendedKeyUsage=critical,codeSigning"], **openssl)
    subprocess.run(["openssl", "pkcs12", "-export", "-inkey", key, "-in", certificate, "-passout",
                    "pass:test", "-out", pkcs12], **openssl)
    signed = os.path.join(work, "signed")
    shutil.copytree(folder, signed)

    def sign(names):
        subprocess.run([os.path.join(source, "src", "installer", "sign.sh"), "--pkcs12", pkcs12, "--ca",
                        certificate, *(os.path.join(signed, name) for name in names)], check=True,
                       env={**os.environ, "VELT_SIGN_PASSWORD": "test"}, stdout=subprocess.DEVNULL)

    sign(programs[:1])
    check(f"when only {programs[0]} is signed", marks(make_of(signed)) == (
        SOME_SIGNED, {**dict.fromkeys(programs, "not signed"), programs[0]: "signed"}))
    sign(programs[1:])
    check("when all programs are signed",
          marks(make_of(signed)) == (SIGNED, dict.fromkeys(programs, "signed")))


def header(machine, tables, place, size):
    """A program's header of either kind, its fifth table there and after it 16 bytes."""
    magic, before = {0x014C: (0x010B, 92), 0x8664: (0x020B, 108)}[machine]
    start = b"MZ" + bytes(58) + struct.pack("<I", 64) + b"PE\0\0" + struct.pack("<H", machine) + bytes(18)
    optional = struct.pack("<H", magic) + bytes(before - 2) + struct.pack("<I", tables)
    content = start + optional + bytes(4 * 8) + struct.pack("<II", place, size) + bytes(11 * 8)
    return content + bytes(16)


def check_headers(work, make_of):
    """Both kinds of headers, whichever edition is built here."""
    folder = os.path.join(work, "headers")
    expected = {}
    for edition, machine in (("x86", 0x014C), ("x64", 0x8664)):
        whole = len(header(machine, 16, 0, 0))
        os.makedirs(os.path.join(folder, edition))
        for name, content, mark in (
                ("VeltHTTPClient12OEM.dll", header(machine, 16, whole - 16, 16), "signed"),
                ("none.exe", header(machine, 16, 0, 0), "not signed"),
                ("empty.exe", header(machine, 16, whole - 16, 0), "not signed"),
                ("cut.exe", header(machine, 16, whole - 16, 17), "not signed"),
                ("few.exe", header(machine, 4, whole - 16, 16), "not signed"),
                ("five.exe", header(machine, 5, whole - 16, 16), "signed")):
            expected[f"{edition}/{name}"] = mark
            with open(os.path.join(folder, edition, name), "wb") as file:
                file.write(content)
    # No compiler has to be installed for them.
    says, found = marks(make_of(folder, PATH=stand_in(work, "any", "echo installed 1 all")))
    check("when there are headers of both kinds", says == SOME_SIGNED and set(found) == set(expected))
    all_of("their tables of certificates are understood", expected,
           lambda name: found.get(name) == expected[name])
    return folder


def stand_in(work, name, command):
    """A PATH with a program in place of dpkg-query."""
    folder = os.path.join(work, name)
    os.makedirs(folder)
    path = os.path.join(folder, "dpkg-query")
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"#!/bin/sh\n{command}\n")
    os.chmod(path, 0o755)
    return folder + ":" + os.environ["PATH"]


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
    editions = []
    for build in builds:
        with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
            edition = re.search("^VELT_EDITION:INTERNAL=(.*)$", cache.read(), re.M).group(1)
        editions.append({"32-bit": "x86", "64-bit": "x64"}[edition])
    folder = os.path.join(work, "one")
    stage(source, folder, builds)
    arguments = ["--version", "1.2.3.4", "--publisher", "Publisher"]

    def make_of(other, **environment):
        return json.loads(make(program, *arguments, other, **environment).stdout)

    made = make(program, *arguments, folder)
    check(f"the document is made {made.stderr.decode()}", made.returncode == 0 and not made.stderr)
    content = json.loads(made.stdout)
    check_structure(content)
    check_content(content, folder, editions)
    for build in builds:
        check_linked(content, build)
    path = os.path.join(work, "product.spdx.json")
    with open(path, "wb") as file:
        file.write(made.stdout)
    check_by_tools(path)
    check_signed(work, source, folder, make_of)
    headers = check_headers(work, make_of)

    other = os.path.join(work, "two", "other name")
    shutil.copytree(folder, other)
    again = make(program, *arguments, other + "/", TZ="Pacific/Auckland", LC_ALL="C", PYTHONHASHSEED="7")
    check("the same files elsewhere make the same bytes", again.stdout == made.stdout)
    with open(os.path.join(other, "samples", "empty"), "w", encoding="utf-8") as file:
        file.write("not any more")
    check("other files make another document",
          make_of(other)["documentNamespace"] != content["documentNamespace"])
    anonymous = json.loads(make(program, "--version", "1.2.3.4", folder).stdout)
    check("without a publisher there is no supplier",
          anonymous["packages"][0]["supplier"] == UNKNOWN and
          anonymous["creationInfo"]["creators"] == ["Tool: make_sbom.py"])

    whole = header(0x014C, 16, 0, 0)
    bad_headers = {}
    for name, content in (("short", whole[:100]),
                          ("processor", whole[:68] + b"\x64\xaa" + whole[70:]),
                          ("magic", whole[:88] + b"\x07\x01" + whole[90:])):
        bad_headers[name] = os.path.join(work, "bad", name)
        shutil.copytree(headers, bad_headers[name])
        with open(os.path.join(bad_headers[name], "x86", name + ".exe"), "wb") as file:
            file.write(content)
    for what, says, bad in (
            ("a folder that is missing", "no such folder", make(program, *arguments, work + "/none")),
            ("two folders", "unrecognized arguments", make(program, *arguments, folder, other)),
            ("one edition's folder", "no programs in x86 or x64",
             make(program, *arguments, os.path.join(folder, editions[0]))),
            ("a program that was cut off", "x86/short.exe: its header ends too early",
             make(program, *arguments, bad_headers["short"])),
            ("a program for another processor",
             "x86/processor.exe: a program for an unknown processor: 0xaa64",
             make(program, *arguments, bad_headers["processor"])),
            ("a program of another kind", "x86/magic.exe: a program with an unknown header: 0x107",
             make(program, *arguments, bad_headers["magic"])),
            ("no time", "SOURCE_DATE_EPOCH", make(program, *arguments, folder, epoch="")),
            ("compilers that are not installed", "is not installed",
             make(program, *arguments, folder, PATH=stand_in(work, "few", "exit 1"))),
            ("no version", "--version", make(program, folder))):
        check(f"{what}: {bad.stderr.decode().strip().splitlines()[-1:]}",
              bad.returncode != 0 and not bad.stdout and says in bad.stderr.decode())
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
