"""What registering the component writes, read from what the component itself registers by: its
registrar scripts, its manifest and its type library."""

import dataclasses
import pathlib
import re
import xml.etree.ElementTree

import type_library

MODULE = object()  # a value that is the path of the DLL
FOLDER = object()  # a value that is the folder of the DLL


@dataclasses.dataclass(frozen=True)
class Entry:
    """A key below the classes, and a value in it; `value` is None for a key without one of its own,
    and `name` is empty for the default value."""

    key: str
    name: str = ""
    value: object = None


def _replaced(text, replacements):
    if text == "%MODULE%":
        return replacements["MODULE"]
    return re.sub(r"%(\w*)%", lambda match: replacements[match[1]] if match[1] else "%", text)


def script_entries(text, replacements):
    """The entries that a registrar script sets. Such scripts can say more than is understood here:
    numbers, bytes, deletions. Raises ValueError for those."""
    tokens = re.findall(r"'((?:[^']|'')*)'|([^\s{}='][^\s=]*|[{}=])", text)
    words = [(quoted.replace("''", "'"), False) if not plain else (plain, True) for quoted, plain in tokens]
    entries, path = [], []
    position = 0

    def take():
        nonlocal position
        position += 1
        return words[position - 1]

    def value():
        if take() != ("s", True):
            raise ValueError("only texts are understood in a registrar script")
        return _replaced(take()[0], replacements)

    if take() != ("HKCR", True) or take() != ("{", True):
        raise ValueError("a registrar script starts with HKCR")
    while position < len(words):
        word, plain = take()
        if plain and word == "}":
            if path:
                path.pop()
            continue
        if plain and word.lower() == "delete":
            raise ValueError("Delete is not understood in a registrar script")
        if plain and word.lower() == "val":
            name = _replaced(take()[0], replacements)
            take()  # =
            entries.append(Entry("\\".join(path), name, value()))
            continue
        if plain and word.lower() in ("forceremove", "noremove"):
            word, plain = take()
        path.append(_replaced(word, replacements))
        default = None
        if position < len(words) and words[position] == ("=", True):
            take()
            default = value()
        entries.append(Entry("\\".join(path), "", default))
        if position < len(words) and words[position] == ("{", True):
            take()
        else:
            path.pop()
    return entries


def _library_entries(library, system_kind):
    root = f"TypeLib\\{library.identifier}\\{library.version}"
    yield Entry(root, "", library.description)
    yield Entry(f"{root}\\FLAGS", "", str(library.flags))
    yield Entry(f"{root}\\HELPDIR", "", FOLDER)
    yield Entry(f"{root}\\0\\{system_kind}", "", MODULE)
    for interface in library.interfaces:
        key = f"Interface\\{interface.identifier}"
        yield Entry(key, "", interface.name)
        yield Entry(f"{key}\\ProxyStubClsid32", "", interface.proxy)
        yield Entry(f"{key}\\TypeLib", "", library.identifier)
        yield Entry(f"{key}\\TypeLib", "Version", library.version)


def registration(source, edition_folder, system_kind):
    """The entries of an edition; those of keys without a value only where nothing else makes the
    key. `source` is the project's folder, `edition_folder` has the
    built manifest and type library, `system_kind` is win32 or win64."""
    server = pathlib.Path(source, "src/server")
    app_id = re.search(
        r'kAppId\[\] = L"({[-0-9A-F]+})"', (server / "class_registration.h").read_text()
    )[1]
    manifest = xml.etree.ElementTree.parse(
        pathlib.Path(edition_folder, "VeltHTTPClient12OEM.Assembly.manifest")
    )
    threading_models = {
        item.get("clsid"): item.get("threadingModel")
        for item in manifest.iter("{urn:schemas-microsoft-com:asm.v1}comClass")
    }
    entries = []
    for script in sorted((server / "scripts").glob("*.rgs")):
        text = script.read_text()
        class_identifier = re.search(r"CLSID = s '({.*})'", text)
        replacements = {"MODULE": MODULE, "APPID": app_id}
        if class_identifier:
            replacements["THREADINGMODEL"] = threading_models[class_identifier[1]]
        entries += script_entries(text, replacements)
    library = type_library.read_type_library(
        pathlib.Path(edition_folder, "VeltHTTPClient12OEM.tlb")
    )
    entries += _library_entries(library, system_kind)

    def made_by_another(entry):
        return any(
            other.value is not None
            and (other.key == entry.key or other.key.startswith(entry.key + "\\"))
            for other in entries
        )

    return [item for item in entries if item.value is not None or not made_by_another(item)]
