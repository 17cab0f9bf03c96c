"""Every log line of the host is a row of host/log_lines/, and docs/log-lines.md is what the rows make."""

import os
import pathlib
import re
import subprocess
import unittest

SOURCE_DIR = pathlib.Path(os.environ.get("TAMREL_SOURCE_DIR") or pathlib.Path(__file__).resolve().parents[2])
BUILD_DIR = pathlib.Path(os.environ.get("TAMREL_BUILD_DIR") or SOURCE_DIR / "build" / "release")
COMPILER = os.environ.get("CXX") or "c++"

ROWS = """
#include "host/log_lines/log_row.h"
namespace vrx::lines {
LOG_LINE(EXAMPLE, "agent", Info, "{} has {} rows", "cause", "remedy");
%s
}
"""
CALLS = """
#include "host/base/log_line.h"
struct Unknown {};
void write(const char* name) {
    using vrx::lines::EXAMPLE;
    vrx::logLine<EXAMPLE>(name, 7u);
    vrx::logFault<EXAMPLE>(name, 7u);
    %s
}
"""


def printed(*arguments):
    return subprocess.run([BUILD_DIR / "bin" / "log_lines_page", *arguments], check=True, stdout=subprocess.PIPE,
                          encoding="utf-8").stdout


def faults_of(rows="", calls=""):
    """The faults that the compiler finds, one text each."""
    source = ROWS % rows + CALLS % calls
    said = subprocess.run([COMPILER, "-std=c++17", "-fsyntax-only", "-I", SOURCE_DIR, "-x", "c++", "-"], input=source,
                          capture_output=True, encoding="utf-8").stderr
    return [line for line in said.splitlines() if " error: " in line]


class Page(unittest.TestCase):
    maxDiff = None

    def test_it_is_what_the_rows_make(self):
        page = (SOURCE_DIR / "docs" / "log-lines.md").read_text(encoding="utf-8")
        self.assertEqual(page, printed(), "scripts/generate-log-lines writes it anew")

    def test_it_has_the_rows_of_every_header(self):
        names = printed("--names").split()
        self.assertEqual(len(names), len(set(names)))
        rows = sum(header.read_text(encoding="utf-8").count("\nLOG_LINE(")
                   for header in (SOURCE_DIR / "host" / "log_lines").glob("*.h"))
        self.assertEqual(len(names), rows)


class Sources(unittest.TestCase):
    def setUp(self):
        files = [path for pattern in ("*.h", "*.cpp") for path in sorted((SOURCE_DIR / "host").rglob(pattern))]
        self.texts = {str(path.relative_to(SOURCE_DIR)): path.read_text(encoding="utf-8") for path in files}

    def test_every_row_is_written_somewhere(self):
        used = set(re.findall(r"\blines::(\w+)>\(", "\n".join(self.texts.values())))
        self.assertEqual([name for name in printed("--names").split() if name not in used], [])

    def test_nobody_writes_a_text_that_is_no_row(self):
        past_the_rows = re.compile(r"\bwrite(?:Log|Fault)Line\b|#include <spdlog/")
        self.assertEqual([path for path, text in self.texts.items()
                          if not path.startswith("host/base/log") and past_the_rows.search(text)], [])


class Checked(unittest.TestCase):
    """What does not compile."""

    def test_calls_with_the_values_of_their_row_compile(self):
        self.assertEqual(faults_of(), [])

    def test_a_row_with_another_brace_does_not(self):
        texts = ("{:x}", "{0}", "{} rows}", "{} rows {", "{{}}")
        rows = ["LOG_LINE(WRONG_%d, \"agent\", Info, \"%s\", \"cause\", \"remedy\");" % row for row in enumerate(texts)]
        faults = faults_of(rows="\n".join(rows))
        self.assertEqual(["braces" in fault for fault in faults], [True] * len(texts), faults)

    def test_a_row_of_an_unknown_subsystem_does_not(self):
        faults = faults_of(rows="LOG_LINE(WRONG, \"agnet\", Info, \"text\", \"cause\", \"remedy\");")
        self.assertEqual(["LOG_SUBSYSTEMS" in fault for fault in faults], [True], faults)

    def test_a_value_too_few_or_too_many_does_not(self):
        values = ("()", "(name)", "(name, 7u, 8u)")
        calls = ["vrx::%s<EXAMPLE>%s;" % (function, given) for function in ("logLine", "logFault") for given in values]
        faults = faults_of(calls="\n".join(calls))
        self.assertEqual(["one value for each {}" in fault for fault in faults], [True] * len(calls), faults)

    def test_a_value_that_has_no_text_does_not(self):
        faults = faults_of(calls="vrx::logLine<EXAMPLE>(name, Unknown());")
        self.assertTrue(faults and all("Cannot format" in fault for fault in faults[:1]), faults)


if __name__ == "__main__":
    unittest.main()
