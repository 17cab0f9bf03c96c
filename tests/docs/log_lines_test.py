"""Every log line of the host stands in docs/log-lines.md, with its cause and what to do; and no other one does."""

import os
import pathlib
import re
import unittest

from log_lines import log_lines, pattern_of

SOURCE_DIR = pathlib.Path(os.environ.get("TAMREL_SOURCE_DIR") or pathlib.Path(__file__).resolve().parents[2])
PAGE = SOURCE_DIR / "docs" / "log-lines.md"
ROW = re.compile(r"^\| (\w+) \| (`.+?`(?:, `.+?`)*) \| (.+) \| (.+) \|$")


def rows():
    """(level, line) of each row of the page's tables."""
    found = []
    for text in PAGE.read_text(encoding="utf-8").splitlines():
        row = ROW.match(text)
        if row:
            found += [(row.group(1), line) for line in re.findall(r"`(.+?)`", row.group(2))]
    return found


class LogLines(unittest.TestCase):
    maxDiff = None

    def test_every_line_is_told_with_its_cause_and_what_to_do(self):
        told = {line for _, line in rows()}
        missing = ["%s %s: %s" % (line.level, line.place, line.pattern) for line in log_lines(SOURCE_DIR)
                   if line.pattern not in told]
        self.assertEqual(missing, [])

    def test_no_line_is_told_that_nobody_writes(self):
        written = {line.pattern for line in log_lines(SOURCE_DIR)}
        sources = "\n".join(path.read_text(encoding="utf-8") for path in sorted((SOURCE_DIR / "host").rglob("*.cpp")))
        texts = re.sub(r'"\s*\n\s*"', "", sources)  # a text over several lines
        unknown = []
        for _, line in rows():
            # A line that is put together in several places: all its words are in the sources, in their order.
            pieces = re.findall(r"[A-Za-z][A-Za-z' ]{3,}", line.replace("%s", "|"))
            if line not in written and not (pieces and all(piece.strip() in texts for piece in pieces)):
                unknown.append(line)
        self.assertEqual(unknown, [])

    def test_levels_are_those_that_are_written(self):
        levels = {"fault": "error"}
        written = {}
        for line in log_lines(SOURCE_DIR):
            written.setdefault(line.pattern, set()).add(levels.get(line.level, line.level))
        wrong = ["%s %s: %s" % (level, "/".join(sorted(written[line])), line) for level, line in rows()
                 if line in written and level not in written[line]]
        self.assertEqual(wrong, [])


class Patterns(unittest.TestCase):
    def test_values_between_texts_are_marks(self):
        self.assertEqual(pattern_of('"a " + std::to_string(n) + " b: " + x'), "a %s b: %s")
        self.assertEqual(pattern_of('std::string("a: ") + e.what()'), "a: %s")
        self.assertEqual(pattern_of('{"a ", std::to_string(n), ": ", e.what()}'), "a %s: %s")
        self.assertEqual(pattern_of('"one "\n   "text"'), "one text")
        self.assertEqual(pattern_of('name + " said \\"no\\""'), '%s said "no"')


if __name__ == "__main__":
    unittest.main()
