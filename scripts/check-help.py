#!/usr/bin/env python3
"""Checks the compiled help files against their sources.

Usage: check-help.py HELP_SOURCES FOLDER...
HELP_SOURCES holds one folder per language (ENU, DEU, ...). Each FOLDER must
hold HELP_<language>.chm for every one of them: a compiled help file (it
starts with "ITSF") whose directory names every page of the language's
folder. Every language has the pages English has, and every link of a page
or of the contents (.hhc) names a page that exists.
"""

import pathlib
import re
import sys

PAGE_SUFFIXES = {".html", ".css", ".png", ".gif", ".hhc", ".hhk"}
LINK = re.compile(r'(?:href|src)="([^"#:]+)(?:#[^"]*)?"|name="Local" value="([^"#]+)', re.I)


def check(sources, folders):
    problems = []
    languages = sorted(p for p in sources.iterdir() if p.is_dir())
    if not languages:
        return [f"{sources}: no language folder"]
    english = sources / "ENU"
    english_pages = {p.name for p in english.iterdir() if p.suffix in PAGE_SUFFIXES}
    for lang in languages:
        pages = sorted(p for p in lang.iterdir() if p.suffix in PAGE_SUFFIXES)
        names = {p.name for p in pages}
        for missing in sorted(english_pages - names):
            problems.append(f"{lang.name}: has no {missing} (English has)")
        for page in pages:
            if page.suffix not in (".html", ".hhc", ".hhk"):
                continue
            for match in LINK.finditer(page.read_text(encoding="utf-8")):
                target = match.group(1) or match.group(2)
                if target not in names:
                    problems.append(f"{lang.name}/{page.name}: links to {target}, which is not there")
        for folder in folders:
            chm = folder / f"HELP_{lang.name}.chm"
            if not chm.is_file():
                problems.append(f"{chm}: missing")
                continue
            data = chm.read_bytes()
            if not data.startswith(b"ITSF"):
                problems.append(f"{chm}: not a compiled help file (no ITSF signature)")
                continue
            # The directory of the file names each entry "/name", uncompressed.
            for page in pages:
                if b"/" + page.name.encode("utf-8") not in data:
                    problems.append(f"{chm}: does not hold {page.name}")
    return problems


def main(argv):
    if len(argv) < 3:
        print(__doc__)
        return 2
    sources = pathlib.Path(argv[1])
    folders = [pathlib.Path(f) for f in argv[2:]]
    problems = check(sources, folders)
    for problem in problems:
        print(problem)
    if problems:
        return 1
    print(f"help: {', '.join(sorted(p.name for p in sources.iterdir() if p.is_dir()))} "
          f"complete in {len(folders)} folder(s)")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
