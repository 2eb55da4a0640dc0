#!/usr/bin/env bash
# Configures and builds one preset (dev, release or asan): scripts/build.sh [preset]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/ccache}
# Paths relative to the checkout, so clean clones reuse earlier compilations.
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
