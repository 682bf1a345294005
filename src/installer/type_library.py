"""Reads what registration needs from a type library file.

The format is the one that the system's own type libraries have, with the signature "MSFT": a header,
the places of the type descriptions, a directory of fifteen segments, and these. No publisher
describes it; what is read here is what the system's loader takes from the same places, and a test
compares the entries with those that the system writes for the same library.
"""

import dataclasses
import struct
import uuid

HELP_FILE_IN_HEADER = 0x100  # of the header's flags: one number more before the places
SEGMENT_TYPES, SEGMENT_GUIDS, SEGMENT_NAMES, SEGMENT_STRINGS = 0, 5, 7, 8
KIND_INTERFACE, KIND_DISPATCH = 3, 4
FLAG_DUAL, FLAG_OLE_AUTOMATION = 0x40, 0x100

PROXY_AUTOMATION = "{00020424-0000-0000-C000-000000000046}"  # marshals by the type library
PROXY_DISPATCH = "{00020420-0000-0000-C000-000000000046}"


@dataclasses.dataclass(frozen=True)
class Interface:
    """One that registration writes an entry for, and the class that marshals it."""

    identifier: str
    name: str
    proxy: str


@dataclasses.dataclass(frozen=True)
class TypeLibrary:
    identifier: str
    version: str  # as the registry has it: both numbers in hexadecimal
    flags: int
    description: str
    interfaces: tuple


def _identifier(data, offset):
    return "{%s}" % str(uuid.UUID(bytes_le=data[offset : offset + 16])).upper()


def read_type_library(path):
    """The library in a file. Raises ValueError when it is none."""
    with open(path, "rb") as file:
        data = file.read()
    if data[:4] != b"MSFT":
        raise ValueError(f"{path} is not a type library")

    def number(offset):
        return struct.unpack_from("<i", data, offset)[0]

    count = number(0x20)
    places = 0x54 + (4 if number(0x14) & HELP_FILE_IN_HEADER else 0)
    directory = places + 4 * count

    def segment(index):
        return number(directory + 16 * index)

    def name(offset):
        start = segment(SEGMENT_NAMES) + offset
        return data[start + 12 : start + 12 + data[start + 8]].decode("latin-1")

    def guid(offset):
        return _identifier(data, segment(SEGMENT_GUIDS) + offset)

    def text(offset):
        start = segment(SEGMENT_STRINGS) + offset
        length = struct.unpack_from("<H", data, start)[0]
        return data[start + 2 : start + 2 + length].decode("latin-1")

    interfaces = []
    for index in range(count):
        description = segment(SEGMENT_TYPES) + number(places + 4 * index)
        kind = number(description) & 0xF
        flags = number(description + 0x30)
        if kind == KIND_DISPATCH or (kind == KIND_INTERFACE and flags & FLAG_OLE_AUTOMATION):
            proxy = PROXY_DISPATCH
            if kind == KIND_INTERFACE or flags & FLAG_DUAL:
                proxy = PROXY_AUTOMATION
            interfaces.append(
                Interface(guid(number(description + 0x2C)), name(number(description + 0x34)), proxy)
            )
    version = struct.unpack_from("<HH", data, 0x18)
    return TypeLibrary(
        identifier=guid(number(0x08)),
        version="%x.%x" % version,
        flags=number(0x1C) & 0xFFFF,
        description=text(number(0x24)),
        interfaces=tuple(interfaces),
    )
