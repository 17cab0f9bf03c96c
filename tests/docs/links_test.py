"""Documents point to what is there: their links and anchors, and the files and folders that they name in backquotes."""

import os
import pathlib
import re
import unittest

SOURCE = pathlib.Path(os.environ["TAMREL_SOURCE_DIR"])
TOPS = [path for path in SOURCE.iterdir() if path.name[0] != "." and path.name != "build"]
FOLDERS = {path.name for path in TOPS if path.is_dir()}
FILES = [file for top in TOPS for file in ([top] if top.is_file() else top.rglob("*"))]
NAMES = {file.name for file in FILES}
PAGES = sorted(file for file in FILES if file.suffix == ".md")
INSTALLED = ("share/doc", "share/man", "share/snmp", "share/vrx")  # below a prefix, not in this tree


def prose(page):
    text = re.sub(r"^```.*?^```", "", page.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    return re.sub(r"^    .*$", "", text, flags=re.MULTILINE)


def anchors(page):
    headings = re.findall(r"^#+ (.+)$", page.read_text(encoding="utf-8"), flags=re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


class Links(unittest.TestCase):
    def test_links_lead_to_files_and_headings(self):
        links = [(page, target) for page in PAGES
                 for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`\n]*`", "", prose(page)))
                 if not re.match(r"[a-z]+:", target)]
        self.assertGreater(len(links), 100)
        for page, target in links:
            path, _, anchor = target.partition("#")
            file = page.parent / path if path else page
            with self.subTest(page=str(page.relative_to(SOURCE)), target=target):
                self.assertTrue(file.exists())
                self.assertTrue(not anchor or anchor in anchors(file), "no such heading")

    def test_named_files_exist(self):
        names = [(page, name) for page in PAGES for name in re.findall(r"`([\w./*-]+)`", prose(page))]
        paths = [(page, name) for page, name in names
                 if name.split("/")[0] in FOLDERS and "/" in name and not name.startswith(INSTALLED)]
        files = [(page, name) for page, name in names if re.fullmatch(r"\w+\.(h|cpp|py)", name)]
        self.assertGreater(min(len(paths), len(files)), 100)
        for page, name in paths:
            with self.subTest(page=str(page.relative_to(SOURCE)), name=name):
                self.assertTrue([*page.parent.glob(name), *SOURCE.glob(name), *SOURCE.glob(name.rstrip("/") + ".*")])
        for page, name in files:
            with self.subTest(page=str(page.relative_to(SOURCE)), name=name):
                self.assertTrue(name in NAMES, "no such file")


if __name__ == "__main__":
    unittest.main()
