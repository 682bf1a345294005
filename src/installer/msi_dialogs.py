"""The windows of the packages: the scope, the features and the folder are asked for, progress and
the end are shown, and an installation is changed, repaired or removed. Names that start with a
capital letter and end in Dlg are ours; the installer itself asks for FilesInUse and ErrorDlg."""

WIDTH, HEIGHT = 370, 270  # of the main windows, in the installer's units
VISIBLE = 1  # attributes of controls
SHOWN = VISIBLE | 2  # and not grey
TRANSPARENT, NO_PREFIX, SHIELD = 0x10000, 0x20000, 0x800000
MODAL, MODELESS = 3, 1  # attributes of windows, visible ones
MINIMIZE, KEEP_MODELESS, TRACK_DISK_SPACE, ERROR = 4, 16, 32, 0x10000


class _Dialog:
    """A window that is added control by control. The tab key goes through those that take it in the
    order in which they come, and round."""

    def __init__(self, database, name, attributes, first, default, cancel, size=(WIDTH, HEIGHT)):
        self._database = database
        self._name = name
        self._controls = []
        self._stops = []
        self._row = (name, 50, 50, *size, attributes, "[ProductName]", first, default, cancel)

    def control(self, name, kind, place, attributes=SHOWN, prop=None, text=None):
        self._controls.append((name, kind, *place, attributes, prop, text))
        if kind not in ("Text", "Line", "ProgressBar", "Icon"):
            self._stops.append(name)

    def text(self, name, place, text, style="Body", attributes=SHOWN | TRANSPARENT | NO_PREFIX):
        self.control(name, "Text", place, attributes, text="{\\%s}%s" % (style, text))

    def button(self, name, place, text, events, attributes=SHOWN):
        """`events` are (event, argument, condition) in their order."""
        self.control(name, "PushButton", place, attributes, text=text)
        for order, (event, argument, condition) in enumerate(events, 1):
            self._database.add(
                "ControlEvent", self._name, name, event, argument, condition or "1", order
            )

    def shows(self, control, event, attribute):
        self._database.add("EventMapping", self._name, control, event, attribute)

    def head(self, title, text):
        self.text("Title", (20, 14, 330, 18), title, "Title")
        self.text("Description", (20, 36, 330, 34), text)
        self.control("Line", "Line", (0, 234, WIDTH, 0), VISIBLE)

    def finish(self):
        self._database.add("Dialog", *self._row)
        following = dict(zip(self._stops, self._stops[1:] + self._stops[:1]))
        for name, *rest in self._controls:
            self._database.add("Control", self._name, name, *rest, following.get(name))


_RIGHT = (304, 243, 56, 17)  # the places of the buttons
_MIDDLE = (244, 243, 56, 17)
_CANCEL = [("SpawnDialog", "CancelDlg", None)]
_RETURN = [("EndDialog", "Return", None)]


def _scope(database, folder_name):
    dialog = _Dialog(database, "ScopeDlg", MODAL | MINIMIZE, "Scope", "Next", "Cancel")
    dialog.head("Install [ProductName]", "Version [FullVersion]. Who is to use it?")
    dialog.control("Scope", "RadioButtonGroup", (30, 84, 310, 60), prop="InstallScope")
    for order, (value, text) in enumerate(
        (
            ("machine", "&All users of this computer; asks for an administrator"),
            ("user", "&Only me"),
        ),
        1,
    ):
        database.add("RadioButton", "InstallScope", order, value, 0, 24 * (order - 1), 300, 18, text)
    user, machine = 'InstallScope = "user"', 'InstallScope = "machine"'
    # The user's folder for programs; the installer itself knows it only when it starts for a user.
    programs = "[LocalAppDataFolder]Programs\\"
    dialog.button(
        "Next",
        _MIDDLE,
        "&Next",
        [
            ("[MSIINSTALLPERUSER]", "1", user),
            ("[MSIINSTALLPERUSER]", "{}", machine),
            ("[ALLUSERS]", "{}", user),
            ("[ALLUSERS]", "1", machine),
            (f"[{folder_name}]", programs, user),
            ("EndDialog", "Return", None),
        ],
    )
    dialog.button("Cancel", _RIGHT, "Cancel", _CANCEL)
    dialog.finish()


def _features(database):
    dialog = _Dialog(
        database, "FeaturesDlg", MODAL | MINIMIZE | TRACK_DISK_SPACE, "Tree", "Install", "Cancel"
    )
    dialog.head("What is to be installed", "A click on a picture chooses a part.")
    dialog.control("Tree", "SelectionTree", (20, 72, 190, 100), prop="_BrowseProperty", text="Parts")
    dialog.text("About", (220, 72, 130, 60), "")
    dialog.shows("About", "SelectionDescription", "Text")
    dialog.text("Size", (220, 134, 130, 38), "")
    dialog.shows("Size", "SelectionSize", "Text")
    dialog.control("FolderLabel", "Text", (20, 184, 330, 12), SHOWN, text="{\\Body}&Folder:")
    dialog.control("Folder", "PathEdit", (20, 198, 330, 18), prop="INSTALLDIR")
    # A folder of an installation that is there already stays.
    database.add("ControlCondition", "FeaturesDlg", "Folder", "Disable", "Installed")
    space = "OutOfDiskSpace <> 1"
    dialog.button(
        "Install",
        _MIDDLE,
        "&Install",
        [
            ("SetTargetPath", "INSTALLDIR", "NOT Installed"),
            ("SpawnWaitDialog", "CostingDlg", "CostingComplete = 1"),
            ("SpawnDialog", "OutOfDiskDlg", "OutOfDiskSpace = 1"),
            ("EndDialog", "Return", space),
        ],
        SHOWN | SHIELD,
    )
    dialog.button("Cancel", _RIGHT, "Cancel", _CANCEL)
    dialog.finish()


def _maintenance(database):
    dialog = _Dialog(database, "MaintenanceDlg", MODAL | MINIMIZE, "Change", "Change", "Cancel")
    dialog.head("[ProductName] is installed", "Version [FullVersion]. What is to be done?")
    for index, (name, label, text, events) in enumerate(
        (
            ("Change", "&Change", "Choose what is installed.", [("NewDialog", "FeaturesDlg", None)]),
            (
                "Repair",
                "&Repair",
                "Write missing and damaged files, keys and values again.",
                [("ReinstallMode", "amus", None), ("Reinstall", "ALL", None), *_RETURN],
            ),
            ("Remove", "Re&move", "Take it off this computer.", [("Remove", "ALL", None), *_RETURN]),
        )
    ):
        row = 84 + 36 * index
        dialog.button(name, (30, row, 70, 17), label, events, SHOWN | SHIELD)
        dialog.text(name + "Text", (112, row + 3, 240, 14), text)
    dialog.button("Cancel", _RIGHT, "Cancel", _CANCEL)
    dialog.finish()


def _progress(database):
    dialog = _Dialog(
        database, "ProgressDlg", MODELESS | MINIMIZE | KEEP_MODELESS, "Cancel", "Cancel", "Cancel"
    )
    dialog.head("[ProductName]", "This takes a moment.")
    dialog.text("Action", (20, 100, 330, 14), "")
    dialog.shows("Action", "ActionText", "Text")
    dialog.control("Bar", "ProgressBar", (20, 118, 330, 12), VISIBLE, text="Progress")
    dialog.shows("Bar", "SetProgress", "Progress")
    dialog.button("Cancel", _RIGHT, "Cancel", _CANCEL)
    dialog.finish()


def _end(database, name, title, text):
    dialog = _Dialog(database, name, MODAL | MINIMIZE, "Finish", "Finish", "Finish")
    dialog.head(title, text)
    dialog.button("Finish", _RIGHT, "&Finish", [("EndDialog", "Exit", None)])
    dialog.finish()


def _small(database, name, attributes, text, buttons, size=(260, 85), event=None):
    """A question or a message. `buttons` are (name, label, events), the last one is Escape's."""
    names = [button[0] for button in buttons]
    dialog = _Dialog(database, name, attributes, names[0], names[0], names[-1], size)
    dialog.text(event or "Text", (20, 12, size[0] - 40, size[1] - 45), text)
    # Buttons of which only some are shown share the places.
    for index, (button, label, events) in enumerate(buttons):
        left = size[0] - 64 * (len(buttons) - index) - 4
        dialog.button(button, (max(left, 8), size[1] - 25, 56, 17), label, events)
    return dialog


def _error(database):
    # The installer shows those of the buttons that an error has, each of which is known by its
    # letter, and lines them up.
    answers = "Abort Cancel Ignore No Ok Retry Yes".split()
    dialog = _Dialog(database, "ErrorDlg", MODAL | MINIMIZE | ERROR, "ErrorText", None, None, (330, 101))
    dialog.text("ErrorText", (20, 12, 290, 55), "", attributes=SHOWN | NO_PREFIX)
    for index, answer in enumerate(answers):
        dialog.button(
            answer[0],
            (8 + 44 * index, 78, 42, 17),
            "OK" if answer == "Ok" else answer,
            [("EndDialog", f"Error{answer}", None)],
        )
    dialog.finish()


def _files_in_use(database):
    dialog = _Dialog(
        database, "FilesInUse", MODAL | MINIMIZE | KEEP_MODELESS, "Retry", "Retry", "Exit"
    )
    dialog.head(
        "Files are in use",
        "These programs use files that are to be changed. Close them and try again, or go on; then"
        " the change is complete after the next start of the computer.",
    )
    dialog.control("List", "ListBox", (20, 84, 330, 130), SHOWN, "FileInUseProcess")
    dialog.button("Retry", (184, 243, 56, 17), "&Retry", [("EndDialog", "Retry", None)])
    dialog.button("Ignore", _MIDDLE, "&Go on", [("EndDialog", "Ignore", None)])
    dialog.button("Exit", _RIGHT, "Cancel", [("EndDialog", "Exit", None)])
    dialog.finish()


def _disk_space(database):
    dialog = _Dialog(database, "OutOfDiskDlg", MODAL, "Close", "Close", "Close")
    dialog.head("There is not enough room", "Make room, choose fewer parts, or another folder.")
    dialog.control("Volumes", "VolumeCostList", (20, 84, 330, 120), SHOWN, text="{120}{70}{70}{70}")
    dialog.button("Close", _RIGHT, "&Close", _RETURN)
    dialog.finish()


def add_dialogs(database, programs_folder):
    """`programs_folder` is the directory of the folder for programs of all users."""
    for style, size, bits in (("Body", 8, 0), ("Title", 12, 1)):
        database.add("TextStyle", style, "Tahoma", size, None, bits)
    for name, value in (
        ("DefaultUIFont", "Body"),
        ("ErrorDialog", "ErrorDlg"),
        ("InstallScope", "machine"),
    ):
        database.add("Property", name, value)
    _scope(database, programs_folder)
    _features(database)
    _maintenance(database)
    _progress(database)
    _end(database, "DoneDlg", "Done", "[ProductName] has been set up as you chose.")
    _end(database, "GivenUpDlg", "Given up", "Nothing on this computer has changed.")
    _end(
        database,
        "FailedDlg",
        "It did not work",
        "Everything is as it was before. A log tells why: msiexec /l*v FILE with the same command.",
    )
    _small(
        database,
        "CancelDlg",
        MODAL,
        "Give up?",
        [("Yes", "&Yes", [("EndDialog", "Exit", None)]), ("No", "&No", _RETURN)],
    ).finish()
    _small(
        database,
        "CostingDlg",
        MODAL,
        "The room that is needed is being counted.",
        [("Cancel", "Cancel", [("EndDialog", "Exit", None)])],
    ).finish()
    _error(database)
    _files_in_use(database)
    _disk_space(database)
    for key, text in (
        ("bytes", "bytes"),
        ("KB", "KB"),
        ("MB", "MB"),
        ("GB", "GB"),
        ("MenuLocal", "Install"),
        ("MenuAllLocal", "Install with all its parts"),
        ("MenuAbsent", "Leave out"),
        ("SelAbsentLocal", "It will be installed."),
        ("SelAbsentAbsent", "It will not be installed."),
        ("SelLocalLocal", "It stays installed."),
        ("SelLocalAbsent", "It will be removed."),
        ("SelChildCostPos", "It needs [1] on the disk."),
        ("SelChildCostNeg", "It frees [1] on the disk."),
        ("SelParentCostPosPos", "It needs [1]; [2] of [3] parts are chosen, which need [4]."),
        ("SelParentCostPosNeg", "It needs [1]; [2] of [3] parts are chosen, which free [4]."),
        ("SelParentCostNegPos", "It frees [1]; [2] of [3] parts are chosen, which need [4]."),
        ("SelParentCostNegNeg", "It frees [1]; [2] of [3] parts are chosen, which free [4]."),
        ("SelCostPending", "The room that is needed is being counted."),
        ("VolumeCostVolume", "Disk"),
        ("VolumeCostSize", "Size"),
        ("VolumeCostAvailable", "Free"),
        ("VolumeCostRequired", "Needed"),
        ("VolumeCostDifference", "Left"),
        ("TimeRemaining", "{[1] minutes }{[2] seconds}"),
    ):
        database.add("UIText", key, text)
    for action, text in (
        ("CostFinalize", "Counting the room that is needed"),
        ("InstallValidate", "Checking what is installed"),
        ("InstallFiles", "Writing files"),
        ("RemoveFiles", "Removing files"),
        ("RemoveExistingProducts", "Removing the earlier version"),
        ("WriteRegistryValues", "Registering"),
        ("RemoveRegistryValues", "Removing the registration"),
        ("CreateShortcuts", "Writing the Start menu"),
        ("RemoveShortcuts", "Tidying the Start menu"),
        ("RegisterProduct", "Entering it in the list of programs"),
        ("Rollback", "Putting everything back as it was"),
    ):
        database.add("ActionText", action, text)
