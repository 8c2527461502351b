#!/usr/bin/env bash
# End to end in a real window: `pelora demo --window` on a virtual X display (Xvfb), and a
# synthetic mouse click (xdotool, through the X server like a person's) on the splash's skip
# button. The splash must end with splashAdDidClickSkip.
#
# Every wait is a blocking read of what the programs print, bounded by a deadline; nothing
# sleeps. Exit 77 (skipped) when Xvfb or xdotool is not installed.
set -uo pipefail
PELORA=${1:?usage: person_skips_splash.sh PATH/TO/pelora}
command -v Xvfb >/dev/null && command -v xdotool >/dev/null || {
  echo "Xvfb or xdotool is not installed"
  exit 77
}

work=$(mktemp -d)
xvfb_pid=""
cleanup() {
  [ -n "${DEMO_PID:-}" ] && kill "$DEMO_PID" 2>/dev/null
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

# Xvfb picks a free display and writes its number once it accepts connections.
mkfifo "$work/display"
Xvfb -displayfd 3 -screen 0 800x800x24 -nolisten tcp 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
if ! read -r -t 20 display <"$work/display"; then
  echo "Xvfb did not start:"; cat "$work/xvfb.log"; exit 1
fi
export DISPLAY=":$display"

coproc DEMO { exec env XDG_CACHE_HOME="$work/cache" "$PELORA" demo --window --json 2>&1; }

# Reads the demo's lines until one contains $1, for at most $2 seconds; the line is in $line.
wait_for() {
  local deadline=$((SECONDS + $2))
  while ((SECONDS < deadline)); do
    IFS= read -r -t $((deadline - SECONDS)) line <&"${DEMO[0]}" || break
    echo "$line" >>"$work/demo.log"
    [[ $line == *"$1"* ]] && return 0
  done
  echo "no \"$1\" within $2 s; the demo printed:"
  cat "$work/demo.log"
  return 1
}

wait_for '"event":"window open"' 20 || exit 1
window_id=$(sed -n 's/.*"windowId":\([0-9]*\).*/\1/p' <<<"$line")
[ -n "$window_id" ] && [ "$window_id" != 0 ] || { echo "no window id in: $line"; exit 1; }
wait_for '"countDown":"5"' 20 || exit 1

# The skip button's centre, from the splash's interface file: its container at (271, 44),
# the button at (32, 0) in it, 50x32 points; the window shows one screen pixel per point.
xdotool mousemove --window "$window_id" 328 60 click 1

wait_for '"event":"splashAdDidClickSkip"' 10 || exit 1
if grep -q '"event":"splashAdTimeOver"' "$work/demo.log"; then
  echo "the splash timed out before the click"; exit 1
fi
echo "the click on skip ended the splash: $line"
