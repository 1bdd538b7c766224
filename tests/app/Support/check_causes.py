"""Checks that the ids of causes are the same in the table, on the page that people look them up on, and elsewhere in the
sources, and that each line about a failure has one.

check_causes.py TREE
"""
import pathlib
import re
import sys

tree = pathlib.Path(sys.argv[1])
# How a line about a failure begins in the sources, and how it may: with an id, with what a caller has put one to, in
# words that people's scripts know, or about something that has been put right.
FAILURE = re.compile(r'(?:NSLog|DDLogWarn|DDLogError)\(\s*"([^"]*)"')
NAMED_OR_GIVEN = ("TRV-", "%s", "DDFileLogger.", "DDLogFileInfo: ", "Error creating Usb", "Exception: ", "Stack:",
                  "Unknown exception", "Attach events were lost; all")
faults = []


def ids_in(text):
    return re.findall(r"TRV-(?=\d).{3}", text)


known = ids_in((tree / "app/Support/ErrorCatalogue.cpp").read_text(encoding="utf-8"))
page = set(ids_in((tree / "docs/USING.md").read_text(encoding="utf-8")))
if sorted(known) != sorted(page):
    faults.append(f"the table has {sorted(known)}, and the page {sorted(page)}")
files = [file for folder in ("app", "cli", "platform", "libs") for file in (tree / folder).rglob("*.cpp")]
for file in files:
    text, name = file.read_text(encoding="utf-8"), file.relative_to(tree)
    faults += [f"{name}: {cause} is not in the table" for cause in ids_in(text) if cause not in known]
    if name.parts[0] != "libs":  # what the library says is named by the cause that follows
        faults += [f"{name}: {line} has no id" for line in FAILURE.findall(text) if not line.startswith(NAMED_OR_GIVEN)]
if len(files) <= 100:
    faults.append(f"these are not the sources: {len(files)} files in {tree}")
print("\n".join(faults) or f"{len(known)} causes, {len(files)} files agree")
sys.exit(bool(faults))
