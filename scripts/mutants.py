"""Mutants of the product's code: small wrong edits, each of which a test should notice.

They are found in the text, whose layout clang-format keeps: a binary operator stands between blanks,
brackets of templates and declarators of pointers do not.
"""

import collections
import dataclasses
import hashlib
import pathlib
import re

SWAPS = {
    "<": "<=",
    "<=": "<",
    ">": ">=",
    ">=": ">",
    "==": "!=",
    "!=": "==",
    "&&": "||",
    "||": "&&",
    "+": "-",
    "-": "+",
    "*": "/",
    "/": "*",
    "%": "/",
    "&": "|",
    "|": "&",
    "<<": ">>",
    ">>": "<<",
    "+=": "-=",
    "-=": "+=",
    "|=": "&=",
    "&=": "|=",
    "true": "false",
    "false": "true",
    "++": "--",
    "--": "++",
    "break;": ";",
    "continue;": ";",
}
OPERATOR = re.compile(r"(?<= )(<<|>>|[<>=!]=|&&|\|\||[-+|&]=|[-<>+*/%&|])(?= )")
STEP = re.compile(r"(?<![\w)\]])(\+\+|--)(?=[\w(*])|(?<=[\w)\]])(\+\+|--)(?=[;),])")
WORD = re.compile(r"\b(true|false|break;|continue;)")
NEGATION = re.compile(r"(?<=[( ])!(?=[\w(:*])")
NUMBER = re.compile(r"(?<![\w.'])\d+(?![\w.'])")
CONDITION = re.compile(r"(?<=\bif )\(([\w.:>()\[\]*-]+)\)$", re.MULTILINE)
# A call or an assignment that is a whole line: what is declared has a type before the name.
STATEMENT = re.compile(
    r"^ +((?:\*|::)?[A-Za-z_][\w.:>\[\]()-]*?(?:\(.*\)| (?:[-+|&])?= .*);)$", re.MULTILINE
)
LITERAL = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'""",
    re.DOTALL,
)
# What is no code that runs, or runs only while it is compiled.
LEFT_OUT = re.compile(
    r"^ *#(?:.*\\\n)*.*$|^ *static_assert\([^;]*;|^template <[^\n]*$|\[\[.*?\]\]"
    r"|\) (?:const )?(?:noexcept )?(?:override )?= 0;",
    re.MULTILINE,
)


@dataclasses.dataclass(frozen=True)
class Mutant:
    """One edit: what stands at an offset of a file becomes something else.

    The key names it by its line's text instead of the line's number: edits elsewhere leave it as it is.
    """

    path: str  # below the project's root
    offset: int  # in characters
    line: int  # from 1
    column: int  # from 1
    old: str
    new: str
    key: str

    @property
    def folder(self):
        """Below src/."""
        return self.path.split("/")[1]

    def apply(self, text):
        assert text.startswith(self.old, self.offset)
        return text[: self.offset] + self.new + text[self.offset + len(self.old) :]

    def __str__(self):
        return f"{self.path}:{self.line}:{self.column}: {self.old} -> {self.new or '(nothing)'}"


def blanked(text):
    """The text with blanks in place of all that is not code; offsets stay."""

    def blank(match):
        return re.sub(r"[^\n]", " ", match.group())

    def without_text(match):  # characters stay: they are numbers
        return match.group() if match.group()[0] == "'" else blank(match)

    return LEFT_OUT.sub(blank, LITERAL.sub(without_text, text))


def mutants_of(path, text):
    """All mutants of a file, in the order of their places."""
    code = blanked(text)
    found = []
    keys = collections.Counter()

    def add(offset, old, new):
        line = code.count("\n", 0, offset) + 1
        column = offset - code.rfind("\n", 0, offset)
        its_line = text.splitlines()[line - 1]
        within = column - (len(its_line) - len(its_line.lstrip()))
        key = f"{path}: {its_line.strip()} @{within} {old} -> {new}"
        keys[key] += 1
        found.append(Mutant(path, offset, line, column, old, new, f"{key} #{keys[key]}"))

    for pattern in (OPERATOR, WORD, STEP):
        for match in pattern.finditer(code):
            add(match.start(), match.group(), SWAPS[match.group()])
    for match in NEGATION.finditer(code):
        add(match.start(), "!", "")
    for match in NUMBER.finditer(code):
        add(match.start(), match.group(), str(int(match.group()) + 1))
    for match in CONDITION.finditer(code):
        add(match.start(), match.group(), f"(!{match.group()})")
    for match in STATEMENT.finditer(code):
        if not re.match(r"(return|throw|delete|using|case|if|for|while|switch|co_)\b", match.group(1)):
            old = text[match.start(1) : match.end(1)]
            add(match.start(1), old, ";")
    return sorted(found, key=lambda mutant: (mutant.offset, mutant.new))


def choose(root, folders, count, seed):
    """`count` mutants of all files of the folders, which are named below src/. The seed ranks each by
    its key, so that a change of the text changes the choice by as much only."""
    found = []
    for folder in sorted(folders):
        for path in sorted(pathlib.Path(root, "src", folder).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                name = path.relative_to(root).as_posix()
                found += mutants_of(name, path.read_text(encoding="utf-8"))
    return sorted(found, key=lambda mutant: rank(seed, mutant))[:count]


def rank(seed, mutant):
    return hashlib.sha256(f"{seed} {mutant.key}".encode()).digest()
