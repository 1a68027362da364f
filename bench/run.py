"""Measures what users wait for beside what it is compared with, and writes docs/performance.md.

Started by scripts/bench, which provides the display, the Wine prefix and the built programs. Speeds
are ratios of two measurements made one after the other: a time by itself would say more about the machine,
and about who else uses it, than about the program.
"""

import argparse
import contextlib
import functools
import os
import pathlib
import random
import re
import shutil
import statistics
import subprocess
import sys
import time
from collections.abc import Callable, Iterator

import page
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
from page import Pairs, Row, Target, growth_row

WINE = PROJECT / "scripts/wine"
MEASURE = BUILD_DIR / "bench/measure.exe"
BARE_START = BUILD_DIR / "bench/bare_start.exe"
BARE_START_DLLS = BUILD_DIR / "bench/bare_start_dlls.exe"
KIBIBYTE = 1 << 10
MEBIBYTE = 1 << 20

# For a number of rounds, the seconds of ours and of theirs in each.
Measurement = Callable[[int], Pairs]

ROUNDS = 7
# How many times as many rounds a row gets whose spread crosses its target.
LONGER = 2


def tell(text: str) -> None:
    print(text, flush=True)


def run(*command: str | pathlib.Path, cwd: pathlib.Path | None = None) -> str:
    done = subprocess.run(
        [str(part) for part in command], cwd=cwd, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True
    )
    return done.stdout.decode()


def seconds(*command: str | pathlib.Path, cwd: pathlib.Path, **environment: str) -> float:
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


def alternate(ours: Callable[[], float], theirs: Callable[[], float]) -> Measurement:
    return lambda rounds: [(ours(), theirs()) for _ in range(rounds)]


def in_program(command: str, *arguments: str | int, cwd: pathlib.Path | None = None) -> Measurement:
    """What measure.exe measures on both sides."""

    def measure(rounds: int) -> Pairs:
        output = run(WINE, MEASURE, command, str(rounds), *map(str, arguments), cwd=cwd)
        return [(float(ours), float(theirs)) for ours, theirs in map(str.split, output.splitlines())]

    return measure


def write_files(folder: pathlib.Path, sizes: list[int]) -> list[str]:
    """Files of these sizes with different contents, a hundred in a directory. Returns their names."""
    block = random.Random(0).randbytes(max(sizes))
    names = []
    for number, size in enumerate(sizes):
        name = f"data/{number // 100:03}/file{number:05}.pak"
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_bytes((number.to_bytes(8, "little") + block)[:size])
        names.append(name)
    return names


def mixed_sizes(count: int, largest: int) -> list[int]:
    generator = random.Random(1)
    return [generator.randint(1, largest) for _ in range(count)]


def directories(names: list[str]) -> list[str]:
    """All directories of the files, parents first."""
    return sorted({str(parent) for name in names for parent in pathlib.PurePosixPath(name).parents} - {"."})


class Bench:
    def __init__(self, work: pathlib.Path, quick: bool, wineserver: int) -> None:
        self.work = work
        self.wineserver = wineserver
        self.most_rounds = 2 if quick else 1000
        self.scale = 10 if quick else 1  # how much smaller the trees are
        self.rows: list[Row] = []
        work.mkdir(parents=True)

    def add(self, row: Row) -> None:
        self.rows.append(row)
        tell(f"{row.name}: {row.measured}; {row.target}: {row.verdict()}")

    def compare(
        self, row: Row, measure: Measurement, bare: Measurement | None = None, rounds: int = ROUNDS
    ) -> Pairs:
        """Measures a row, and again if its spread crosses the target. `bare` has less than our program in
        its place (`row.bare` says what): it shows what can be reached where the target is missed."""
        rounds = min(rounds, self.most_rounds)
        pairs = measure(rounds)
        if row.target.crossed_by(pairs):
            tell(f"{row.name}: {row.target.spread(pairs)}; measuring longer")
            pairs = measure(rounds * LONGER)
        row.take(pairs)
        if bare and not row.met:
            row.limit = f"{row.bare}: {row.target.spread(bare(rounds))}"
        self.add(row)
        return pairs

    def compare_sizes(
        self,
        row: Row,
        sizes: list[int],
        unit: str,
        measure: Callable[[int], Measurement],
        bare: Measurement | None = None,
    ) -> None:
        """Adds two rows: the comparison at the largest size, and how the time for a unit grows."""
        largest = self.compare(row, measure(sizes[-1]), bare)
        # Short times vary more.
        pairs = [measure(size)(3 * len(largest)) for size in sizes[:-1]] + [largest]
        ours, theirs = (
            [statistics.median(pair[side] for pair in found) / size for found, size in zip(pairs, sizes)]
            for side in (0, 1)
        )
        self.add(growth_row(row.name, unit, sizes, ours, theirs))

    @contextlib.contextmanager
    def on_one_processor(self) -> Iterator[None]:
        """What is started inside shares one processor with the wineserver. On a virtual machine a request
        to a program on another processor, which must be woken, takes a tenth of a millisecond."""
        all_processors = os.sched_getaffinity(0)
        for process in (0, self.wineserver):
            os.sched_setaffinity(process, {min(all_processors)})
        try:
            yield
        finally:
            for process in (0, self.wineserver):
                os.sched_setaffinity(process, all_processors)

    def md5(self) -> None:
        sizes = [100, 1000, 10_000]
        for buffers, name, how, target in (
            (1, "MD5, one buffer", "of", Target(1.03)),
            (4, "MD5, four buffers", "side by side of four buffers of", Target(2.5)),
        ):
            row = Row(name, f"MD5 {how} {sizes[-1]:,} KiB", "OpenSSL's assembler", target)
            self.compare_sizes(row, sizes, "KiB", lambda size: in_program("md5", buffers, size))

    def manifest(self) -> None:
        sizes = [1000, 10_000, 100_000]
        row = Row(
            "manifest",
            f"reading a game update manifest of {sizes[-1]:,} lines",
            "reading them into the same record with `std::getline`",
            Target(1.15, of_time=True),
        )
        self.compare_sizes(row, sizes, "lines", lambda lines: in_program("manifest", lines))

    def check(self) -> None:
        """The check of files that are all current and in the page cache."""
        large, mixed = 500 // self.scale, 10_000 // self.scale
        with self.on_one_processor():
            self.check_files("check, large files", "4 MiB", [4 * MEBIBYTE] * large, Target(2.0))
            self.check_files("check, mixed files", "up to 400 KiB", mixed_sizes(mixed, 400 * KIBIBYTE), Target(1.7))

    def check_files(self, name: str, sizes_in_words: str, sizes: list[int], target: Target) -> None:
        tree = self.work / "check/game"
        files = write_files(tree, sizes)
        lines, sums = [], []
        for file in files:
            content = (tree / file).read_bytes()
            lines.append(formats.file_line(file, content))
            sums.append(f"{formats.md5(content)}  {file}\n")

        def ours(*command: str) -> float:
            return float(run(WINE, MEASURE, *command, cwd=tree))

        def theirs() -> float:
            return seconds("md5sum", "-c", "--quiet", tree.parent / "sums", cwd=tree)

        def measure(count: int) -> Measurement:
            (tree.parent / GAME_MANIFEST).write_bytes(formats.game_manifest(directories(files), lines[:count]))
            (tree.parent / "sums").write_text("".join(sums[:count]))
            return alternate(lambda: ours("check"), theirs)

        count = len(files)
        what = f"the check of an installed game, {count:,} files of {sizes_in_words}"
        bare = alternate(lambda: ours("files", "1", "read"), theirs)
        counts = [max(count // 100, 1), count // 10, count]
        self.compare_sizes(Row(name, what, "`md5sum -c`", target), counts, "files", measure, bare)
        shutil.rmtree(tree.parent)

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
        lines = [formats.file_line(name, content) for name, content in files.items()]
        (updates / GAME_MANIFEST).write_bytes(formats.game_manifest(directories(list(files)), lines))
        return url

    def game(self, name: str, url: str) -> pathlib.Path:
        folder = self.work / name
        for part in ("bin", "Updater"):
            (folder / part).mkdir(parents=True)
        shutil.copyfile(BUILD_DIR / "player/Velmorant Player.exe", folder / "bin/Velmorant Player.exe")
        (folder / SETTINGS_FILE).write_bytes(formats.updater_data(url))
        (folder / VERSION_FILE).write_bytes(formats.game_version(0, 0, 0, 1))
        return folder

    @functools.cached_property
    def server(self) -> NginxServer:
        server = NginxServer(self.work / "nginx", self.work / "served")
        server.start()  # Ends with this process.
        return server

    def start(self) -> None:
        url = self.publish("current", {"data/file.dat": b"current"})
        folder = self.game("current", url)
        record = self.work / "starts"

        def start(program: pathlib.Path) -> float:
            taken = seconds(
                WINE,
                program,
                cwd=folder,
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

        start(BARE_START)
        row = Row(
            "start",
            "a run with everything current, process start to game start",
            "a bare program with the same calls of COM and WinINet",
            Target(1.15, of_time=True),
            bare="the bare program with the same DLLs",
        )
        self.compare(
            row,
            alternate(lambda: start(BUILD_DIR / "Launcher.exe"), lambda: start(BARE_START)),
            alternate(lambda: start(BARE_START_DLLS), lambda: start(BARE_START)),
            rounds=3 * ROUNDS,
        )

    def update(self) -> None:
        def measure(count: int) -> Measurement:
            files = {f"data/{n // 100:02}/file{n:04}.dat": n.to_bytes(4, "little") * 1024 for n in range(count)}
            folder = self.work / f"update{count}"
            folder.mkdir()
            url = self.publish(f"update{count}", files) + "updates/release/"

            def checked(rounds: int) -> Pairs:
                pairs = in_program("update", url, cwd=folder)(rounds)
                for name, content in files.items():
                    for side in ("ours", "theirs"):
                        if (folder / side / name).read_bytes() != content:
                            raise RuntimeError(f"{side}/{name} is not what the server has")
                return pairs

            return checked

        count = 2000 // self.scale
        row = Row(
            "update",
            f"an update of {count:,} files of 4 KiB: staging, installing, clean-up, progress window",
            "a bare loop of the same WinINet calls and file writes",
            Target(1.15, of_time=True),
        )
        self.compare_sizes(row, [count // 100, count // 10, count], "files", measure)

    def cleanup(self) -> None:
        def measure(count: int) -> Measurement:
            tree = self.work / f"cleanup{count}/game"
            names = write_files(tree, [1] * count)
            (tree.parent / "listed.txt").write_text("".join(f"{name}\n" for name in names + directories(names)))

            def checked(rounds: int) -> Pairs:
                pairs = in_program("cleanup", cwd=tree)(rounds)
                if sum(1 for _ in tree.rglob("*.pak")) != count:
                    raise RuntimeError("the clean-up removed a listed file")
                return pairs

            return checked

        count = 50_000 // self.scale
        row = Row(
            "clean-up",
            f"the clean-up of {count:,} files, all listed",
            "a bare `recursive_directory_iterator` that looks each path up",
            Target(1.0, of_time=True),
        )
        self.compare_sizes(row, [count // 100, count // 10, count], "files", measure)

    def publisher(self) -> None:
        """A build of 2 GB in 5,000 files, in the page cache; both processors may be used."""
        count = 5000 // self.scale
        folder = self.work / "publisher"
        build, copy = folder / "build", folder / "copy"
        server = self.work / "served/publisher"
        live = server / "updates/release"
        url = self.server.url("publisher")
        names = write_files(build, mixed_sizes(count, 800 * KIBIBYTE))
        (build / "bin").mkdir()
        (build / "bin/Velmorant Player.exe").write_bytes(b"game")
        (folder / "names").write_text("".join(f"{name}\0" for name in names))
        (folder / "addresses").write_text(
            "".join(f'url = "{url}updates/release/{name}"\noutput = "{name}"\n' for name in names)
        )
        (folder / "UpdaterData.vpak").write_bytes(formats.updater_data("https://updates.example.com/"))
        versions = iter(range(1, 10_000))

        def publish(*arguments: str | pathlib.Path) -> float:
            options = [windows_path(part) if isinstance(part, pathlib.Path) else part for part in arguments]
            return seconds(WINE, BUILD_DIR / "walk-on/publish.exe", *options, "--json", cwd=folder)

        def publish_game(*options: str) -> float:
            return publish("game", "--source", build, "--server", server, "--channel", "release",
                           "--version", f"1.0.0.{next(versions)}", *options)

        def renew(tree: pathlib.Path) -> None:
            shutil.rmtree(tree, ignore_errors=True)
            tree.mkdir()
            os.sync()  # What was written before must not burden what is measured next.

        def publish_first() -> float:
            renew(server)
            return publish_game()

        def on_files(tree: pathlib.Path, *command: str) -> float:
            """A command for 50 files at a time, in two processes."""
            return seconds("xargs", "-0", "-a", folder / "names", "-n", "50", "-P", "2", *command, cwd=tree)

        def digest(tree: pathlib.Path) -> Callable[[], float]:
            return lambda: on_files(tree, "md5sum")

        def copied() -> float:
            renew(copy)
            return seconds("cp", "-r", build / "data", copy, cwd=folder) + digest(build)()

        def flushed() -> float:
            return copied() + on_files(copy, "sync")

        def downloaded() -> float:
            renew(copy)
            return seconds("curl", "-s", "--create-dirs", "-K", folder / "addresses", cwd=copy) + digest(copy)()

        def bare(how: str) -> Callable[[], float]:
            def measure() -> float:
                renew(folder / "bare")
                return float(run(WINE, MEASURE, "files", "2", how, cwd=build))

            return measure

        publish_first()
        (folder / GAME_MANIFEST).write_bytes((live / GAME_MANIFEST).read_bytes())  # For the bare loops.
        what = f"of {count:,} files and {2 / self.scale:.1f} GB"
        md5sum = "`md5sum` on two processes"
        not_slower = Target(1.0, of_time=True)
        compare = functools.partial(self.compare, rounds=3)
        compare(
            Row("publish, first", f"`publish game` {what}, the first", f"`cp -r`, then {md5sum}", not_slower),
            alternate(publish_first, copied),
            alternate(bare("copy"), copied),
        )
        compare(
            Row("publish, first, flushed", f"`publish game` {what}, the first", f"`cp -r`, `sync` of the copies, then {md5sum}", not_slower),
            alternate(publish_first, flushed),
            alternate(bare("copy"), flushed),
        )
        compare(
            Row("publish, unchanged", f"`publish game` {what}, nothing changed but the version", md5sum, not_slower),
            alternate(publish_game, digest(build)),
            alternate(bare("link"), digest(build)),
        )
        compare(
            Row("publish, if changed", f"`publish game --if-changed` {what}, nothing changed", md5sum, not_slower),
            alternate(lambda: publish_game("--if-changed"), digest(build)),
            alternate(bare("read"), digest(build)),
        )
        publish("launcher", "--exe", BUILD_DIR / "walk-on/Launcher.exe", "--settings", folder / "UpdaterData.vpak",
                "--server", server, "--channel", "release")
        compare(
            Row("verify, folder", f"`publish verify` {what}, in a folder", md5sum, not_slower),
            alternate(lambda: publish("verify", "--server", server), digest(live)),
            alternate(bare("read"), digest(live)),
        )
        compare(
            Row("verify, server", f"`publish verify` {what}, through nginx", f"`curl` with a list, then {md5sum}",
                Target(2.0, of_time=True)),
            alternate(lambda: publish("verify", "--url", url), downloaded),
        )
        shutil.rmtree(folder)

    def peak(self, name: str, files: dict[str, bytes], installed: bool = False) -> float:
        """The most memory, in MiB, that the shipped program holds in an update to these files."""
        folder = self.game(name, self.publish(name, files, (0, 0, 0, 2)))
        if installed:
            for file, content in files.items():
                (folder / file).parent.mkdir(exist_ok=True)
                (folder / file).write_bytes(content)
        confirm = subprocess.Popen([WINE, MEASURE, "confirm"], stdin=subprocess.DEVNULL)
        launcher = subprocess.Popen(
            [WINE, BUILD_DIR / "walk-on/Launcher.exe"],
            cwd=folder,
            stdin=subprocess.DEVNULL,
            env={**os.environ, "VELMORANT_PLAYER_SECONDS": "0"},
        )
        peak = 0
        while launcher.poll() is None:
            found = re.search(r"VmHWM:\s*(\d+) kB", pathlib.Path(f"/proc/{launcher.pid}/status").read_text())
            peak = int(found[1]) if found else peak  # None for a process that has just ended
            time.sleep(0.01)
        confirm.wait(TIMEOUT)
        if launcher.returncode != 0 or any((folder / file).read_bytes() != files[file] for file in files):
            raise RuntimeError("the update did not end well")
        shutil.rmtree(folder)
        return peak / KIBIBYTE

    def memory(self) -> None:
        """At most 16 MiB above the largest file, or above the 64 MiB of the check if that is more."""
        least = self.peak("least", {"data/small.dat": bytes(KIBIBYTE)})

        def add(name: str, what: str, largest: tuple[int, ...], peaks: list[float]) -> None:
            limits = [max(64, size) + 16 for size in largest]
            more = [peak - least for peak in peaks]
            self.add(
                Row(
                    f"memory, {name}",
                    f"peak memory of an update {what}",
                    "an update with one file of 1 KiB",
                    f"at most {', '.join(map(str, limits))} MiB more",
                    f"**{', '.join(f'{size:.0f}' for size in more)} MiB** more",
                    all(size <= limit for size, limit in zip(more, limits)),
                )
            )

        sizes = (2, 20) if self.scale > 1 else (2, 20, 200)
        add("download", f"with a new file of {', '.join(map(str, sizes))} MiB", sizes,
            [self.peak(f"file{size}", {"data/large.dat": os.urandom(size * MEBIBYTE)}) for size in sizes])
        files = {f"data/{number}.dat": os.urandom(15 * MEBIBYTE) for number in range(8)}
        add("check", "with eight current files of 15 MiB", (15,), [self.peak("check", files, installed=True)])

    def size(self) -> None:
        size = (BUILD_DIR / "Launcher.exe").stat().st_size / MEBIBYTE
        self.add(Row("size", "size of `Launcher.exe`", "", "at most 1.5 MiB", f"**{size:.2f}** MiB", size <= 1.5))


GROUPS = (
    Bench.md5,
    Bench.manifest,
    Bench.check,
    Bench.start,
    Bench.update,
    Bench.cleanup,
    Bench.publisher,
    Bench.memory,
    Bench.size,
)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--wineserver", type=int, required=True, help="its process number")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("groups", nargs="*")
    options = parser.parse_args()

    bench = Bench(options.work, options.quick, options.wineserver)
    for group in GROUPS:
        if not options.groups or group.__name__ in options.groups:
            start = time.monotonic()
            group(bench)
            tell(f"--- {group.__name__}: {time.monotonic() - start:.0f} s")
    if options.quick or options.groups:
        tell("\n" + page.table(bench.rows))
    else:
        page.write(bench.rows)
    missed = sum(not row.met for row in bench.rows)
    tell(f"{len(bench.rows) - missed} targets met, {missed} missed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
