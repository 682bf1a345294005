#!/usr/bin/env python3
"""Which edits are made of a text, that nothing else is touched, and which tests they concern."""

import collections
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import mutants  # noqa: E402
import mutate  # noqa: E402


def edits(text):
    found = []
    for mutant in mutants.mutants_of("src/a.cpp", text):
        edited = mutant.apply(text)
        assert edited != text
        found.append(edited)
    return found


class Edits(unittest.TestCase):
    def test_operators_are_swapped(self):
        for old, new in mutants.SWAPS.items():
            if not old[0].isalpha() and old not in ("++", "--"):
                self.assertEqual(edits(f"return a {old} b;"), [f"return a {new} b;"])

    def test_steps(self):
        self.assertEqual(edits("return ++a;"), ["return --a;"])
        self.assertEqual(edits("f(a--, b);"), ["f(a++, b);"])

    def test_words(self):
        self.assertEqual(edits("return true;"), ["return false;"])
        self.assertEqual(edits("        break;"), ["        ;"])

    def test_negations(self):
        self.assertEqual(edits("return !a;"), ["return a;"])

    def test_numbers(self):
        self.assertEqual(edits("return 9;"), ["return 10;"])
        self.assertEqual(edits("return 0x10 + b2;"), ["return 0x10 - b2;"])

    def test_conditions(self):
        self.assertEqual(edits("    if (a.b())\n"), ["    if (!(a.b()))\n"])

    def test_statements(self):
        self.assertEqual(edits("    a->b(c);\n    d = e;\n"), ["    ;\n    d = e;\n", "    a->b(c);\n    ;\n"])
        self.assertEqual(edits('    a("1 + 2");\n'), ["    ;\n"])
        self.assertEqual(edits("    const A b = c;\n    return f(a);\n    A b(c);\n"), [])

    def test_what_is_no_code_stays(self):
        for text in (
            "// a + b",
            "/* a + b\n 1 */",
            'f("a + b")',
            'R"(1 + 2)"',
            "#if A + 1\n",
            "template <int a = 1>\n",
            "[[nodiscard(1)]]",
            "    virtual void f() = 0;\n",
            "vector<A> b;",
            "A* b;",
            "void f(A&& b);",
        ):
            self.assertEqual(edits(text), [], text)

    def test_a_character_is_no_text(self):
        self.assertEqual(edits("return a == '\"' || b;"), ["return a != '\"' || b;", "return a == '\"' && b;"])

    def test_the_place(self):
        (mutant,) = mutants.mutants_of("src/a.cpp", "a;\nreturn b < c;\n")
        self.assertEqual(str(mutant), "src/a.cpp:2:10: < -> <=")


class Choice(unittest.TestCase):
    root = pathlib.Path(__file__).resolve().parents[2]

    def test_the_seed_decides(self):
        first = mutants.choose(self.root, ["foundation", "update"], 50, 1)
        self.assertEqual(first, mutants.choose(self.root, ["update", "foundation"], 50, 1))
        self.assertNotEqual(first, mutants.choose(self.root, ["foundation", "update"], 50, 2))
        self.assertEqual(len(set(map(str, first))), 50)
        self.assertEqual({m.path.split("/")[1] for m in first}, {"foundation", "update"})

    def test_edits_elsewhere_do_not_matter(self):
        line = "    return a < b;\n"
        (before,) = mutants.mutants_of("src/a.cpp", line)
        after = mutants.mutants_of("src/a.cpp", f"f(1);\n\n{line}{line}")
        self.assertIn(before.key, [mutant.key for mutant in after])
        self.assertEqual(len({mutant.key for mutant in after}), len(after))


class Concerned(unittest.TestCase):
    def test_what_an_object_is_compiled_from(self):
        for name, source in (
            ("src/ui/CMakeFiles/velt_ui.dir/skin.cpp.obj", "src/ui/skin.cpp"),
            ("src/tools/CMakeFiles/velt.dir/velt/main.cpp.o", "src/tools/velt/main.cpp"),
            ("tests/server/CMakeFiles/other.dir/__/__/src/server/a.cpp.obj", "src/server/a.cpp"),
            ("tests/ui/CMakeFiles/ui_checks.dir/Unity/unity_0_cxx.cxx.obj",
             "build/release/tests/ui/CMakeFiles/ui_checks.dir/Unity/unity_0_cxx.cxx"),
        ):  # fmt: skip
            self.assertEqual(mutate.source_of("release", pathlib.Path(name)), mutate.ROOT / source)

    def test_which_files_have_cases(self):
        with tempfile.TemporaryDirectory() as folder:
            unity = pathlib.Path(folder, "Unity/unity_0_cxx.cxx")
            unity.parent.mkdir()
            unity.write_text('#include "/a/b_test.cpp"\n#include "/a/viewer_input.cpp"\n')
            sources = {unity, pathlib.Path("/a/a_test.cpp"), pathlib.Path("/a/skin.cpp")}
            self.assertEqual(mutate.test_files(sources), ["a_test", "b_test"])

    def test_the_order(self):
        def test(file, seconds):
            return mutate.Test("release", "program", [], set(), file, seconds)

        tests = [test("quick_test", 3), test("other_test", 2), test("queue_manager_test", 9), test("slow_test", 4)]
        count = collections.Counter({"release program slow_test": 1})
        ordered = mutate.likely_first(tests, "src/connection/queue_manager.cpp", count)
        self.assertEqual([each.file.split("_")[0] for each in ordered], ["queue", "other", "slow", "quick"])


if __name__ == "__main__":
    unittest.main()
