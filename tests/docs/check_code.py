"""Every block of C++ and CMake in the documentation is part of a program that the tests build and run.

A block may leave statements out: those it has must occur in one source, in the same order. Comments and spacing do not
count.

    check_code.py SOURCE_ROOT
"""
import pathlib
import re
import sys

LANGUAGES = {  # sources, what begins a comment, what ends a statement
    "cpp": (["examples/*.cpp", "tests/docs/*.cpp"], "//", ";{}"),
    "cmake": (["tests/package/**/CMakeLists.txt"], "#", ")"),
}


def compress(text, comment):
    """Without comments and white space."""
    text = re.sub(r"/\*.*?\*/", "", text)
    return re.sub(r"\s+", "", re.sub(comment + ".*", "", text))


def find_missing(source, block, end):
    """The first statement of `block` that `source` does not have after those before it; empty if it has all."""
    at = 0
    for statement in re.findall(f"[^{end}]*[{end}]|[^{end}]+$", block):
        at = source.find(statement, at)
        if at < 0:
            return statement
        at += len(statement)
    return ""


def find_blocks(text):
    """(language, line number, text) of each fenced block."""
    lines = text.splitlines()
    start = None
    for number, line in enumerate(lines, 1):
        if not line.startswith("```"):
            continue
        if start is None:
            start, language = number, line[3:].strip()
        else:
            yield language, start, "\n".join(lines[start : number - 1])
            start = None


def main(root):
    root = pathlib.Path(root)
    faults, checked = [], 0
    for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
        for language, number, text in find_blocks(page.read_text()):
            if language not in LANGUAGES:
                continue
            checked += 1
            patterns, comment, end = LANGUAGES[language]
            paths = [path for pattern in patterns for path in sorted(root.glob(pattern))]
            missing = [find_missing(compress(path.read_text(), comment), compress(text, comment), end) for path in paths]
            if all(missing):
                faults.append(f"{page.name}:{number}: no tested program has this block; lacks, for example, {missing[0]}")
    print("\n".join(faults) or f"{checked} blocks are parts of tested programs")
    return 1 if faults or checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
