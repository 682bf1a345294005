#!/usr/bin/env python3
"""Follows the links of all documents below a folder that lead to files: each file is there, below the
folder too, and so is the headline that a link names.

    links_test.py <folder>
"""

import os
import pathlib
import re
import sys


def documents(root):
    """All but the one that is written for its place in the developer package. What is built is not
    looked at: whole systems lie there."""
    for folder, folders, names in os.walk(root):
        here = pathlib.Path(folder).relative_to(root)
        left_out = {"developer"} if here.parts == ("src", "installer") else {"build", ".git"}
        folders[:] = sorted(set(folders) - left_out)
        yield from (root / here / name for name in sorted(names) if name.endswith(".md"))


def prose(text):
    """Without blocks of code."""
    return re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)


def anchors(text):
    """The names of the headlines: in lower case, without marks, hyphens for blanks."""
    heads = re.findall(r"^#+ +(.*)$", prose(text), flags=re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", head.strip().lower()).replace(" ", "-") for head in heads}


def failures_of(document, root):
    text = document.read_text(encoding="utf-8")
    for target in re.findall(r"\]\(\s*([^)\s]+)\s*\)", prose(text)):
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        file = (document.parent / path).resolve() if path else document
        if not file.is_relative_to(root) or not file.exists():
            yield f"{target} is not there"
        elif anchor and anchor not in anchors(file.read_text(encoding="utf-8")):
            yield f"{target} names no headline"


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    found = list(documents(root))
    failures = [f"{document.relative_to(root)}: {failure}"
                for document in found for failure in failures_of(document, root)]
    print("\n".join(failures) or f"ok: {len(found)} documents")
    return 1 if failures or not found else 0


if __name__ == "__main__":
    sys.exit(main())
