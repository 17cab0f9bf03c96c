"""The rows of the benchmarks' table."""

import statistics


class Row:
    """One comparison. With a target the ratio of ours to the other's decides, or, where there is no other, our figure."""

    def __init__(self, what, ours, other=None, at_most=None, at_least=None):
        self.what = what
        self.ours = ours
        self.other = other
        self.ratio = None if other is None else ours / other
        self._at_most = at_most
        self._at_least = at_least

    @classmethod
    def of(cls, what, measured, **target):
        row = cls(what, measured.ours, measured.other, **target)
        row.ratio = measured.ratio
        return row

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


class Measured:
    """One figure of ours and of the other's, taken by turns. The ratio is the median of the turns' own ratios: what slows
    the machine down for a while slows both of a turn."""

    def __init__(self):
        self._turns = []

    def add(self, ours, other):
        self._turns.append((ours, other))

    ours = property(lambda self: statistics.median(ours for ours, _ in self._turns))
    other = property(lambda self: statistics.median(other for _, other in self._turns))
    ratio = property(lambda self: statistics.median(ours / other for ours, other in self._turns))


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
