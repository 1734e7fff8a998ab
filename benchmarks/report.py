# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The results as plain text."""
from __future__ import annotations

import statistics
from typing import Any, Iterable, Mapping, Sequence

from benchmarks.measure import Row

UNITS = {"s": ((1, "s"), (1e-3, "ms"), (1e-6, "us")),
         "B": ((2**20, "MiB"), (2**10, "KiB"), (1, "B"))}


def amount(value: float, unit: str) -> str:
    """With the unit in which it is at least 1."""
    scales = UNITS.get(unit, ((1, unit),))
    scale, name = next((entry for entry in scales if abs(value) >= entry[0]), scales[-1])
    shown = value / scale
    digits = 0 if shown == int(shown) else max(0, 3 - len(str(int(abs(shown)))))
    return f"{shown:,.{digits}f} {name}".rstrip()


def with_spread(row: Row) -> str:
    """The comparison's median, and its lowest and highest where they differ."""
    figures = row.figures()

    def show(value: float) -> str:
        if row.comparison == "ratio":
            return f"{value:.3f}"
        sign = "+" if row.comparison == "difference" and value > 0 else ""
        return sign + amount(value, row.unit)

    low, high = show(min(figures)), show(max(figures))
    return show(row.figure) + (f" ({low} to {high})" if low != high else "")


def goal_of(row: Row) -> str:
    if row.goal is None:
        return ""
    limit = f"{row.goal:g}" if row.comparison == "ratio" else amount(row.goal, row.unit)
    return f"{limit} at most{'' if row.is_met else ': NOT MET'}"


def table(head: Sequence[str], lines: Iterable[Sequence[str]]) -> str:
    """The first column to the left, the others to the right."""
    cells = [list(head), *map(list, lines)]
    widths = [max(len(line[column]) for line in cells) for column in range(len(head))]
    return "\n".join("  ".join(
        cell.ljust(width) if column == 0 else cell.rjust(width)
        for column, (cell, width) in enumerate(zip(line, widths))).rstrip() for line in cells)


def rows_table(rows: Sequence[Row]) -> str:
    def line(row: Row) -> list[str]:
        ours = amount(statistics.median(row.ours), row.unit)
        if row.comparison == "value":
            return [row.what, with_spread(row), "", "", goal_of(row)]
        peer = f"{row.peer_name} {amount(statistics.median(row.peer), row.unit)}"
        return [row.what, ours, peer, with_spread(row), goal_of(row)]

    return table(["", "ours", "beside", "ratio or difference", "goal"], map(line, rows))


def idlers_table(idlers: Mapping[str, Mapping[str, float]], window: float) -> str:
    return table(["", "resident", "anonymous", "open files", "wake-ups a minute",
                  "processor time a minute"], (
        [name, amount(figures["resident_kib"], "KiB"), amount(figures["anonymous_kib"], "KiB"),
         f"{figures['descriptors']}", f"{figures['wake_ups'] * 60 / window:g}",
         amount(figures["processor_us"] * 60 / window / 1e6, "s")]
        for name, figures in idlers.items()))


def footprint_table(builds: Sequence[Mapping[str, Any]]) -> str:
    sections = list(builds[0]["sections"])
    return table(["in bytes", "stripped", "relocations", *sections], (
        [build["build"], f"{build['size']}", f"{build['relocations']}",
         *(f"{build['sections'][section]}" for section in sections)] for build in builds))


def load_table(loads: Sequence[Mapping[str, float]]) -> str:
    return table(["rotation size", "xz takes", "sustained", "a day", "processor 10 times slower"], (
        [amount(load["rotation_kib"] * 1024, "B"), amount(load["xz_seconds"], "s"),
         amount(load["bytes_per_second"], "B") + "/s",
         amount(load["bytes_per_second"] * 86400, "B"),
         amount(load["bytes_per_second_slow"], "B") + "/s"] for load in loads))


def flood_line(flood: Mapping[str, Any]) -> str:
    most = max(number for _, number in flood["waiting"])
    seconds = flood["waiting"][-1][0]
    return (f"{flood['factor']:.0%} of it ({amount(flood['bytes_per_second'], 'B')}/s) for "
            f"{seconds:.0f} s: {most} rotations waited at most, {flood['lines_lost']} of "
            f"{flood['lines_written']} lines lost")


def text(results: Mapping[str, Any], rows: Sequence[Row]) -> str:
    parts = [f"{results['machine']}"]
    for section in dict.fromkeys(row.section for row in rows):
        parts.append(f"{section.upper()}\n" + rows_table([r for r in rows if r.section == section]))
        if section == "idle" and "idlers" in results:
            parts.append("A cycle: " + ", ".join(results["cycle"]))
            parts.append(idlers_table(results["idlers"], results["window"]))
        if section == "footprint":
            parts.append(footprint_table(results["footprint"]))
    if "load" in results:
        parts.append("SUSTAINED LOAD\n" + load_table(results["load"]))
        parts += [flood_line(flood) for flood in results.get("floods", [])]
    missed = [row for row in rows if row.is_met is False]
    parts.append(f"{len(missed)} of {sum(row.goal is not None for row in rows)} goals not met"
                 + "".join(f"\n  {row.section}: {row.what}" for row in missed))
    return "\n\n".join(parts) + "\n"
