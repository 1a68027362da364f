"""What all tests, the demo and the bench have in common: the build under test and its version, the
names on the server and in the game folder, and the time limit of everything that is waited for."""

import os
import pathlib

PROJECT = pathlib.Path(__file__).resolve().parents[2]

# The build directory whose programs are run: $LAUNCHER_BUILD, else that of the release preset.
BUILD_DIR = pathlib.Path(os.environ.get("LAUNCHER_BUILD", PROJECT / "build" / "release")).resolve()

# The Launcher's version, which the build writes down, and that of the build's Launcher below next/.
OWN_VERSION = int((BUILD_DIR / "version.txt").read_text())
NEXT_VERSION = OWN_VERSION + 1
OLDER_VERSION = OWN_VERSION - 1

# Seconds. Far more than anything takes: only what hangs meets it.
TIMEOUT = 120.0

# --- On the server ---

REDIRECT = "redirect.txt"
UPDATES = "updates/"
# Below the URL of a channel:
GAME_VERSION = "GameVersion.vpak"
GAME_MANIFEST = "game_update.manifest"
UPDATER_MANIFEST = "updater/updater.manifest"
UPDATER_DATA = "updater/UpdaterData.vpak"
UPDATER_EXECUTABLE = "updater/Launcher.exe"

# What is asked for once the player has agreed to a game update, before any file.
CHECK = (GAME_VERSION, GAME_MANIFEST)


def request_path(name: str, channel: str = "release") -> str:
    """The path that a request for a channel's file names."""
    return f"/{UPDATES}{channel}/{name}"


# --- In the game folder ---

EXECUTABLE = "Launcher.exe"
PARKED = "_old.exe"
GAME = "bin/Velmorant Player.exe"
LOG = "Logs/updater.log"
STAGING = "Intermediate/Update"
VERSION_FILE = "Updater/GameVersion.vpak"
SETTINGS_FILE = "Updater/UpdaterData.vpak"
