#!/usr/bin/env python3
"""Reads the tables of the packages back, and looks for what the system's installer asks of them.

    msi_tables_test.py <folder of the packages>

The folder has the packages of this version, and in earlier/ those of one before it.
"""

import hashlib
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

failures = 0


def expect(what, expected, actual):
    global failures
    if expected != actual:
        failures += 1
        print(f"FAILED: {what}\n    expected: {expected}\n    found:    {actual}")


def msiinfo(*arguments):
    done = subprocess.run(["msiinfo", *arguments], check=True, capture_output=True, text=True)
    return done.stdout


class Tables:
    """The rows of each table, as dictionaries."""

    def __init__(self, package):
        self._package = str(package)
        self.names = msiinfo("tables", self._package).split()
        self.summary = msiinfo("suminfo", self._package)

    def __getitem__(self, table):
        names, _, _, *rows = msiinfo("export", self._package, table).replace("\r", "").split("\n")
        columns = names.split("\t")
        return [dict(zip(columns, row.split("\t"))) for row in rows if row]

    def map(self, table, key, value):
        return {row[key]: row[value] for row in self[table]}


def check_identifiers(tables, earlier):
    """Which ones stay from version to version, and which ones do not."""
    new, old = (item.map("Property", "Property", "Value") for item in (tables, earlier))
    expect("the upgrade code stays", old["UpgradeCode"], new["UpgradeCode"])
    expect("the product code is new", True, new["ProductCode"] != old["ProductCode"])
    package_code = re.compile(r"Revision number \(UUID\): (\S+)")
    codes = [package_code.search(item.summary)[1] for item in (tables, earlier)]
    expect("the package code is new", True, codes[0] != codes[1])
    new, old = (item.map("Component", "Component", "ComponentId") for item in (tables, earlier))
    expect("what is gone", {"f.x86_withdrawn.txt"}, set(old) - set(new))
    changed = {name for name in new if name in old and new[name] != old[name]}
    expect("components keep their identifiers", set(), changed)
    expect("each component has its own", len(new), len(set(new.values())))
    well_formed = re.compile(r"\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}")
    expect("identifiers are in capital letters", True, all(map(well_formed.fullmatch, new.values())))


def check_components(tables, kind):
    components = tables["Component"]
    paths = [row["KeyPath"] for row in components]
    expect("no key path is shared", len(paths), len(set(paths)))
    files = tables.map("File", "File", "Component_")
    values = tables.map("Registry", "Registry", "Component_")
    for row in components:
        kept = values if int(row["Attributes"]) & 4 else files
        expect(f"{row['Component']}: its key path is its own", row["Component"], kept.get(row["KeyPath"]))
        expect(
            f"{row['Component']}: is for 64 bits",
            kind == "x64" and not row["Component"].startswith("f.x86_"),
            bool(int(row["Attributes"]) & 256),
        )
    in_features = [row["Component_"] for row in tables["FeatureComponents"]]
    expect("each component is in one feature", sorted(row["Component"] for row in components), sorted(in_features))
    features = {row["Feature"]: (row["Feature_Parent"], row["Level"]) for row in tables["Feature"]}
    expect(
        "the features",
        {
            "Runtime": ("", "1"),
            "Tools": ("Runtime", "1"),
            "Path": ("Tools", "2"),
            "Developer": ("Runtime", "2"),
        },
        features,
    )


def check_files(tables, package):
    files = tables["File"]
    expect("the order in the cabinet", list(range(1, len(files) + 1)), sorted(int(row["Sequence"]) for row in files))
    hashes = {row["File_"]: row for row in tables["MsiFileHash"]}
    folders = {row["Directory"]: row for row in tables["Directory"]}
    of_component = tables.map("Component", "Component", "Directory_")
    short = re.compile(r"[A-Z0-9_~-]{1,8}(\.[A-Z0-9_]{1,3})?\|.+|[A-Za-z0-9_-]{1,8}(\.\w{1,3})?")
    seen = set()
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["msiextract", "-C", folder, str(package)], check=True, capture_output=True)
        unpacked = {}
        for file in pathlib.Path(folder).rglob("*"):
            unpacked.setdefault(file.name, []).append(file)
        for row in files:
            name = row["FileName"].rpartition("|")[2]
            expect(f"{name}: a short name beside the long one", True, bool(short.fullmatch(row["FileName"])))
            place = (of_component[row["Component_"]], row["FileName"].partition("|")[0].upper())
            expect(f"{place}: is there once", False, place in seen)
            seen.add(place)
            contents = [file.read_bytes() for file in unpacked[name] if file.is_file()]
            sizes = {len(content) for content in contents}
            expect(f"{name}: its size", True, int(row["FileSize"]) in sizes)
            expect(f"{name}: has a version, or else a hash", True, bool(row["Version"]) != (row["File"] in hashes))
            expect(f"{name}: programs have versions", name.endswith((".dll", ".exe")), bool(row["Version"]))
            if row["File"] in hashes:
                known = {struct.unpack("<4i", hashlib.md5(content).digest()) for content in contents}
                parts = tuple(int(hashes[row["File"]][f"HashPart{part}"]) for part in (1, 2, 3, 4))
                expect(f"{name}: its hash", True, parts in known)
            else:
                expect(f"{name}: its version", "12.0.0.0", row["Version"])
    for row in folders.values():
        expect(f"{row['Directory']}: its parent is known", True, row["Directory"] == "TARGETDIR" or row["Directory_Parent"] in folders)


def check_registry(tables):
    rows = tables["Registry"]
    expect("everything goes to the scope's own root", {"-1"}, {row["Root"] for row in rows})
    elsewhere = [
        row["Key"]
        for row in rows
        if not row["Key"].startswith(("Software\\Classes\\", "Software\\Velt\\VeltHTTPClient"))
    ]
    expect("nothing is written elsewhere", [], elsewhere)
    stars = {row["Key"].rpartition("\\")[2] for row in rows if row["Name"] == "*"}
    expect("what is removed with all below it", {"Programmable"}, stars)
    locators = {row["Signature_"]: row for row in tables["RegLocator"]}
    expect("the machine's folder is looked for among the machine's keys", "2", locators["MachineFolder"]["Root"])
    user = locators["UserFolder"]
    expect("the user's one only when a user installs", ("3", True), (user["Root"], bool(re.fullmatch(r"\{.*\[MSIINSTALLPERUSER\]\}", user["Key"]))))


def check_sequences(tables):
    dialogs = {row["Dialog"] for row in tables["Dialog"]}
    for name in ("InstallUISequence", "InstallExecuteSequence", "AdminUISequence", "AdminExecuteSequence", "AdvtExecuteSequence"):
        numbers = [row["Sequence"] for row in tables[name]]
        expect(f"{name}: one action at a time", len(numbers), len(set(numbers)))
        for row in tables[name]:
            known = row["Action"] in dialogs if row["Action"].endswith("Dlg") else True
            expect(f"{name}: {row['Action']} is there", True, known)
    for name in ("InstallUISequence", "InstallExecuteSequence"):
        conditions = tables.map(name, "Action", "Condition")
        expect(f"{name}: the command line's folder goes before", "NOT INSTALLDIR", conditions["AppSearch"])
    order = {row["Action"]: int(row["Sequence"]) for row in tables["InstallExecuteSequence"]}
    inside = order["InstallInitialize"] < order["RemoveExistingProducts"] < order["ProcessComponents"]
    expect("the earlier version goes inside the transaction", True, inside)


def check_dialogs(tables):
    controls = {(row["Dialog_"], row["Control"]): row for row in tables["Control"]}
    for row in tables["Dialog"]:
        name = row["Dialog"]
        for column in ("Control_First", "Control_Default", "Control_Cancel"):
            expect(f"{name}: {column}", True, row[column] == "" or (name, row[column]) in controls)
        # The tab key goes round.
        start = next((key for key, control in controls.items() if key[0] == name and control["Control_Next"]), None)
        seen = []
        at = start
        while at and at not in seen:
            seen.append(at)
            at = (name, controls[at]["Control_Next"])
        stops = {key for key, control in controls.items() if key[0] == name and control["Control_Next"]}
        expect(f"{name}: the tab key goes round", (stops, start), (set(seen), at))
    for row in tables["ControlEvent"]:
        key = (row["Dialog_"], row["Control_"])
        expect(f"{key}: an event of a control", True, key in controls)
        if row["Event"] in ("NewDialog", "SpawnDialog", "SpawnWaitDialog"):
            expect(f"{key}: leads somewhere", True, any(row["Argument"] == name for name, _ in controls))


def main():
    folder = pathlib.Path(sys.argv[1])
    packages = sorted(folder.glob("*.msi"))
    expect("there are packages", True, bool(packages))
    for package in packages:
        kind = package.stem.rpartition("-")[2]
        print(package.name)
        tables = Tables(package)
        (before,) = (folder / "earlier").glob(f"*-{kind}.msi")
        expect("no code of ours runs", set(), {"CustomAction", "Binary"} & set(tables.names))
        expect("its platform", {"x86": "Intel;1033", "x64": "x64;1033"}[kind], re.search(r"Template: (\S+)", tables.summary)[1])
        check_identifiers(tables, Tables(before))
        check_components(tables, kind)
        check_files(tables, package)
        check_registry(tables)
        check_sequences(tables)
        check_dialogs(tables)
        texts = " ".join(row["Description"] for row in tables["LaunchCondition"])
        expect("a later version is named as the reason", True, "A later version of [ProductName] is installed." in texts)
        expect("the other package is", kind == "x86", "The package for 64-bit Windows is installed." in texts)
    sys.exit(failures > 0)


main()
