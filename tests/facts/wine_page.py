#!/usr/bin/env python3
"""Makes the table of docs/wine.md from the list of facts, and keeps the list.

    wine_page.py --write                 the page
    wine_page.py --check                 whether the page and the list are up to date and agree
    wine_page.py --fill <report.json>... the list's column of the Wine that reports of facts.exe are
                                         of; reports of both editions together. Then the page.
"""

import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIST = ROOT / "tests/facts/facts.txt"
PAGE = ROOT / "docs/wine.md"
OTHER_PAGE = ROOT / "docs/windows.md"
BEGIN = "<!-- made by tests/facts/wine_page.py of tests/facts/facts.txt -->"
END = "<!-- end -->"
VERSIONS = {"wine8": "8.0", "wine10": "10.0"}
NOT_YET = "not yet run"


def read_list():
    entries = {}
    for number, line in enumerate(LIST.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        head = re.fullmatch(r"\[([a-z0-9.-]+)\]", line)
        if head:
            if head[1] in entries:
                sys.exit(f"{LIST.name}:{number}: {head[1]} stands twice")
            fields = entries[head[1]] = {}
            continue
        name, divided, text = line.partition(": ")
        if not divided or name in fields:
            sys.exit(f"{LIST.name}:{number}: no field, or twice: {line}")
        fields[name] = text
    return entries


def is_one_of(answer, column):
    return answer in column.split(" | ")


def failures_of(identifier, fields):
    """What an entry lacks, and where what was seen contradicts the page."""
    wanted = {"what", "windows"}
    wanted |= {"unasked"} if "unasked" in fields else {"expect", "source", "wine8", "wine10", "do"}
    if "wine" in fields:
        wanted |= {"seen", "do"}
    yield from (f"{identifier}: {name} is missing" for name in sorted(wanted - set(fields)))
    yield from (f"{identifier}: {name} is not wanted"
                for name in sorted(set(fields) - wanted - {"wine", "seen", "do"}))
    if "unasked" in fields or wanted - set(fields):
        return
    for column, version in VERSIONS.items():
        answers = fields[column].split(" | ")
        if answers == [NOT_YET]:
            continue
        differs = [not is_one_of(answer, fields["expect"]) for answer in answers
                   if not answer.startswith("not asked")]
        seen = version in fields.get("seen", "")
        if differs and all(differs) and not seen:
            yield f"{identifier}: differs under {version}, and the page does not say so"
        if differs and not any(differs) and seen:
            yield f"{identifier}: as expected under {version}, and the page says otherwise"


def table(entries):
    lines = ["| fact | what | on Windows | under Wine | seen in | what we do |",
             "|---|---|---|---|---|---|"]
    for identifier, fields in entries.items():
        if "wine" in fields:
            cells = [f"`{identifier}`"] + [fields[name] for name in
                                           ("what", "windows", "wine", "seen", "do")]
            lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def page(entries):
    text = PAGE.read_text(encoding="utf-8")
    before, _, rest = text.partition(BEGIN)
    _, ended, after = rest.partition(END)
    if not ended:
        sys.exit(f"{PAGE.name} has no place for the table")
    return f"{before}{BEGIN}\n\n{table(entries)}\n\n{END}{after}"


def fill(entries, reports):
    seen = {}
    for report in reports:
        found = json.loads(pathlib.Path(report).read_text(encoding="utf-8"))
        version = re.match(r"Wine (\d+)", found["system"])
        column = f"wine{version[1]}" if version else ""
        if column not in VERSIONS:
            sys.exit(f"{report} is of {found['system']}, which has no column")
        for fact in found["facts"]:
            answers = seen.setdefault((fact["id"], column), [])
            if fact["seen"] not in answers:
                answers.append(fact["seen"])
    text = LIST.read_text(encoding="utf-8")
    for (identifier, column), answers in seen.items():
        fields = entries.get(identifier)
        if not fields or "unasked" in fields:
            continue
        known = fields[column].split(" | ")
        if set(answers) <= set(known):
            continue
        # Of what is known, only what depends on the edition or the moment stays.
        if len(known) > 1:
            answers = known + [answer for answer in answers if answer not in known]
        print(f"{identifier}: {fields[column]} -> {' | '.join(answers)}")
        entry = re.search(rf"^\[{re.escape(identifier)}\]\n(?:.+\n)*", text, re.MULTILINE)
        changed = re.sub(rf"^{column}: .*$", lambda _: f"{column}: {' | '.join(answers)}",
                         entry[0], flags=re.MULTILINE)
        text = text[:entry.start()] + changed + text[entry.end():]
    LIST.write_text(text, encoding="utf-8")


def main():
    command, reports = (sys.argv[1:2] or [""])[0], sys.argv[2:]
    entries = read_list()
    if command == "--fill" and reports:
        fill(entries, reports)
        entries = read_list()
    elif command not in ("--write", "--check") or reports:
        sys.exit(__doc__)
    failures = [failure for identifier, fields in entries.items()
                for failure in failures_of(identifier, fields)]
    if OTHER_PAGE.exists():
        themes = "|".join({identifier.partition(".")[0] for identifier in entries})
        named = re.findall(rf"`((?:{themes})\.[a-z0-9-]+)`", OTHER_PAGE.read_text(encoding="utf-8"))
        failures += [f"{OTHER_PAGE.name} names {name}, which is no fact" for name in named
                     if name not in entries]
    made = page(entries)
    if command == "--check" and made != PAGE.read_text(encoding="utf-8"):
        failures.append(f"{PAGE.name} is not up to date: wine_page.py --write")
    elif command != "--check":
        PAGE.write_text(made, encoding="utf-8")
    print("\n".join(failures) or f"ok: {len(entries)} facts")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
