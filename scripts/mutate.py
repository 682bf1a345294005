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
PRISTINE = WORK / "0"
PRESETS = ("native", "release")
FOLDERS = (
    "foundation collection internet ui connection update service server tools".split()
)
# On a machine with nothing else to do, what must come comes soon.
ENVIRONMENT = {**os.environ, "VELT_FUZZ_RUNS": "2000", "VELT_WAIT_LIMIT_MS": "20000"}
# They compile the product once more, or pack it: no edit fails in them first.
LEFT_OUT = re.compile(r"reproducible|package|check_kit|^test_main$|^lint")
KEPT = ROOT / "tests/mutants"
SAME = KEPT / "same_program.txt"
BUILD_LIMIT = 1200  # seconds
PACKED = {"native": (), "release": ("packed",)}  # what tests start without naming it


@dataclasses.dataclass
class Test:
    preset: str
    name: str
    programs: list  # below the preset's build folder; none when it is a script's own affair
    sources: set  # that its programs are made of, and what they start
    file: str = ""  # the one whose cases are run, without its extension; all cases when empty
    seconds: float = 0  # without an edit; 0 when it was never run

    def __str__(self):
        return f"{self.preset} {self.name} {self.file}".rstrip()

    def limit(self):
        """In seconds, beside the judging of other edits."""
        return 60 + 4 * self.seconds if self.seconds else 1200


class Failure(Exception):
    pass


class Process:
    """A command with all that it starts, in a group of its own."""

    running = set()

    def __init__(self, command, cwd, log=os.devnull, options=""):
        environment = {**ENVIRONMENT, "VELT_TEST_OPTIONS": options}
        with open(log, "wb") as output:
            self.process = subprocess.Popen(
                command, cwd=cwd, env=environment, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                start_new_session=True,
            )  # fmt: skip
        Process.running.add(self)

    def code(self, limit):
        """The exit code; None when the limit of time was over."""
        try:
            return self.process.wait(limit)
        except subprocess.TimeoutExpired:
            return None
        finally:
            self.end()

    def end(self):
        """What it started may tidy up first."""
        for sign in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(self.process.pid, sign)
                self.process.wait(20)
            except subprocess.TimeoutExpired:
                continue
            except ProcessLookupError:
                pass
        self.process.wait()
        Process.running.discard(self)


def end_at_once(number, _):
    """For a signal: nothing that was started stays; what was found is kept already."""
    for process in list(Process.running):
        process.end()
    os._exit(128 + number)


def known_same():
    """The keys of edits that no test can notice; the file says why."""
    lines = SAME.read_text(encoding="utf-8").splitlines()
    return {line for line in lines if line.startswith("src/")}


def copy(source, target):
    """Of a tree and what the tests need of its builds, so that both are the same; copies what differs."""
    builds = [*PRESETS, "catch2", "wine", "wine/template-*"]
    filters = ["- /build/*/prefixes", *(f"+ /build/{name}" for name in builds), "- /build/wine/*", "- /build/*"]
    target.mkdir(parents=True, exist_ok=True)
    subprocess.run(["rsync", "--archive", "--delete", *(f"--filter={rule}" for rule in filters),
                    f"{source}/", f"{target}/"], check=True)  # fmt: skip


class Tree:
    """A copy of the work tree with its builds. What runs in it sees it at the work tree's own place, so
    that what was built there need not be built once more."""

    def __init__(self, number):
        self.root = WORK / str(number)
        self.log = WORK / f"{number}.log"
        copy(PRISTINE, self.root)
        self.objects = {}  # their contents' digests, without an edit
        for preset in PRESETS:
            self.objects.update(self._digests(preset, 0))

    def _process(self, command, log, options=""):
        rights = [] if os.geteuid() == 0 else ["--map-root-user"]
        return Process(["unshare", "--mount", *rights, "bash", "-c",
                        'mount --bind "$0" "$1" && cd "$1" && exec "${@:2}"',
                        self.root, ROOT, *command], ROOT, log, options)  # fmt: skip

    def _digests(self, preset, since):
        """Of the objects that were compiled since then, without what debuggers read."""
        digests = {}
        build = self.root / "build" / preset
        for path in build.rglob("*.o*"):
            if path.suffix in (".o", ".obj") and path.stat().st_mtime >= since:
                stripped = WORK / f"{self.root.name}.stripped"
                subprocess.run(["objcopy", "--strip-debug", path, stripped], check=True)
                digests[preset, path.relative_to(build)] = hashlib.sha256(stripped.read_bytes()).digest()
        return digests

    def _log(self, test):
        return f"{self.log}.{str(test).replace(' ', '-')}"

    def passes(self, tests):
        """Starts as many at a time as there are processors; names the first that fails, or None."""
        left = list(tests)
        running = {}  # by what CTest knows them by: two parts of one would share a prefix
        try:
            while left or running:
                for test in list(left):
                    if len(running) == os.cpu_count():
                        break
                    if (test.preset, test.name) in running:
                        continue
                    left.remove(test)
                    command = ["scripts/loopback_only.sh", "ctest", "--test-dir", f"build/{test.preset}",
                               "--output-on-failure", "-R", f"^{re.escape(test.name)}$"]  # fmt: skip
                    options = f"--abort -# [#{test.file}]~[.]" if test.file else ""
                    process = self._process(command, self._log(test), options)
                    running[test.preset, test.name] = (test, process, time.monotonic())
                for test, process, begin in list(running.values()):
                    code = process.process.poll()
                    seconds = time.monotonic() - begin
                    if code is None and seconds < test.limit():
                        continue
                    del running[test.preset, test.name]
                    process.end()
                    if code != 0:
                        # Stays when the test passes again: that it failed may have been the test's fault.
                        os.replace(self._log(test), f"{self._log(test)}.failed")
                        return f"{test}" + (", not ended" if code is None else "")
                    test.seconds = test.seconds or seconds
                time.sleep(0.05)
            return None
        finally:
            for _, process, _ in running.values():
                process.end()

    def outcome(self, mutant, tests):
        """What becomes of the edit, and which test noticed it."""
        path = self.root / mutant.path
        text = path.read_text(encoding="utf-8")
        path.write_text(mutant.apply(text), encoding="utf-8")
        try:
            differs = False
            for preset in PRESETS:
                mine = [test for test in tests if test.preset == preset]
                begin = time.time()
                targets = sorted({program for test in mine for program in test.programs})
                build = ["cmake", "--build", "--preset", preset, "--target", *targets, *PACKED[preset]]
                if self._process(build, self.log).code(BUILD_LIMIT) != 0:
                    return "not compiled", ""
                changed = [
                    source_of(preset, name)
                    for (_, name), digest in self._digests(preset, begin).items()
                    if self.objects.get((preset, name)) != digest
                ]
                if not changed:
                    continue
                differs = True
                concerned = [test for test in mine if not test.sources or test.sources.intersection(changed)]
                failed = self.passes(likely_first(concerned, mutant.path, noticed(mutant.folder)))
                if failed:
                    return "killed", failed
            return ("survived" if differs else "same program"), ""
        finally:
            copy(PRISTINE, self.root)


def source_of(preset, name):
    """What an object is compiled from, named as the tests' sources are."""
    folders = [
        ".." if part == "__" else part
        for part in name.parts[:-1]
        if part != "CMakeFiles" and not part.endswith(".dir")
    ]
    if "Unity" in folders:  # made by the build
        return ROOT / "build" / preset / name.with_suffix("")
    return pathlib.Path(os.path.normpath(pathlib.Path(ROOT, *folders, name.stem)))


def tests_of(folder):
    """Those with the label, without those that CTest runs before another that needs what they leave."""
    found = []
    prepared = set()
    for preset in PRESETS:
        build = ROOT / "build" / preset
        listed = subprocess.run(
            ["ctest", "--test-dir", build, "-L", f"^{folder}$", "--show-only=json-v1"],
            check=True, capture_output=True,
        )  # fmt: skip
        for test in json.loads(listed.stdout)["tests"]:
            properties = {entry["name"]: entry["value"] for entry in test["properties"]}
            for fixture in properties.get("FIXTURES_REQUIRED", ()):
                prepared.add((preset, fixture))
            if LEFT_OUT.search(test["name"]):
                continue
            programs = [
                str(pathlib.Path(word).relative_to(build))
                for word in test["command"]
                if word.startswith(f"{build}/") and pathlib.Path(word).is_file() and os.access(word, os.X_OK)
            ]
            sources = set()
            if programs:
                inputs = subprocess.run(
                    ["ninja", "-C", build, "-t", "inputs", *programs],
                    check=True, capture_output=True, text=True,
                )  # fmt: skip
                sources = {pathlib.Path(line) for line in inputs.stdout.splitlines()}
            fixtures = {(preset, fixture) for fixture in properties.get("FIXTURES_SETUP", ())}
            files = [""]
            if f"{ROOT}/scripts/to_its_end.sh" in test["command"]:
                files = test_files(sources) or files
            found += [(fixtures, Test(preset, test["name"], programs, sources, file)) for file in files]
    return [test for fixtures, test in found if not fixtures & prepared]


def test_files(sources):
    """Those with test cases, without extension; sources that are compiled together count one by one."""
    stems = set()
    for source in sources:
        names = [source]
        if source.parent.name == "Unity" and source.suffix == ".cxx":
            names = map(pathlib.Path, re.findall(r'#include "(.*)"', source.read_text()))
        stems |= {name.stem for name in names if name.name.endswith("_test.cpp")}
    return sorted(stems)


def time_tests(tree, folder, tests):
    """Without an edit each must pass by itself; what was measured is kept."""
    kept = WORK / "seconds.json"
    known = json.loads(kept.read_text()) if kept.exists() else {}
    for test in tests:
        test.seconds = known.get(str(test), 0)
    left = [test for test in tests if not test.seconds]
    if left:
        print(f"timing the tests of {folder}", flush=True)
        failed = tree.passes(left)
        known.update({str(test): test.seconds for test in left if test.seconds})
        kept.write_text(json.dumps(known))
        if failed:
            raise Failure(f"fails without an edit: {failed}")


def noticed(folder):
    """How often each test has noticed an edit of the folder, by whatever seed."""
    count = collections.Counter()
    for kept in KEPT.glob("*.jsonl"):
        for line in kept.read_text().splitlines():
            result = json.loads(line)
            if result["path"].split("/")[1] == folder:
                count[result["by"].split(",")[0]] += 1
    return count


def likely_first(tests, path, count):
    """By what they take for what they may notice: by their names, and by how often they noticed before."""

    def words(stem):
        """How each begins: "registered" and "registration" are alike."""
        return {word[:4] for word in stem.split("_")}

    def cost(test):
        names = {str(test), f"{test.preset} {test.name}"}  # the latter before its files ran one by one
        alike = len(words(pathlib.Path(path).stem) & words(test.file))
        return test.seconds / (1 + sum(count[name] for name in names)) / (1 + 3 * alike)

    return sorted(tests, key=cost)


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

    # Those that survived were chosen of all folders.
    chosen = mutants.choose(ROOT, FOLDERS if options.survivors else options.folders, options.count, options.seed)
    WORK.mkdir(parents=True, exist_ok=True)
    kept = KEPT / f"{options.seed}.jsonl"
    known = {}
    for line in kept.read_text().splitlines() if kept.exists() else ():
        result = json.loads(line)
        known[result["key"]] = result
    same = known_same()
    for mutant in chosen:
        if mutant.key in same:
            known[mutant.key] = {"key": mutant.key, "path": mutant.path, "outcome": "same program", "by": "",
                                 "seconds": 0}  # fmt: skip
    results, left = [], []
    for mutant in chosen:
        result = known.get(mutant.key)
        if options.survivors:
            again = result and result["outcome"] == "survived" and mutant.folder in options.folders
        else:
            again = not result
        if again:
            left.append(mutant)
        elif result:
            results.append({**result, "mutant": str(mutant)})
    print(f"{len(chosen)} edits, {len(results)} of them done; results in {kept}", flush=True)

    for preset in PRESETS:
        print(f"building: {preset} tests", flush=True)
        build = Process(["bash", "-c", f". scripts/common.sh; velt_build {preset} tests"], ROOT, WORK / "log")
        if build.code(BUILD_LIMIT * 3) != 0:
            raise Failure(f"not built; see {WORK}/log")
    print(f"copying to {WORK}", flush=True)
    copy(ROOT, PRISTINE)
    trees = queue.SimpleQueue()
    for number in range(1, options.workers + 1):
        trees.put(Tree(number))
    tree = trees.get()
    tests = {}
    for folder in sorted({mutant.folder for mutant in left}):
        tests[folder] = tests_of(folder)
        time_tests(tree, folder, tests[folder])
    trees.put(tree)

    def judge(mutant):
        tree = trees.get()
        try:
            begin = time.monotonic()
            outcome, by = tree.outcome(mutant, tests[mutant.folder])
            seconds = round(time.monotonic() - begin)
            return mutant, {"key": mutant.key, "path": mutant.path, "outcome": outcome, "by": by,
                            "seconds": seconds}  # fmt: skip
        finally:
            trees.put(tree)

    with concurrent.futures.ThreadPoolExecutor(options.workers) as pool, open(kept, "a") as keep:
        for done in concurrent.futures.as_completed([pool.submit(judge, mutant) for mutant in left]):
            mutant, result = done.result()
            keep.write(json.dumps(result) + "\n")
            keep.flush()
            results.append({**result, "mutant": str(mutant)})
            print(f"{result['outcome']:12} {result['seconds']:5} s  {mutant}  {result['by']}", flush=True)
    print(report(results, sum(result["seconds"] for result in results) / options.workers))


if __name__ == "__main__":
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, end_at_once)
    try:
        main()
    except Failure as failure:
        sys.exit(f"mutate.sh: {failure}")
