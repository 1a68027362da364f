# shellcheck shell=bash
# What scripts/test, scripts/demo, scripts/bench and scripts/format share: installing what is missing,
# building, and a desktop of their own (Wine prefix, wineserver, X server) that is gone again when they
# end.
# Sourced, never run.
# shellcheck disable=SC2034 # The lists of packages are used by those who source this.

# Debian's wine64 is linked at a fixed address, and since Linux 6.9 its heap may begin up to a gigabyte
# above it, which now and then is where Windows programs have the system's shared data (0x7ffe0000).
# Then Wine cannot start the program and ends with code 1 and without a word: here about one start in
# ten thousand. Everything therefore runs without randomised addresses where the system lets it (a
# container may not).
if [[ -z ${FIXED_ADDRESSES:-} ]] && setarch -R true 2>/dev/null; then
  FIXED_ADDRESSES=yes exec setarch -R "$BASH" "$0" "$@"
fi

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
jobs=$(nproc)
# Debian 12 and 13 have both programs here.
wine_dir=/usr/lib/wine
# Debian's own, which is the one that has Debian's pytest.
python=/usr/bin/python3

build_packages=(cmake ninja-build g++-mingw-w64-x86-64-posix googletest python3 libcli11-dev
  nlohmann-json3-dev)
# The fonts and the X libraries are only recommended by libwine; without them windows are drawn with
# stand-ins.
wine_packages=(wine64 libwine fonts-wine libxcomposite1 libxcursor1 libxfixes3 libxi6 libxinerama1
  libxrandr2 libxrender1 xvfb)
test_packages=(python3 python3-pytest python3-pytest-xdist python3-jsonschema nginx-light openssl
  osslsigncode rclone x11-utils xdotool)
style_packages=(clang-format clang-tidy)
bench_packages=(curl libssl-dev nginx-light python3 python3-matplotlib)
demo_packages=(python3 nginx-light x11-utils xdotool imagemagick)

# The button texts of the system's dialogs and the C runtime's code page follow the locale, and the
# C runtime would take the host's TZ for local time.
export LC_ALL=C.UTF-8
unset LANGUAGE TZ
export PYTHONDONTWRITEBYTECODE=1
# Where fontconfig keeps what it finds out about the fonts: not in the home directory.
export XDG_CACHE_HOME="$root/build/cache"

say() { printf '%s\n' "$*"; }
heading() { printf '\n=== %s\n' "$*"; }
fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# exit_on_signals: an interrupted shell goes through its trap on EXIT, whatever the program it waits
# for makes of the signal. Subshells do not inherit this.
exit_on_signals() {
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
}
exit_on_signals

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  else
    sudo "$@"
  fi
}

# need_root WHAT: ends with a reason where as_root could not work.
need_root() {
  [[ $EUID -ne 0 ]] || return 0
  command -v sudo >/dev/null || fail "$1 needs root, and there is no sudo: let root do it."
  # Asks for the password here, where nothing is redirected.
  sudo true || fail "$1 needs root, and sudo refuses: let root do it."
}

# install_missing PACKAGE...: asks nothing, and does nothing where everything is there.
install_missing() {
  local package installed missing=() log="$root/build/install.log"
  command -v dpkg-query >/dev/null || fail "needs Debian 12 or 13 (apt and dpkg), or these by hand: $*"
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true)
  for package in "$@"; do
    grep -qxF "$package installed" <<<"$installed" || missing+=("$package")
  done
  if [[ ${#missing[@]} -eq 0 ]]; then
    say "Nothing is missing."
    return
  fi
  say "Installing ${missing[*]}"
  need_root "'apt-get install'"
  say "(what apt-get prints goes to ${log#"$root"/})"
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=900)
  if ! as_root "${apt[@]}" update >"$log" 2>&1; then
    say "apt-get update failed; going on with the package lists at hand."
  fi
  local keep_stopped=
  # Nothing that is installed here is wanted as a service: nginx would take port 80.
  if [[ ! -e /usr/sbin/policy-rc.d ]]; then
    keep_stopped=/usr/sbin/policy-rc.d
    trap 'as_root rm -f /usr/sbin/policy-rc.d' EXIT
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$keep_stopped" >/dev/null
    as_root chmod 755 "$keep_stopped"
  fi
  local status=0
  as_root "${apt[@]}" install --no-install-recommends "${missing[@]}" >>"$log" 2>&1 </dev/null ||
    status=$?
  if [[ -n $keep_stopped ]]; then
    as_root rm -f "$keep_stopped"
    trap - EXIT
  fi
  if [[ $status -ne 0 ]]; then
    tail -n 30 "$log" >&2
    fail "installing failed (exit code $status)."
  fi
  if [[ " ${missing[*]} " == *" nginx-light "* ]]; then
    as_root update-rc.d nginx disable >>"$log" 2>&1 || true
  fi
}

# The build tree belongs to one user: others cannot write what root built.
own_build_tree() {
  mkdir -p "$root/build/wine" 2>/dev/null || true
  [[ -w "$root/build/wine" && -O "$root/build/wine" ]] || {
    [[ -e "$root/build" ]] || fail "$root cannot be written: run this as $(stat -c %U "$root")."
    fail "build/ belongs to another user: remove it, or run this as $(stat -c %U "$root/build")."
  }
}

# cpp_sources PATTERN: our C++ files, each ended by a NUL.
cpp_sources() {
  local folder folders=()
  for folder in core archive net ui updater launcher publisher bench tests; do
    [[ ! -d $root/$folder ]] || folders+=("$root/$folder")
  done
  find "${folders[@]}" \( -name '*.cpp' -o -name '*.h' \) -name "$1" -print0 | sort -z
}

configure() {
  (
    cd "$root" || exit 1
    flock 9
    cmake --preset "$1" >"build/$1.configure.log" 2>&1 || {
      cat "build/$1.configure.log" >&2
      exit 1
    }
  ) 9>"$root/build/$1.lock"
}

# build PRESET [TARGET...]. Two runs at once take turns in a build directory.
build() {
  local targets=()
  [[ $# -eq 1 ]] || targets=(--target "${@:2}")
  configure "$1" || return
  (
    cd "$root" || exit 1
    flock 9
    cmake --build --preset "$1" -j "$jobs" "${targets[@]}"
  ) 9>"$root/build/$1.lock"
}

# wine_environment PREFIX
wine_environment() {
  export WINEPREFIX=$1 WINEARCH=win64
  export WINEDEBUG="${WINEDEBUG:--all}"
  # Neither .NET nor HTML nor entries in the desktop's menu are wanted.
  export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
}

# Ends the wineserver of $WINEPREFIX with all its programs, and removes its socket directory, which
# Debian's wineserver makes below /tmp under the name kept in the prefix.
end_wineserver() {
  local socket_dir
  socket_dir=$(cat "$WINEPREFIX/wineserver" 2>/dev/null || true)
  "$wine_dir/wineserver64" -k >/dev/null 2>&1 || true
  if [[ $socket_dir == wine-* && $socket_dir != */* ]]; then
    rm -rf "${TMPDIR:-/tmp}/$socket_dir"
  fi
  # Unless it names another one by now.
  if [[ $(cat "$WINEPREFIX/wineserver" 2>/dev/null || true) == "$socket_dir" ]]; then
    rm -f "$WINEPREFIX/wineserver"
  fi
}

# Sets $template to a Wine prefix that runs are copied from: a new one takes a quarter of a minute.
make_wine_template() {
  template="$root/build/wine/template-$(dpkg-query -W -f '${Version}' libwine)"
  (
    flock 9
    [[ ! -d $template ]] || exit 0
    say "Making a Wine prefix (once)."
    unset DISPLAY
    rm -rf "$root"/build/wine/template-*
    wine_environment "$template.new"
    mkdir "$WINEPREFIX"
    exit_on_signals
    trap end_wineserver EXIT
    # In the background, because a signal ends the waiting for it at once.
    "$wine_dir/wine64" wineboot -i >"$root/build/wine/template.log" 2>&1 &
    wait $!
    # Without a window manager Wine would wait two seconds whenever a managed window closes.
    "$wine_dir/wine64" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
    "$wine_dir/wineserver64" -w
    end_wineserver
    trap - EXIT
    [[ -s $WINEPREFIX/system.reg ]] || exit 1
    # Wine looks for its own fonts here, not where Debian puts them.
    ln -s /usr/share/wine/fonts/* "$WINEPREFIX/drive_c/windows/Fonts/"
    # Wine links "Documents" and the like into the home directory.
    local link
    find "$WINEPREFIX/drive_c/users" -type l | while read -r link; do
      rm "$link"
      mkdir "$link"
    done
    mv "$template.new" "$template"
  ) 9>"$root/build/wine/template.lock" || fail "no Wine prefix: see build/wine/template.log."
}

run_dir=
wineserver_pid=
xvfb_pid=
background_groups=() # process groups that end with this run

# start_desktop xvfb|own: a Wine prefix of this run's own with a wineserver that stays (starting a
# program then takes a few hundredths of a second), and an X server of its own, or the
# user's.
start_desktop() {
  make_wine_template
  run_dir=$(mktemp -d "$root/build/wine/run.XXXXXX")
  trap stop_desktop EXIT
  wine_environment "$run_dir/prefix"
  # Hard links for Wine's own programs, copies of all that programs write to.
  cp -al "$template" "$WINEPREFIX"
  cp -a --remove-destination "$template"/*.reg "$WINEPREFIX/"
  rm -rf "$WINEPREFIX/drive_c/users" "$WINEPREFIX/drive_c/ProgramData"
  cp -a "$template/drive_c/users" "$template/drive_c/ProgramData" "$WINEPREFIX/drive_c/"
  if [[ $1 == xvfb ]]; then
    start_xvfb
  else
    # The user's window manager shall see the windows.
    sed -i '/^"Managed"="N"$/d' "$WINEPREFIX/user.reg"
  fi
  # In a session of its own: a signal to all of this run's processes would end it first, and Wine's
  # services, out of reach by then, would stay.
  setsid "$wine_dir/wineserver64" -f -p >/dev/null 2>&1 &
  wineserver_pid=$!
  await_wineserver
  # The first program starts Wine's services, which keep its output open: it must not be one whose
  # output somebody reads to the end.
  "$wine_dir/wine64" cmd /c exit </dev/null >/dev/null 2>&1 || fail "Wine does not start a program."
}

# Until the wineserver can be asked: a program that comes earlier would start a second one, in another
# directory, and one of the two would end with code 1 and without a word.
await_wineserver() {
  local tries
  for ((tries = 0; tries < 500; ++tries)); do
    if compgen -G "${TMPDIR:-/tmp}/$(cat "$WINEPREFIX/wineserver" 2>/dev/null)/server-*/socket" >/dev/null; then
      return
    fi
    sleep 0.02
  done
  fail "the wineserver does not start."
}

# keep_desktop PRESET: the same for Wine's desktop, which comes with the first window and goes some
# time after the last.
keep_desktop() {
  local endless
  mkfifo "$run_dir/endless"
  exec {endless}<>"$run_dir/endless"
  "$wine_dir/wine64" "$root/build/$1/watcher/watch.exe" desktop <&"$endless" >/dev/null 2>&1 &
  exec {endless}>&-
}

start_xvfb() {
  # Only root can make this directory, and X servers want it; a bare system has none.
  if [[ ! -d /tmp/.X11-unix ]]; then
    need_root "making /tmp/.X11-unix"
    as_root mkdir -p -m 1777 /tmp/.X11-unix
  fi
  unset DISPLAY XAUTHORITY WAYLAND_DISPLAY
  Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset -br \
    3>"$run_dir/display" >"$run_dir/xvfb.log" 2>&1 &
  xvfb_pid=$!
  until [[ -s $run_dir/display ]]; do
    if ! kill -0 "$xvfb_pid" 2>/dev/null; then
      cat "$run_dir/xvfb.log" >&2
      fail "Xvfb did not start."
    fi
    sleep 0.05
  done
  DISPLAY=:$(<"$run_dir/display")
  export DISPLAY
}

stop_desktop() {
  local status=$?
  trap - EXIT
  trap '' HUP INT TERM
  local group
  for group in "${background_groups[@]}"; do
    kill -- "-$group" 2>/dev/null || true
  done
  if [[ -n $wineserver_pid ]]; then
    end_wineserver
    # Where it had not begun to listen yet.
    kill "$wineserver_pid" 2>/dev/null || true
    wait "$wineserver_pid" 2>/dev/null || true
  fi
  if [[ -n $xvfb_pid ]]; then
    kill "$xvfb_pid" 2>/dev/null || true
    wait "$xvfb_pid" 2>/dev/null || true
  fi
  # A program that was just starting may have started another one.
  if [[ -e $WINEPREFIX/wineserver ]]; then
    end_wineserver
  fi
  rm -rf "$run_dir"
  exit "$status"
}
