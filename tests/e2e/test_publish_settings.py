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
        "--url: http://updates.example does not end with a slash",
        "--url: http://updates.example is plain http: anyone between server and player can replace files",
    ]
    assert (temp_dir / "UpdaterData.vpak").read_bytes() == formats.updater_data("http://updates.example")


@pytest.mark.parametrize(
    ("url", "rules"),
    [
        ("ftp://updates.example/", ["not an http or https URL"]),
        ("", ["not an http or https URL"]),
        ("https://a b/", ["a URL cannot contain spaces or non-ASCII characters"]),
        ("https://größe.example/", ["a URL cannot contain spaces or non-ASCII characters"]),
        (
            "ftp://a b/",
            [
                "not an http or https URL",
                "a URL cannot contain spaces or non-ASCII characters",
            ],
        ),
    ],
)
def test_a_url_that_cannot_work_is_refused_and_nothing_written(settings, temp_dir, url, rules):
    done = settings(url)
    assert done.code == 1
    assert done.errors == [f"{url}: {rule}" for rule in rules]
    assert list(temp_dir.iterdir()) == []


@pytest.mark.parametrize("output", ["made/", "made\\", "there", "there/"])
def test_a_folder_as_output_is_refused_and_nothing_left_behind(build, temp_dir, output):
    (temp_dir / "there").mkdir()
    path = windows_path(temp_dir) + "\\" + output
    done = publish(build, "settings", "--url", URL, "--channel", "release", "--output", path)
    assert (done.code, done.errors) == (1, [path.rstrip("/\\") + ": is a folder"])
    assert [file.name for file in temp_dir.rglob("*")] == ["there"]


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        ([], "A command is required"),
        (["settings"], "--url is required"),
        (["settings", "--url", URL, "--channel", "gamma", "--output", "x"], "--channel: gamma not in "),
        (["settings", "--url", URL, "--channel", "release"], "--output is required"),
        (["unknown"], "The following argument was not expected: unknown"),
    ],
)
def test_wrong_usage(build, arguments, message):
    done = subprocess.run(
        command_line(build.publish, *arguments),
        stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False,
    )
    assert done.returncode == 2
    assert done.stderr.decode().startswith(message)


@pytest.mark.parametrize("command", ["settings", "game", "launcher", "promote", "verify", "preview", "inspect"])
def test_every_command_has_help_with_an_example(build, command):
    done = subprocess.run(
        command_line(build.publish, command, "--help"),
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False,
    )
    assert done.returncode == 0
    assert f"Example:\r\n  publish {command} " in done.stdout.decode()
