#!/usr/bin/env python3
"""Makes a Windows Installer package.

usage: make_msi.py --kind x86|x64 --version VERSION --publisher NAME --source FOLDER --tree FOLDER
                   --support URL --icon FILE --output FILE

The tree is what the developer files look like when they are unpacked: a folder for each edition,
x86 and x64, and beside them what developers get. The package of kind x86 has the 32-bit edition,
that of kind x64 both. What registration writes comes from the project's folder --source.

Equal trees make equal bytes: the package's identifiers are made of what is in it, and its times are
SOURCE_DATE_EPOCH.
"""

import argparse
import dataclasses
import hashlib
import os
import pathlib
import re
import struct
import subprocess
import tempfile
import time
import uuid

import msi_database
import registration
from msi_database import escaped
from msi_dialogs import add_dialogs

# All identifiers of ours are made of this one and of what they identify, so they stay the same from
# version to version.
NAMESPACE = uuid.UUID("5f4e7a52-9a0c-4a55-8d5e-6a8ac2b0b6c1")

CLASSES_OF_SCOPE = -1  # as a root: HKEY_LOCAL_MACHINE, or HKEY_CURRENT_USER for a user's installation
LOCAL_MACHINE, USERS = 2, 3
COMPONENT_REGISTRY_KEY_PATH, COMPONENT_64_BIT = 4, 256
FEATURE_NO_ADVERTISING, FEATURE_ALWAYS = 8, 16
FILE_VITAL = 512
LOCATOR_RAW_VALUE, LOCATOR_64_BIT = 2, 16
UPGRADE_MIGRATE_FEATURES, UPGRADE_ONLY_DETECT, UPGRADE_MIN_INCLUSIVE, UPGRADE_MAX_INCLUSIVE = (
    1,
    2,
    256,
    512,
)
LIBRARY = "VeltHTTPClient12OEM.dll"
VIEWER = "velt-trace.exe"


@dataclasses.dataclass(frozen=True)
class Kind:
    """What the packages differ in."""

    platform: str  # as the summary has it
    programs: str  # the directory for programs
    suffix: str  # of the product's name
    editions: tuple
    other: str  # the kind that cannot be beside it
    other_text: str  # what is said then; empty where this one takes its place

    @property
    def own(self):
        """The edition of the programs in the Start menu and on the path."""
        return self.editions[-1]


KINDS = {
    "x86": Kind(
        "Intel",
        "ProgramFilesFolder",
        " (32-bit)",
        ("x86",),
        "x64",
        "The package for 64-bit Windows is installed. It has this edition, too.",
    ),
    "x64": Kind("x64", "ProgramFiles64Folder", "", ("x86", "x64"), "x86", ""),
}
SYSTEM_KINDS = {"x86": "win32", "x64": "win64"}


def identifier(*what):
    return "{%s}" % str(uuid.uuid5(NAMESPACE, "/".join(what))).upper()


def name_for(path):
    """A path as the key of a row."""
    return re.sub(r"[^A-Za-z0-9_.]", "_", f"f.{path}")


def file_version(content):
    """The version in a program's version block; None for a file without one."""
    place = content.find(struct.pack("<I", 0xFEEF04BD))
    if content[:2] != b"MZ" or place < 0:
        return None
    high, low = struct.unpack_from("<II", content, place + 8)
    return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"


class ShortNames:
    """Names of eight and three letters that are unique in their folders."""

    def __init__(self):
        self._taken = set()

    def pair(self, folder, name):
        """The short and the long name as the tables have them, or the name alone if it is short."""
        stem, dot, extension = name.rpartition(".") if "." in name[1:] else (name, "", "")
        if re.fullmatch(r"[A-Za-z0-9_-]{1,8}", stem) and re.fullmatch(r"\w{0,3}", extension):
            self._taken.add((folder, name.upper()))
            return name
        letters = re.sub(r"[^A-Z0-9_]", "", stem.upper())[:6] or "_"
        ending = re.sub(r"[^A-Z0-9_]", "", extension.upper())[:3]
        for number in range(1, 100):
            tail = f"~{number}"
            short = letters[: 8 - len(tail)] + tail + (f".{ending}" if ending else "")
            if (folder, short) not in self._taken:
                self._taken.add((folder, short))
                return f"{short}|{name}"
        raise ValueError(f"no short name is left for {name}")


class Package:
    def __init__(self, arguments):
        self._arguments = arguments
        self._kind = KINDS[arguments.kind]
        self._tree = pathlib.Path(arguments.tree)
        self._key = f"Software\\{arguments.publisher}\\VeltHTTPClient"
        self._database = msi_database.Database()
        self._directories = {"": "INSTALLDIR"}
        self._short_names = ShortNames()
        self._files = []  # the path of each file in the order of the cabinet, and its key

    # Files ----------------------------------------------------------------------------------------

    def _is_64_bit(self, path):
        """Whether what lies at a path in the tree belongs to the 64-bit part of the system."""
        return self._arguments.kind == "x64" and not path.startswith("x86/")

    @staticmethod
    def _feature(path):
        folder, _, name = path.rpartition("/")
        if folder in SYSTEM_KINDS:
            return "Tools" if name.endswith(".exe") else "Runtime"
        return "Runtime" if path in ("LICENSE.md", "NOTICES.md") else "Developer"

    def _directory(self, path):
        if path not in self._directories:
            parent, _, name = path.rpartition("/")
            parent_key = self._directory(parent)
            self._directories[path] = name_for(path)
            self._database.add(
                "Directory", name_for(path), parent_key, self._short_names.pair(parent, name)
            )
        return self._directories[path]

    def _component(self, name, feature, directory, attributes, key_path, condition=None):
        self._database.add(
            "Component",
            name,
            identifier(self._arguments.kind, "component", name),
            directory,
            attributes,
            condition,
            key_path,
        )
        self._database.add("FeatureComponents", feature, name)

    def _add_file(self, path):
        """Each file is a component of its own, so that what one version brings and another does not
        never concerns the others."""
        key = name_for(path)
        content = (self._tree / path).read_bytes()
        version = file_version(content)
        folder, _, name = path.rpartition("/")
        self._files.append((path, key))
        attributes = COMPONENT_64_BIT if self._is_64_bit(path) else 0
        self._component(key, self._feature(path), self._directory(folder), attributes, key)
        self._database.add(
            "File",
            key,
            key,
            self._short_names.pair(folder, name),
            len(content),
            version,
            "1033" if version else None,
            FILE_VITAL,
            len(self._files),
        )
        if not version:
            parts = struct.unpack("<4i", hashlib.md5(content, usedforsecurity=False).digest())
            self._database.add("MsiFileHash", key, 0, *parts)

    def _add_files(self):
        paths = sorted(
            file.relative_to(self._tree).as_posix()
            for file in self._tree.rglob("*")
            if file.is_file()
        )
        for path in paths:
            edition = path.partition("/")[0]
            if edition not in SYSTEM_KINDS or edition in self._kind.editions:
                self._add_file(path)
        self._database.add("Media", 1, len(self._files), None, "#files.cab")

    def _cabinet(self, folder):
        """Its files have the names of their rows."""
        for path, key in self._files:
            file = folder / key
            file.write_bytes((self._tree / path).read_bytes())
            os.utime(file, (self._time(), self._time()))
        cabinet = folder / "files.cab"
        names = [str(folder / key) for _, key in self._files]
        subprocess.run(["gcab", "--create", "--zip", "--nopath", str(cabinet), *names], check=True)
        return cabinet

    # Registry -------------------------------------------------------------------------------------

    def _add_registration(self, edition):
        library = name_for(f"{edition}/{LIBRARY}")
        values = {
            registration.MODULE: f"[#{library}]",
            registration.FOLDER: f"[{self._directories[edition]}]",
        }
        entries = registration.registration(
            self._arguments.source, self._tree / edition, SYSTEM_KINDS[edition]
        )
        classes = "Software\\Classes\\"
        for number, entry in enumerate(entries, 1):
            value = entry.value
            if value is not None:
                value = values.get(value) or escaped(value)
            self._database.add(
                "Registry",
                f"{edition}.{number:02}",
                CLASSES_OF_SCOPE,
                classes + escaped(entry.key),
                entry.name or (None if value else "*"),  # *: the key alone, and away again
                value,
                library,
            )

    def _registry_component(self, name, feature, directory, value_name, value, condition=None):
        """One that a value of the product's own key stands for."""
        attributes = COMPONENT_REGISTRY_KEY_PATH
        if self._arguments.kind == "x64":
            attributes |= COMPONENT_64_BIT
        self._component(name, feature, directory, attributes, name, condition)
        # A user's values are in a key that the installer looks into for a user only: an
        # administrator's installation takes nothing from where an ordinary program can write.
        key = self._key + "{\\PerUser[MSIINSTALLPERUSER]}"
        self._database.add("Registry", name, CLASSES_OF_SCOPE, key, value_name, value, name)

    def _remember_folder(self):
        """A folder that was chosen once is used again. Without MSIINSTALLPERUSER the second key is
        empty, and the value is looked for where only the system writes."""
        self._registry_component(
            "InstallFolder", "Runtime", "INSTALLDIR", "InstallDir", "[INSTALLDIR]"
        )
        view = 0
        if self._arguments.kind == "x64":
            view = LOCATOR_64_BIT
            # That of the package whose place this one takes.
            self._locate("OtherKindFolder", LOCAL_MACHINE, self._key, 0)
        self._locate("MachineFolder", LOCAL_MACHINE, self._key, view)
        user_key = f"{{[UserSID]\\{self._key}\\PerUser[MSIINSTALLPERUSER]}}"
        self._locate("UserFolder", USERS, user_key, view)

    def _locate(self, signature, root, key, view):
        self._database.add("AppSearch", "INSTALLDIR", signature)
        self._database.add(
            "RegLocator", signature, root, key, "InstallDir", LOCATOR_RAW_VALUE | view
        )

    # Features -------------------------------------------------------------------------------------

    def _add_features(self):
        add = self._database.add
        features = (  # those of level 1 are installed by default
            ("Runtime", None, 1, "Component", "The component and its registration."),
            (
                "Tools",
                "Runtime",
                1,
                "Tools",
                "The command-line program, and the trace viewer with its entry in the Start menu.",
            ),
            (
                "Path",
                "Tools",
                2,
                "Search path",
                "Enters the folder of the tools in the search path for programs.",
            ),
            (
                "Developer",
                "Runtime",
                2,
                "Developer files",
                "Headers, interface definitions, a CMake package, samples, documents.",
            ),
        )
        for place, (name, parent, level, title, text) in enumerate(features):
            attributes = FEATURE_NO_ADVERTISING | (0 if parent else FEATURE_ALWAYS)
            display = 2 * place + 1  # odd: its parts are shown
            add("Feature", name, parent, title, text, display, level, "INSTALLDIR", attributes)

        tools = self._directories[self._kind.own]
        self._registry_component("ViewerEntry", "Tools", "ProgramMenuFolder", "ViewerEntry", "1")
        add(
            "Shortcut",
            "Viewer",
            "ProgramMenuFolder",
            "VELTTR~1|Velt trace viewer" + self._kind.suffix,
            "ViewerEntry",
            f"[#{name_for(f'{self._kind.own}/{VIEWER}')}]",
            None,
            "Shows what the component does, as it does it.",
        )
        for name, variable, condition in (
            ("MachinePath", "=-*PATH", "ALLUSERS"),
            ("UserPath", "=-PATH", "NOT ALLUSERS"),
        ):
            self._registry_component(name, "Path", tools, name, "1", condition)
            add("Environment", name, variable, f"[~];[{tools}]", name)

    # Package --------------------------------------------------------------------------------------

    def _time(self):
        return int(os.environ["SOURCE_DATE_EPOCH"])

    def _product_name(self):
        return "VeltHTTPClient" + self._kind.suffix

    def _installer_version(self):
        """The installer compares three numbers."""
        return ".".join(self._arguments.version.split(".")[:3])

    def _add_properties(self):
        arguments = self._arguments
        for name, value in (
            ("ProductName", self._product_name()),
            ("ProductVersion", self._installer_version()),
            ("ProductCode", identifier(arguments.kind, "product", arguments.version)),
            ("ProductLanguage", "1033"),
            ("UpgradeCode", identifier(arguments.kind, "upgrade")),
            ("Manufacturer", arguments.publisher),
            ("FullVersion", arguments.version),
            ("ALLUSERS", "2"),  # MSIINSTALLPERUSER decides; without it for all users
            ("MSIUSEREALADMINDETECTION", "1"),
            # Hosts that have the component loaded go on with it; it is replaced when they are gone.
            ("MSIRESTARTMANAGERCONTROL", "DisableShutdown"),
            ("SecureCustomProperties", "INSTALLDIR;NEWERFOUND;OLDERFOUND;OTHERKINDFOUND"),
            ("ARPPRODUCTICON", "product.ico"),
            ("ARPHELPLINK", arguments.support),
            ("ARPURLINFOABOUT", arguments.support),
            ("ARPURLUPDATEINFO", arguments.support),
        ):
            self._database.add("Property", name, value)
        self._database.add("Icon", "product.ico", pathlib.Path(arguments.icon).read_bytes())

    def _add_upgrade(self):
        add = self._database.add
        own = identifier(self._arguments.kind, "upgrade")
        version = self._installer_version()
        # A build that differs in the fourth number only takes the place of the other one, too.
        takes_over = UPGRADE_MIGRATE_FEATURES | UPGRADE_MAX_INCLUSIVE
        add("Upgrade", own, None, version, None, takes_over, None, "OLDERFOUND")
        add("Upgrade", own, version, None, None, UPGRADE_ONLY_DETECT, None, "NEWERFOUND")
        what = UPGRADE_ONLY_DETECT if self._kind.other_text else UPGRADE_MIGRATE_FEATURES
        other = identifier(self._kind.other, "upgrade")
        what |= UPGRADE_MIN_INCLUSIVE
        add("Upgrade", other, "0.0.0", None, None, what, None, "OTHERKINDFOUND")
        add("LaunchCondition", "VersionNT >= 601", "This needs Windows 7 or a later one.")
        add(
            "LaunchCondition",
            "Installed OR NOT NEWERFOUND",
            "A later version of [ProductName] is installed. Remove it first if you want this one.",
        )
        if self._kind.other_text:
            add("LaunchCondition", "Installed OR NOT OTHERKINDFOUND", self._kind.other_text)

    def _add_sequences(self):
        """The order is the one that the installer's documentation suggests. The earlier version goes
        inside the transaction, so it comes back when the new one fails."""
        costing = (("CostInitialize", 800), ("FileCost", 900), ("CostFinalize", 1000))
        start = (
            ("FindRelatedProducts", 25),
            # What the command line says goes before what was remembered.
            ("AppSearch", 50, "NOT INSTALLDIR"),
            ("LaunchConditions", 100),
            ("ValidateProductID", 700),
            *costing,
            ("MigrateFeatureStates", 1200),
        )
        ends = (("DoneDlg", -1), ("GivenUpDlg", -2), ("FailedDlg", -3))
        transaction = (("InstallValidate", 1400), ("InstallInitialize", 1500))
        sequences = {
            "InstallUISequence": (
                ("ScopeDlg", 20, "NOT Installed"),
                *start,
                ("FeaturesDlg", 1230, "NOT Installed"),
                ("MaintenanceDlg", 1250, "Installed"),
                ("ProgressDlg", 1280),
                ("ExecuteAction", 1300),
                *ends,
            ),
            "InstallExecuteSequence": (
                *start,
                *transaction,
                ("RemoveExistingProducts", 1510),
                ("ProcessComponents", 1600),
                ("UnpublishFeatures", 1800),
                ("RemoveRegistryValues", 2600),
                ("RemoveShortcuts", 3200),
                ("RemoveEnvironmentStrings", 3300),
                ("RemoveFiles", 3500),
                ("RemoveFolders", 3600),
                ("CreateFolders", 3700),
                ("InstallFiles", 4000),
                ("CreateShortcuts", 4500),
                ("WriteRegistryValues", 5000),
                ("WriteEnvironmentStrings", 5200),
                ("RegisterUser", 6000),
                ("RegisterProduct", 6100),
                ("PublishFeatures", 6300),
                ("PublishProduct", 6400),
                ("InstallFinalize", 6600),
            ),
            "AdminUISequence": (*costing, ("ProgressDlg", 1280), ("ExecuteAction", 1300), *ends),
            "AdminExecuteSequence": (
                *costing,
                *transaction,
                ("InstallAdminPackage", 3900),
                ("InstallFiles", 4000),
                ("InstallFinalize", 6600),
            ),
            "AdvtExecuteSequence": (
                ("CostInitialize", 800),
                ("CostFinalize", 1000),
                *transaction,
                ("PublishFeatures", 6300),
                ("PublishProduct", 6400),
                ("InstallFinalize", 6600),
            ),
        }
        for table, actions in sequences.items():
            for action, number, *condition in actions:
                self._database.add(table, action, condition[0] if condition else None, number)

    def make(self):
        add = self._database.add
        add("Directory", "TARGETDIR", None, "SourceDir")
        add("Directory", self._kind.programs, "TARGETDIR", ".")
        add("Directory", "ProgramMenuFolder", "TARGETDIR", ".")
        add("Directory", "INSTALLDIR", self._kind.programs, "VELTHT~1|VeltHTTPClient")
        self._add_properties()
        self._add_files()
        for edition in self._kind.editions:
            self._add_registration(edition)
        self._remember_folder()
        self._add_features()
        self._add_upgrade()
        self._add_sequences()
        add_dialogs(self._database, self._kind.programs)
        with tempfile.TemporaryDirectory() as folder:
            cabinet = self._cabinet(pathlib.Path(folder))
            content = self._database.content() + hashlib.sha256(cabinet.read_bytes()).hexdigest()
            when = time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(self._time()))
            summary = {
                1: 1252,  # the code page
                2: "Installation Database",
                3: self._product_name(),
                4: self._arguments.publisher,
                5: "Installer",
                6: f"Installs {self._product_name()} {self._arguments.version}.",
                7: f"{self._kind.platform};1033",
                9: identifier("package", content),
                12: when,
                13: when,
                14: 500,  # the oldest installer that understands it: that of Windows 7
                15: 2,  # long names, compressed
                18: "make_msi.py",
                19: 2,  # not to be changed
            }
            self._database.write(self._arguments.output, summary, {"files.cab": cabinet})


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--kind", choices=KINDS, required=True)
    for name in ("version", "publisher", "support", "icon", "source", "tree", "output"):
        parser.add_argument(f"--{name}", required=True)
    Package(parser.parse_args()).make()


if __name__ == "__main__":
    main()
