"""A Windows Installer database: rows are added table by table, and written as a package."""

import pathlib
import subprocess
import tempfile

# Columns and their types as the system's documentation of each table has them: s text, l text that
# may be translated, i number, v bytes; the figure is the size, a capital letter allows nothing.
# The columns before the bar are the key.
TABLES = {
    "ActionText": "Action s72 | Description L64 Template L128",
    "AdminExecuteSequence": "Action s72 | Condition S255 Sequence I2",
    "AdminUISequence": "Action s72 | Condition S255 Sequence I2",
    "AdvtExecuteSequence": "Action s72 | Condition S255 Sequence I2",
    "AppSearch": "Property s72 Signature_ s72 |",
    "Component": "Component s72 | ComponentId S38 Directory_ s72 Attributes i2 Condition S255"
    " KeyPath S72",
    "Control": "Dialog_ s72 Control s50 | Type s20 X i2 Y i2 Width i2 Height i2 Attributes I4"
    " Property S50 Text L0 Control_Next S50 Help L50",
    "ControlCondition": "Dialog_ s72 Control_ s50 Action s50 Condition s255 |",
    "ControlEvent": "Dialog_ s72 Control_ s50 Event s50 Argument s255 Condition S255 | Ordering I2",
    "CreateFolder": "Directory_ s72 Component_ s72 |",
    "Dialog": "Dialog s72 | HCentering i2 VCentering i2 Width i2 Height i2 Attributes I4 Title L128"
    " Control_First s50 Control_Default S50 Control_Cancel S50",
    "Directory": "Directory s72 | Directory_Parent S72 DefaultDir l255",
    "Environment": "Environment s72 | Name l255 Value L255 Component_ s72",
    "EventMapping": "Dialog_ s72 Control_ s50 Event s50 | Attribute s50",
    "Feature": "Feature s38 | Feature_Parent S38 Title L64 Description L255 Display I2 Level i2"
    " Directory_ S72 Attributes i2",
    "FeatureComponents": "Feature_ s38 Component_ s72 |",
    "File": "File s72 | Component_ s72 FileName l255 FileSize i4 Version S72 Language S20"
    " Attributes I2 Sequence i2",
    "Icon": "Name s72 | Data v0",
    "InstallExecuteSequence": "Action s72 | Condition S255 Sequence I2",
    "InstallUISequence": "Action s72 | Condition S255 Sequence I2",
    "LaunchCondition": "Condition s255 | Description l255",
    "Media": "DiskId i2 | LastSequence i2 DiskPrompt L64 Cabinet S255 VolumeLabel S32 Source S72",
    "MsiFileHash": "File_ s72 | Options i2 HashPart1 i4 HashPart2 i4 HashPart3 i4 HashPart4 i4",
    "Property": "Property s72 | Value l0",
    "RadioButton": "Property s72 Order i2 | Value s64 X i2 Y i2 Width i2 Height i2 Text L64"
    " Help L50",
    "RegLocator": "Signature_ s72 | Root i2 Key s255 Name S255 Type I2",
    "Registry": "Registry s72 | Root i2 Key l255 Name L255 Value L0 Component_ s72",
    "Shortcut": "Shortcut s72 | Directory_ s72 Name l128 Component_ s72 Target s72 Arguments S255"
    " Description L255 Hotkey I2 Icon_ S72 IconIndex I2 ShowCmd I2 WkDir S72"
    " DisplayResourceDLL S255 DisplayResourceId I2 DescriptionResourceDLL S255"
    " DescriptionResourceId I2",
    "Signature": "Signature s72 | FileName s255 MinVersion S20 MaxVersion S20 MinSize I4 MaxSize I4"
    " MinDate I4 MaxDate I4 Languages S255",
    "TextStyle": "TextStyle s72 | FaceName s32 Size i2 Color I4 StyleBits I2",
    "UIText": "Key s72 | Text L255",
    "Upgrade": "UpgradeCode s38 VersionMin S20 VersionMax S20 Language S255 Attributes i4 |"
    " Remove S255 ActionProperty s72",
}


def escaped(text):
    """A text that the installer takes as it stands where it would else put values in it."""
    return "".join(f"[\\{letter}]" if letter in "[]{}" else letter for letter in text)


class Database:
    """Rows in the order in which they were added. A row's missing last columns are null, and so is
    None."""

    def __init__(self):
        self._rows = {}

    def add(self, table, *row):
        """Raises ValueError for a row that its table cannot have."""
        columns = TABLES[table].replace("|", "").split()[1::2]
        row += (None,) * (len(columns) - len(row))
        for column, value in zip(columns, row, strict=True):
            size = int(column[1:])
            if value is None and column[0].islower():
                raise ValueError(f"{table}: nothing where something must be: {row}")
            if column[0] in "sSlL" and value is not None:
                if size and len(value) > size or set(value) & set("\t\r\n"):
                    raise ValueError(f"{table}: not a text of at most {size} letters: {value}")
                value.encode("ascii")
        self._rows.setdefault(table, []).append(row)

    def rows(self, table):
        return self._rows.get(table, [])

    def content(self):
        """All rows as a text, of which equal databases have the same."""
        return repr(sorted(self._rows.items()))

    def write(self, output, summary, streams):
        """Makes the package. `summary` has texts by the numbers of their properties, `streams` the
        files that the package holds by the names of their streams."""
        output = pathlib.Path(output).absolute()
        output.unlink(missing_ok=True)
        with tempfile.TemporaryDirectory() as folder:
            tables = []
            for table, rows in sorted(self._rows.items()):
                tables.append(self._write_table(pathlib.Path(folder), table, rows))
            tables.append(pathlib.Path(folder, "_SummaryInformation.idt"))
            lines = ["PropertyId\tValue", "i2\tl255", "_SummaryInformation\tPropertyId"]
            lines += [f"{number}\t{value}" for number, value in sorted(summary.items())]
            tables[-1].write_text("\r\n".join(lines) + "\r\n")
            command = ["msibuild", str(output), "-i", *map(str, tables)]
            for stream, file in streams.items():
                command += ["-a", stream, str(pathlib.Path(file).absolute())]
            subprocess.run(command, cwd=folder, check=True)  # where streams are looked for

    @staticmethod
    def _write_table(folder, table, rows):
        key, rest = (part.split() for part in TABLES[table].split("|"))
        columns = key + rest
        binary = columns[1::2].index("v0") if "v0" in columns else None
        lines = ["\t".join(columns[::2]), "\t".join(columns[1::2]), "\t".join([table, *key[::2]])]
        for row in rows:
            if binary is not None:
                (folder / table).mkdir(exist_ok=True)
                (folder / table / row[0]).write_bytes(row[binary])
                row = row[:binary] + (row[0],) + row[binary + 1 :]
            lines.append("\t".join("" if value is None else str(value) for value in row))
        file = folder / f"{table}.idt"
        file.write_text("\r\n".join(lines) + "\r\n", newline="")
        return file
