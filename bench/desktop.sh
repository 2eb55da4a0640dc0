# Sourced by the benchmarks: builds the optimised program (unless ORDALIS names one), starts a private Xvfb with
# openbox and an empty home, and leaves `work` (a temporary folder), `pids` (killed on exit) and ORDALIS set.
# `settings_json`, when set before sourcing, becomes the settings file of that home.
root=$PWD
if [ -z "${ORDALIS:-}" ]; then
    # Only the program, optimised, with the compiler cache the other scripts use.
    export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/ccache} CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root}
    cmake --preset release >/dev/null
    cmake --build --preset release --target ordalis >/dev/null
    ORDALIS=$root/build/release/src/ordalis
fi

work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# A display of our own: the first free number from 70.
display=70
while [ -e "/tmp/.X11-unix/X$display" ] || [ -e "/tmp/.X$display-lock" ]; do display=$((display + 1)); done
Xvfb ":$display" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 &
pids+=($!)
export DISPLAY=:$display
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

# Nothing of the user's: no settings, no session bus, no desktop.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_CACHE_HOME=$work/home/.cache
export XDG_DATA_HOME=$work/home/.local/share XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME/ordalis"
chmod 700 "$XDG_RUNTIME_DIR"
if [ -n "${settings_json:-}" ]; then echo "$settings_json" >"$XDG_CONFIG_HOME/ordalis/settings.json"; fi
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY XDG_SESSION_TYPE QT_QPA_PLATFORM
export LANG=C.UTF-8

openbox >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do wmctrl -m >/dev/null 2>&1 && break; sleep 0.1; done
