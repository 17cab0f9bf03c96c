"""The rows of the benchmarks' table."""


class Row:
    """One comparison. With a target the ratio of ours to the other's decides, or, where there is no other, our figure."""

    def __init__(self, what, ours, other, at_most=None, at_least=None):
        self.what = what
        self.ours = ours
        self.other = other
        self._at_most = at_most
        self._at_least = at_least

    @property
    def ratio(self):
        return None if self.other is None else self.ours / self.other

    @property
    def missed(self):
        decisive = self.ours if self.ratio is None else self.ratio
        return ((self._at_most is not None and decisive > self._at_most) or
                (self._at_least is not None and decisive < self._at_least))

    def cells(self):
        target, verdict = "", ""
        if self._at_most is not None:
            target = "at most %g" % self._at_most
        if self._at_least is not None:
            target = "at least %g" % self._at_least
        if target:
            verdict = "missed" if self.missed else "ok"
        return [self.what, figure(self.ours), figure(self.other), "" if self.ratio is None else "%.2f" % self.ratio,
                target, verdict]


def figure(number):
    if number is None:
        return ""
    return "%.0f" % number if number >= 1000 else "%.3g" % number


def table(rows):
    """As Markdown, its columns aligned."""
    lines = [["what", "ours", "other", "ratio", "target", ""]] + [row.cells() for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    lines.insert(1, ["-" * width for width in widths])

    def text(line):
        first = [line[0].ljust(widths[0])]
        return "| " + " | ".join(first + [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]) + " |"

    return "\n".join(text(line) for line in lines)
