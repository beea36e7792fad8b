"""Proves on small trees that scripts/check-kept-on-purpose accepts what agrees and refuses what does not."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(sys.argv.pop(1))

HEADER = "| Where (file) | What | Why | Test (Suite.Name) |\n|---|---|---|---|\n"
ROW = "| platform/a/a_One.cpp | the sign | old files | Sign.IsKept |\n"
SOURCE = "// Kept on purpose: old files carry it.\nint one();\n"
TEST = "#include <gtest/gtest.h>\nTEST(Sign, IsKept) { EXPECT_EQ(1, 1); }\n"


class KeptOnPurpose(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("platform/a/a_One.cpp", SOURCE)
        self.write("tests/platform/a/one_test.cpp", TEST)
        self.write("docs/kept-on-purpose.md", "# Kept\n\n" + HEADER + ROW)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def run_check(self):
        return subprocess.run([CHECK, self.root], capture_output=True, text=True, check=False)

    def accepted(self):
        result = self.run_check()
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def refused_with(self, text):
        result = self.run_check()
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertIn(text, result.stderr)

    def test_a_tree_that_agrees_is_accepted(self):
        self.accepted()

    def test_a_file_may_be_named_without_its_folder(self):
        self.write("docs/kept-on-purpose.md", HEADER + ROW.replace("platform/a/a_One.cpp", "`a_One.cpp`"))
        self.accepted()

    def test_a_tree_without_any_is_accepted(self):
        self.write("platform/a/a_One.cpp", "int one();\n")
        self.write("docs/kept-on-purpose.md", HEADER)
        self.accepted()

    def test_a_comment_without_row_is_refused(self):
        self.write("docs/kept-on-purpose.md", HEADER)
        self.refused_with("platform/a/a_One.cpp: 1 comments 'Kept on purpose:', 0 rows")

    def test_two_comments_need_two_rows(self):
        self.write("platform/a/a_One.cpp", SOURCE + SOURCE)
        self.refused_with("platform/a/a_One.cpp: 2 comments 'Kept on purpose:', 1 rows")

    def test_a_row_without_comment_is_refused(self):
        self.write("platform/a/a_One.cpp", "int one();\n")
        self.refused_with("platform/a/a_One.cpp: 0 comments 'Kept on purpose:', 1 rows")

    def test_a_row_about_no_file_is_refused(self):
        self.write("docs/kept-on-purpose.md", HEADER + ROW + ROW.replace("a_One", "a_Two"))
        self.refused_with("'platform/a/a_Two.cpp' names 0 source files")

    def test_a_test_that_does_not_exist_is_refused(self):
        self.write("tests/platform/a/one_test.cpp", "// TEST(Sign, IsKept) {}\nTEST(Sign, IsGone) {}\n")
        self.refused_with("there is no test Sign.IsKept")

    def test_a_row_without_test_is_refused(self):
        self.write("docs/kept-on-purpose.md", HEADER + ROW.replace("Sign.IsKept", "by hand"))
        self.refused_with("the row names no test")

    def test_an_empty_cell_is_refused(self):
        self.write("docs/kept-on-purpose.md", HEADER + ROW.replace("old files", " "))
        self.refused_with("a row has four cells")

    def test_a_comment_without_reason_is_refused(self):
        self.write("platform/a/a_One.cpp", "// Kept on purpose:\nint one();\n")
        self.refused_with("platform/a/a_One.cpp:1: write it as")

    def test_a_missing_table_is_refused(self):
        (self.root / "docs/kept-on-purpose.md").unlink()
        self.refused_with("docs/kept-on-purpose.md is missing")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
