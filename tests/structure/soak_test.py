#!/usr/bin/env python3
"""That the verdict of a long run finds what grows, and nothing else."""

import pathlib
import random
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import soak  # noqa: E402

STEADY = {
    "private": 40_000_000, "heap_pages": 500_000, "heap": 400_000, "blocks": 900, "handles": 60, "gdi": 40, "windows": 3
}  # fmt: skip


def lines_of(count=60, step=4_000, **columns):
    """Lines of a process: what a column's function says of the place, and of what was done."""
    lines = []
    for place in range(count):
        line = {"time": 60.0 * place, "operations": float(place * step), "faults": 0.0}
        line.update({key: float(value) for key, value in STEADY.items()})
        line.update({key: float(value(place, place * step)) for key, value in columns.items()})
        line.update({"slowest_ms": 1.0, "slowest": "room: name"})
        lines.append(line)
    return lines


def verdicts(lines):
    return {quantity.key: verdict for quantity, _, verdict in soak.judge(lines)}


class Verdicts(unittest.TestCase):
    def test_what_stays_holds(self):
        self.assertEqual(set(verdicts(lines_of()).values()), {"holds"})

    def test_a_leak_is_found(self):
        for key, each in (("handles", 50_000), ("heap", 80), ("blocks", 50_000), ("gdi", 50_000)):
            with self.subTest(key):
                lines = lines_of(**{key: lambda place, done: 60 + done // each})
                self.assertEqual(verdicts(lines).pop(key), "grows")

    def test_a_leak_below_the_budget_is_none(self):
        lines = lines_of(heap=lambda place, done: 400_000 + done // 200)  # 500 bytes
        self.assertEqual(verdicts(lines)["heap"], "holds")

    def test_a_leak_is_found_in_noise(self):
        noise = random.Random(1)
        lines = lines_of(heap=lambda place, done: 400_000 + done // 10 + noise.gauss(0, 2_000))
        self.assertEqual(verdicts(lines)["heap"], "grows")
        (slope,) = [slope for quantity, slope, _ in soak.judge(lines) if quantity.key == "heap"]
        self.assertLess(slope.low, 10_000)
        self.assertGreater(slope.high, 10_000)

    def test_noise_alone_is_no_growth(self):
        for seed in range(50):
            noise = random.Random(seed)
            lines = lines_of(
                heap=lambda place, done: 400_000 + noise.gauss(0, 20_000),
                handles=lambda place, done: 60 + noise.randrange(5),
            )
            self.assertNotIn("grows", verdicts(lines).values())

    def test_what_much_noise_may_hide_is_open(self):
        noise = random.Random(2)
        lines = lines_of(heap=lambda place, done: 400_000 + noise.gauss(0, 20_000))
        self.assertEqual(verdicts(lines)["heap"], "open")

    def test_a_step_at_the_start_is_warming_up(self):
        lines = lines_of(
            heap=lambda place, done: 400_000 + min(place, 5) * 50_000,
            handles=lambda place, done: 60 + min(place, 9),
        )
        self.assertEqual(set(verdicts(lines).values()), {"holds"})

    def test_a_single_peak_is_no_growth(self):
        lines = lines_of(heap=lambda place, done: 400_000 + (place == 50) * 1_000_000)
        self.assertEqual(verdicts(lines)["heap"], "holds")

    def test_a_few_lines_say_nothing(self):
        self.assertEqual(set(verdicts(lines_of(count=5)).values()), {"open"})

    def test_what_goes_down_holds(self):
        lines = lines_of(handles=lambda place, done: 600 - place)
        self.assertEqual(verdicts(lines)["handles"], "holds")


class Ends(unittest.TestCase):
    def test_a_process_that_ended_early_is_named(self):
        run = {
            ("four", "1"): lines_of(count=60),
            ("four", "2"): lines_of(count=3),
            ("one", "viewer"): lines_of(count=52),
        }
        self.assertEqual(soak.ended_early(run), ["four: 2"])


class Files(unittest.TestCase):
    def test_the_viewer_counts_all_operations(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "four").mkdir()
            columns = list(lines_of(count=1)[0])
            columns.insert(1, "process")
            for process, count in (("process-1", 3), ("process-2", 3), ("viewer", 2)):
                with open(folder / "four" / f"{process}.csv", "w") as file:
                    file.write(",".join(columns) + "\n")
                    for line in lines_of(count=count):
                        line["process"] = process
                        line["time"] += 30 * (process == "viewer")
                        file.write(",".join(f'"{line[column]}"' for column in columns) + "\n")
            run = soak.load(folder)
            self.assertEqual([key[1] for key in run], ["1", "2", "viewer"])
            done = [line["operations"] for line in run["four", "viewer"]]
            self.assertEqual(done, [4_000.0, 12_000.0])
            text, grown, undecided = soak.table(run)
            self.assertEqual(grown, [])
            self.assertTrue(undecided)


if __name__ == "__main__":
    unittest.main()
