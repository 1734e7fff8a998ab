# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The results as one picture."""
from __future__ import annotations

import html
import math
import re
import statistics
from typing import Any, Callable, Mapping, Sequence

from benchmarks.measure import Row

WIDTH = 960
MARGIN = 24
LABELS = 190  # room for what stands left of bars and dots
OURS, FLOOR, PEER, GOAL = "#1b6ca8", "#d1742a", "#9aa5b1", "#c0392b"
PALETTE = ("#1b6ca8", "#5fa3d0", "#a9cfe8", "#d1742a", "#e8b27f", "#6b7f5e", "#b8c4a9")


class Picture:
    """Elements from the top down; `y` is where the next panel begins."""

    def __init__(self) -> None:
        self.y = MARGIN
        self._elements: list[str] = []

    def add(self, name: str, content: str = "", **attributes: Any) -> None:
        given = " ".join(f'{key.replace("_", "-")}="{value:.1f}"' if isinstance(value, float)
                         else f'{key.replace("_", "-")}="{value}"'
                         for key, value in attributes.items())
        self._elements.append(f"<{name} {given}>{content}</{name}>")

    def text(self, x: float, y: float, text: str, *, anchor: str = "start", size: int = 12,
             colour: str = "#333", weight: str = "normal") -> None:
        self.add("text", html.escape(text), x=float(x), y=float(y), text_anchor=anchor,
                 font_size=size, fill=colour, font_weight=weight)

    def line(self, x1: float, y1: float, x2: float, y2: float, colour: str, dashes: str = "none",
             width: float = 1.0) -> None:
        self.add("line", x1=float(x1), y1=float(y1), x2=float(x2), y2=float(y2), stroke=colour,
                 stroke_dasharray=dashes, stroke_width=width)

    def bar(self, x: float, y: float, width: float, height: float, colour: str) -> None:
        self.add("rect", x=float(x), y=float(y), width=float(width), height=float(height),
                 fill=colour)

    def curve(self, points: Sequence[tuple[float, float]], colour: str) -> None:
        self.add("polyline", points=" ".join(f"{x:.1f},{y:.1f}" for x, y in points), fill="none",
                 stroke=colour, stroke_width=2)

    def dot(self, x: float, y: float, radius: float, colour: str, opacity: float = 1.0) -> None:
        self.add("circle", cx=float(x), cy=float(y), r=float(radius), fill=colour,
                 fill_opacity=opacity)

    def title(self, title: str, explanation: str) -> None:
        self.text(MARGIN, self.y + 14, title, size=16, weight="bold", colour="#111")
        self.text(MARGIN, self.y + 32, explanation, colour="#666")
        self.y += 48

    def legend(self, entries: Mapping[str, str]) -> None:
        x = MARGIN
        for name, colour in entries.items():
            self.bar(x, self.y, 10, 10, colour)
            self.text(x + 14, self.y + 9, name, size=11)
            x += 24 + 7 * len(name)
        self.y += 22

    def whole(self) -> str:
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{self.y:.0f}" '
                f'viewBox="0 0 {WIDTH} {self.y:.0f}" font-family="sans-serif">\n'
                f'<rect width="100%" height="100%" fill="white"/>\n'
                + "\n".join(self._elements) + "\n</svg>\n")


def axis(low: float, high: float, begin: float, end: float) -> Callable[[float], float]:
    return lambda value: begin + (value - low) / (high - low) * (end - begin)


def draw_ratios(picture: Picture, entries: Sequence[tuple[str, Sequence[float], float]],
                range_: tuple[float, float], labels: int) -> None:
    """`entries`: a name, the rounds' ratios, and the goal, of each."""
    low, high = range_
    scale = axis(low, high, labels + MARGIN, WIDTH - MARGIN - 60)

    def place(ratio: float) -> float:
        return scale(min(max(ratio, low), high))

    for name, samples, goal in entries:
        middle = picture.y + 12
        picture.text(MARGIN, middle + 4, name)
        picture.line(place(low), middle, place(high), middle, "#eee")
        picture.line(place(1), middle - 11, place(1), middle + 11, "#999")
        if goal <= high:
            picture.line(place(goal), middle - 11, place(goal), middle + 11, GOAL, "3 2")
        for sample in samples:
            picture.dot(place(sample), middle, 3, OURS, 0.3)
        picture.dot(place(statistics.median(samples)), middle, 5, OURS)
        picture.text(WIDTH - MARGIN, middle + 4, f"{statistics.median(samples):.3f}", anchor="end")
        picture.y += 26
    picture.y += 24


def draw_archiving(picture: Picture, rows: Sequence[Row]) -> None:
    timed = [row for row in rows if row.section == "archiving" and row.peer_name != "logrotate"
             and ("tmpfs" in row.what) == ("processor" in row.what)
             and not row.what.startswith("1 KiB")]  # there the ratio says nothing
    if not timed:
        return
    picture.title("Archiving", "the daemon's time as a multiple of bare xz's: each round, and the "
                  "median; dashed: the goal, 1.02 (at 200 KiB: 3 ms more)")
    draw_ratios(picture, [
        (row.what, [ours / peer for ours, peer in zip(row.ours, row.peer)],
         1.02 if row.comparison == "ratio" else 1 + 0.003 / statistics.median(row.peer))
        for row in timed], (0.9, 1.2), LABELS)


def draw_reading(picture: Picture, rows: Sequence[Row]) -> None:
    compared = [row for row in rows if row.section == "reading" and row.peer_name]
    if not compared:
        return
    picture.title("Reading", "the command's time as a multiple of its peer's: each round, and the "
                  "median; dashed: the goal")
    draw_ratios(picture, [(f"{row.what}, beside {row.peer_name}", row.figures(), row.goal or math.inf)
                          for row in compared], (0, 2), 2 * LABELS)


def draw_idlers(picture: Picture, idlers: Mapping[str, Mapping[str, float]]) -> None:
    picture.title("Memory when idle", "resident, in KiB; dark: the anonymous part of it")
    place = axis(0, max(each["resident_kib"] for each in idlers.values()), LABELS + MARGIN,
                 WIDTH - MARGIN - 60)
    for name, figures in sorted(idlers.items(), key=lambda entry: entry[1]["resident_kib"]):
        own = name in ("static", "dynamic")
        picture.text(MARGIN, picture.y + 14, f"vandis-moraine, {name}" if own else name)
        for field, colour in (("resident_kib", PALETTE[1] if own else "#cfd6dd"),
                              ("anonymous_kib", OURS if own else PEER)):
            picture.bar(place(0), picture.y, place(figures[field]) - place(0), 18, colour)
        picture.text(place(figures["resident_kib"]) + 6, picture.y + 14,
                     f"{figures['resident_kib']:.0f}")
        picture.y += 24
    picture.y += 24


def draw_scale(picture: Picture, rows: Sequence[Row]) -> None:
    curves: dict[str, list[tuple[int, float, float]]] = {}
    for row in rows:
        match = re.fullmatch(r"(.*), (\d+) files, tmpfs", row.what)
        if match:
            curves.setdefault(match.group(1), []).append(
                (int(match.group(2)), statistics.median(row.ours), statistics.median(row.peer)))
    if not curves:
        return
    picture.title("Archives of many files", "processor time in ms by the number of files, both "
                  "logarithmic, on a tmpfs")
    picture.legend({"ours": OURS, "floor: find -printf, rename(2) or unlink(2)": FLOOR})
    counts = sorted({count for curve in curves.values() for count, _, _ in curve})
    times = [time * 1000 for curve in curves.values() for _, *pair in curve for time in pair]
    low = math.floor(math.log10(min(times)))
    high = math.ceil(math.log10(max(times)))
    width, height, columns = (WIDTH - 2 * MARGIN) / 3, 150, 3
    for number, (name, curve) in enumerate(curves.items()):
        left = MARGIN + number % columns * width
        top = picture.y + number // columns * (height + 56)
        draw_scale_panel(picture, (left + 40, top + 20, width - 60, height), name, curve, counts,
                         (low, high))
    picture.y += math.ceil(len(curves) / columns) * (height + 56) + 8


def draw_scale_panel(picture: Picture, area: tuple[float, float, float, float], name: str,
                     curve: Sequence[tuple[int, float, float]], counts: Sequence[int],
                     decades: tuple[int, int]) -> None:
    left, top, width, height = area
    across = axis(math.log10(counts[0]), math.log10(counts[-1]), left, left + width)
    up = axis(*decades, top + height, top)
    picture.text(left, top - 8, name, weight="bold")
    for decade in range(decades[0], decades[1] + 1):
        picture.line(left, up(decade), left + width, up(decade), "#e5e5e5")
        picture.text(left - 6, up(decade) + 4, f"{10**decade:g}", anchor="end", size=11)
    for count in counts:
        picture.text(across(math.log10(count)), top + height + 16, f"{count:,}", anchor="middle",
                     size=11)
    for index, colour in ((2, FLOOR), (1, OURS)):
        points = [(across(math.log10(point[0])), up(math.log10(point[index] * 1000)))
                  for point in curve]
        picture.curve(points, colour)
        for x, y in points:
            picture.dot(x, y, 3, colour)


def draw_footprint(picture: Picture, builds: Sequence[Mapping[str, Any]],
                   rows: Sequence[Row]) -> None:
    picture.title("Footprint", "loaded sections in KiB; dashed: the goal for the stripped file")
    sections = list(builds[0]["sections"])
    picture.legend(dict(zip(sections, PALETTE)))
    goals = {row.what.partition(":")[0]: row.goal for row in rows if row.section == "footprint"}
    place = axis(0, max(build["size"] for build in builds), LABELS + MARGIN, WIDTH - MARGIN - 70)
    for build in builds:
        picture.text(MARGIN, picture.y + 14, build["build"])
        begin = 0
        for section, colour in zip(sections, PALETTE):
            size = build["sections"][section]
            picture.bar(place(begin), picture.y, place(size) - place(0), 18, colour)
            begin += size
        goal = goals.get(build["build"])
        if goal:
            picture.line(place(goal), picture.y - 3, place(goal), picture.y + 21, GOAL, "3 2")
        picture.text(WIDTH - MARGIN, picture.y + 14, f"file {build['size'] / 1024:.0f}",
                     anchor="end")
        picture.y += 26
    picture.y += 24


def draw_floods(picture: Picture, floods: Sequence[Mapping[str, Any]]) -> None:
    picture.title("Sustained load", "rotations that wait for the archive, over the seconds of a "
                  "flood; with the tenth, syslogd has no further name")
    names = [f"{flood['factor']:.0%} of the sustained rate" for flood in floods]
    colours = (OURS, FLOOR)
    picture.legend(dict(zip(names, colours)))
    height, left = 140, MARGIN + 30
    seconds = max(flood["waiting"][-1][0] for flood in floods)
    across = axis(0, seconds, left, WIDTH - MARGIN)
    up = axis(0, 10, picture.y + height, picture.y)
    for number in (0, 5, 10):
        picture.line(left, up(number), WIDTH - MARGIN, up(number), "#e5e5e5")
        picture.text(left - 6, up(number) + 4, str(number), anchor="end", size=11)
    for second in range(0, int(seconds) + 1, 30):
        picture.text(across(second), picture.y + height + 16, f"{second} s", anchor="middle",
                     size=11)
    for flood, colour in zip(floods, colours):
        picture.curve([(across(time), up(number)) for time, number in flood["waiting"]], colour)
    picture.y += height + 40


def draw(results: Mapping[str, Any], rows: Sequence[Row]) -> str:
    picture = Picture()
    picture.text(MARGIN, picture.y + 4, results["machine"], colour="#666")
    picture.y += 24
    draw_archiving(picture, rows)
    if "idlers" in results:
        draw_idlers(picture, results["idlers"])
    draw_scale(picture, rows)
    if "footprint" in results:
        draw_footprint(picture, results["footprint"], rows)
    if "floods" in results:
        draw_floods(picture, results["floods"])
    draw_reading(picture, rows)
    return picture.whole()
