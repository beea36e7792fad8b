"""Proves on small programs that scripts/torture runs every part, adds up what they count, and tells what failed."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

TORTURE = pathlib.Path(sys.argv.pop(1))

COUNTING = """#!/bin/sh
echo "images: 300 tried, 200 distinct"
echo "[  PASSED  ] 4 tests."
"""
FUZZING = """#!/bin/sh
echo "$@"
echo "stat::number_of_executed_units: 5000"
"""


class Torture(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()
        self.script = self.root / "scripts/torture"
        self.script.parent.mkdir()
        shutil.copy(TORTURE, self.script)
        self.program("tools/cmake", "#!/bin/sh\n")  # all is built
        for line in self.run_script("--list").stdout.splitlines():
            _, preset, program = line.split()[:3]
            fuzzes = program.startswith("fuzz/")
            self.program(f"build/{preset}/{program}", FUZZING if fuzzes else COUNTING)

    def program(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)

    def run_script(self, *arguments):
        environment = os.environ | {"PATH": f"{self.root / 'tools'}:{os.environ['PATH']}", "TMPDIR": str(self.root)}
        return subprocess.run([sys.executable, self.script, *arguments], env=environment, check=False,
                              capture_output=True, text=True)

    def counts(self, *arguments):
        done = self.run_script("--json", self.root / "counts.json", *arguments)
        return done, json.loads((self.root / "counts.json").read_text(encoding="utf-8"))

    def test_every_part_runs_once_and_tells_its_counts(self):
        listed = [line.split()[0] for line in self.run_script("--list").stdout.splitlines()]
        self.assertEqual(len(set(listed)), len(listed))
        done, counts = self.counts("--minutes", "1", "--seed", "7")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue(done.stdout.endswith("scripts/torture: nothing was lost\n"), done.stdout)
        self.assertEqual(sorted(counts["parts"]), sorted(listed))
        self.assertEqual(counts["seed"], 7)
        self.assertEqual(counts["parts"]["power-cuts"],
                         {"seconds": 0, "failed": False, "tests passed": 4, "images tried": 300,
                          "images distinct": 200})
        self.assertEqual(counts["parts"]["fuzz-file"]["executions"], 5000)

    def test_one_part_runs_alone(self):
        done, counts = self.counts("--part", "hostile")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(list(counts["parts"]), ["hostile"])

    def test_what_fails_is_told_with_the_command_that_repeats_it(self):
        self.program("build/release/tests/hostile/ddr_test_hostile",
                     "#!/bin/sh\necho it was $DDR_HOSTILE_SEED of $DDR_HOSTILE\nexit 1\n")
        done, counts = self.counts("--part", "hostile", "--part", "memory", "--seed", "9", "--full")
        self.assertEqual(done.returncode, 1)
        self.assertIn("it was 9 of all", done.stdout)
        self.assertRegex(done.stdout, r"again: .*DDR_HOSTILE=all .*tests/hostile/ddr_test_hostile '--gtest_filter=\*'")
        self.assertTrue(done.stdout.endswith("scripts/torture: failed: hostile\n"), done.stdout)
        self.assertTrue(counts["parts"]["hostile"]["failed"])
        self.assertFalse(counts["parts"]["memory"]["failed"])

    def test_a_part_that_counts_nothing_has_failed(self):
        self.program("build/fuzz/fuzz/ddr_fuzz_file", "#!/bin/sh\n")
        done, _ = self.counts("--part", "fuzz-file")
        self.assertEqual(done.returncode, 1)

    def again(self, done):
        return re.search(r"again: (.*)", done.stdout).group(1)

    def test_a_finding_is_repeated_by_itself(self):
        self.program("build/fuzz/fuzz/ddr_fuzz_file",
                     FUZZING + "echo 'Test unit written to findings/crash-1'\nexit 1\n")
        again = self.again(self.run_script("--part", "fuzz-file"))
        self.assertRegex(again, r"ddr_fuzz_file -timeout=\S+ \S+ \S+ findings/crash-1$")

    def test_what_a_fuzzer_does_again_writes_nothing_into_the_corpus(self):
        self.program("build/fuzz/fuzz/ddr_fuzz_file", FUZZING + "exit 1\n")
        again = self.again(self.run_script("--part", "fuzz-file", "--seed", "5"))
        repeated = subprocess.run(["sh", "-c", again], cwd=self.root, env=os.environ | {"TMPDIR": str(self.root)},
                                  check=False, capture_output=True, text=True)
        words = repeated.stdout.split("\n")[0].split()
        self.assertIn("-seed=5", words)
        written_to, read = (pathlib.Path(word) for word in words if not word.startswith("-"))
        self.assertEqual(list(written_to.iterdir()), [])
        self.assertEqual(read, self.root / "fuzz/corpus/file")

    def test_a_part_that_hangs_is_ended_and_told_with_the_command_that_repeats_it(self):
        self.program("build/release/tests/hostile/ddr_test_hostile",
                     "#!/bin/sh\necho begun\nsleep 300 &\nsleep 300\n")
        begun = time.monotonic()
        done, counts = self.counts("--part", "hostile", "--seed", "9", "--patience", "0.05")
        self.assertLess(time.monotonic() - begun, 200)
        self.assertEqual(done.returncode, 1)
        self.assertIn("begun\n", done.stdout)
        self.assertRegex(done.stdout, r"FAILED hostile .* did not end in 0\.05 minutes\n")
        self.assertRegex(self.again(done), r"DDR_HOSTILE_SEED=9 .*tests/hostile/ddr_test_hostile")
        self.assertTrue(counts["parts"]["hostile"]["failed"])

    def test_a_full_run_fuzzes_by_count_and_another_by_time(self):
        self.program("build/fuzz/fuzz/ddr_fuzz_file", FUZZING + "exit 1\n")
        self.assertIn("-runs=20000000", self.run_script("--part", "fuzz-file", "--full").stdout)
        self.assertIn("-max_total_time=120", self.run_script("--part", "fuzz-file", "--minutes", "2").stdout)

    def test_the_least_time_asks_for_a_long_run(self):
        self.program("build/release/tests/reliability/ddr_test_reliability",
                     "#!/bin/sh\necho $DDR_TORTURE_MINUTES minutes\nexit 1\n")
        self.assertIn("\n0.01 minutes", self.run_script("--part", "errors", "--minutes", "0.0001").stdout)

    def test_no_time_is_refused(self):
        self.assertIn("--minutes wants a number above 0", self.run_script("--minutes", "0").stderr)
        self.assertIn("--patience wants a number above 0", self.run_script("--patience", "0").stderr)


if __name__ == "__main__":
    unittest.main()
