#!/usr/bin/env python3
"""Checks that the code samples of a guide are the code of the examples that compile.

A sample is marked in the guide by the line `<!-- example: PATH#NAME -->` right before its
```cpp block; in the file, the region runs from a `// [doc:NAME]` line to the next
`// [doc:end]` line. Both are compared without their common indentation. Exits 1 and shows
the difference when a sample and its region differ, or a marker points nowhere.

usage: check_snippets.py SOURCE_DIR GUIDE.md
"""
import difflib
import re
import sys
import textwrap
from pathlib import Path


def region(path, name):
    lines = path.read_text(encoding="utf-8").split("\n")
    start = next((i for i, l in enumerate(lines) if l.strip() == f"// [doc:{name}]"), None)
    if start is None:
        return None
    end = next(i for i in range(start + 1, len(lines)) if lines[i].strip() == "// [doc:end]")
    return textwrap.dedent("\n".join(lines[start + 1:end])).strip("\n")


def main(source_dir, guide):
    text = Path(guide).read_text(encoding="utf-8")
    pattern = re.compile(r"<!-- example: (\S+)#(\S+) -->\n```cpp\n(.*?)\n```", re.S)
    failures = 0
    found = 0
    for m in pattern.finditer(text):
        found += 1
        path, name, sample = Path(source_dir) / m.group(1), m.group(2), m.group(3)
        code = region(path, name) if path.exists() else None
        if code is None:
            print(f"{guide}: no region [doc:{name}] in {m.group(1)}")
            failures += 1
            continue
        sample = textwrap.dedent(sample).strip("\n")
        if sample != code:
            failures += 1
            print(f"{guide}: the sample {m.group(1)}#{name} differs from the example:")
            sys.stdout.writelines(difflib.unified_diff(
                code.splitlines(True), sample.splitlines(True), "example", "guide"))
            print()
    if found == 0:
        print(f"{guide}: no marked samples")
        return 1
    print(f"{found} samples checked, {failures} differ")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
