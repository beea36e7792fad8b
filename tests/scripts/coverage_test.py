"""Proves on small exports that scripts/coverage counts each side once, and refuses what disagrees with the list."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

COVERAGE = pathlib.Path(sys.argv.pop(1))

SOURCE = """int sign(int value) {
  if (value < 0 || value > 9) {
    return 1;
  }
  for (int each : values) {
    use(each);
  }
  return 0;
}
"""
FILE = "platform/rom/rom_One.cpp"
LOW = (2, 7, 2, 16)
HIGH = (2, 20, 2, 29)
LOOP = (5, 17, 5, 18)
OTHERS = ("containers", "generated", "upgrade", "platform/rfm", "platform/dbc")  # with one branch each, all taken
HEADING = "| File | Function | Condition | Never | Reason |\n|---|---|---|---|---|\n"
BARS = r"| platform/rom/rom_One.cpp | sign | `value > 9` | both | no such value |" + "\n"


class Coverage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()
        self.functions = []
        self.others = list(OTHERS)
        self.write(FILE, SOURCE)
        self.keep("")

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def keep(self, rows):
        self.write("docs/uncovered-branches.md", "# Branches\n\n" + HEADING + rows)

    def kept(self):
        return (self.root / "docs/uncovered-branches.md").read_text(encoding="utf-8")

    def made(self, *branches, name="sign", file=FILE, start=1):
        """One instantiation: each branch is a place with the counts of its two sides."""
        return {
            "name": name,
            "filenames": [str(self.root / file)],
            "regions": [[start, 1, 9, 2, 1, 0, 0, 0]],
            "branches": [[*place, true, false, 0, 0, 4] for place, true, false in branches],
        }

    def function(self, *branches, **where):
        self.functions.append(self.made(*branches, **where))

    def measure(self, *options):
        taken_elsewhere = [self.made((LOW, 1, 1), name="other", file=f"{folder}/other.cpp") for folder in self.others]
        self.write("export.json", json.dumps({"data": [{"functions": self.functions + taken_elsewhere}]}))
        command = [COVERAGE, "--export", self.root / "export.json", "--root", self.root, *options]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def many_taken(self):
        """Enough taken branches elsewhere, so that the share is above the wanted one."""
        self.write("platform/rom/rom_Many.cpp", "x\n" * 100)
        self.function(*[((line, 1, line, 2), 1, 1) for line in range(1, 100)], name="many",
                      file="platform/rom/rom_Many.cpp")

    def accepted(self, *options):
        result = self.measure(*options)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def refused_with(self, *texts):
        result = self.measure()
        self.assertEqual(result.returncode, 1, result.stdout)
        for text in texts:
            self.assertIn(text, result.stderr)

    def test_what_is_all_taken_is_accepted(self):
        self.function((LOW, 3, 4), (HIGH, 1, 2))
        self.assertIn("coverage: 14 branches, 0 never taken", self.accepted())

    def test_a_side_that_is_never_taken_needs_a_row(self):
        self.many_taken()
        self.function((LOW, 0, 4))
        self.refused_with("platform/rom/rom_One.cpp:2: sign: 'value < 0' is never true, and no row")

    def test_a_listed_side_is_accepted_and_printed(self):
        self.many_taken()
        self.function((LOW, 3, 4), (HIGH, 0, 0))
        self.keep(BARS)
        self.assertIn("platform/rom/rom_One.cpp:2: sign: 'value > 9' is never true\n", self.accepted())

    def test_lines_may_move(self):
        self.many_taken()
        self.write(FILE, "\n\n" + SOURCE)
        self.function(((4, 20, 4, 29), 0, 0))
        self.keep(BARS)
        self.accepted()

    def test_a_row_for_what_is_taken_is_refused(self):
        self.function((LOW, 3, 4), (HIGH, 1, 2))
        self.keep(BARS)
        self.refused_with("docs/uncovered-branches.md:5: platform/rom/rom_One.cpp: sign: 'value > 9' is true in a test",
                          "'value > 9' is false in a test")

    def test_equal_conditions_need_a_row_each(self):
        self.many_taken()
        self.write(FILE, SOURCE + SOURCE)
        self.function((HIGH, 0, 0), ((11, 20, 11, 29), 0, 0))
        self.keep(BARS)
        self.refused_with("platform/rom/rom_One.cpp:11: sign: 'value > 9' is never true")
        self.keep(BARS + BARS)
        self.accepted()

    def test_a_row_without_reason_is_refused(self):
        self.many_taken()
        self.function((HIGH, 0, 0))
        self.keep(BARS.replace("no such value", ""))
        self.refused_with("docs/uncovered-branches.md:5: the row gives no reason")

    def test_a_row_with_an_unknown_side_is_refused(self):
        self.function((LOW, 3, 4))
        self.keep(BARS.replace("both", "neither"))
        self.refused_with("docs/uncovered-branches.md:5: a row names")

    def test_any_instantiation_takes_a_side(self):
        self.function((LOW, 3, 0), name="sign<int>")
        self.function((LOW, 0, 4), name="sign<long>")
        self.assertIn("coverage: 12 branches, 0 never taken", self.accepted())

    def test_a_folder_below_the_wanted_share_is_refused_though_all_is_listed(self):
        self.function((LOW, 3, 4), (HIGH, 0, 0))
        self.keep(BARS)
        self.refused_with("platform/rom: 50.00 % of the branches are taken, 95 % are wanted")

    def test_other_folders_do_not_count(self):
        self.function((LOW, 3, 4))
        self.function((LOW, 0, 0), file="platform/utl/utl_One.cpp")
        self.assertIn("coverage: 12 branches, 0 never taken", self.accepted())

    def test_a_folder_without_a_measured_branch_is_refused(self):
        self.function((LOW, 3, 4))
        self.others.remove("upgrade")
        self.refused_with("upgrade: no branch was measured")

    def test_a_lambda_belongs_to_the_function_around_it(self):
        self.many_taken()
        self.function((LOW, 3, 4), name="sign<int>(int)")
        self.function((LOW, 0, 4), name="sign<int>(int)::inner::operator()() const", start=2)
        self.function((HIGH, 0, 0), name="int rom_One<int>::sign<int>(int) const")
        self.refused_with("rom_One.cpp:2: rom_One::sign: 'value > 9'")

    def test_that_no_case_fits_needs_no_row(self):
        self.write(FILE, "int sign(int value) {\n  switch (value) {\n  case 1:\n    return 1;\n  }\n  return 0;\n}\n")
        self.many_taken()
        self.function(((2, 11, 2, 16), 0, 4), ((3, 3, 3, 9), 4, 0))
        self.refused_with("rom_One.cpp:3: sign: 'case 1' is never false")
        self.functions.pop()
        self.function(((2, 11, 2, 16), 0, 4), ((3, 3, 3, 9), 4, 3))
        self.accepted()

    def test_a_range_for_is_told_by_its_line(self):
        self.many_taken()
        self.function((LOOP, 0, 1))
        self.refused_with("sign: 'for (int each : values)' is never true")

    def test_a_piece_of_a_word_is_told_by_its_line(self):
        for piece in ((6, 5, 6, 6), (6, 7, 6, 8)):
            with self.subTest(piece):
                self.functions.clear()
                self.many_taken()
                self.function((piece, 0, 1))
                self.refused_with("sign: 'use(each);' is never true")

    def test_an_update_writes_rows_without_reason(self):
        self.many_taken()
        self.function((LOW, 3, 4), (HIGH, 0, 0))
        self.assertIn("no reason", self.measure("--update").stderr)
        self.assertIn(BARS.replace("no such value", ""), self.kept())

    def test_an_update_keeps_reasons_and_drops_what_is_taken(self):
        self.many_taken()
        self.function((LOW, 0, 4), (HIGH, 0, 0), (LOOP, 1, 1))
        low = BARS.replace("value > 9", "value < 0").replace("both", "true").replace("no such", "no low")
        loop = BARS.replace("value > 9", "for (int each : values)")
        self.keep(loop + BARS + low)
        self.accepted("--update")
        self.assertTrue(self.kept().endswith(HEADING + low + BARS), self.kept())


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
