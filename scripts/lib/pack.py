"""Packs what a build directory installs: pack.py BUILD FOLDER TIME makes FOLDER/Launcher-<version>.zip.

TIME, in seconds since 1970, is that of all files. The order of the files, their permissions and times do not
depend on the machine or the account, as those of CPack's packages do.
"""

import pathlib
import shutil
import subprocess
import sys
import time
import zipfile


def main(build: pathlib.Path, folder: pathlib.Path, seconds: int) -> None:
    name = f"Launcher-{(build / 'version.txt').read_text().strip()}"
    shutil.rmtree(folder / name, ignore_errors=True)
    subprocess.run(
        ["cmake", "--install", build, "--prefix", folder / name], stdout=subprocess.DEVNULL, check=True
    )
    with zipfile.ZipFile(folder / f"{name}.zip", "w", zipfile.ZIP_DEFLATED) as package:
        for file in sorted((folder / name).rglob("*")):
            if file.is_dir():
                continue
            entry = zipfile.ZipInfo(file.relative_to(folder).as_posix(), time.gmtime(seconds)[:6])
            entry.external_attr = 0o644 << 16
            package.writestr(entry, file.read_bytes(), zipfile.ZIP_DEFLATED)


if __name__ == "__main__":
    # Absolute: an install script finds nothing below a relative prefix.
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve(), int(sys.argv[3]))
