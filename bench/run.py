"""Runs every comparison, prints the table of ratios and writes it as a document.

Started by scripts/bench, which provides the display, the Wine prefix and the built programs. All
figures are ratios of two measurements made one after the other: a time by itself would say more about
the machine, and about who else uses it, than about the program.
"""

import argparse
import collections
import contextlib
import dataclasses
import os
import pathlib
import platform
import re
import resource
import shutil
import statistics
import subprocess
import sys
import time
from collections.abc import Iterator

from harness import formats
from harness.constants import (
    BUILD_DIR,
    GAME_MANIFEST,
    GAME_VERSION,
    OWN_VERSION,
    PROJECT,
    SETTINGS_FILE,
    TIMEOUT,
    UPDATER_DATA,
    UPDATER_MANIFEST,
    VERSION_FILE,
)
from harness.game_folder import windows_path
from harness.nginx_server import NginxServer

WINE = PROJECT / "scripts/wine"
MEASURE = BUILD_DIR / "bench/measure.exe"
BARE_START = BUILD_DIR / "bench/bare_start.exe"
NATIVE = PROJECT / "build/bench-native/native_bench"
MEBIBYTE = 1 << 20
SIZE_LIMIT = 1.5 * MEBIBYTE
MEMORY_LIMIT = 16.0  # MiB above the largest file


@dataclasses.dataclass
class Pairs:
    """Alternating measurements of the same work, ours and the other's."""

    units: float
    ours: list[float] = dataclasses.field(default_factory=list)
    theirs: list[float] = dataclasses.field(default_factory=list)

    def add(self, ours: float, theirs: float) -> None:
        self.ours.append(ours)
        self.theirs.append(theirs)

    def speed(self) -> list[float]:
        """How many times as fast as the other, pair by pair."""
        return [theirs / ours for ours, theirs in zip(self.ours, self.theirs)]

    def time(self) -> list[float]:
        """How many times the other's time, pair by pair."""
        return [ours / theirs for ours, theirs in zip(self.ours, self.theirs)]

    def growth(self, smallest: "Pairs") -> str:
        """The time for a unit, relative to the smallest case's; in brackets the other's."""
        ours, theirs = (
            statistics.median(mine) / self.units / (statistics.median(first) / smallest.units)
            for mine, first in ((self.ours, smallest.ours), (self.theirs, smallest.theirs))
        )
        return f"{ours:.2f} ({theirs:.2f})"


@dataclasses.dataclass
class Row:
    what: str
    against: str
    target: str
    result: str
    met: bool
    limit: str = ""  # why no more can be had, where the target may be missed


def spread(ratios: list[float]) -> str:
    return f"**{statistics.median(ratios):.2f}** ({min(ratios):.2f} to {max(ratios):.2f})"


def faster(what: str, against: str, pairs: Pairs, least: float, target: str, limit: str = "") -> Row:
    ratios = pairs.speed()
    return Row(what, against, target, spread(ratios) + " times as fast", statistics.median(ratios) >= least, limit)


def within(what: str, against: str, pairs: Pairs, most: float, target: str, limit: str = "") -> Row:
    ratios = pairs.time()
    return Row(what, against, target, spread(ratios) + " times its time", statistics.median(ratios) <= most, limit)


def counts(cases: list[Pairs]) -> str:
    return ", ".join(f"{pairs.units:,.0f}" for pairs in cases) + " files"


# --- Running things ---------------------------------------------------------------------------


def tell(text: str) -> None:
    print(text, flush=True)


def run(*command: str | pathlib.Path, cwd: pathlib.Path | None = None) -> str:
    done = subprocess.run(
        [str(part) for part in command], cwd=cwd, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True
    )
    return done.stdout.decode()


def wall(command: list[str | pathlib.Path], cwd: pathlib.Path, **environment: str) -> float:
    start = time.monotonic()
    subprocess.run(
        [str(part) for part in command],
        cwd=cwd,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        env={**os.environ, **environment},
        check=True,
    )
    return time.monotonic() - start


def read_pairs(text: str) -> dict[str, Pairs]:
    """What the measuring programs print."""
    found: dict[str, Pairs] = {}
    for line in text.splitlines():
        name, units, ours, theirs = line.split("\t")
        found.setdefault(name, Pairs(float(units))).add(float(ours), float(theirs))
    return found


# --- The comparisons ----------------------------------------------------------------------------


class Bench:
    def __init__(self, work: pathlib.Path, quick: bool, wineserver: int) -> None:
        self.work = work
        self.quick = quick
        self.wineserver = wineserver
        self.pairs = 3 if quick else 9
        self.scale = 10 if quick else 1  # how much smaller the trees are
        self.rows: list[Row] = []
        self.growth: list[tuple[str, str, list[Pairs]]] = []
        self.allocations = ""
        self.memory: list[tuple[int, float]] = []
        work.mkdir(parents=True)

    def grown(self, what: str, steps: str, cases: list[Pairs]) -> None:
        self.growth.append((what, steps, cases))

    def in_process(self) -> None:
        native = read_pairs(run(NATIVE, str(self.pairs), "0.05" if self.quick else "0.3"))
        shipped = read_pairs(run(WINE, MEASURE, "pairs", str(self.pairs)))
        for build, found, openssl in (
            ("as shipped", shipped, "OpenSSL's assembler MD5, in the same Windows program"),
            ("native", native, "OpenSSL's MD5 (EVP)"),
        ):
            for size in (1, 64):
                pairs = found[f"md5/{size}"]
                self.rows.append(
                    faster(f"MD5 of {size} MiB, {build}", openssl, pairs, 1.03, "at least 1.03 times as fast")
                )
            self.grown(f"MD5, {build}", "1, 10, 100 MiB", [found[f"md5/{size}"] for size in (1, 10, 100)])
        lines = (10_000, 100_000, 1_000_000)
        for build, found in (("as shipped", shipped), ("native", native)):
            for count in lines:
                self.rows.append(
                    faster(
                        f"game update manifest of {count:,} lines, {build}",
                        "a pass over it with `std::getline`",
                        found[f"manifest/{count}"],
                        1.0,
                        "faster",
                        "two passes, each as long as finding the lines takes",
                    )
                )
            self.grown(
                f"manifest, {build}", "10,000, 100,000, 1,000,000 lines", [found[f"manifest/{n}"] for n in lines]
            )
        lengths = (10, 100, 1000)
        for width, build, found in (
            ("narrow", "as shipped", shipped),
            ("wide", "as shipped", shipped),
            ("narrow", "native", native),
        ):
            cases = [found[f"format-{width}/{length}"] for length in lengths]
            self.rows.append(
                faster(f"`Format`, three arguments, {width}, {build}", "`fmt::format`", cases[1], 1.0, "not slower")
            )
            # A message costs something before its first character: the growth is that of its length.
            self.grown(f"`Format`, {width}, {build}", "characters: 58, 238, 2,038", cases)

    @contextlib.contextmanager
    def on_one_processor(self) -> Iterator[None]:
        """What is started inside shares one processor with the wineserver. On a virtual machine a
        question to a program on another processor, which must be woken, takes a tenth of a
        millisecond of the asking one's time."""
        all_processors = os.sched_getaffinity(0)
        for process in (0, self.wineserver):
            os.sched_setaffinity(process, {min(all_processors)})
        try:
            yield
        finally:
            for process in (0, self.wineserver):
                os.sched_setaffinity(process, all_processors)

    def check_files(self) -> None:
        """Files of 4 MiB, all current and in the page cache."""
        files, size = 500 // self.scale, 4 * MEBIBYTE
        tree = self.work / "check/game"
        (tree / "data").mkdir(parents=True)
        block = os.urandom(size)
        lines = []
        for number in range(files):
            content = number.to_bytes(8, "little") + block[8:]
            name = f"data/file{number:03}.pak"
            (tree / name).write_bytes(content)
            lines.append((name, formats.file_line(name, content), formats.md5(content)))
        cases = []
        for count in (files // 100, files // 10, files) if files >= 100 else (1, files // 10, files):
            (tree.parent / GAME_MANIFEST).write_bytes(
                formats.game_manifest(["data"], [line for _, line, _ in lines[:count]])
            )
            sums = tree.parent / "sums"
            sums.write_text("".join(f"{digest}  {name}\n" for name, _, digest in lines[:count]))
            pairs, bare = Pairs(count), Pairs(count)
            names = [name for name, _, _ in lines[:count]]
            with self.on_one_processor():
                for _ in range(self.pairs + 1):
                    ours = float(run(WINE, MEASURE, "check", cwd=tree)) * 1e-9
                    before = resource.getrusage(resource.RUSAGE_CHILDREN)
                    run("md5sum", "-c", "--quiet", sums, cwd=tree)
                    after = resource.getrusage(resource.RUSAGE_CHILDREN)
                    theirs = after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime
                    pairs.add(ours, theirs)
                    bare.add(float(run(NATIVE, "check", *names, cwd=tree)) * 1e-9, theirs)
            # The first pair only warms the cache.
            for measured in (pairs, bare):
                del measured.ours[0], measured.theirs[0]
            cases.append(pairs)
        self.rows.append(
            faster(
                f"check of an installed game, {files} files of 4 MiB, all current",
                "`md5sum -c`",
                cases[-1],
                1.1,
                "at least 1.1 times as fast",
                f"a native program of nothing but one read and this digest is at {spread(bare.speed())}",
            )
        )
        self.grown("check of an installed game", counts(cases), cases)
        shutil.rmtree(tree)

    def serve(self) -> None:
        self.server = NginxServer(self.work / "nginx", self.work / "served")
        self.server.start()

    def publish(self, base: str, files: dict[str, bytes], version: tuple[int, ...] = (0, 0, 0, 1)) -> str:
        """A server tree below `base`; returns its configured URL."""
        url = self.server.url(base)
        updates = self.work / "served" / base / "updates/release"
        (updates / "updater").mkdir(parents=True)
        (updates / UPDATER_MANIFEST).write_bytes(formats.updater_manifest(OWN_VERSION))
        (updates / UPDATER_DATA).write_bytes(formats.updater_data(url))
        (updates / GAME_VERSION).write_bytes(formats.game_version(*version))
        for name, content in files.items():
            (updates / name).parent.mkdir(parents=True, exist_ok=True)
            (updates / name).write_bytes(content)
        folders = sorted({name.rpartition("/")[0] for name in files} - {""})
        lines = [formats.file_line(name, content) for name, content in files.items()]
        (updates / GAME_MANIFEST).write_bytes(formats.game_manifest(folders, lines))
        return url

    def game(self, name: str, url: str, version: tuple[int, ...] = (0, 0, 0, 1)) -> pathlib.Path:
        folder = self.work / name
        for part in ("bin", "Updater"):
            (folder / part).mkdir(parents=True)
        shutil.copyfile(BUILD_DIR / "player/Velmorant Player.exe", folder / "bin/Velmorant Player.exe")
        (folder / SETTINGS_FILE).write_bytes(formats.updater_data(url))
        (folder / VERSION_FILE).write_bytes(formats.game_version(*version))
        return folder

    def whole_run(self) -> None:
        url = self.publish("current", {"data/file.dat": b"current"})
        folder = self.game("current", url)
        record = self.work / "starts"

        def start(program: pathlib.Path, *arguments: str) -> float:
            taken = wall(
                [WINE, program, *arguments],
                folder,
                LAUNCHER_BENCH_URL=url,
                VELMORANT_PLAYER_SECONDS="0",
                VELMORANT_PLAYER_RECORD=windows_path(record),
            )
            deadline = time.monotonic() + TIMEOUT
            while not (record.exists() and record.read_bytes().endswith(b"\n\n")):
                if time.monotonic() > deadline:
                    raise RuntimeError(f"{program} did not start the game")
                time.sleep(0.01)
            record.unlink()
            time.sleep(0.2)  # until the game has ended
            return taken

        bare, with_com = Pairs(1), Pairs(1)
        start(BARE_START)
        for _ in range(3 * self.pairs):
            ours = start(BUILD_DIR / "Launcher.exe")
            bare.add(ours, start(BARE_START))
            with_com.add(ours, start(BARE_START, "com"))
        for against, pairs, limit in (
            (
                "a bare program with the same WinINet calls",
                bare,
                "COM, which downloads must hold, connects to the display under Wine; see the next line",
            ),
            ("the same bare program with COM initialised, as the Launcher's downloads need it", with_com, ""),
        ):
            self.rows.append(
                within(
                    "a whole run with everything current, process start to game start",
                    against,
                    pairs,
                    1.15,
                    "at most 1.15 times its time",
                    limit,
                )
            )

    def update(self) -> None:
        cases = []
        for count in (20 // min(self.scale, 4), 200 // self.scale, 2000 // self.scale):
            files = {f"data/file{n:04}.dat": n.to_bytes(4, "little") + os.urandom(4092) for n in range(count)}
            url = self.publish(f"update{count}", files) + "updates/release/"
            folder = self.work / f"update{count}"
            folder.mkdir()
            output = run(WINE, MEASURE, "update", str(self.pairs), url, str(count), cwd=folder)
            cases.append(read_pairs(output)[f"update/{count}"])
            for name, content in files.items():
                for side in ("ours", "theirs"):
                    if (folder / side / name).read_bytes() != content:
                        raise RuntimeError(f"{side}/{name} is not what the server has")
            shutil.rmtree(folder)
        self.rows.append(
            within(
                f"an update of {count:,} files of 4 KiB: staging, installing, clean-up, progress window",
                "a bare loop of the same WinINet calls and file writes",
                cases[-1],
                1.15,
                "at most 1.15 times its time",
            )
        )
        self.grown("update", counts(cases), cases)

    def clean_up(self) -> None:
        cases = []
        for count in (500 // self.scale, 5000 // self.scale, 50_000 // self.scale):
            tree = self.work / "cleanup/game"
            names = [f"data/{n // 100:03}/file{n:05}.dat" for n in range(count)]
            for name in names:
                (tree / name).parent.mkdir(parents=True, exist_ok=True)
                (tree / name).touch()
            (tree.parent / "listed.txt").write_text("".join(f"{name}\n" for name in names))
            cases.append(
                read_pairs(run(WINE, MEASURE, "cleanup", str(self.pairs), cwd=tree))[f"cleanup/{count}"]
            )
            if sum(1 for path in tree.rglob("*.dat")) != count:
                raise RuntimeError("the clean-up removed a listed file")
            if count == 50_000 // self.scale:
                self.allocations = run(WINE, MEASURE, "allocations", cwd=tree)
            shutil.rmtree(tree)
        self.rows.append(
            within(
                f"the clean-up of {count:,} kept files",
                "a bare `recursive_directory_iterator`",
                cases[-1],
                1.5,
                "at most 1.5 times its time",
            )
        )
        self.grown("clean-up", counts(cases), cases)

    def publisher(self) -> None:
        """A build of 2 GB in 5,000 files, in the page cache; both processors may be used."""
        files = 5000 // self.scale
        build, server, copy = (self.work / "publisher" / name for name in ("build", "server", "copy"))
        (build / "bin").mkdir(parents=True)
        (build / "bin/Velmorant Player.exe").write_bytes(b"game")
        names = []
        block = os.urandom(1 << 20)
        for number in range(files):
            name = f"data/{number // 100:03}/file{number:05}.pak"
            (build / name).parent.mkdir(parents=True, exist_ok=True)
            size = 1 + (number * 7919 % (800 << 10))  # 400 KiB on average
            (build / name).write_bytes(number.to_bytes(8, "little") + block[:size])
            names.append(name)
        (server.parent / "names").write_text("".join(f"{name}\0" for name in names))
        (server.parent / "urls").write_text("")
        version = iter(range(1, 10_000))

        def publish(*arguments: str | pathlib.Path) -> float:
            options = [windows_path(part) if isinstance(part, pathlib.Path) else part for part in arguments]
            return wall([WINE, BUILD_DIR / "walk-on/publish.exe", *options, "--json"], server.parent)

        def publish_game() -> float:
            return publish("game", "--source", build, "--server", server, "--channel", "release",
                           "--version", f"1.0.0.{next(version)}")

        def publish_launcher() -> None:
            settings = server.parent / "UpdaterData.vpak"
            settings.write_bytes(formats.updater_data("https://updates.example.com/"))
            publish("launcher", "--exe", BUILD_DIR / "walk-on/Launcher.exe", "--settings", settings,
                    "--server", server, "--channel", "release")

        def digests(folder: pathlib.Path) -> float:
            names_file = server.parent / "names"
            return wall(["xargs", "-0", "-a", names_file, "-n", "50", "-P", "2", "md5sum"], folder)

        first, same, folder, http = Pairs(files), Pairs(files), Pairs(files), Pairs(files)
        digests(build)
        for _ in range(self.pairs):
            shutil.rmtree(server, ignore_errors=True)
            shutil.rmtree(copy, ignore_errors=True)
            server.mkdir()
            ours = publish_game()
            first.add(ours, wall(["cp", "-r", build, copy], server.parent) + digests(build))
            same.add(publish_game(), digests(build))
            live = server / "updates/release"
            publish_launcher()
            folder.add(publish("verify", "--server", server), digests(live))
        nginx = NginxServer(self.work / "publisher/nginx", server)
        nginx.start()
        try:
            url = f"http://127.0.0.1:{nginx.port}/"
            shutil.rmtree(copy)
            copy.mkdir()
            (server.parent / "urls").write_text(
                "".join(f'url = "{url}updates/release/{name}"\noutput = "{name}"\n' for name in names)
            )
            for _ in range(self.pairs):
                ours = publish("verify", "--url", url)
                theirs = wall(["curl", "-s", "--create-dirs", "-K", server.parent / "urls"], copy)
                http.add(ours, theirs + digests(copy))
        finally:
            nginx.stop()
        not_slower, twice = "not slower", "at most twice its time"
        what = f"of {files:,} files and {2 / self.scale:.1f} GB"
        md5sum = "`md5sum` on two processes"
        self.rows += [
            within(f"`publish game` {what}, the first", f"`cp -r`, then {md5sum}", first, 1.0, not_slower),
            within(f"`publish game` {what}, nothing changed", md5sum, same, 1.0, not_slower),
            within(f"`publish verify` {what}, in a folder", md5sum, folder, 1.0, not_slower),
            within(f"`publish verify` {what}, through nginx", f"`curl` with a list, then {md5sum}", http, 2.0, twice),
        ]
        shutil.rmtree(server.parent)

    def peak(self, size: int) -> float:
        """The most memory, in MiB, that the shipped program held in an update with a file of `size`."""
        url = self.publish(f"memory{size}", {"data/large.dat": os.urandom(size)}, (0, 0, 0, 2))
        folder = self.game(f"memory{size}", url)
        confirm = subprocess.Popen([WINE, MEASURE, "confirm"], stdin=subprocess.DEVNULL)
        launcher = subprocess.Popen(
            [WINE, BUILD_DIR / "walk-on/Launcher.exe"],
            cwd=folder,
            stdin=subprocess.DEVNULL,
            env={**os.environ, "VELMORANT_PLAYER_SECONDS": "0"},
        )
        _, status, usage = os.wait4(launcher.pid, 0)
        launcher.returncode = os.waitstatus_to_exitcode(status)
        confirm.wait(TIMEOUT)
        if launcher.returncode != 0 or (folder / "data/large.dat").stat().st_size != size:
            raise RuntimeError("the update did not end well")
        shutil.rmtree(folder)
        return usage.ru_maxrss / 1024

    def memory_use(self) -> None:
        small = self.peak(1024)
        for mebibytes in (2, 20) if self.quick else (2, 20, 200):
            self.memory.append((mebibytes, self.peak(mebibytes * MEBIBYTE) - small - mebibytes))
        largest, extra = self.memory[-1]
        self.rows.append(
            Row(
                f"peak memory of an update with a file of {largest} MiB, above the same update with one of 1 KiB",
                "that file",
                f"at most {MEMORY_LIMIT:.0f} MiB more than the file",
                f"the file and **{extra:.1f}** MiB",
                extra <= MEMORY_LIMIT,
            )
        )

    def size(self) -> None:
        size = (BUILD_DIR / "Launcher.exe").stat().st_size
        self.rows.append(
            Row("size of `Launcher.exe`", "", "at most 1.5 MiB", f"**{size / MEBIBYTE:.2f}** MiB", size <= SIZE_LIMIT)
        )

    def run_all(self) -> None:
        steps = (
            ("Digests, manifests, messages", self.in_process),
            ("The check of an installed game", self.check_files),
            ("The server", self.serve),
            ("A run with everything current", self.whole_run),
            ("An update of small files", self.update),
            ("The clean-up", self.clean_up),
            ("The publishing tool", self.publisher),
            ("Peak memory", self.memory_use),
            ("Size", self.size),
        )
        try:
            for what, step in steps:
                start = time.monotonic()
                step()
                tell(f"{what}: {time.monotonic() - start:.0f} s")
        finally:
            if hasattr(self, "server"):
                self.server.stop()


# --- What is in the executable --------------------------------------------------------------------

PARTS = (
    (r"\.ltrans|Launcher\.dir|librclib|launcher\.rc", "the Launcher's own code and resources, link-time optimised",
     "what the program is for"),
    (r"libstdc\+\+\.a\((locale|wlocale|cxx11-.*locale|.*-inst|ios|wide-inst|.*stream.*|ctype|codecvt|compatibility|"
     r"basic_file|c\+\+locale|globals_io|complex_io|numeric_members|monetary|time_members|messages|collate|"
     r"localename|cow-.*locale|cow-shim.*|cxx11-shim.*|cow-w?locale.*|localename)",
     "libstdc++: streams and locales", "the log and the version manifest are written by streams, and a stream brings "
     "every facet of its locale, narrow and wide, in both of the library's string layouts"),
    (r"libstdc\+\+\.a\((fs_|dir|cow-fs|.*path)", "libstdc++: paths and filesystem errors",
     "the errors of the file layer are the standard filesystem errors"),
    (r"libstdc\+\+\.a\((cp-demangle|vterminate)", "libstdc++: the demangler",
     "the standard termination handler names the exception that ended the program"),
    (r"libstdc\+\+\.a|libsupc\+\+", "libstdc++: the rest", "strings, exceptions, threads, run-time types"),
    (r"libgcc", "libgcc", "unwinding"),
    (r"libmingw|libmsvcrt|crt2|libwinpthread|libpthread|crtbegin|crtend|dllcrt",
     "the C runtime's static part and threads", "start-up, formatted output, mathematics, POSIX threads"),
    (r"lib(kernel32|user32|shell32|advapi32|wininet|ole32|comctl32|gdi32)", "import tables", "Windows' own libraries"),
)


def parts_of_executable() -> list[tuple[str, str, int]]:
    """What the linker put into the executable, by its map: bytes of each part, largest first."""
    text = (BUILD_DIR / "Launcher.map").read_text(errors="replace")
    text = text[text.index("Linker script and memory map") :]
    sizes: collections.Counter[int] = collections.Counter()
    piece = re.compile(r"^ \.(?:text|rdata|data|pdata|xdata|rsrc|idata|CRT|tls)\S*\s+0x[0-9a-f]+\s+0x([0-9a-f]+) (\S.*)$", re.M)
    for match in piece.finditer(re.sub(r"\n {16,}(?=0x)", " ", text)):
        for index, (pattern, _, _) in enumerate(PARTS):
            if re.search(pattern, match[2]):
                sizes[index] += int(match[1], 16)
                break
        else:
            sizes[-1] += int(match[1], 16)
    named = [(PARTS[i][1], PARTS[i][2], size) for i, size in sizes.items() if i >= 0]
    if sizes[-1]:
        named.append(("other", "", sizes[-1]))
    return sorted(named, key=lambda part: -part[2])


# --- The document -----------------------------------------------------------------------------------


def version_of(package: str) -> str:
    return run("dpkg-query", "-W", "-f", "${Version}", package)


def machine() -> str:
    cpu = re.search(r"model name\s*:\s*(.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} processors, Linux {platform.release()}"


def document(bench: Bench) -> str:
    limits = (PROJECT / "bench/limits.md").read_text()
    lines = [
        "# Performance",
        "",
        "Written by `scripts/bench`; do not edit (what is not measured comes from `bench/limits.md`). All figures are",
        f"ratios: the median of {bench.pairs} or more alternating pairs, in brackets the lowest and the highest. What",
        "is done by one thread alone (digests, manifests, messages, the check) is compared by processor time, the rest",
        "by the time that passes.",
        *(["", "**A trial (`--quick`): small trees, few pairs.**"] if bench.quick else []),
        "",
        f"- Machine: {machine()}; load when finished: {os.getloadavg()[1]:.1f}",
        "- Versions: "
        + ", ".join(
            f"{package} {version_of(package)}"
            for package in ("g++-mingw-w64-x86-64-posix", "g++", "libwine", "libssl-dev", "libfmt-dev",
                            "libbenchmark-dev", "coreutils", "nginx-light")
        ),
        "",
        "| what | against | target | measured | met |",
        "|---|---|---|---|---|",
    ]
    for row in bench.rows:
        met = "yes" if row.met else f"**no**: {row.limit}" if row.limit else "**no**"
        lines.append(f"| {row.what} | {row.against} | {row.target} | {row.result} | {met} |")
    lines += ["", "## Growth", "", "Time for one unit of work at ten and a hundred times the work, relative to that at",
              "the smallest; in brackets the same of what it is held against.", "", "| what | at | 1× | 10× | 100× |", "|---|---|---|---|---|"]
    for what, steps, cases in bench.growth:
        lines.append(f"| {what} | {steps} | " + " | ".join(case.growth(cases[0]) for case in cases) + " |")
    lines.append(
        "| memory above the largest file | "
        + ", ".join(str(size) for size, _ in bench.memory)
        + " MiB | "
        + " | ".join(f"{extra:.1f} MiB" for _, extra in bench.memory)
        + " |"
    )
    lines += ["", "## Allocations", "", "| of | number |", "|---|---|"]
    for line in bench.allocations.splitlines():
        lines.append("| " + " | ".join(line.strip().split("\t")) + " |")
    parts = parts_of_executable()
    total = sum(size for _, _, size in parts)
    lines += ["", "## What `Launcher.exe` is made of", "", "| part | share | why |", "|---|---|---|"]
    lines += [f"| {name} | {100 * size / total:.0f} % | {why} |" for name, why, size in parts]
    return "\n".join(lines) + "\n\n" + limits


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--wineserver", type=int, required=True, help="its process number")
    options = parser.parse_args()

    bench = Bench(options.work, options.quick, options.wineserver)
    bench.run_all()
    text = document(bench)
    target = PROJECT / ("build/performance-quick.md" if options.quick else "docs/performance.md")
    target.write_text(text)
    print()
    print(text)
    missed = [row.what for row in bench.rows if not row.met]
    tell(f"{len(bench.rows) - len(missed)} targets met, {len(missed)} not met; written to {target}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
