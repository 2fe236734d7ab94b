"""The commands for building and testing in README.md and HACKING.md: presets, files, tests and options exist."""

import json
import pathlib
import re
import shlex
import subprocess
import sys
import unittest

ROOT, BUILD = map(pathlib.Path, sys.argv[1:3])
PRESETS = json.loads((ROOT / "CMakePresets.json").read_text())


def shown_commands():
    """Every command in an indented block, as a list of words without environment and sudo."""
    start = re.compile(r"(?m)^    ((?:[A-Z_]+=\S+ )?(?:sudo )?(?:\./|build/|bench/|tools/|tests/|cmake |ctest ).*)")
    for document in ("README.md", "HACKING.md"):
        for line in start.findall((ROOT / document).read_text()):
            for command in line.split("&&"):
                words = shlex.split(command, comments=True)
                yield [word for word in words if word != "sudo" and not re.match(r"[A-Z_]+=", word)]


def prints(*command):
    return subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, text=True, check=True).stdout


class Commands(unittest.TestCase):
    def check_preset(self, program, arguments):
        kind = "testPresets" if program == "ctest" else "buildPresets" if "--build" in arguments else "configurePresets"
        name = arguments[arguments.index("--preset") + 1]
        self.assertIn(name, [preset["name"] for preset in PRESETS[kind] if not preset.get("hidden")])

    def check_tests(self, arguments):
        selection = arguments[arguments.index("--preset") + 2 :]
        self.assertNotIn("Total Tests: 0", prints("ctest", "--test-dir", str(BUILD), "-N", *selection))

    def check_help(self, script, arguments):
        explained = prints(str(ROOT / script), "--help").split()
        for word in arguments:
            a_device = script == "./quickstart.sh" and not word.startswith("-")
            self.assertTrue(a_device or word in [*explained, "--help"], word)

    def check_built(self, path, arguments):
        _, preset, *rest = pathlib.Path(path).parts
        self.assertIn(preset, [one["name"] for one in PRESETS["configurePresets"]])
        if rest[0] == "fuzz":
            rules = (ROOT.joinpath(*rest[:-1]) / "CMakeLists.txt").read_text()
            self.assertIn(f"fuzzer({rest[-1]} ", rules)
            return
        self.assertTrue(BUILD.joinpath(*rest).is_file(), path)
        for filter in (word for word in arguments if word.startswith("--gtest_filter=")):
            self.assertIn(".", prints(str(BUILD.joinpath(*rest)), "--gtest_list_tests", filter))

    def check(self, program, *arguments):
        if "--preset" in arguments:
            self.check_preset(program, arguments)
        if program == "ctest":
            self.check_tests(arguments)
        elif program.startswith("build/"):
            self.check_built(program, arguments)
        elif program in ("./test.sh", "./quickstart.sh"):
            self.check_help(program, arguments)
        elif program != "cmake":
            self.assertTrue((ROOT / program).is_file(), program)
        for word in arguments:
            if word.startswith(("fuzz/", "tests/", "packaging/", "samples/")):
                self.assertTrue((ROOT / word).exists(), word)

    def test_each(self):
        programs = set()
        for program, *arguments in shown_commands():
            programs.add(program.split("/")[0])
            with self.subTest(shlex.join([program, *arguments])):
                self.check(program, *arguments)
        self.assertLessEqual({"cmake", "ctest", "build", "bench", "."}, programs)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
