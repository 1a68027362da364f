#!/bin/bash
# Makes docs/images/publish.png: a terminal in which publish.exe of build/release/walk-on publishes a small
# game and verifies it. The working folder is D:\velmorant in a Wine prefix of this run.
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=common.sh
source "$(dirname "$0")/common.sh"

# Prints a command and runs it, as if it were typed.
run() {
  printf '> %s\n' "$*"
  "$wine_dir/wine64" "$1.exe" "${@:2}" 2>&1 | tr -d '\r'
}

# In the terminal.
if [[ ${1:-} == --session ]]; then
  run publish game --source build --version 1.4.0.2 --channel release --server www
  run publish verify --server www --channel release
  printf '> '
  touch finished
  sleep 60 # Until the picture is taken.
  exit
fi

own_build_tree
install_missing "${wine_packages[@]}" fonts-dejavu-core imagemagick x11-utils xdotool xterm
programs="$root/build/release/walk-on"
[[ -x $programs/publish.exe ]] || fail "build first: cmake --workflow --preset release"
start_desktop xvfb
mkdir -p "$run_dir/d/velmorant/build/"{bin,data}
ln -s "$run_dir/d" "$WINEPREFIX/dosdevices/d:"
cd "$run_dir/d/velmorant"
cp "$programs"/*.exe .
cp "$root/build/release/player/Velmorant Player.exe" build/bin/
head -c 3000000 /dev/zero >build/data/level1.pak
head -c 6000 /dev/zero >build/data/sounds.pak
echo 'Read me.' >build/readme.txt
{
  run publish settings --url https://updates.example.com/ --channel release --output UpdaterData.vpak
  run publish launcher --exe Launcher.exe --settings UpdaterData.vpak --channel release --server www
} >setup.log

xterm -fa 'DejaVu Sans Mono' -fs 11 -bg white -fg black -cr white -b 8 -geometry 88x17 \
  -e "$root/scripts/lib/picture.sh" --session &
xterm_pid=$!
for ((tries = 0; tries < 600; ++tries)); do
  [[ ! -e finished ]] || break
  sleep 0.1
done
[[ -e finished ]] || fail "the commands did not end."
sleep 1 # Until the last line is painted.
window=$(xdotool search --pid "$xterm_pid" | tail -n 1)
import -window "$window" -colors 16 "PNG8:$root/docs/images/publish.png"
kill "$xterm_pid"
say "docs/images/publish.png"
