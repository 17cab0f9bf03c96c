"""The man pages beside the programs: every option, every command and every word of the configuration, and nothing else."""

import os
import pathlib
import re
import subprocess
import unittest

SOURCE = pathlib.Path(os.environ["TAMREL_SOURCE_DIR"])
PROGRAMS = pathlib.Path(os.environ["TAMREL_PROGRAM_DIR"])


def page(name):
    """The text of a page with its escapes resolved as far as words are concerned."""
    return (SOURCE / "docs/man" / name).read_text(encoding="utf-8").replace("\\-", "-").replace("\\(dq", '"')


def help_of(program, *command):
    return subprocess.run([str(PROGRAMS / program), *command, "--help"], stdout=subprocess.PIPE, text=True,
                          check=True).stdout


def options_in(text):
    return set(re.findall(r"--[a-z][a-z-]+", text)) - {"--help", "--version"}


def commands_of(program, *command):
    """Names below "Subcommands:" in a help text."""
    after = help_of(program, *command).partition("Subcommands:")[2]
    return re.findall(r"^  (\w+) ", after, re.M)


class ManPages(unittest.TestCase):
    def test_the_daemons_pages_have_every_option(self):
        for program in ("vrx-agentd", "vrx-backendd"):
            self.assertEqual(options_in(page(program + ".8")), options_in(help_of(program)), program)

    def test_the_tools_page_has_every_command_and_option(self):
        text = page("vrxctl.1")
        options = options_in(help_of("vrxctl"))
        for command in commands_of("vrxctl"):
            self.assertRegex(text, r'(?m)^\.BI? "%s|^\.BR "%s|^\.B %s' % ((command,) * 3))
            options |= options_in(help_of("vrxctl", command))
            for below in commands_of("vrxctl", command):
                self.assertRegex(text, r"%s %s" % (command, below))
                options |= options_in(help_of("vrxctl", command, below))
        self.assertEqual(options_in(text), options)

    def test_the_configurations_page_has_every_word_of_our_own(self):
        registered = set()
        for file in (SOURCE / "host/agent").rglob("*_directives.cpp"):
            registered |= set(re.findall(r'"(vrx[A-Z]\w*)"', file.read_text(encoding="utf-8")))
        written = set(re.findall(r"\bvrx(?!TrapDest)[A-Z]\w*", page("vrx-agentd.conf.5")))
        self.assertEqual(written, registered)

    def test_pages_refer_to_pages_that_are_there(self):
        ours = {file.name for file in (SOURCE / "docs/man").iterdir()}
        for name in ours:
            for other, section in re.findall(r"^\.BR ((?:vrx)[\w.-]*) \((\d)\)", page(name), re.M):
                self.assertIn("%s.%s" % (other, section), ours, name)


if __name__ == "__main__":
    unittest.main()
