"""Signing as docs/publishing.md describes it: the signature is still valid after a self-update."""

import pathlib
import shutil
import subprocess

import pytest

from harness.constants import EXECUTABLE, PROJECT, SETTINGS_FILE
from harness.dialogs import RESTART_REQUIRED
from harness.driver import ok
from harness.pages import blocks
from harness.publishing import publish

CERTIFICATE = "cert.pem"


def page_commands() -> list[str]:
    """The page's commands: make a certificate, sign, rename, verify."""
    page = PROJECT / "docs" / "publishing.md"
    (block,) = [block for block in blocks(page) if block.lines[0].startswith("openssl req ")]
    commands = "\n".join(block.lines).replace("\\\n", "").splitlines()
    assert commands[-1] == f"osslsigncode verify -CAfile {CERTIFICATE} {EXECUTABLE}"
    return commands


def run(command: str, folder: pathlib.Path) -> tuple[int, str]:
    done = subprocess.run(
        ["/bin/sh", "-c", command], cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, timeout=120, check=False,
    )
    return done.returncode, done.stdout.decode(errors="replace")


@pytest.fixture
def studio(build, temp_dir):
    """A folder with the certificate and the signed Launcher."""
    folder = temp_dir / "studio"
    folder.mkdir()
    shutil.copy(build.next, folder / EXECUTABLE)
    for command in page_commands():
        code, output = run(command, folder)
        assert code == 0, (command, output)
    return folder


def is_signed(studio: pathlib.Path, folder: pathlib.Path) -> bool:
    """Whether the page's last command finds the Launcher in the folder signed with this certificate."""
    code, _ = run(page_commands()[-1].replace(CERTIFICATE, str(studio / CERTIFICATE)), folder)
    return code == 0


def test_the_signature_is_valid_after_a_self_update(build, studio, nginx_scene):
    scene = nginx_scene
    settings = scene.folder.path(SETTINGS_FILE)
    arguments = ["--exe", studio / EXECUTABLE, "--settings", settings, "--channel", "release"]
    done = publish(build, "launcher", *arguments, "--server", scene.server.folder, program=build.publish_next)
    assert (done.code, done.errors, done.warnings) == (0, [], [])
    game = scene.folder.root
    assert not is_signed(studio, game)
    scene.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0)).assert_game_started()
    assert is_signed(studio, game)


def test_a_changed_file_does_not_verify(studio):
    launcher = studio / EXECUTABLE
    assert is_signed(studio, studio)
    content = bytearray(launcher.read_bytes())
    content[len(content) // 2] ^= 1
    launcher.write_bytes(content)
    assert not is_signed(studio, studio)
