#!/usr/bin/env python3
"""Each check of check_repository.py finds a violation that is put before it, and nothing in what is right."""

import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import check_repository  # noqa: E402


class Checks(unittest.TestCase):
    def found(self, check, files):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = pathlib.Path(folder) / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return check_repository.violations(folder, check)

    def test_dependencies(self):
        check = "dependencies_between_folders_point_one_way"
        wrong = {
            "src/storage/zipprovider/src/a.cpp": "#include <storage/vfs/Vfs.h>\n",
            "src/storage/vfs/src/b.cpp": '#include "storage/zipprovider/src/ZipState.h"\n',
            "src/apps/kxvfs/c.cpp": "#include <storage/fileprovider/LocalFileProvider.h>\n",
            "src/foundation/core/d.h": "#  include <fl/i18n/ustring.h>\n",
        }
        self.assertEqual(len(self.found(check, wrong)), 4)
        right = {
            "src/storage/zipprovider/src/a.cpp": "#include <storage/zipprovider/src/b.h>\n#include <vector>\n",
            "src/storage/vfs/src/b.cpp": "#include <storage/fileprovider/LocalFileProvider.h>\n",
            "src/apps/kxvfs/c.cpp": "#include <storage/vfs/Vfs.h>\n",
        }
        self.assertEqual(self.found(check, right), [])

    def test_private_headers(self):
        check = "private_headers_stay_private"
        wrong = {
            "src/storage/vfs/Vfs.h": "#include <storage/vfs/src/Table.h>\n",
            "src/storage/vfs/src/Vfs.cpp": "#include <storage/fileprovider/src/Journal.h>\n",
            "src/storage/vfs/CMakeLists.txt": "",
        }
        self.assertEqual(len(self.found(check, wrong)), 2)
        right = {
            "src/storage/vfs/src/Vfs.cpp": "#include <storage/vfs/src/Table.h>\n#include <storage/vfs/Vfs.h>\n",
            "src/storage/vfs/CMakeLists.txt": "",
            "src/apps/tool/CMakeLists.txt": "",
            "src/apps/tool/commands/Command.h": "#include <apps/tool/src/Session.h>\n",
            "tests/vfs/test.cpp": "#include <storage/vfs/src/Table.h>\n",
        }
        self.assertEqual(self.found(check, right), [])

    def test_headers(self):
        check = "headers_are_included_once"
        self.assertEqual(len(self.found(check, {"src/a.h": "int a;\n", "src/b.h": "#pragma once\n"})), 1)

    def test_readmes(self):
        check = "components_have_a_readme"
        files = {"src/a/CMakeLists.txt": "", "src/b/CMakeLists.txt": "", "src/b/README.md": ""}
        self.assertEqual(len(self.found(check, files)), 1)

    def test_sources(self):
        check = "sources_are_listed_for_the_build"
        files = {
            "src/a/CMakeLists.txt": "add_library(a src/listed.cpp src/missing.cpp)\n",
            "src/a/src/listed.cpp": "",
            "src/a/src/forgotten.cpp": "",
        }
        self.assertEqual(len(self.found(check, files)), 2)

    def test_documents(self):
        check = "documents_name_only_paths_that_exist"
        files = {
            "docs/a.md": "`docs/a.md` `docs/missing.md` [b](b.md) [out](https://example.org/x) `plans.zip/docs/x`\n",
            "docs/b.md": "[gone](../gone.md) `src/near.h`\n",
            "docs/src/near.h": "",
            "src/far.h": "",
        }
        self.assertEqual(len(self.found(check, files)), 2)

    def test_behaviours(self):
        check = "documented_behaviours_have_their_tests"
        tests = {
            "tests/a/CMakeLists.txt": """
                add_library(shared_suite OBJECT suite.cpp)
                kx_add_test(test_a SOURCES a.cpp LINK shared_suite) # and test_b
                function(kx_add_slow_test name script)
                  add_test(NAME slow.${name} COMMAND run "${script}")
                endfunction()
                kx_add_slow_test(counting count.py)
                add_test(NAME a.runs COMMAND a)
            """,
            "tests/a/a.cpp": "TEST(Sum, OfNothingIsZero) {}\nTEST_P(Each, IsRead) {}\nTYPED_TEST(Any, Works) {}\n"
            "INSTANTIATE_TEST_SUITE_P(\n    Small, Each, testing::Values(1));\n"
            "KX_PROVIDER_CONFORMANCE(Memory, make);\n",
            "tests/a/suite.cpp": "TEST_P(ReadingConformance, Reads) {}\n",
            "tests/a/unused.cpp": "TEST(Sum, IsUnused) {}\n",
        }
        head = "| behaviour | tests |\n|---|---|\n"
        right = """| a | `test_a.Sum.OfNothingIsZero`, `test_a.Small/Each.IsRead` |
| b | `test_a.Any.Works`<br>`test_a.Memory/ReadingConformance.Reads` |
| c | `slow.counting`, `a.runs` |
"""
        self.assertEqual(self.found(check, {**tests, "docs/behaviours.md": head + right}), [])
        wrong = """| a | `test_a.Sum.IsUnused` |
| b | `test_b.Sum.OfNothingIsZero`, `test_a.Large/Each.IsRead` |
| c | `slow.sleeping`, `test_a.Each.IsRead` |
| d | |
"""
        self.assertEqual(len(self.found(check, {**tests, "docs/behaviours.md": head + wrong})), 6)

    def test_left_out(self):
        check = "windows_leaves_out_tests_that_exist"
        tests = {
            "tests/a/CMakeLists.txt": "kx_add_test(test_a SOURCES a.cpp)\n",
            "tests/a/a.cpp": "TEST(Sum, OfNothingIsZero) {}\nTEST_P(Each, IsRead) {}\n"
            "INSTANTIATE_TEST_SUITE_P(\n    Small, Each, testing::Values(1));\n",
        }
        table = "tests/windows/support/left_out.cpp"
        right = '    {"Sum.OfNothingIsZero", "why"},\n    {"Each.IsRead",\n     "why"},\n'
        self.assertEqual(self.found(check, {**tests, table: right}), [])
        self.assertEqual(len(self.found(check, {**tests, table: '    {"Sum.OfOne", "why"},\n'})), 1)

    def test_example(self):
        check = "readme_shows_the_compiled_example"
        example = {"examples/read_archive/main.cpp": "int main() {}\n"}
        self.assertEqual(self.found(check, {**example, "README.md": "x\n```cpp\nint main() {}\n```\n"}), [])
        self.assertEqual(len(self.found(check, {**example, "README.md": "```cpp\nint main() { }\n```\n"})), 1)

    def test_unfinished(self):
        check = "nothing_is_left_unfinished"
        text = "// TO" + "DO: later\nTEST(A, DISA" + "BLED_B)\nGTEST_SKIP() << why;\n"
        self.assertEqual(len(self.found(check, {"src/a.cpp": text})), 2)

    def test_machine_paths(self):
        check = "no_path_of_one_machine_is_used"
        text = "cd /wo" + "rk/main\ncd build/wo" + "rk/x\n"
        self.assertEqual(len(self.found(check, {"a.sh": text})), 1)


unittest.main()
