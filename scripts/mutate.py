"""The work of mutate.sh, which says what it does."""

import argparse
import collections
import concurrent.futures
import dataclasses
import hashlib
import json
import os
import pathlib
import queue
import re
import signal
import subprocess
import sys
import time

import mutants

ROOT = pathlib.Path(__file__).resolve().parents[1]
WORK = ROOT / "build/mutants"
PRESETS = ("native", "release")
FOLDERS = (
    "foundation collection internet ui connection update service server tools".split()
)
# They compile the product once more, or pack it: no edit fails in them first.
LEFT_OUT = re.compile(r"reproducible|package|check_kit|^test_main$|^fuzz_|^lint")
BUILD_LIMIT = 1200  # seconds
OUTCOMES = ("killed", "survived", "same program", "not compiled")


@dataclasses.dataclass
class Test:
    preset: str
    name: str
    seconds: float  # without an edit


class Failure(Exception):
    pass


def run(command, cwd, limit, log=None):
    """The exit code; None when the limit of time was over. What it started ends with it."""
    with open(log or os.devnull, "wb") as output:
        process = subprocess.Popen(
            command, cwd=cwd, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
            start_new_session=True,
        )  # fmt: skip
        try:
            return process.wait(limit)
        except subprocess.TimeoutExpired:
            return None
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()


class Tree:
    """A copy of the work tree, with builds of its own."""

    def __init__(self, number):
        self.root = WORK / str(number)
        self.log = WORK / f"{number}.log"
        self.objects = {}  # their contents' digests, without an edit

    def prepare(self):
        self.root.mkdir(parents=True, exist_ok=True)
        self._must("rsync", "--archive", "--no-times", "--checksum", "--delete",
                   "--exclude=/build", f"{ROOT}/", f"{self.root}/")  # fmt: skip
        for preset in PRESETS:
            self._must("cmake", "--preset", preset)
            self._must("cmake", "--build", "--preset", preset, "--target", "tests")
            self.objects.update(self._digests(preset, 0))

    def _must(self, *command):
        if run(command, self.root, BUILD_LIMIT * 3, self.log) != 0:
            raise Failure(f"failed: {' '.join(command)} (see {self.log})")

    def _digests(self, preset, since):
        """Of the objects that were compiled since then, without what debuggers read."""
        digests = {}
        for path in (self.root / "build" / preset).rglob("*.o*"):
            if path.suffix in (".o", ".obj") and path.stat().st_mtime >= since:
                stripped = WORK / f"{self.root.name}.stripped"
                subprocess.run(["objcopy", "--strip-debug", path, stripped], check=True)
                digests[path] = hashlib.sha256(stripped.read_bytes()).digest()
        return digests

    def tests(self, folder):
        """Those with the label, quick ones first; each must pass without an edit."""
        found = []
        for preset in PRESETS:
            listed = subprocess.run(
                ["ctest", "--test-dir", f"build/{preset}", "-L", f"^{folder}$", "--show-only=json-v1"],
                cwd=self.root, check=True, capture_output=True,
            )  # fmt: skip
            for test in json.loads(listed.stdout)["tests"]:
                if not LEFT_OUT.search(test["name"]):
                    found.append(Test(preset, test["name"], 0))
        for test in found:
            begin = time.monotonic()
            if not self.passes(test, 1200):
                raise Failure(f"fails without an edit: {test.preset} {test.name}")
            test.seconds = time.monotonic() - begin
        return sorted(found, key=lambda test: test.seconds)

    def passes(self, test, limit):
        command = ["scripts/loopback_only.sh", "ctest", "--test-dir", f"build/{test.preset}",
                   "--output-on-failure", "-R", f"^{re.escape(test.name)}$"]  # fmt: skip
        return run(command, self.root, limit, self.log) == 0

    def outcome(self, mutant, tests):
        """What becomes of the edit, and which test noticed it."""
        path = self.root / mutant.path
        text = path.read_text(encoding="utf-8")
        path.write_text(mutant.apply(text), encoding="utf-8")
        try:
            differs = False
            for preset in PRESETS:
                begin = time.time()
                build = ["cmake", "--build", "--preset", preset, "--target", "tests"]
                if run(build, self.root, BUILD_LIMIT, self.log) != 0:
                    return "not compiled", ""
                changed = self._digests(preset, begin)
                if all(self.objects.get(name) == digest for name, digest in changed.items()):
                    continue
                differs = True
                for test in tests:
                    if test.preset == preset and not self.passes(test, 60 + 6 * test.seconds):
                        return "killed", f"{test.preset} {test.name}"
            return ("survived" if differs else "same program"), ""
        finally:
            path.write_text(text, encoding="utf-8")


def report(results, seconds):
    """A table in Markdown, and the survivors."""
    lines = ["| folder | edits | not compiled | same program | killed | survived | score |",
             "|---|---|---|---|---|---|---|"]  # fmt: skip

    def row(name, of):
        count = collections.Counter(result["outcome"] for result in of)
        judged = count["killed"] + count["survived"]
        score = f"{100 * count['killed'] / judged:.0f} %" if judged else ""
        lines.append(f"| {name} | {len(of)} | {count['not compiled']} | {count['same program']} "
                     f"| {count['killed']} | {count['survived']} | {score} |")  # fmt: skip

    folders = collections.defaultdict(list)
    for result in results:
        folders[result["path"].split("/")[1]].append(result)
    for folder in FOLDERS:
        if folder in folders:
            row(f"`{folder}`", folders[folder])
    row("the component", [r for r in results if not r["path"].startswith("src/tools/")])
    row("all", results)
    lines += ["", f"{seconds / 60:.0f} minutes of work. Survivors:", ""]
    lines += [f"- `{result['mutant']}`" for result in results if result["outcome"] == "survived"]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(prog="mutate.sh")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--workers", type=int, default=os.cpu_count())
    parser.add_argument("--survivors", action="store_true")
    parser.add_argument("folders", nargs="*", metavar="folder", default=FOLDERS)
    options = parser.parse_args()
    for folder in options.folders:
        if folder not in FOLDERS:
            parser.error(f"no folder of code: {folder}")

    chosen = mutants.choose(ROOT, options.folders, options.count, options.seed)
    WORK.mkdir(parents=True, exist_ok=True)
    kept = WORK / f"results-{options.seed}.jsonl"
    known = {}
    for line in kept.read_text().splitlines() if kept.exists() else ():
        result = json.loads(line)
        known[result["key"]] = result
    results, left = [], []
    for mutant in chosen:
        result = known.get(mutant.key)
        if result and not (options.survivors and result["outcome"] == "survived"):
            results.append({**result, "mutant": str(mutant)})
        else:
            left.append(mutant)
    print(f"{len(chosen)} edits, {len(results)} of them done; results in {kept}", flush=True)

    os.environ["CMAKE_BUILD_PARALLEL_LEVEL"] = str(max(1, os.cpu_count() // options.workers))
    trees = queue.SimpleQueue()
    for number in range(1, options.workers + 1):
        tree = Tree(number)
        print(f"building: {tree.root}", flush=True)
        tree.prepare()
        trees.put(tree)
    tests = {}
    for folder in sorted({mutant.path.split("/")[1] for mutant in left}):
        print(f"timing the tests of {folder}", flush=True)
        tests[folder] = tree.tests(folder)

    def judge(mutant):
        tree = trees.get()
        try:
            begin = time.monotonic()
            outcome, by = tree.outcome(mutant, tests[mutant.path.split("/")[1]])
            return {"mutant": str(mutant), "key": mutant.key, "path": mutant.path, "outcome": outcome, "by": by,
                    "seconds": time.monotonic() - begin}  # fmt: skip
        finally:
            trees.put(tree)

    with concurrent.futures.ThreadPoolExecutor(options.workers) as pool, open(kept, "a") as keep:
        for result in pool.map(judge, left):
            keep.write(json.dumps(result) + "\n")
            keep.flush()
            results.append(result)
            print(f"{result['outcome']:12} {result['seconds']:5.0f} s  {result['mutant']}  {result['by']}",
                  flush=True)  # fmt: skip
    print(report(results, sum(result["seconds"] for result in results) / options.workers))


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"mutate.sh: {failure}")
