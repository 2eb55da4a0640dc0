#!/usr/bin/env bash
# Fetches the Phosphor icon set the keyboard symbols are drawn from: scripts/fetch-icons.sh [DEST]
# DEST ends up holding package/LICENSE and package/assets/<weight>/*.svg. The tarball is checked against its npm
# integrity before anything is unpacked, and the tree is moved into place in one rename, so DEST is either absent
# or complete. Safe to run again: a complete DEST is left as it is.
set -euo pipefail

name=@phosphor-icons/core
version=2.1.1
tarball=phosphor-icons-core-$version.tgz
url=https://registry.npmjs.org/@phosphor-icons/core/-/core-$version.tgz
integrity=sha512-v4ARvrip4qBCImOE5rmPUylOEK4iiED9ZyKjcvzuezqMaiRASCHKcRIuvvxL/twvLpkfnEODCOJp5dM4eZilxQ==

repo=$(cd "$(dirname "$0")/.." && pwd)
dest=${1:-$repo/.deps/phosphor-icons-core-$version}
marker=.ordalis-integrity

complete() {
    [ -f "$1/$marker" ] && [ "$(cat "$1/$marker")" = "$integrity" ] \
        && [ -f "$1/package/LICENSE" ] && [ -d "$1/package/assets/regular" ]
}

if complete "$dest"; then
    exit 0
fi

parent=$(dirname "$dest")
mkdir -p "$parent"
# Next to DEST, so the final rename stays on one file system.
work=$(mktemp -d "$parent/.fetch-icons.XXXXXX")
trap 'rm -rf "$work"' EXIT

download() {
    if command -v npm >/dev/null 2>&1 \
        && npm pack "$name@$version" --pack-destination "$work" --silent >/dev/null 2>"$work/npm.log" \
        && [ -f "$work/$tarball" ]; then
        return 0
    fi
    if command -v npm >/dev/null 2>&1; then
        echo "fetch-icons: npm pack failed, downloading $url directly" >&2
        sed 's/^/  npm: /' "$work/npm.log" >&2 || true
    fi
    rm -f "$work/$tarball"
    if command -v curl >/dev/null 2>&1; then
        curl -fsSL --retry 3 --connect-timeout 20 -o "$work/$tarball" "$url"
    elif command -v wget >/dev/null 2>&1; then
        wget -q --tries=3 --timeout=20 -O "$work/$tarball" "$url"
    else
        echo "fetch-icons: needs npm, curl or wget to download $url" >&2
        return 1
    fi
}

# npm's integrity is the base64 of the raw digest; sha512sum prints hex, so compare in hex.
verify() {
    local expected actual
    expected=$(printf '%s' "${integrity#sha512-}" | base64 -d | od -An -v -tx1 | tr -d ' \n')
    actual=$(sha512sum "$1" | cut -d' ' -f1)
    if [ "$expected" != "$actual" ]; then
        echo "fetch-icons: $1 does not match $integrity (sha512 $actual); not unpacking it" >&2
        return 1
    fi
}

download
verify "$work/$tarball"

mkdir "$work/tree"
tar -xzf "$work/$tarball" -C "$work/tree" --no-same-owner
if ! [ -f "$work/tree/package/LICENSE" ] || ! [ -d "$work/tree/package/assets/regular" ]; then
    echo "fetch-icons: $tarball has no package/LICENSE or package/assets" >&2
    exit 1
fi
printf '%s\n' "$integrity" >"$work/tree/$marker"

# Whatever sits at DEST now is incomplete (an older or foreign tree): set it aside before the rename.
if [ -e "$dest" ] || [ -L "$dest" ]; then
    mv -T "$dest" "$work/stale"
fi
if ! mv -T "$work/tree" "$dest"; then
    # Another run may have finished first; its tree is as good as ours.
    complete "$dest" || { echo "fetch-icons: could not move the icons to $dest" >&2; exit 1; }
fi
echo "fetch-icons: $name@$version in $dest"
