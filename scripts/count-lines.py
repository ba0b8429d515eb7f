#!/usr/bin/env python3
"""Counts non-blank, non-comment lines of C and C++ in the test and the code folders.

tests = tests/ + fuzz/; code = src/ + include/ + tools/ + bench/. Prints both counts and
the ratio tests / code.
"""
import pathlib
import re
import sys

EXTENSIONS = {".c", ".h", ".cpp", ".hpp"}
TEST_DIRS = ("tests", "fuzz")
CODE_DIRS = ("src", "include", "tools", "bench")


def code_lines(text):
    """Lines that hold something besides comments and white space."""
    # Strip block comments but keep their newlines, then line comments. String literals that
    # contain comment markers are rare enough in this tree not to matter.
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), text, flags=re.S)
    return sum(1 for line in text.splitlines() if re.sub(r"//.*", "", line).strip())


def count(root, dirs):
    total = 0
    for folder in dirs:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in EXTENSIONS and path.is_file() and "corpus" not in path.parts:
                total += code_lines(path.read_text(errors="replace"))
    return total


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    tests = count(root, TEST_DIRS)
    code = count(root, CODE_DIRS)
    print(f"tests {tests}  code {code}  ratio {tests / code:.2f}")


if __name__ == "__main__":
    main()
