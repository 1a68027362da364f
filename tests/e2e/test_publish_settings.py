"""publish settings: the settings archive of a distribution."""

import subprocess

import pytest

from harness import formats
from harness.game_folder import windows_path
from harness.publishing import command_line, publish

URL = "https://updates.example/"


@pytest.fixture
def settings(build, temp_dir):
    def run(url: str, channel: str = "release", output: str = "UpdaterData.vpak"):
        return publish(build, "settings", "--url", url, "--channel", channel, "--output", temp_dir / output)

    return run


@pytest.mark.parametrize("channel", ["alpha", "beta", "demo", "release"])
def test_the_archive_is_what_the_launcher_reads(settings, temp_dir, channel):
    done = settings(URL, channel)
    assert (done.code, done.errors, done.warnings) == (0, [], [])
    assert (temp_dir / "UpdaterData.vpak").read_bytes() == formats.updater_data(URL, channel)
    path = windows_path(temp_dir / "UpdaterData.vpak")
    assert done.report == {
        "file": path, "url": URL, "channel": channel, "errors": [], "warnings": []
    }
    assert [file.name for file in temp_dir.iterdir()] == ["UpdaterData.vpak"]


def test_an_older_archive_is_replaced_and_a_missing_folder_made(settings, temp_dir):
    settings("https://older.example/", output="game/Updater/UpdaterData.vpak")
    assert settings(URL, output="game/Updater/UpdaterData.vpak").code == 0
    written = temp_dir / "game/Updater/UpdaterData.vpak"
    assert written.read_bytes() == formats.updater_data(URL)


def test_a_missing_slash_and_plain_http_are_warned_of(settings, temp_dir):
    done = settings("http://updates.example")
    assert done.code == 0
    assert done.warnings == [
        "http://updates.example: without a slash at its end, \"updates\" is glued to the URL's last word",
        "http://updates.example: without https anybody on the way can replace the game's files",
    ]
    assert (temp_dir / "UpdaterData.vpak").read_bytes() == formats.updater_data("http://updates.example")


@pytest.mark.parametrize(
    ("url", "rules"),
    [
        ("ftp://updates.example/", ["the Launcher asks servers over http and https only"]),
        ("", ["the Launcher asks servers over http and https only"]),
        ("https://a b/", ["a URL holds neither blanks nor characters beyond ASCII"]),
        ("https://größe.example/", ["a URL holds neither blanks nor characters beyond ASCII"]),
        (
            "ftp://a b/",
            [
                "the Launcher asks servers over http and https only",
                "a URL holds neither blanks nor characters beyond ASCII",
            ],
        ),
    ],
)
def test_a_url_that_cannot_work_is_refused_and_nothing_written(settings, temp_dir, url, rules):
    done = settings(url)
    assert done.code == 1
    assert done.errors == [f"{url}: {rule}" for rule in rules]
    assert list(temp_dir.iterdir()) == []


@pytest.mark.parametrize(
    "arguments",
    [
        [],
        ["settings"],
        ["settings", "--url", URL, "--channel", "gamma", "--output", "x"],
        ["settings", "--url", URL, "--channel", "release"],
        ["unknown"],
    ],
)
def test_wrong_usage(build, arguments):
    done = subprocess.run(command_line(build.publish, *arguments), stdin=subprocess.DEVNULL, check=False)
    assert done.returncode == 2


@pytest.mark.parametrize("command", ["settings", "game", "launcher", "verify", "preview", "inspect"])
def test_every_command_has_help_with_an_example(build, command):
    done = subprocess.run(
        command_line(build.publish, command, "--help"),
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False,
    )
    assert done.returncode == 0
    assert f"Example:\r\n  publish {command} " in done.stdout.decode()
