"""The rows of scripts/bench, and the page that they are written to."""

import dataclasses
import os
import pathlib
import platform
import re
import statistics
import subprocess

from matplotlib.figure import Figure

from harness.constants import PROJECT

PAGE = PROJECT / "docs/performance.md"
PICTURE = PROJECT / "docs/images/performance.png"
PACKAGES = ("g++-mingw-w64-x86-64-posix", "libwine", "libssl-dev", "coreutils", "curl", "nginx-light")

# Up to here the time for a unit counts as constant. With n log n it would reach 1.67 from 1,000 units on.
LINEAR = 1.25

Pairs = list[tuple[float, float]]

WINE_REQUESTS = (
    "Under Wine opening and closing a file are requests to another process, Wine's server. `md5sum` and `cp` call"
    " the system directly."
)
# What stands in the way where a row misses its target.
OBSTACLES = {
    "MD5, one buffer": "MD5 is one chain of dependent additions and rotations. The steps of its four rounds take at"
    " least 5, 4, 4 and 5 cycles: 288 for a block of 64 bytes. OpenSSL's assembler is near this limit, too.",
    "MD5, four buffers": "SSE2 has no rotation: two shifts and an \"or\" take its place.",
    "manifest": "The reader removes the carriage returns, splits the text into lines and then parses them: three"
    " passes. The loop with `std::getline` does all of it line by line.",
    "check, large files": "Each file is copied from the page cache into memory as a whole. `md5sum` copies"
    " pieces into a small buffer that stays in the processor's cache.",
    "check, mixed files": "The last file of those that are read together is finished alone. " + WINE_REQUESTS,
    "start": "The common controls, for the progress window, and the shell's DLL are loaded at each start, also when no"
    " window is shown. The Launcher then searches the game's root and reads its files.",
    "update": "The Launcher also looks for each file before it downloads it, shows a window and cleans up.",
    "publish, first": "Each copy is flushed to the disk before the new state goes live. " + WINE_REQUESTS,
    "publish, first, flushed": WINE_REQUESTS,
    "publish, unchanged": "Each file is also linked into the new state and removed from the old one. "
    + WINE_REQUESTS,
    "verify, folder": WINE_REQUESTS,
}


@dataclasses.dataclass(frozen=True)
class Target:
    """At least so many times as fast as the other side, or at most so many times its time."""

    ratio: float
    of_time: bool = False

    def __str__(self) -> str:
        if not self.of_time:
            return f"at least {self.ratio} times as fast"
        return "not slower" if self.ratio == 1 else f"at most {self.ratio} times its time"

    def quartiles(self, pairs: Pairs) -> list[float]:
        ratios = [ours / theirs if self.of_time else theirs / ours for ours, theirs in pairs]
        return statistics.quantiles(ratios, n=4, method="inclusive")

    def spread(self, pairs: Pairs) -> str:
        low, middle, high = self.quartiles(pairs)
        return f"**{middle:.2f}** ({low:.2f} to {high:.2f}) times {'its time' if self.of_time else 'as fast'}"

    def met_by(self, pairs: Pairs) -> bool:
        middle = self.quartiles(pairs)[1]
        return middle <= self.ratio if self.of_time else middle >= self.ratio

    def crossed_by(self, pairs: Pairs) -> bool:
        low, _, high = self.quartiles(pairs)
        return low < self.ratio < high


@dataclasses.dataclass
class Row:
    name: str  # in the picture
    what: str
    against: str
    target: Target | str
    measured: str = ""
    met: bool = False
    bare: str = "a bare loop of the same calls"
    limit: str = ""  # what can be reached where the target is missed: the measurement of `bare`
    speeds: list[float] = dataclasses.field(default_factory=list)  # quartiles and target, times as fast
    growth: list[float] = dataclasses.field(default_factory=list)  # at 1, 10 and 100 times the work

    def take(self, pairs: Pairs) -> None:
        self.measured, self.met = self.target.spread(pairs), self.target.met_by(pairs)
        ratios = [*self.target.quartiles(pairs), self.target.ratio]
        self.speeds = [1 / ratio for ratio in ratios] if self.target.of_time else ratios

    def verdict(self) -> str:
        return "yes" if self.met else "**no**" + (f"; {self.limit}" if self.limit else "")


def growth_row(name: str, unit: str, sizes: list[int], ours: list[float], theirs: list[float]) -> Row:
    """Of the seconds for a unit of work at three sizes."""
    microseconds = ours[0] * 1e6
    ours, theirs = [time / ours[0] for time in ours], [time / theirs[0] for time in theirs]
    return Row(
        f"growth: {name}",
        f"{name}: time for each, with {sizes[1]:,} and with {sizes[2]:,} {unit}",
        f"time for each, with {sizes[0]:,}: {microseconds:,.2f} µs",
        f"linear: at most {LINEAR} times, or {LINEAR} times what the other side has",
        f"{ours[1]:.2f} and **{ours[2]:.2f}** times (the other side: {theirs[1]:.2f} and {theirs[2]:.2f})",
        ours[2] <= LINEAR * max(1, theirs[2]),
        growth=ours,
    )


def table(rows: list[Row]) -> str:
    lines = ["| what | against | measured | target | met |", "|---|---|---|---|---|"]
    for row in rows:
        lines.append(f"| {row.what} | {row.against} | {row.measured} | {row.target} | {row.verdict()} |")
    return "\n".join(lines) + "\n"


def draw(rows: list[Row]) -> None:
    figure = Figure(figsize=(12, 4.8), layout="constrained")
    ratios, growth = figure.subplots(1, 2, width_ratios=(3, 2))
    compared = [row for row in rows if row.speeds]
    for place, row in enumerate(compared):
        low, middle, high, target = row.speeds
        color = "tab:green" if row.met else "tab:red"
        ratios.barh(place, middle - 1, left=1, height=0.5, color=color, alpha=0.5)
        ratios.plot((low, high), (place, place), color=color)
        ratios.plot((target, target), (place - 0.4, place + 0.4), color="black")
    ratios.axvline(1, color="gray", linewidth=0.8)
    ratios.set_xscale("log", base=2)
    ratios.xaxis.set_major_formatter("{x:g}")
    ratios.set_yticks(range(len(compared)), [row.name for row in compared])
    ratios.invert_yaxis()
    ratios.set_title("Times as fast as the comparison (bar) and target (black)")

    for row in rows:
        if row.growth:
            growth.plot((1, 10, 100), row.growth, marker="o", label=row.name.removeprefix("growth: "))
    growth.set_xscale("log")
    growth.set_xticks((1, 10, 100), ("1×", "10×", "100×"))
    growth.set_ylim(0, 2)
    growth.legend(ncols=2, loc="lower left")
    growth.set_title("Time for a unit of work as the work grows")
    figure.savefig(PICTURE, dpi=100)


def machine() -> str:
    cpu = re.search(r"model name\s*:\s*(.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} processors, Linux {platform.release()}"


def version_of(package: str) -> str:
    return subprocess.check_output(["dpkg-query", "-W", "-f", "${Version}", package], text=True)


def write(rows: list[Row]) -> None:
    draw(rows)
    missed = [row.name for row in rows if not row.met]
    obstacles = [f"- **{name}.** {OBSTACLES[name]}" for name in missed if name in OBSTACLES]
    if obstacles:
        obstacles = ["## What stands in the way?", "", *obstacles, ""]
    lines = [
        "# Performance",
        "",
        f"![How fast the Launcher and the publishing tool are, and how their time grows](images/{PICTURE.name})",
        "",
        table(rows),
        *obstacles,
        "## How is this measured?",
        "",
        "`scripts/bench` writes this page and the picture; do not edit them. Both sides of a row run in turns. The",
        "table has the median of the ratios, and in brackets the middle half. A row whose middle half crosses its",
        "target was measured again with twice as many rounds. Time is the time that passes, with all files in the",
        "page cache. The check and `md5sum -c` share one processor with Wine's server.",
        "",
        f"- Machine: {machine()}; load when finished: {os.getloadavg()[1]:.1f}",
        f"- Versions: {', '.join(f'{package} {version_of(package)}' for package in PACKAGES)}",
    ]
    PAGE.write_text("\n".join(lines) + "\n")
