#!/usr/bin/env bash
# What Ordalis costs while someone types, and while nothing happens: bench/typing.sh
#
# Under Xvfb with a window manager, starts the optimised build with the keyboard showing and a fresh, empty home,
# types a mixed text with shortcuts through xdotool at 10 keys a second, then leaves it idle, and prints:
#   - CPU seconds and % of one core while typing and while idle (from /proc/PID/stat, all threads),
#   - peak and final resident memory (VmHWM, VmRSS),
#   - key-to-lit latency p50/p99/max, measured inside Ordalis (its --latency-report option) from the arrival of
#     each key press event to the end of the repaint that shows the key held.
# Nothing here fails on a slow machine: it measures and prints.
#
# TYPING_SECONDS and IDLE_SECONDS (default 60 each) shorten a trial run; ORDALIS points at another binary.
# TRACKPAD=1 shows the trackpad; SCROLL=1 mixes three wheel notches a second (two up, one down) into the typing.
set -euo pipefail
cd "$(dirname "$0")/.."
typing_seconds=${TYPING_SECONDS:-60}
idle_seconds=${IDLE_SECONDS:-60}
trackpad=${TRACKPAD:-0}
scroll=${SCROLL:-0}

scripts/install-deps.sh
if [ "$trackpad" = 1 ]; then settings_json='{"showTrackpad": true}'; fi
source bench/desktop.sh

# The pointer rests in a corner, away from the keyboard, as it mostly does while someone types. (Resting over the
# faded keyboard costs nothing on X11 either: bench/hover.sh measures it.)
xdotool mousemove 0 0

report=$work/latency.txt
"$ORDALIS" --show --latency-report "$report" >"$work/ordalis.log" 2>&1 &
ordalis=$!
pids+=("$ordalis")
for _ in $(seq 100); do
    [ -n "$(xdotool search --onlyvisible --name '^Ordalis' 2>/dev/null)" ] && break
    sleep 0.1
done
# Lets the start-up work (caches, first paint) finish before anything is counted.
sleep 3

ticks=$(getconf CLK_TCK)
# CPU time of the process, all threads, in clock ticks (user + system).
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$ordalis/stat"; }
status_kb() { awk -v key="$1:" '$1 == key { print $2 }' "/proc/$ordalis/status"; }
now() { date +%s.%N; }
percent() { awk -v t="$1" -v s="$2" -v k="$ticks" 'BEGIN { printf "%.3f", 100 * t / k / s }'; }
seconds() { awk -v t="$1" -v k="$ticks" 'BEGIN { printf "%.2f", t / k }'; }

rss_start=$(status_kb VmRSS)

# A mixed text: words, capitals, digits and punctuation, with shortcuts now and then. Every name below is one
# keystroke (a press and a release, the modifiers of a combination with it); 10 of them each second.
keys=()
add_text() {
    local text=$1 i c
    for ((i = 0; i < ${#text}; i++)); do
        c=${text:i:1}
        case "$c" in
        ' ') keys+=(space) ;;
        '.') keys+=(period) ;;
        ',') keys+=(comma) ;;
        '-') keys+=(minus) ;;
        [A-Z]) keys+=("shift+${c,,}") ;;
        *) keys+=("$c") ;;
        esac
    done
}
for _ in 1 2 3 4 5 6; do
    add_text "The quick brown fox jumps over 13 lazy dogs. "
    keys+=(ctrl+s BackSpace BackSpace Left Right Tab)
    add_text "Pack my box with five dozen liquor jugs, then 42 more. "
    keys+=(shift+Home ctrl+c End ctrl+v super+Up alt+Tab Return)
    add_text "Sphinx of black quartz - judge my vow. "
    keys+=(ctrl+z shift+ctrl+z Caps_Lock h e l l o Caps_Lock F5 Escape)
done

echo "== typing for $typing_seconds s at 10 keys a second (trackpad $trackpad, scrolling $scroll)"
cpu_before=$(cpu_ticks)
start=$(now)
deadline=$(awk -v s="$start" -v d="$typing_seconds" 'BEGIN { printf "%.3f", s + d }')
typed=0
index=0
second=0
while awk -v n="$(now)" -v d="$deadline" 'BEGIN { exit !(n < d) }'; do
    # Ten keys a second: one xdotool run types them 90 ms apart, then the rest of the second is waited out.
    chunk=()
    for _ in 1 2 3 4 5 6 7 8 9 10; do
        chunk+=("${keys[index]}")
        index=$(((index + 1) % ${#keys[@]}))
    done
    xdotool key --delay 90 "${chunk[@]}"
    typed=$((typed + ${#chunk[@]}))
    if [ "$scroll" = 1 ]; then xdotool click --repeat 2 --delay 20 4 click 5; fi
    second=$((second + 1))
    rest=$(awk -v s="$start" -v k="$second" -v n="$(now)" 'BEGIN { r = s + k - n; printf "%.3f", (r > 0 ? r : 0) }')
    sleep "$rest"
done
typing_elapsed=$(awk -v s="$start" -v e="$(now)" 'BEGIN { printf "%.2f", e - s }')
cpu_typing=$(($(cpu_ticks) - cpu_before))
rss_typing=$(status_kb VmRSS)

# The last release fades out; then nothing should run at all.
sleep 2
echo "== idle for $idle_seconds s"
cpu_before=$(cpu_ticks)
start=$(now)
sleep "$idle_seconds"
idle_elapsed=$(awk -v s="$start" -v e="$(now)" 'BEGIN { printf "%.2f", e - s }')
cpu_idle=$(($(cpu_ticks) - cpu_before))
rss_final=$(status_kb VmRSS)
rss_peak=$(status_kb VmHWM)

"$ORDALIS" --quit >/dev/null 2>&1 || kill "$ordalis"
for _ in $(seq 100); do kill -0 "$ordalis" 2>/dev/null || break; sleep 0.1; done

echo
echo "Machine: $(nproc) cores, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)," \
    "load $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Typing: $typed keystrokes in $typing_elapsed s"
echo "  CPU: $(seconds "$cpu_typing") s, $(percent "$cpu_typing" "$typing_elapsed") % of one core"
echo "  RSS: $((rss_start / 1024)) MB before, $((rss_typing / 1024)) MB after"
if [ -s "$report" ]; then
    sed "s/^/  /" "$report"
else
    echo "  no latency report (did Ordalis quit cleanly? see its log below)"
    cat "$work/ordalis.log"
fi
echo "Idle, keyboard showing: $idle_elapsed s"
echo "  CPU: $(seconds "$cpu_idle") s, $(percent "$cpu_idle" "$idle_elapsed") % of one core"
echo "Memory: peak RSS $((rss_peak / 1024)) MB, final RSS $((rss_final / 1024)) MB"
