#!/usr/bin/env python3
"""Checks the shipped language files against the keys the code looks up.

Every key the program asks for must be in every Language/strings.* file, and
a file must hold no key the program never asks for. Keys are found in the
sources as u"UPPER_CASE" (or L"...") literals with at least one underscore,
and as the CAPTION "UPPER_CASE" of a dialog template (a page's caption is
looked up as the key of its tab's title). LANGUAGE_IS_RIGHTTOLEFT is a
property of the file and may stand in any of them.

The files themselves must be what ships: UTF-16 with the signature FF FE,
CR LF line ends, every line a "#" comment or KEY=text, no key twice.

Usage: check-language-keys.py [SOURCE_ROOT]   (default: the tree holding this script)
"""

import pathlib
import re
import sys

# Literals shaped like keys that name something else: registry roots and
# environment variables.
NOT_KEYS = re.compile(r"^(HKEY_|FERRANT_)")
FILE_PROPERTIES = {"LANGUAGE_IS_RIGHTTOLEFT"}
# Test programs and the reference store never show a text to the user.
SKIPPED_DIRS = {"testing", "store", "sim", "e2e"}
SKIPPED_FILE = re.compile(r"_(test|fuzz|bench)\.(cpp|h)$")

KEY = r"[A-Z][A-Z0-9]*(?:_[A-Z0-9]+)+"
CODE_KEY = re.compile(r'(?<![A-Za-z0-9_])(?:u8|u|L)"(' + KEY + r')"')
RC_CAPTION = re.compile(r'^\s*CAPTION\s+L?"(' + KEY + r')"', re.MULTILINE)


def source_files(src):
    for path in sorted(src.rglob("*")):
        if not path.is_file() or path.suffix not in (".cpp", ".h", ".rc"):
            continue
        if SKIPPED_DIRS.intersection(path.relative_to(src).parts[:-1]):
            continue
        if SKIPPED_FILE.search(path.name):
            continue
        yield path


def keys_in_code(root):
    """Maps each key to the places (file:line) that use it."""
    used = {}
    for path in source_files(root / "src"):
        text = path.read_text(encoding="utf-8", errors="replace")
        pattern = RC_CAPTION if path.suffix == ".rc" else CODE_KEY
        for match in pattern.finditer(text):
            key = match.group(1)
            if NOT_KEYS.match(key):
                continue
            line = text.count("\n", 0, match.start()) + 1
            used.setdefault(key, []).append(f"{path.relative_to(root)}:{line}")
    return used


def read_language_file(path, problems):
    """The file's keys in order; format faults go to problems."""
    data = path.read_bytes()
    name = path.name
    if not data.startswith(b"\xff\xfe"):
        problems.append(f"{name}: does not start with the UTF-16 signature FF FE")
        return []
    try:
        text = data[2:].decode("utf-16-le")
    except UnicodeDecodeError as error:
        problems.append(f"{name}: not valid UTF-16: {error}")
        return []
    if not text.endswith("\r\n"):
        problems.append(f"{name}: the last line has no CR LF (it would be ignored)")
    keys = []
    for number, line in enumerate(text.split("\r\n")[:-1], start=1):
        if "\n" in line or "\r" in line:
            problems.append(f"{name}:{number}: a line end other than CR LF")
            continue
        if line.startswith("#"):
            continue
        key, equals, value = line.partition("=")
        if not equals or not key or not value or key != key.strip():
            problems.append(f"{name}:{number}: not a KEY=text line: {line!r}")
            continue
        if key in keys:
            problems.append(f"{name}:{number}: key {key} appears twice")
            continue
        keys.append(key)
    return keys


def check(root):
    problems = []
    used = keys_in_code(root)
    if not any(not place.split(":")[0].endswith(".rc") for places in used.values()
               for place in places):
        problems.append("no language key found in the C++ sources under src/: the scan is broken")
    files = sorted((root / "Language").glob("strings.*"))
    if not files:
        problems.append("no Language/strings.* file")
    for path in files:
        keys = read_language_file(path, problems)
        for key in sorted(set(used) - set(keys)):
            problems.append(f"{path.name}: missing key {key} (used at {', '.join(used[key])})")
        for key in keys:
            if key not in used and key not in FILE_PROPERTIES:
                problems.append(f"{path.name}: key {key} is not used by the code")
    return used, files, problems


def main(argv):
    root = pathlib.Path(argv[1] if len(argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    used, files, problems = check(root)
    for problem in problems:
        print(problem)
    if problems:
        print(f"language keys: {len(problems)} problem(s)")
        return 1
    print(f"language keys: {len(used)} keys used by the code, all in "
          + ", ".join(p.name for p in files))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
