#!/usr/bin/env python3
"""Writes the list of materials of what is packed, an SPDX 2.3 document in JSON, to standard output.

    make_sbom.py --version VERSION [--publisher NAME] FOLDER

The folder is what stage.sh lays out. The document has the product, the component and the tools of
each edition that is there and what developers get beside them, and what is linked into the programs
of each of these: the run-time parts of the Debian packages that compile for that kind of processor,
with the versions that are installed here. So it is to be made where the programs were built, and
after they were signed: it has the checksums of all files, and says which programs have a signature,
but not whose or whether it is good.

The same files make the same bytes. SOURCE_DATE_EPOCH is the time that the document carries.
"""

import argparse
import collections
import datetime
import hashlib
import json
import os
import re
import struct
import subprocess
import sys
import urllib.parse
import uuid

PRODUCT = "VeltHTTPClient"
UNKNOWN = "NOASSERTION"  # the licence, too: choosing one is the owner's matter

# What a program's header calls its processor, and what Debian does.
PROCESSORS = {0x014C: "i686", 0x8664: "x86-64"}
# Where the optional header of PE32 and PE32+ has its list of tables; their number is before it.
DIRECTORIES = {0x010B: 96, 0x020B: 112}
CERTIFICATES = 4  # in that list

Part = collections.namedtuple("Part", "key name purpose belongs")
# A file is in the first one that it belongs to, by its name inside of the folder.
DEVELOPER = Part("developer", "developer files", "OTHER", re.compile(""))
PARTS = (
    Part("component-x86", "component (x86)", "LIBRARY", re.compile(r"x86/VeltHTTPClient12OEM\.")),
    Part("tools-x86", "tools (x86)", "APPLICATION", re.compile(r"x86/[^/]*\.exe$")),
    Part("component-x64", "component (x64)", "LIBRARY", re.compile(r"x64/VeltHTTPClient12OEM\.")),
    Part("tools-x64", "tools (x64)", "APPLICATION", re.compile(r"x64/[^/]*\.exe$")),
    DEVELOPER,
)

# What the document says, by what there is among its programs: is one of them signed?
SIGNED = {
    frozenset([True]): "The programs are signed.",
    frozenset([False]): "The programs are not signed.",
    frozenset([True, False]): "Only some of the programs are signed.",
}

Linked = collections.namedtuple("Linked", "key name package licence comment")
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
LINKED = (
    Linked("libgcc", "libgcc", "gcc-mingw-w64-{}-win32", GCC_LICENCE, None),
    Linked("libstdcxx", "libstdc++", "g++-mingw-w64-{}-win32", GCC_LICENCE, None),
    Linked("mingw-w64", "mingw-w64 run-time library", "mingw-w64-{}-dev", "ZPL-2.1",
           "Its start-up code is in the public domain, and some of its functions are under permissive "
           "licences of their own; the package's copyright file lists them."),
)


def fail(what):
    sys.exit(f"make_sbom.py: {what}")


class File:
    """A file of the folder: what it is, and its checksums."""

    def __init__(self, folder, name):
        self.name = name
        self.listed = f"./{name}"
        # People can read it, and names that differ in other characters only are told apart.
        self.id = "SPDXRef-File-{}-{}".format(
            re.sub(r"[^A-Za-z0-9.]+", "-", name), hashlib.sha256(name.encode()).hexdigest()[:8])
        with open(os.path.join(folder, name), "rb") as file:
            content = file.read()
        self.sha1 = hashlib.sha1(content).hexdigest()
        self.sha256 = hashlib.sha256(content).hexdigest()
        self.is_text = b"\0" not in content
        # Of programs and libraries; None for other files.
        self.processor = None
        self.is_signed = None
        header = program_header(content)
        if header is not None:
            try:
                self.processor = processor_of(content, header)
                self.is_signed = is_signed(content, header)
            except struct.error:
                fail(f"{name}: its header ends too early")
            except ValueError as error:
                fail(f"{name}: {error}")

    def entry(self):
        entry = {
            "SPDXID": self.id,
            "fileName": self.listed,
            "fileTypes": ["TEXT" if self.is_text else "BINARY"],
            "checksums": [{"algorithm": "SHA1", "checksumValue": self.sha1},
                          {"algorithm": "SHA256", "checksumValue": self.sha256}],
            "licenseConcluded": UNKNOWN,
            "licenseInfoInFiles": [UNKNOWN],
            "copyrightText": UNKNOWN,
        }
        if self.processor:
            entry["comment"] = "signed" if self.is_signed else "not signed"
        return entry


def program_header(content):
    """Where the header of a program or a library starts; None for other files."""
    if len(content) < 64 or content[:2] != b"MZ":
        return None
    header = struct.unpack_from("<I", content, 60)[0]
    return header if content[header:header + 4] == b"PE\0\0" else None


def processor_of(content, header):
    machine = struct.unpack_from("<H", content, header + 4)[0]
    if machine not in PROCESSORS:
        raise ValueError(f"a program for an unknown processor: {machine:#x}")
    return PROCESSORS[machine]


def is_signed(content, header):
    """Whether there is a table of certificates, which is the fifth one that the header may list."""
    optional = header + 24
    magic = struct.unpack_from("<H", content, optional)[0]
    if magic not in DIRECTORIES:
        raise ValueError(f"a program with an unknown header: {magic:#x}")
    directories = optional + DIRECTORIES[magic]
    if struct.unpack_from("<I", content, directories - 4)[0] <= CERTIFICATES:
        return False
    # Unlike the others, this one is found by its place in the file.
    place, size = struct.unpack_from("<II", content, directories + 8 * CERTIFICATES)
    return place > 0 and size > 0 and place + size <= len(content)


def files_of(folder):
    if not os.path.isdir(folder):
        fail(f"{folder}: no such folder")
    names = [os.path.relpath(os.path.join(path, name), folder)
             for path, _, files in os.walk(folder, onerror=lambda error: fail(error)) for name in files]
    return [File(folder, name) for name in sorted(names)]


def package(key, name, version, supplier, **more):
    entry = {
        "SPDXID": f"SPDXRef-Package-{key}",
        "name": name,
        "versionInfo": version,
        "supplier": supplier,
        "downloadLocation": UNKNOWN,
        "filesAnalyzed": False,
        "licenseConcluded": UNKNOWN,
        "licenseDeclared": UNKNOWN,
        "copyrightText": UNKNOWN,
    }
    entry.update(more)
    return entry


def linked_package(linked, processor):
    """A run-time part, as Debian's package that is installed here has it."""
    debian = linked.package.format(processor)
    query = subprocess.run(
        ["dpkg-query", "-W", "-f", "${db:Status-Status} ${Version} ${Architecture}", debian],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    status, version, architecture = (query.stdout.split() + ["", "", ""])[:3]
    if query.returncode != 0 or status != "installed":
        fail(f"the package {debian} is not installed: the programs were not built here")
    more = {"comment": linked.comment} if linked.comment else {}
    return package(
        f"{linked.key}-{processor}", f"{linked.name} ({processor})", version, "Organization: Debian",
        licenseDeclared=linked.licence, primaryPackagePurpose="LIBRARY",
        externalRefs=[{
            "referenceCategory": "PACKAGE-MANAGER",
            "referenceType": "purl",
            "referenceLocator": "pkg:deb/debian/{}@{}?arch={}".format(
                urllib.parse.quote(debian), urllib.parse.quote(version, safe=":"), architecture),
        }], **more)


def verification_code(files):
    """As the format has it: of the sorted checksums, one after the other."""
    return hashlib.sha1("".join(sorted(file.sha1 for file in files)).encode()).hexdigest()


def document(version, publisher, files, created):
    supplier = f"Organization: {publisher}" if publisher else UNKNOWN
    product = package(PRODUCT, PRODUCT, version, supplier, primaryPackagePurpose="APPLICATION")
    packages = [product]
    relationships = []

    def relate(one, kind, other):
        relationships.append({"spdxElementId": one, "relationshipType": kind,
                              "relatedSpdxElement": other})

    relate("SPDXRef-DOCUMENT", "DESCRIBES", product["SPDXID"])
    by_part = collections.defaultdict(list)
    for file in files:
        by_part[next(part for part in PARTS if part.belongs.match(file.name))].append(file)
    if not any(file.processor for part in PARTS if part is not DEVELOPER for file in by_part[part]):
        fail("no programs in x86 or x64: the folder is to be as stage.sh lays it out")
    processors = set()
    for part in (part for part in PARTS if by_part[part]):
        own = package(
            part.key, f"{PRODUCT} {part.name}", version, supplier,
            filesAnalyzed=True, licenseInfoFromFiles=[UNKNOWN],
            packageVerificationCode={"packageVerificationCodeValue": verification_code(by_part[part])},
            primaryPackagePurpose=part.purpose)
        packages.append(own)
        relate(product["SPDXID"], "CONTAINS", own["SPDXID"])
        for file in by_part[part]:
            relate(own["SPDXID"], "CONTAINS", file.id)
        for processor in sorted({file.processor for file in by_part[part] if file.processor}):
            processors.add(processor)
            for linked in LINKED:
                relate(own["SPDXID"], "STATIC_LINK", f"SPDXRef-Package-{linked.key}-{processor}")
    packages += [linked_package(linked, processor)
                 for processor in sorted(processors) for linked in LINKED]
    content = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{PRODUCT}-{version}",
        "creationInfo": {
            "created": created,
            "creators": ["Tool: make_sbom.py"] + ([supplier] if publisher else []),
        },
        "comment": SIGNED[frozenset(file.is_signed for file in files if file.processor)],
        "packages": packages,
        "files": [file.entry() for file in files],
        "relationships": relationships,
    }
    # Other content is another document; nobody has to keep an address for it.
    name = uuid.uuid5(uuid.NAMESPACE_OID, json.dumps(content, sort_keys=True))
    content["documentNamespace"] = f"urn:uuid:{name}"
    return content


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].strip(), add_help=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--publisher")
    parser.add_argument("folder", metavar="FOLDER")
    arguments = parser.parse_args()
    epoch = os.environ.get("SOURCE_DATE_EPOCH", "")
    if not re.fullmatch("[0-9]+", epoch):
        fail("SOURCE_DATE_EPOCH is no time: it is to be that of the commit, in seconds since 1970")
    created = datetime.datetime.fromtimestamp(int(epoch), datetime.timezone.utc)
    content = document(arguments.version, arguments.publisher, files_of(arguments.folder),
                       created.strftime("%Y-%m-%dT%H:%M:%SZ"))
    json.dump(content, sys.stdout, indent=2)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
