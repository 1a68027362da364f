"""The Launcher's dialogs, word for word: caption, text, buttons, icon, default button."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Dialog:
    caption: str
    text: str
    buttons: tuple[str, ...]
    icon: str
    default: str = "OK"
    topmost: bool = False


UPDATE_AVAILABLE = Dialog(
    "Update available",
    "There is an update available for this game. Do you want to download and install it? "
    "(this might take a while)",
    ("OK", "Cancel"),
    "question",
)

UPDATE_SUCCESSFUL = Dialog(
    "Update successfull.",
    "Sucessfully installed game update. Start the game by pressing OK.",
    ("OK",),
    "information",
)

UPDATE_FAILED = Dialog(
    "Update failed.",
    "There was an error trying to update game. Make sure there is no problem with your internet, "
    "then try again at a later time. Start game with its previous version?",
    ("OK", "Cancel"),
    "error",
)

RESTART_REQUIRED = Dialog(
    "Restart required.",
    "Game-launcher finshed updating itself and needs to restart itself. Press OK to continue.",
    ("OK",),
    "information",
)

SELF_UPDATE_FAILED = Dialog(
    "Error while loading new version of updater",
    "Critical error while downloading new version of game launcher. Please try starting game "
    "manually in 'bin/' folder, or downloading the game again if that fails. Also contact the dev "
    "to let him know whats going on",
    ("OK",),
    "error",
)
