#!/usr/bin/env python3
"""Tries unused_files.py on a small tree: what is used is left alone, and each kind
of file that nothing uses is found.

    unused_files_test.py
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path(__file__).with_name("unused_files.py")

USED = {
    "scripts/outside.sh": 'cat "$source/tests/texts/$name.words" tests/texts/list.txt\n',
    "tests/CMakeLists.txt": "add_subdirectory(texts)\nadd_subdirectory(one)\n",
    "tests/one/CMakeLists.txt": "add_test(NAME Two COMMAND sh two.sh)\n",
    "tests/one/built.cpp": '#include "one/header.h"\n',
    "tests/one/header.h": '#include "table.inc"\n',
    "tests/one/table.inc": "1, 2\n",
    "tests/one/run.sh": 'python3 "$here/reads.py"\n',
    "tests/one/two.sh": "exit 0\n",
    "tests/one/reads.py": 'import helper\nhelper.read_all("*.toml")\n',
    "tests/one/helper.py": "",
    "tests/one/a.toml": "",
    "tests/one/case/input": "",
    "tests/one/case/deep/output.cpp": "",
    "tests/texts/CMakeLists.txt": "",
    "tests/texts/list.txt": "",
    "tests/texts/long.words": "",
}

UNUSED = {
    "tests/one/lost.cpp": '#include "lost.h"\n',
    "tests/one/lost.h": "",
    "tests/one/lost.sh": "sh lost_too.sh\n",
    "tests/one/lost_too.sh": "sh lost.sh\n",
    "tests/one/lost.py": "",
    "tests/one/lost.txt": "",
    "tests/one/case.txt": "",
    "tests/texts/two.sh": "",  # the name of a file of another directory
    "tests/texts/built.cpp": "",
    "tests/texts/b.toml": "",
    "tests/two/CMakeLists.txt": "add_test(NAME Never COMMAND sh never.sh)\n",
    "tests/two/never.sh": "",
}


class UnusedFiles(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.source = pathlib.Path(self.directory.name).resolve() / "source"
        self.build = self.source.with_name("build")
        self.write(USED)
        tests = self.source / "tests"
        command = {"file": f"{tests}/one/built.cpp", "command": f"c++ -I{tests}/one -c built.cpp"}
        self.put(self.build / "compile_commands.json", json.dumps([command]))
        for name in ("tests", "tests/one", "tests/texts"):
            self.put(self.build / name / "CTestTestfile.cmake", "")
        self.put(
            self.build / "tests/one/CTestTestfile.cmake",
            f'add_test([=[One]=] "sh" "{tests}/one/run.sh" "{tests}/one/case" "{tests}/one")\n',
        )

    @staticmethod
    def put(file, text):
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def write(self, files):
        for name, text in files.items():
            self.put(self.source / name, text)

    def run_program(self):
        return subprocess.run(
            [sys.executable, PROGRAM, self.source, self.build], capture_output=True, text=True
        )

    def found(self, result):
        start = "neither built nor used: "
        lines = result.stderr.splitlines()
        return [line.removeprefix(start) for line in lines if line.startswith(start)]

    def test_a_tree_where_everything_is_used_passes(self):
        result = self.run_program()
        self.assertEqual(self.found(result), [])
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("0 of them not in use", result.stdout)

    def test_each_kind_of_unused_file_alone_is_found(self):
        for name, text in UNUSED.items():
            with self.subTest(name):
                self.write({name: text})
                result = self.run_program()
                (self.source / name).unlink()
                self.assertEqual(self.found(result), [name])
                self.assertEqual(result.returncode, 1)

    def test_all_of_them_are_found_together(self):
        self.write(UNUSED)
        result = self.run_program()
        self.assertEqual(self.found(result), sorted(UNUSED))
        self.assertEqual(result.returncode, 1)

    def test_a_tree_without_tests_fails(self):
        for name in USED:
            if name.startswith("tests/"):
                (self.source / name).unlink()
        self.assertEqual(self.run_program().returncode, 1)


if __name__ == "__main__":
    unittest.main()
