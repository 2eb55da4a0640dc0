#!/usr/bin/env bash
# Installs what Ordalis needs, builds it with its tests and runs the whole suite: scripts/test.sh [preset]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-dev}
scripts/install-deps.sh
scripts/build.sh "$preset"
export QT_QPA_PLATFORM=offscreen
runtime=$(mktemp -d)
trap 'rm -rf "$runtime"' EXIT
export XDG_RUNTIME_DIR=$runtime
ctest --preset "$preset" -j2
