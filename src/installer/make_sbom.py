#!/usr/bin/env python3
"""Writes the list of materials of what is packed, an SPDX 2.3 document in JSON, to standard output.

    make_sbom.py --version VERSION [--publisher NAME] FOLDER...

Each folder is what one edition's package installs; it is listed by its own name. The document has
the product, for each edition its component, its tools and the rest, and what is linked into its
programs: the run-time parts of the Debian packages that compile for that kind of processor, with
the versions that are installed here. So it is to be made where the programs were built, and after
they were signed: it has the checksums of all files.

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

Part = collections.namedtuple("Part", "key name purpose belongs")
# The first one that a file belongs to, by its name inside of the folder.
PARTS = (
    Part("component", "component", "LIBRARY", re.compile(r"VeltHTTPClient12OEM\.|include/")),
    Part("tools", "tools", "APPLICATION", re.compile(r"[^/]*\.exe$")),
    Part("samples", "documents and samples", "OTHER", re.compile("")),
)

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
    """A file of a folder: what it is, and its checksums."""

    def __init__(self, folder, name):
        self.name = name
        self.listed = f"./{os.path.basename(folder)}/{name}"
        # People can read it, and names that differ in other characters only are told apart.
        self.id = "SPDXRef-File-{}-{}".format(
            re.sub(r"[^A-Za-z0-9.]+", "-", self.listed[2:]),
            hashlib.sha256(self.listed.encode()).hexdigest()[:8])
        with open(os.path.join(folder, name), "rb") as file:
            content = file.read()
        self.sha1 = hashlib.sha1(content).hexdigest()
        self.sha256 = hashlib.sha256(content).hexdigest()
        self.is_text = b"\0" not in content
        self.processor = processor_of(content)

    def entry(self):
        return {
            "SPDXID": self.id,
            "fileName": self.listed,
            "fileTypes": ["TEXT" if self.is_text else "BINARY"],
            "checksums": [{"algorithm": "SHA1", "checksumValue": self.sha1},
                          {"algorithm": "SHA256", "checksumValue": self.sha256}],
            "licenseConcluded": UNKNOWN,
            "licenseInfoInFiles": [UNKNOWN],
            "copyrightText": UNKNOWN,
        }


def processor_of(content):
    """Of a program or a library; None for other files."""
    if len(content) < 64 or content[:2] != b"MZ":
        return None
    header = struct.unpack_from("<I", content, 60)[0]
    if content[header:header + 4] != b"PE\0\0":
        return None
    machine = struct.unpack_from("<H", content, header + 4)[0]
    return PROCESSORS.get(machine) or fail(f"a program for an unknown processor: {machine:#x}")


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


def document(version, publisher, folders, created):
    supplier = f"Organization: {publisher}" if publisher else UNKNOWN
    product = package(PRODUCT, PRODUCT, version, supplier, primaryPackagePurpose="APPLICATION")
    packages = [product]
    files = []
    relationships = []

    def relate(one, kind, other):
        relationships.append({"spdxElementId": one, "relationshipType": kind,
                              "relatedSpdxElement": other})

    relate("SPDXRef-DOCUMENT", "DESCRIBES", product["SPDXID"])
    processors = set()
    for folder in folders:
        edition = os.path.basename(folder)
        by_part = collections.defaultdict(list)
        for file in files_of(folder):
            files.append(file)
            by_part[next(part for part in PARTS if part.belongs.match(file.name))].append(file)
        for part in PARTS:
            if not by_part[part]:
                continue
            own = package(
                f"{part.key}-{re.sub(r'[^A-Za-z0-9.]', '-', edition)}",
                f"{PRODUCT} {part.name} ({edition})", version, supplier,
                filesAnalyzed=True, licenseInfoFromFiles=[UNKNOWN],
                packageVerificationCode={
                    "packageVerificationCodeValue": verification_code(by_part[part])},
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
    parser.add_argument("folders", nargs="+", metavar="FOLDER")
    arguments = parser.parse_args()
    folders = [os.path.abspath(folder) for folder in arguments.folders]
    if len({os.path.basename(folder) for folder in folders}) != len(folders):
        fail("two folders have the same name")
    epoch = os.environ.get("SOURCE_DATE_EPOCH", "")
    if not re.fullmatch("[0-9]+", epoch):
        fail("SOURCE_DATE_EPOCH is no time: it is to be that of the commit, in seconds since 1970")
    created = datetime.datetime.fromtimestamp(int(epoch), datetime.timezone.utc)
    content = document(arguments.version, arguments.publisher, sorted(folders, key=os.path.basename),
                       created.strftime("%Y-%m-%dT%H:%M:%SZ"))
    json.dump(content, sys.stdout, indent=2)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
