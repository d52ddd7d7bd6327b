#!/usr/bin/env bash
# marlowick-studio killed with SIGKILL after a take and two edits, and started again: the take and both
# edits come back. The window runs as a person uses it, on a private X display with its own home, driven
# by keys sent through XTEST: Ctrl+Shift+R starts a take, the global Ctrl+. stops it, and I, O, Space and
# Ctrl+Delete make each cut. After the kill, `marlowick recover` lists the take with its edits and makes a
# package holding both cuts; the next start offers the take, Return recovers it, and a third cut made in
# the recovered project reaches its recovery copy beside the two before.
# Usage: StudioRecoveryTest.sh MARLOWICK MARLOWICK_STUDIO
set -euo pipefail

marlowick=$1
studio=$2
scratch=$(mktemp -d)
xvfb=""
window=""
cleanup() {
    [[ -n $window ]] && kill -9 "$window" 2>/dev/null || true
    [[ -n $xvfb ]] && kill "$xvfb" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$scratch"
}
trap cleanup EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# A home of its own: settings that have seen the first launch's sheet and record no sound (this display
# has no sound server), and the takes folder under it.
export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/config XDG_DATA_HOME=$scratch/data
export XDG_RUNTIME_DIR=$scratch/run QT_QPA_PLATFORM=xcb
mkdir -p "$HOME" "$XDG_CONFIG_HOME/Marlowick" -m 700 "$XDG_RUNTIME_DIR"
printf '[General]\nhasCompletedOnboarding=true\n\n[record]\nsystemAudio=false\nmicrophone=false\n' \
    >"$XDG_CONFIG_HOME/Marlowick/Marlowick.conf"
takes=$XDG_DATA_HOME/marlowick/takes

Xvfb -displayfd 3 -screen 0 1280x720x24 -nolisten tcp -noreset 3>"$scratch/display" 2>/dev/null &
xvfb=$!
for _ in $(seq 100); do
    [[ -s $scratch/display ]] && break
    sleep 0.1
done
[[ -s $scratch/display ]] || fail "Xvfb did not start"
export DISPLAY=:$(tr -d '\n' <"$scratch/display")

# Waits up to $1 seconds for the command after it to succeed.
within() {
    local seconds=$1
    shift
    for _ in $(seq $((seconds * 10))); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}
# The number of hand cuts in the recovery copy of the take $1, or nothing while there is no copy.
cutsInCopy() {
    local copy=${1%.mov}.recovery/Document.json
    [[ -f $copy ]] && python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))["project"]["manualCuts"]))' "$copy"
}
copyHasCuts() { [[ $(cutsInCopy "$1") == "$2" ]]; }
# Starts the window and waits for it to show; its id in $wid.
startWindow() {
    "$studio" >>"$scratch/studio.log" 2>&1 &
    window=$!
    wid=$(timeout 60 xdotool search --sync --onlyvisible --name '^Marlowick$' | head -n 1) ||
        fail "the window did not show: $(cat "$scratch/studio.log")"
}
focusWindow() {
    # Its title is "Marlowick", or the project's name before it.
    within 30 xdotool search --onlyvisible --name 'Marlowick$' >/dev/null || fail "the window did not come back"
    xdotool windowfocus --sync "$wid"
    sleep 0.3
}
# One cut of about a second from where the playhead stands: In, play, Out, pause, remove the selection.
cutOneSecond() {
    xdotool key i
    xdotool key space
    sleep 1.2
    xdotool key o
    xdotool key space
    sleep 0.3
    xdotool key ctrl+Delete
    sleep 0.3
}

startWindow
focusWindow
xdotool key ctrl+shift+r
within 30 compgen -G "$takes/take-*.mov" >/dev/null || fail "no take was started: $(cat "$scratch/studio.log")"
take=$(compgen -G "$takes/take-*.mov" | head -n 1)
[[ $(stat -c %a "$takes") == 700 ]] || fail "the takes folder is $(stat -c %a "$takes"), not 700"
[[ $(stat -c %a "$take") == 600 ]] || fail "the take is $(stat -c %a "$take"), not 600"
sleep 6
xdotool key ctrl+period
# The take opens in the editor, and its first recovery copy follows (with no cut yet).
within 60 copyHasCuts "$take" 0 || fail "no recovery copy after the take: $(cat "$scratch/studio.log")"
[[ $(stat -c %a "$take") == 600 ]] || fail "the finished take is $(stat -c %a "$take"), not 600"
[[ $(stat -c %a "${take%.mov}.recovery") == 700 ]] || fail "the recovery copy's folder is not 700"
for file in "${take%.mov}.recovery"/*; do
    [[ $(stat -c %a "$file") == 600 ]] || fail "$file is not 600"
done
focusWindow
# Each cut reloads the player: the next one waits until the copy has this one, the edits having paused.
cutOneSecond
within 20 copyHasCuts "$take" 1 || fail "the copy holds $(cutsInCopy "$take") cuts, not 1"
cutOneSecond
within 20 copyHasCuts "$take" 2 || fail "the copy holds $(cutsInCopy "$take") cuts, not 2"
# While the window holds the take, nobody else is offered it.
[[ -z $("$marlowick" recover 2>/dev/null) ]] || fail "a held take was listed"

kill -9 "$window"
wait "$window" 2>/dev/null || true
window=""

listed=$("$marlowick" recover)
echo "listed: $listed"
[[ $(wc -l <<<"$listed") == 1 ]] || fail "not one take listed"
[[ $(cut -f1 <<<"$listed") == "$take" ]] || fail "the take listed is not the one recorded"
[[ $(cut -f4 <<<"$listed") == edits ]] || fail "the take is listed without its edits"
length=$(cut -f3 <<<"$listed")
[[ $length =~ ^0:0[4-9]$ ]] || fail "the take is $length long, not about six seconds"
"$marlowick" recover "$take" -o "$scratch/Recovered.marlowick"
cuts=$(python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))["project"]["manualCuts"]))' \
    "$scratch/Recovered.marlowick/Document.json")
[[ $cuts == 2 ]] || fail "the recovered package holds $cuts cuts, not 2"

# The next start offers the take; Return takes the default answer, Recover. The question is the window of
# that title narrower than the main one.
startWindow
question=""
narrowWindow() {
    local w width
    for w in $(xdotool search --onlyvisible --name '^Marlowick$'); do
        width=$(xdotool getwindowgeometry --shell "$w" | sed -n 's/^WIDTH=//p')
        if ((width < 900)); then
            question=$w
            return 0
        fi
    done
    return 1
}
within 30 narrowWindow || fail "no question at the start: $(cat "$scratch/studio.log")"
wid=$(xdotool search --onlyvisible --name '^Marlowick$' | grep -vx "$question" | head -n 1)
xdotool windowfocus --sync "$question"
sleep 0.3
xdotool key Return
within 30 bash -c "[[ -z \$('$marlowick' recover 2>/dev/null) ]]" || fail "the take was not recovered"
# The recovered project holds both cuts: one more made in it joins them in its copy. The player loads the
# recovered take meanwhile and may miss the first keys, so the cut is tried again until one lands.
copyKeepsRecoveredCuts() {
    python3 - "${take%.mov}.recovery/Document.json" "$scratch/Recovered.marlowick/Document.json" <<'CHECK'
import json, sys
copy, recovered = ({cut["id"] for cut in json.load(open(path))["project"]["manualCuts"]} for path in sys.argv[1:])
sys.exit(0 if len(recovered) == 2 and recovered < copy else 1)
CHECK
}
focusWindow
sleep 2
for _ in 1 2 3; do
    cutOneSecond
    within 10 copyKeepsRecoveredCuts && break
done
copyKeepsRecoveredCuts || fail "the recovered project's copy holds $(cutsInCopy "$take") cuts, not both cuts and one more"
echo "recovered with both edits"

# Killed again and started again, the take is offered again; declined and kept (Escape twice), it stays for
# a later start.
kill -9 "$window"
wait "$window" 2>/dev/null || true
startWindow
question=""
within 30 narrowWindow || fail "no question at the third start"
xdotool windowfocus --sync "$question"
sleep 0.3
xdotool key Escape
sleep 1
question=""
within 30 narrowWindow || fail "no second question"
xdotool windowfocus --sync "$question"
sleep 0.3
xdotool key Escape
sleep 1
wid=$(xdotool search --onlyvisible --name '^Marlowick$' | head -n 1)
focusWindow

# Killed during a take: the take reads back up to its last seconds, and the project before it is kept too.
xdotool key ctrl+shift+r
within 30 bash -c "[[ \$(compgen -G '$takes/take-*.mov' | wc -l) == 2 ]]" || fail "no second take was started"
sleep 6
kill -9 "$window"
wait "$window" 2>/dev/null || true
window=""
listed=$("$marlowick" recover)
echo "listed: $listed"
[[ $(wc -l <<<"$listed") == 2 ]] || fail "not two takes listed"
killed=$(sed -n 1p <<<"$listed")
[[ $(cut -f4 <<<"$killed") == "no edits" ]] || fail "the take killed while it ran is listed with edits"
[[ $(cut -f3 <<<"$killed") =~ ^0:0[3-9]$ ]] || fail "the take killed while it ran is $(cut -f3 <<<"$killed") long"
[[ $(sed -n 2p <<<"$listed" | cut -f1,4) == "$take"$'\t'edits ]] || fail "the recovered take is not listed with its edits"
"$marlowick" recover "$(cut -f1 <<<"$killed")" -o "$scratch/Killed.marlowick"
"$marlowick" info "$scratch/Killed.marlowick" | grep -q "Recovered take" || fail "the killed take made no project"
echo "a take killed while it ran reads back"
