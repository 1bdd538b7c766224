"""Checks the string tables as files: that each language is there, and that its texts agree with the English ones and with
one another. What the tool asks for, and whether it fits the window, language_test shows.

check_strings.py RESOURCES
"""
import pathlib
import plistlib
import re
import sys
import unicodedata

LANGUAGES = ["ar", "de", "en", "es", "fr", "it", "ja", "nl", "pl", "pt_BR", "zh_CN"]
NAMES = ["Trovik Reset Tool", "Trovik Station", "USB"]
# A text that names a menu item or a button, and which.
MENTIONS = {"DoNotUnplugDevice": "ShowLogFiles", "RecordDetailsFolder": "RecordDetails", "ResetCompleteBody": "ReturnToMainMenu"}
# Keys of the keyboard that choose controls which are on the screen together.
TOGETHER = [["ApplicationMenu", "ResetNow"], ["ApplicationMenu", "Quit", "ReturnToMainMenu"],
            ["AboutTrovikReset", "ShowLogFiles", "SaveReport", "RecordDetails", "QuitTrovikReset"],
            ["ReportSave", "Cancel"], ["CopyPath", "OK"], ["ResetNow", "Cancel"]]
# Arabic letters are joined to their neighbours, but for one that never is and those that are joined to the right alone.
LETTERS = {chr(code) for code in range(0x620, 0x64B)}
UNJOINED, RIGHT_JOINED = {"\u0621"}, set("\u0622\u0623\u0624\u0625\u0627\u0629\u062F\u0630\u0631\u0632\u0648")
faults = []


def table_of(language):
    return plistlib.loads((folder / f"{language}.lproj/Localizable.strings").read_bytes())


def check(condition, what):
    if not condition:
        faults.append(what)


def marks_of(text):
    """Placeholders, keys and line ends."""
    return sorted(match[0] for match in re.finditer(r"%(\d+|[@a-zA-Z])|&|\n", text))


def without_key(text):
    return re.sub(r"\(&.\)", "", text).replace("&", "")


def key_splits_a_word(text):
    """Whether the letter of a text's key is joined to a neighbour, which it loses when it is underlined."""
    def joined(pair):
        return (len(pair) == 2 and set(pair) <= LETTERS and not set(pair) & UNJOINED and pair[0] not in RIGHT_JOINED)
    before, mark, after = text.partition("&")
    return bool(mark) and (joined(before[-1:] + after[:1]) or joined(after[:2]))


def is_right_to_left(text):
    kinds = (unicodedata.bidirectional(letter) for letter in text)
    return next((kind != "L" for kind in kinds if kind in ("L", "R", "AL")), False)


def agrees(language, table, english):
    for key, text in table.items():
        what, original = f"{language}, {key}: {text!r}", english.get(key, "")
        check(marks_of(text) == marks_of(original), f"{what} has other marks than {original!r}")
        check(not key_splits_a_word(text), f"{what}: its key splits a word")
        check(is_right_to_left(text) == (language == "ar"), f"{what} runs in the wrong direction")
        check(all((name in text) == (name in original) for name in NAMES), f"{what} has other names than {original!r}")
        is_same = language == "en" or key == "OK" or without_key(original) == "Trovik Reset Tool"
        check(is_same or text != original, f"{what} is not translated")
    for key, mentioned in MENTIONS.items():
        check(without_key(table[mentioned]) in table[key], f"{language}, {key} does not name {table[mentioned]!r}")
    for together in TOGETHER:
        keys = {table[key].partition("&")[2][:1].lower() for key in together}
        check("" not in keys and len(keys) == len(together), f"{language}: of {together} two have one key, or one has none")


folder = pathlib.Path(sys.argv[1])
found = sorted(path.stem for path in folder.glob("*.lproj"))
check(found == LANGUAGES, f"the languages are {found}")
tested = pathlib.Path(__file__).with_name("LanguageTest.cpp").read_text()
check(all(f'"{name}"' in tested for name in LANGUAGES), "language_test leaves a language out")
texts = table_of("en")
for name in found:
    strings = table_of(name)
    if strings.keys() == texts.keys():
        agrees(name, strings, texts)
    else:
        faults.append(f"{name} has other keys than English: {sorted(strings.keys() ^ texts.keys())}")
print("\n".join(faults) or f"{len(found)} languages of {len(texts)} texts agree")
sys.exit(bool(faults))
