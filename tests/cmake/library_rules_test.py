"""Proves on tiny projects what cmake/DdrAddLibrary.cmake accepts, refuses and builds."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

CMAKE, MODULE, COMPILER = sys.argv[1:4]
del sys.argv[1:4]

LOW = "ddr_add_library(NAME low FOLDER low FLOOR 3 PART_OF platform HEADERS low.h SOURCES low.cpp)\n"
HIDDEN = "ddr_add_library(NAME low FOLDER low FLOOR 3 PART_OF none HEADERS low.h SOURCES low.cpp)\n"
MODULE_PART = "ddr_add_library(NAME low FOLDER low FLOOR 3 PART_OF ddr HEADERS low.h SOURCES low.cpp)\n"


def high(floor=4, part="platform", rest=""):
    return (
        f"ddr_add_library(NAME high FOLDER high FLOOR {floor} PART_OF {part}"
        f" HEADERS high.h SOURCES high.cpp {rest})\n"
    )


class Project(unittest.TestCase):
    """A project of two folders, low and high, whose CMakeLists.txt each test gives."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        export = '__attribute__((visibility("default"))) '
        self.write("low/low.h", f"#pragma once\n{export}int low();\n")
        self.write("low/low.cpp", '#include "low.h"\nint low() { return 3; }\n')
        self.write("high/high.h", f"#pragma once\n{export}int high();\n")
        self.write("high/high.cpp", '#include "high.h"\nint high() { return 4; }\n')

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def configure(self, calls):
        self.write(
            "CMakeLists.txt",
            "cmake_minimum_required(VERSION 3.25)\nproject(tiny VERSION 1.2.3 LANGUAGES CXX)\ninclude(CTest)\n"
            f"set(DDR_BUILD_BENCHMARKS ON)\ninclude({MODULE})\n{calls}",
        )
        command = [CMAKE, "-S", self.root, "-B", self.root / "build", "-G", "Ninja"]
        command += [f"-DCMAKE_CXX_COMPILER={COMPILER}", "-DCMAKE_CXX_COMPILER_WORKS=ON"]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def build(self):
        command = [CMAKE, "--build", self.root / "build"]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def refused(self, calls, text):
        result = self.configure(calls)
        # Messages are wrapped by their width, so they are compared word by word.
        said = re.sub(r"\s+", " ", result.stderr)
        self.assertNotEqual(result.returncode, 0, "it was accepted")
        self.assertIn(text, said)

    def built(self, calls):
        result = self.configure(calls)
        self.assertEqual(result.returncode, 0, result.stderr)
        result = self.build()
        self.assertEqual(result.returncode, 0, result.stdout)

    def does_not_compile(self, calls, text):
        result = self.configure(calls)
        self.assertEqual(result.returncode, 0, result.stderr)
        result = self.build()
        self.assertNotEqual(result.returncode, 0, "it compiled")
        self.assertIn(text, result.stdout)


class Floors(Project):
    def test_a_lower_floor_may_be_used(self):
        self.built(LOW + high(4, rest="PUBLIC low"))

    def test_the_same_floor_is_refused(self):
        self.refused(LOW + high(3, rest="PUBLIC low"), "it is on floor 3 and may not depend on 'low' on floor 3")

    def test_a_higher_floor_is_refused(self):
        self.refused(LOW + high(2, rest="PUBLIC low"), "it is on floor 2 and may not depend on 'low' on floor 3")

    def test_a_private_dependency_obeys_floors_too(self):
        self.refused(LOW + high(2, rest="PRIVATE low"), "it is on floor 2 and may not depend on 'low' on floor 3")

    def test_floor_0_may_stand_on_the_ground_library(self):
        ground = LOW.replace("NAME low", "NAME os").replace("FLOOR 3", "FLOOR 0")
        self.built(ground + high(0, rest="PUBLIC os"))

    def test_floor_0_may_stand_on_nothing_else(self):
        self.refused(LOW.replace("FLOOR 3", "FLOOR 0") + high(0, rest="PUBLIC low"), "may not depend on 'low' on floor 0")

    def test_a_floor_is_a_number(self):
        self.refused(high("cellar"), "FLOOR 'cellar' is not a number")


class Arguments(Project):
    def test_an_unknown_argument_is_refused(self):
        self.refused(LOW.replace("FLOOR 3", "FLOOR 3 COLOUR blue"), "unknown argument 'COLOUR;blue'")

    def test_a_keyword_without_value_is_refused(self):
        self.refused(high(rest="PUBLIC"), "no value after 'PUBLIC'")

    def test_a_library_without_floor_is_refused(self):
        self.refused(LOW.replace("FLOOR 3 ", ""), "FLOOR is missing")

    def test_a_library_without_part_is_refused(self):
        self.refused(LOW.replace("PART_OF platform ", ""), "PART_OF is missing")

    def test_an_unknown_part_is_refused(self):
        self.refused(high(part="roof"), "PART_OF 'roof' is none of platform, ddr, none")

    def test_an_unknown_library_is_refused(self):
        self.refused(high(rest="PUBLIC lower"), "it depends on 'lower', which is not a library of this tree")

    def test_a_missing_file_is_refused(self):
        self.refused(LOW.replace("low.cpp", "gone.cpp"), "there is no file 'gone.cpp'")

    def test_a_second_library_of_a_name_is_refused(self):
        self.refused(LOW + LOW, "a library of this name was added already")

    def test_the_companions_refuse_unknown_arguments(self):
        self.refused("ddr_add_test(NAME t COLOUR blue SOURCES t.cpp)", "unknown argument 'COLOUR;blue'")
        self.refused("ddr_add_benchmark(NAME b COLOUR blue SOURCES b.cpp)", "ddr_add_benchmark(b): unknown")
        self.refused("ddr_add_program(NAME p COLOUR SOURCES p.cpp)", "unknown argument 'COLOUR'")

    def test_a_test_of_an_unknown_library_is_refused(self):
        self.refused("ddr_add_test(NAME t SOURCES t.cpp DEPENDS lower)", "ddr_add_test(t): it depends on 'lower'")


class Installed(Project):
    def test_headers_that_use_a_hidden_library_are_refused(self):
        self.refused(HIDDEN + high(rest="PUBLIC low"), "its headers use 'low', which is not installed")

    def test_sources_may_use_a_hidden_library(self):
        self.assertEqual(self.configure(HIDDEN + high(rest="PRIVATE low")).returncode, 0)

    def test_an_installed_header_that_uses_a_private_one_is_refused(self):
        self.write("high/inner.h", "#pragma once\n")
        self.write("high/high.h", '#pragma once\n  # include  "inner.h"\n')
        self.refused(high(rest="PRIVATE_HEADERS inner.h"), "the installed header high.h uses the private header inner.h")

    def test_the_platform_may_not_use_the_module(self):
        self.refused(MODULE_PART + high(part="platform", rest="PRIVATE low"), "may not depend on 'low' of ddr")

    def test_two_installed_headers_of_one_name_are_refused(self):
        self.write("high/low.h", "#pragma once\n")
        self.refused(LOW + high().replace("high.h", "low.h"), "a header named low.h is installed already")

    def test_clients_see_installed_headers_only(self):
        self.write("high/inner.h", "#pragma once\n")
        calls = LOW + high(part="ddr", rest="PUBLIC low PRIVATE_HEADERS inner.h") + "ddr_add_shared_libraries()\n"
        self.built(calls)
        seen = sorted(path.name for path in (self.root / "build/include/ddr").iterdir())
        self.assertEqual(seen, ["high.h", "low.h"])

    def test_a_module_that_needs_what_the_platform_hides_does_not_link(self):
        self.write("low/low.h", "#pragma once\nint low();\n")
        self.write("high/high.cpp", '#include "high.h"\n#include "low.h"\nint high() { return low(); }\n')
        calls = LOW + high(part="ddr", rest="PRIVATE low") + "ddr_add_shared_libraries()\n"
        self.does_not_compile(calls, "undefined reference to `low()'")


class Headers(Project):
    def test_a_header_that_needs_another_before_it_does_not_compile(self):
        self.write("low/low.h", "#pragma once\nstd::string low();\n")
        self.write("low/low.cpp", '#include <string>\n#include "low.h"\nstd::string low() { return {}; }\n')
        self.does_not_compile(LOW, "low.h.cpp")

    def test_a_header_without_guard_does_not_compile(self):
        self.write("low/low.h", "struct Low {};\nint low();\n")
        self.does_not_compile(LOW, "low.h.cpp")

    def test_a_header_sees_public_dependencies_only(self):
        self.write("high/high.h", '#pragma once\n#include "low.h"\n')
        self.write("high/high.cpp", '#include "high.h"\nint high() { return low(); }\n')
        self.does_not_compile(LOW + high(rest="PRIVATE low"), "high.h.cpp")

    def test_a_private_header_is_compiled_alone_too(self):
        self.write("high/inner.h", "#pragma once\nstd::string inner();\n")
        self.does_not_compile(high(rest="PRIVATE_HEADERS inner.h"), "inner.h.cpp")

    def test_an_undeclared_include_does_not_compile(self):
        self.write("high/high.cpp", '#include "low.h"\nint high() { return low(); }\n')
        self.does_not_compile(LOW + high(), "low.h")

    def test_a_warning_is_an_error(self):
        self.write("low/low.cpp", '#include "low.h"\nint low() { long x = 3; return x; }\n')
        self.does_not_compile(LOW, "low.cpp")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
