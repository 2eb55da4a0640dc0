#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what Ordalis needs, builds the release preset and packs it into a Debian package in build/release/.
# Prints the package's path last.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=build/release
# A packaged program is updated by apt: the package is built without an update feed, whatever an earlier configure
# of the release preset left in its cache (scripts/build.sh keeps the cached value).
cmake --preset release -DORDALIS_UPDATE_FEED_URL= >/dev/null
scripts/build.sh release
if ! grep -qx 'ORDALIS_UPDATE_FEED_URL:STRING=' "$build/CMakeCache.txt"; then
    echo "package: the release build has an update feed; a Debian package must not update itself" >&2
    exit 1
fi
log=$build/cpack.log
if ! cpack --config "$build/CPackConfig.cmake" -B "$build" >"$log" 2>&1; then
    cat "$log" >&2
    echo "package: cpack failed" >&2
    exit 1
fi
deb=$(sed -n 's/^CPack: - package: \(.*\.deb\) generated\.$/\1/p' "$log" | tail -n 1)
[ -n "$deb" ] && [ -f "$deb" ] || { cat "$log" >&2; echo "package: cpack made no .deb" >&2; exit 1; }
echo "$deb"
