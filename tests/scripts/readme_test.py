"""Proves on small trees that scripts/check-readme accepts a true README and refuses a stale one."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(sys.argv.pop(1))

PROGRAM = "#include <cstdio>\n\nint main() { std::puts(\"ten\"); }\n"
README = f"""# Ten

<!-- from examples/ten.cpp -->
```cpp
{PROGRAM}```

```sh
scripts/demo   # shows it
```

| Folder | What |
|---|---|
| `examples` | programs |
"""


class Readme(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write("examples/ten.cpp", "// Prints ten.\n" + PROGRAM)
        self.write("scripts/demo", "")
        self.write("README.md", README)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def run_check(self):
        return subprocess.run([CHECK, self.root], capture_output=True, text=True, check=False)

    def refused_with(self, text):
        result = self.run_check()
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertIn(text, result.stderr)

    def test_a_true_readme_is_accepted(self):
        result = self.run_check()
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_a_changed_example_is_refused(self):
        self.write("examples/ten.cpp", PROGRAM.replace("ten", "eleven"))
        self.refused_with("README.md shows examples/ten.cpp as it was")

    def test_a_page_in_docs_is_checked_too(self):
        self.write("docs/page.md", f"<!-- from examples/ten.cpp -->\n```cpp\n{PROGRAM}```\n")
        self.assertEqual(self.run_check().returncode, 0)
        self.write("docs/page.md", "<!-- from examples/ten.cpp -->\n```cpp\nint main() {}\n```\n")
        self.refused_with("docs/page.md shows examples/ten.cpp as it was")

    def test_a_missing_example_is_refused(self):
        (self.root / "examples/ten.cpp").unlink()
        self.refused_with("README.md shows examples/ten.cpp, which does not exist")

    def test_a_readme_without_example_is_refused(self):
        self.write("README.md", README.replace("<!-- from", "<!-- see"))
        self.refused_with("README.md shows no file of the tree")

    def test_a_missing_command_is_refused(self):
        (self.root / "scripts/demo").unlink()
        self.refused_with("README.md names scripts/demo")

    def test_a_missing_folder_is_refused(self):
        self.write("README.md", README.replace("| `examples` |", "| `samples` |"))
        self.refused_with("README.md names samples")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
