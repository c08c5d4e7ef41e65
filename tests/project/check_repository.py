#!/usr/bin/env python3
"""Checks of the repository as a whole.

usage: check_repository.py REPOSITORY CHECK

A check is a function below. It prints each violation as FILE:LINE: PROBLEM; the exit status is 1 if there is any.
"""

import pathlib
import re
import subprocess
import sys

CODE = {".h", ".cpp", ".ipp", ".hpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')

# What the code below a folder may not include.
FORBIDDEN_INCLUDES = {
    "src/foundation/core/": r"(foundation/(log|storage)|fl|storage|apps|cppmicroservices|microservices)/",
    "src/foundation/log/": r"(foundation/storage|storage|apps|cppmicroservices|microservices)/",
    "src/foundation/storage/": r"(storage|apps|cppmicroservices|microservices)/",
    "src/fl/": r"(foundation/(log|storage)|storage|apps|cppmicroservices|microservices)/",
    "src/microservices/": r"(foundation/storage|storage|apps)/",
    "src/storage/zipprovider/": r"(storage/(vfs|fileprovider)|apps)/",
    "src/storage/fileprovider/": r"(storage/(vfs|zipprovider)|apps|cppmicroservices|microservices)/",
    "src/storage/vfs/": r"(storage/zipprovider|apps)/",
    "src/storage/mount/": r"(storage/(zipprovider|fileprovider)|apps|cppmicroservices|microservices)/",
    "src/apps/": r"storage/(zipprovider|fileprovider)/",
}


class Repository:
    """The tracked files below a folder, or all files of a tree without git."""

    def __init__(self, root):
        self.root = pathlib.Path(root)
        git = subprocess.run(["git", "-C", str(root), "ls-files", "-z"], capture_output=True)
        if git.returncode == 0:
            names = git.stdout.decode().split("\0")
            self.files = [name for name in names if name and (self.root / name).is_file()]
        else:
            self.files = [
                str(path.relative_to(self.root))
                for path in sorted(self.root.rglob("*"))
                if path.is_file() and not {".git", "build"} & set(path.relative_to(self.root).parts)
            ]

    def select(self, *patterns):
        return [name for name in self.files if any(re.search(pattern, name) for pattern in patterns)]

    def text(self, name):
        return (self.root / name).read_text(encoding="utf-8", errors="replace")

    def lines(self, name):
        return list(enumerate(self.text(name).splitlines(), 1))


def code_files(repository):
    return [name for name in repository.files if pathlib.PurePath(name).suffix in CODE]


def includes(repository, name):
    for number, line in repository.lines(name):
        match = INCLUDE.match(line)
        if match:
            yield number, match[1]


def dependencies_between_folders_point_one_way(repository):
    for name in code_files(repository):
        for folder, forbidden in FORBIDDEN_INCLUDES.items():
            if not name.startswith(folder):
                continue
            for number, target in includes(repository, name):
                if re.match(forbidden, target) or target.startswith(".."):
                    yield f"{name}:{number}: {folder} must not include {target}"


def component_of(repository, name):
    """The nearest folder above a file that has a CMakeLists.txt, without the leading src/."""
    for parent in pathlib.PurePath(name).parents:
        if str(parent / "CMakeLists.txt") in repository.files:
            return str(parent)[len("src/") :]
    return str(pathlib.PurePath(name).parent)[len("src/") :]


def private_headers_stay_private(repository):
    for name in code_files(repository):
        if not name.startswith("src/"):
            continue
        component = component_of(repository, name)
        is_public = name.endswith((".h", ".hpp")) and "/src/" not in name and not name.startswith("src/apps/")
        for number, target in includes(repository, name):
            owner, found, _ = target.partition("/src/")
            if found and owner != component:
                yield f"{name}:{number}: {target} is private to {owner}"
            elif is_public and (found or target.startswith("src/")):
                yield f"{name}:{number}: a public header includes the private {target}"


def headers_are_included_once(repository):
    for name in repository.select(r"\.(h|hpp)$"):
        if not repository.text(name).startswith("#pragma once\n"):
            yield f"{name}:1: does not begin with #pragma once"


def components_have_a_readme(repository):
    for name in repository.select(r"^src/.*/CMakeLists\.txt$"):
        readme = str(pathlib.PurePath(name).parent / "README.md")
        if readme not in repository.files:
            yield f"{name}:1: the component has no {readme}"


SYSTEMS = ("posix", "win32")


def sources_are_listed_for_the_build(repository):
    listed = set()
    for name in repository.select(r"(^|/)CMakeLists\.txt$", r"^cmake/.*\.cmake$"):
        folder = pathlib.PurePath(name).parent
        lines = (
            (number, line.replace("${KX_SYSTEM}", system))
            for number, line in repository.lines(name)
            for system in (SYSTEMS if "${KX_SYSTEM}" in line else SYSTEMS[:1])
        )
        for number, line in lines:
            for token in re.findall(r"[\w./-]+\.cpp\b", line.partition("#")[0]):
                path = re.sub(r"[^/]+/\.\./", "", str(folder / token))
                if path in repository.files:
                    listed.add(path)
                elif "$" not in line and not token.startswith("/"):
                    yield f"{name}:{number}: {token} does not exist"
                else:
                    listed.add(token.lstrip("/"))
    for name in repository.select(r"^(src|tests|fuzz|examples|benchmarks)/.*\.cpp$"):
        if name not in listed:
            yield f"{name}:1: no CMakeLists.txt lists it"


def documents_name_only_paths_that_exist(repository):
    tops = {name.partition("/")[0] for name in repository.files if "/" in name}
    folders = {str(parent) for name in repository.files for parent in pathlib.PurePath(name).parents}
    known = folders | set(repository.files)

    for name in repository.select(r"\.md$"):
        folder = pathlib.PurePath(name).parent
        for number, line in repository.lines(name):
            for link in re.findall(r"\]\(([^)#\s]+)[^)]*\)", line):
                if re.match(r"[a-z]+:", link):
                    continue
                if re.sub(r"[^/]+/\.\./", "", str(folder / link)) not in known:
                    yield f"{name}:{number}: {link} does not exist"
            for path in re.findall(r"`([\w./-]+)`", line):
                path = path.rstrip("/")
                if str(folder / path) in known:
                    continue
                if path.partition("/")[0] in tops and "/" in path and path not in known:
                    yield f"{name}:{number}: {path} does not exist"


def cmake_calls(repository, name):
    """The commands of a CMakeLists.txt, each as the list of its words, without comments."""
    text = "\n".join(line.partition("#")[0] for _, line in repository.lines(name))
    for command, arguments in re.findall(r"\b(\w+)\s*\(([^()]*)\)", text):
        yield [command, *(word.strip('"') for word in arguments.split())]


def listed_sources(repository, cmake_file, words):
    paths = (str(pathlib.PurePath(cmake_file).parent / word) for word in words if word.endswith(".cpp"))
    return [path for path in paths if path in repository.files]


def tests_in_sources(repository):
    """The names of all tests as ctest prints them, without the value that a test over several values ends with."""
    test_macro = re.compile(r"^(TEST|TEST_F|TEST_P|TYPED_TEST)\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
    instance = re.compile(r"^INSTANTIATE_TEST_SUITE_P\(\s*(\w+),\s*(\w+)", re.MULTILINE)
    conformance = re.compile(r"^KX_\w+_CONFORMANCE\(\s*(\w+),", re.MULTILINE)
    names = set()
    libraries = {}
    programs = []
    for name in repository.select(r"(^|/)CMakeLists\.txt$"):
        templates = {}
        function = None
        for command, *words in cmake_calls(repository, name):
            if command == "function":
                function = words
            elif command == "add_test" and words[0] == "NAME":
                if function:
                    templates[function[0]] = words[1].replace("${" + function[1] + "}", "{}")
                names.add(words[1])
            elif command == "endfunction":
                function = None
            elif command in templates:
                names.add(templates[command].format(words[0]))
            elif command == "add_library":
                libraries[words[0]] = listed_sources(repository, name, words)
            elif command == "kx_add_test":
                programs.append((words[0], listed_sources(repository, name, words), words))
    for target, sources, words in programs:
        own = "\n".join(repository.text(source) for source in sources)
        linked = [source for word in words for source in libraries.get(word, [])]
        for macro, suite, test in test_macro.findall("\n".join([own, *map(repository.text, linked)])):
            if macro != "TEST_P":
                names.add(f"{target}.{suite}.{test}")
                continue
            prefixes = [prefix for prefix, instantiated in instance.findall(own) if instantiated == suite]
            if suite.endswith("Conformance"):
                prefixes += conformance.findall(own)
            names.update(f"{target}.{prefix}/{suite}.{test}" for prefix in prefixes)
    return names


def documented_behaviours_have_their_tests(repository):
    document = "docs/behaviours.md"
    names = tests_in_sources(repository)
    for number, line in repository.lines(document):
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.startswith("|") or len(cells) != 2 or set(cells[0]) <= set("-: ") or cells[0] == "behaviour":
            continue
        tests = re.findall(r"`([^`]+)`", cells[1])
        if not tests:
            yield f"{document}:{number}: no test is named"
        for test in tests:
            if test not in names:
                yield f"{document}:{number}: there is no test {test}"


def windows_leaves_out_tests_that_exist(repository):
    table = "tests/windows/support/left_out.cpp"
    names = {re.sub(r"^\w+\.(?:\w+/)?", "", name) for name in tests_in_sources(repository)}
    for number, line in repository.lines(table):
        for name in re.findall(r'^\s*\{"(\w+\.\w+)"', line):
            if name not in names:
                yield f"{table}:{number}: there is no test {name}"


def readme_shows_the_compiled_example(repository):
    blocks = re.findall(r"^```cpp\n(.*?)^```$", repository.text("README.md"), re.MULTILINE | re.DOTALL)
    if repository.text("examples/read_archive/main.cpp") not in blocks:
        yield "README.md:1: shows other text than examples/read_archive/main.cpp"


def nothing_is_left_unfinished(repository):
    marks = re.compile(
        r"\bTO" r"DO\b|\bFIX" r"ME\b|\bX" r"XX\b|\bDISA" r"BLED_|\bnot (yet )?imple" r"mented\b"
        r"|^(<{7}|={7}|>{7})( |$)|\bGTEST_SKIP\(\)\s*;"
    )
    for name in repository.files:
        if pathlib.PurePath(name).suffix in {".zip", ".bin", ""} and not name.endswith("Makefile"):
            continue
        for number, line in repository.lines(name):
            if marks.search(line):
                yield f"{name}:{number}: unfinished or switched off: {line.strip()}"


def no_path_of_one_machine_is_used(repository):
    paths = re.compile(r"(?<![\w.*})/-])/(?:work|farm|root)/")
    for name in repository.files:
        for number, line in repository.lines(name):
            if paths.search(line):
                yield f"{name}:{number}: names a path of one machine: {line.strip()}"


def violations(root, check):
    return list(globals()[check](Repository(root)))


if __name__ == "__main__":
    found = violations(sys.argv[1], sys.argv[2])
    print("\n".join(found))
    sys.exit(bool(found))
