#!/usr/bin/env bash
# Installs the Debian 12 packages Ordalis needs to build, run and test.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

packages=(
    build-essential cmake pkg-config ccache
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev libgl-dev
    libgtest-dev libbenchmark-dev
    libevdev-dev libxcb1-dev libxcb-xkb-dev libxcb-xinput-dev libx11-dev
    libpipewire-0.3-dev pipewire-bin
    libxkbcommon-dev libxkbcommon-x11-dev xkb-data x11-xkb-utils x11-xserver-utils
    xvfb xdotool x11-utils openbox wmctrl trayer weston xwayland
    curl ca-certificates
    dbus-daemon libglib2.0-bin libglib2.0-dev
    dpkg-dev desktop-file-utils appstream libxml2-utils pkexec polkitd
    clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=
if [ "$(id -u)" -ne 0 ]; then SUDO=sudo; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
