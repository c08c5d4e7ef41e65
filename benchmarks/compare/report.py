"""The table and the plot of a comparison."""

import dataclasses
import html
import math

import targets


@dataclasses.dataclass
class Figures:
    median: float
    fastest: float
    slowest: float
    processor: float
    peak: int


@dataclasses.dataclass
class Row:
    key: str
    title: str
    figures: dict
    failures: dict


def seconds(value):
    return f"{value:.3f}" if value < 1 else f"{value:.2f}" if value < 100 else f"{value:.0f}"


def markdown(rows, about, scale):
    """The targets, which count at the full scale alone, then a table a workload, fastest first, with the ratio to
    the first participant, which is ours."""
    lines = ["<!-- made by `make bench` -->", ""]
    lines += [line + "  " for line in about]
    lines += targets.markdown(scale, rows) if scale else []
    for row in rows:
        ours = next(iter(row.figures.values()))
        lines += ["", f"### {row.title[0].upper()}{row.title[1:]}", "",
                  "| participant | median s | range s | ratio | processor s | peak memory MB |",
                  "|---|---|---|---|---|---|"]
        for name, figures in sorted(row.figures.items(), key=lambda item: item[1].median):
            bold = "**" if name.startswith("kx") else ""
            lines.append(f"| {bold}{name}{bold} | {seconds(figures.median)} | {seconds(figures.fastest)} to "
                         f"{seconds(figures.slowest)} | {figures.median / ours.median:.2f} | "
                         f"{seconds(figures.processor)} | {figures.peak / 1024:.1f} |")
        lines += [f"| {name} | failed: {problem.splitlines()[0][:80]} | | | | |"
                  for name, problem in row.failures.items()]
    return "\n".join(lines) + "\n"


class Plot:
    """Bars on a logarithmic scale: a group for each workload, a bar for each participant."""

    left, width, bar, gap = 190, 620, 13, 26
    colours = {"kxvfs": "#0b6e4f", "kx_driver, not synced": "#0b6e4f", "kx_driver, synced": "#6bb392"}
    other = "#9aa5b1"

    def __init__(self, rows):
        values = [figures.median for row in rows for figures in row.figures.values()]
        self.low = 10 ** math.floor(math.log10(min(values)))
        self.high = 10 ** math.ceil(math.log10(max(values)))
        self.parts, self.y = [], 40
        for row in rows:
            self._group(row)
        self._axis()

    def _x(self, value):
        span = math.log10(self.high / self.low) or 1
        return self.left + self.width * math.log10(max(value, self.low) / self.low) / span

    def _text(self, x, y, text, size=11, anchor="start", weight="normal"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}" '
                          f'font-weight="{weight}" fill="#222">{html.escape(text)}</text>')

    def _group(self, row):
        self._text(10, self.y, row.title, 12, weight="bold")
        self.y += 6
        for name, figures in sorted(row.figures.items(), key=lambda item: item[1].median):
            end = self._x(figures.median)
            colour = self.colours.get(name, self.other)
            self.parts.append(f'<rect x="{self.left}" y="{self.y}" width="{max(end - self.left, 1):.1f}" '
                              f'height="{self.bar - 3}" fill="{colour}"/>')
            self.parts.append(f'<line x1="{self._x(figures.fastest):.1f}" x2="{self._x(figures.slowest):.1f}" '
                              f'y1="{self.y + 5}" y2="{self.y + 5}" stroke="#222"/>')
            self._text(self.left - 6, self.y + 9, name, 10, "end")
            self._text(max(end, self._x(figures.slowest)) + 5, self.y + 9, seconds(figures.median), 10)
            self.y += self.bar
        self.y += self.gap

    def _axis(self):
        value = self.low
        lines = []
        while value <= self.high * 1.01:
            x = self._x(value)
            lines.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="24" y2="{self.y}" stroke="#ddd"/>')
            self._text(x, 18, f"{value:g} s", 10, "middle")
            value *= 10
        self.parts = lines + self.parts

    def svg(self):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.left + self.width + 70}" height="{self.y}" '
                'font-family="sans-serif"><rect width="100%" height="100%" fill="white"/>'
                + "".join(self.parts) + "</svg>\n")


def svg(rows):
    return Plot(rows).svg()
