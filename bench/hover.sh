#!/usr/bin/env bash
# What Ordalis costs while the pointer rests on the faded keyboard: bench/hover.sh
#
# Under Xvfb with a window manager, starts the optimised build with the keyboard showing, "auto-hide on hover" on and
# a fresh home, moves the pointer onto the middle of the keyboard, waits for it to fade and let clicks through, leaves
# the pointer there and prints the CPU seconds and % of one core (from /proc/PID/stat, all threads), then moves the
# pointer away and says whether the keyboard noticed (it shows at full opacity again).
#
# HOVER_SECONDS (default 60) shortens a trial run; ORDALIS points at another binary.
set -euo pipefail
cd "$(dirname "$0")/.."
hover_seconds=${HOVER_SECONDS:-60}

settings_json='{"autoHideOnHover": true}'
source bench/desktop.sh
xdotool mousemove 0 0

"$ORDALIS" --show >"$work/ordalis.log" 2>&1 &
ordalis=$!
pids+=("$ordalis")
window=
for _ in $(seq 100); do
    window=$(xdotool search --onlyvisible --name '^Ordalis' 2>/dev/null | head -n 1) && [ -n "$window" ] && break
    sleep 0.1
done
sleep 3

# The middle of the keyboard, from its geometry as the X server has it.
eval "$(xdotool getwindowgeometry --shell "$window")"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
# The fade (0.15 s) and the click-through after it.
sleep 1
opacity() { xprop -id "$window" _NET_WM_WINDOW_OPACITY 2>/dev/null | sed -n 's/.* = //p'; }
faded=$(opacity)

ticks=$(getconf CLK_TCK)
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$ordalis/stat"; }
now() { date +%s.%N; }

echo "== pointer resting on the faded keyboard for $hover_seconds s"
cpu_before=$(cpu_ticks)
start=$(now)
sleep "$hover_seconds"
elapsed=$(awk -v s="$start" -v e="$(now)" 'BEGIN { printf "%.2f", e - s }')
cpu=$(($(cpu_ticks) - cpu_before))

# Away again: the keyboard must see the pointer leave and come back to full opacity. Moved as a mouse moves it
# (through XTEST; an absolute "mousemove" warps the pointer, which no mouse does).
xdotool mousemove_relative -- -3000 -3000
sleep 1
restored=$(opacity)

"$ORDALIS" --quit >/dev/null 2>&1 || kill "$ordalis"
for _ in $(seq 100); do kill -0 "$ordalis" 2>/dev/null || break; sleep 0.1; done

echo
echo "Machine: $(nproc) cores, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)," \
    "load $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Hovering: $elapsed s, window opacity ${faded:-1 (unset)} while faded"
echo "  CPU: $(awk -v t="$cpu" -v k="$ticks" 'BEGIN { printf "%.2f", t / k }') s," \
    "$(awk -v t="$cpu" -v k="$ticks" -v s="$elapsed" 'BEGIN { printf "%.3f", 100 * t / k / s }') % of one core"
echo "Pointer moved away: window opacity ${restored:-1 (unset)} a second later"
