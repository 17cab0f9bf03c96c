"""The lines that host and tools write to the log, as patterns: each value in them is %s.

    for line in log_lines(source_folder):
        line.place, line.level, line.pattern  # "host/agent/reload/reloader.cpp:201", "info", "the configuration was reloaded"

Read from the calls of the logging functions. A call whose text was put together elsewhere gives no pattern here.
"""

import pathlib
import re
from collections import namedtuple

LogLine = namedtuple("LogLine", "place level pattern")

CALL = re.compile(r"\b(?:agent_log::(?P<level>debug|info|warn|error|fault)|logLine)\(")
LEVEL = re.compile(r"LogLevel::(\w+)")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
CHOICE = re.compile(r'\?\s*"(?:[^"\\]|\\.)*"\s*:\s*"(?:[^"\\]|\\.)*"')  # one of two texts: a value like others
NO_VALUE = re.compile(r"std::string\(|[\s{}()+,;]")  # between texts, where no value stands


def arguments_of(source, opening):
    """What stands between the parenthesis at `opening` and its partner."""
    depth, at = 0, opening
    while True:
        if source[at] == '"':
            at = LITERAL.match(source, at).end() - 1
        depth += {"(": 1, ")": -1}.get(source[at], 0)
        if depth == 0:
            return source[opening + 1:at]
        at += 1


def pattern_of(expression):
    """Literals as they are, %s for what stands between them."""
    expression, pattern, at = CHOICE.sub("", expression), "", 0
    for literal in LITERAL.finditer(expression):
        if NO_VALUE.sub("", expression[at:literal.start()]):
            pattern += "%s"
        pattern += literal.group(1).replace('\\"', '"').replace("\\n", "\n")
        at = literal.end()
    return pattern + ("%s" if NO_VALUE.sub("", expression[at:]) else "")


def lines_of(path, name):
    source = path.read_text(encoding="utf-8")
    for call in CALL.finditer(source):
        arguments = arguments_of(source, call.end() - 1)
        level = call.group("level")
        if level is None:  # logLine(subsystem, level, text)
            subsystem, given, text = (arguments.split(",", 2) + ["", ""])[:3]
            level = "".join(LEVEL.findall(given)).lower()
            if not level or not subsystem:
                continue  # the function's own definition
            arguments = text
        pattern = pattern_of(arguments)
        if re.search(r"[A-Za-z]{3}", pattern.replace("%s", "")):
            yield LogLine("%s:%d" % (name, source[:call.start()].count("\n") + 1), level, pattern)


def log_lines(source_folder):
    root = pathlib.Path(source_folder)
    for path in sorted((root / "host").rglob("*.cpp")):
        yield from lines_of(path, str(path.relative_to(root)))
