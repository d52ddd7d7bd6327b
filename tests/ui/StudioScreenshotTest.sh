#!/usr/bin/env bash
# marlowick-studio as `make demo` runs it: opens a sample take, plays it, and saves a picture of its window
# read from a private X display. The canvas must be in the picture (it draws in a GL window of its own,
# which a widget's grab would leave black): the middle of the canvas is the take's desktop, not black.
# Usage: StudioScreenshotTest.sh MARLOWICK MARLOWICK_STUDIO
set -euo pipefail

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$1" sample "$scratch/take.marlowick" --seconds 4 >/dev/null
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1600x1000x24" \
    "$2" --screenshot "$scratch/editor.png" --play-seconds 1 "$scratch/take.marlowick"
# The mean brightness of a patch in the middle of the canvas (the window's left part, under the toolbar).
mean=$(ffmpeg -v error -i "$scratch/editor.png" \
    -vf "crop=240:120:260:280,signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=-" -f null - |
    sed -n 's/.*YAVG=\([0-9.]*\).*/\1/p' | head -n 1)
echo "canvas patch mean brightness: ${mean:-none}"
[[ -n $mean ]] && awk -v m="$mean" 'BEGIN { exit !(m > 40) }' || { echo "FAIL: the canvas is black in the picture" >&2; exit 1; }
