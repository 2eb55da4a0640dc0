#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Packs a build tree into the Debian package and checks it: contents, declared dependencies, desktop entry and
# AppStream metadata as installed, icon sizes, the key-reading helper and its polkit action. As root it then
# installs the package with dpkg, runs `ordalis --version` from PATH, asks polkit about the action and removes the
# package again; without root that part is skipped (exit 77).
#   testpackage.sh BUILD_DIR VERSION
set -euo pipefail

build=$1
version=$2
id=com.quietmakers.Ordalis
helper=usr/libexec/ordalis/ordalis-keyhelper
policy=usr/share/polkit-1/actions/$id.policy
sizes=(16 24 32 48 64 128 256)
# There is no display here: should ordalis bring Qt up before it answers, Qt finds a platform all the same.
export QT_QPA_PLATFORM=offscreen

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

for tool in cpack dpkg-deb dpkg-shlibdeps desktop-file-validate appstreamcli readelf xmllint; do
    command -v "$tool" >/dev/null || fail "$tool is missing (scripts/install-deps.sh installs it)"
done

work=$(mktemp -d)
ours=
bus_pid=
polkitd_pid=
cleanup() {
    if [ -n "$polkitd_pid" ]; then kill "$polkitd_pid" 2>/dev/null || true; fi
    if [ -n "$bus_pid" ]; then kill "$bus_pid" 2>/dev/null || true; fi
    # Whatever is installed under the name now, this run put there (it checks beforehand).
    if [ -n "$ours" ]; then dpkg_retry --purge ordalis >/dev/null || echo "could not remove ordalis again" >&2; fi
    rm -rf "$work"
}
trap cleanup EXIT
# A timeout's SIGTERM ends the script through exit, so the package is still removed.
trap 'exit 143' INT TERM

# dpkg, waiting up to a minute while another package manager holds its lock.
dpkg_retry() {
    local out
    for _ in $(seq 30); do
        if out=$(DEBIAN_FRONTEND=noninteractive dpkg "$@" 2>&1); then return 0; fi
        grep -q 'another process' <<<"$out" || break
        sleep 2
    done
    echo "$out" >&2
    return 1
}

# --- Pack ---
cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 \
    || { cat "$work/cpack.log" >&2; fail "cpack failed"; }
deb="$work/out/ordalis_${version}_$(dpkg --print-architecture).deb"
[ -f "$deb" ] || fail "no $(basename "$deb"); cpack made: $(ls "$work/out")"

[ "$(dpkg-deb -f "$deb" Package)" = ordalis ] || fail "package name is not ordalis"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "package version is not $version"
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
# Ordalis starts its helper with pkexec.
grep -Eq '(^|, )pkexec( |,|$)' <<<"$depends" || fail "Depends does not name pkexec"

# --- Contents: Ordalis's own files, nothing else (no tests, benchmarks, libraries or headers) ---
listing=$(dpkg-deb -c "$deb")
files=$(awk '$1 !~ /^d/ { sub(/^\.\//, "", $6); print $6 }' <<<"$listing")
allowed="^usr/bin/ordalis$|^usr/share/applications/$id\.desktop$|^usr/share/metainfo/$id\.metainfo\.xml$"
allowed+="|^usr/share/icons/hicolor/([0-9]+x[0-9]+|scalable)/apps/$id\.(png|svg)$|^usr/share/doc/ordalis/[^/]+$"
allowed+="|^usr/libexec/ordalis/ordalis-keyhelper$|^usr/share/polkit-1/actions/$id\.policy$"
stray=$(grep -Ev "$allowed" <<<"$files" || true)
[ -z "$stray" ] || fail "the package holds files that are not Ordalis's:"$'\n'"$stray"
required=(usr/bin/ordalis usr/share/applications/$id.desktop usr/share/metainfo/$id.metainfo.xml
    usr/share/icons/hicolor/scalable/apps/$id.svg usr/share/doc/ordalis/copyright "$helper" "$policy")
for size in "${sizes[@]}"; do required+=("usr/share/icons/hicolor/${size}x$size/apps/$id.png"); done
for file in "${required[@]}"; do
    grep -qx "$file" <<<"$files" || fail "the package lacks $file"
done
grep -Eq '^-rwxr-xr-x root/root .* \./usr/bin/ordalis$' <<<"$listing" || fail "usr/bin/ordalis is not 0755 root/root"
# The helper gets root from pkexec alone: never setuid or setgid.
grep -Eq "^-rwxr-xr-x root/root .* \./$helper\$" <<<"$listing" || fail "$helper is not 0755 root/root, or is setuid"
grep -Eq "^-rw-r--r-- root/root .* \./${policy//./\\.}\$" <<<"$listing" || fail "$policy is not 0644 root/root"
if awk '{ print $2 }' <<<"$listing" | grep -vqx root/root; then fail "files not owned by root/root"; fi

# --- The files as they land on disk ---
root="$work/root"
dpkg-deb -x "$deb" "$root"
desktop="$root/usr/share/applications/$id.desktop"
out=$(desktop-file-validate "$desktop" 2>&1) || fail "desktop-file-validate: $out"
[ -z "$out" ] || fail "desktop-file-validate: $out"
out=$(appstreamcli validate --no-net "$root/usr/share/metainfo/$id.metainfo.xml" 2>&1) || fail "appstreamcli: $out"
out=$(appstreamcli validate-tree --no-net "$root" 2>&1) || fail "appstreamcli validate-tree: $out"
grep -qx "Exec=ordalis" "$desktop" || fail "the desktop entry does not start ordalis"
grep -qx "Icon=$id" "$desktop" || fail "the desktop entry does not name the icon $id"
grep -q "<release version=\"$version\"" "$root/usr/share/metainfo/$id.metainfo.xml" \
    || fail "the metainfo has no release $version"

# It runs as root, so it links nothing it does not need: libevdev and the C and C++ runtimes, no Qt.
needed=$(readelf -d "$root/$helper" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p')
[ -n "$needed" ] || fail "readelf shows no libraries for $helper"
runtime='^(libevdev\.so\.2|libstdc\+\+\.so\.6|libm\.so\.6|libgcc_s\.so\.1|libc\.so\.6)$'
unneeded=$(grep -Ev "$runtime" <<<"$needed" || true)
[ -z "$unneeded" ] || fail "$helper links more than libevdev and the C and C++ runtimes:"$'\n'"$unneeded"
status=0
"$root/$helper" --device-dir /nonexistent </dev/null >/dev/null 2>&1 || status=$?
[ "$status" = 2 ] || fail "$helper took arguments (exit status $status, not 2)"

out=$(xmllint --noout --nonet "$root/$policy" 2>&1) || fail "xmllint: $out"
policy_value() {
    xmllint --nonet --xpath "string(/policyconfig/action[@id='$id.read-keys']/$1)" "$root/$policy"
}
for setting in allow_any=no allow_inactive=no allow_active=auth_admin_keep; do
    value=$(policy_value "defaults/${setting%=*}")
    [ "$value" = "${setting#*=}" ] || fail "the policy's ${setting%=*} is \"$value\", not ${setting#*=}"
done
value=$(policy_value "annotate[@key='org.freedesktop.policykit.exec.path']")
[ "$value" = "/$helper" ] || fail "the policy is for pkexec running \"$value\", not /$helper"
[ -n "$(policy_value message)" ] || fail "the policy has no message for the user"

for size in "${sizes[@]}"; do
    png="$root/usr/share/icons/hicolor/${size}x$size/apps/$id.png"
    # The PNG header's width and height: big-endian, 16 bytes in.
    read -r -a b < <(od -An -tu1 -j16 -N8 "$png")
    w=$(((b[0] << 24) | (b[1] << 16) | (b[2] << 8) | b[3]))
    h=$(((b[4] << 24) | (b[5] << 16) | (b[6] << 8) | b[7]))
    [ "$w" = "$size" ] && [ "$h" = "$size" ] || fail "$png is ${w}x$h, not ${size}x$size"
done

# --- Declared dependencies: every library the program and its helper link is covered by Depends ---
binary="$root/usr/bin/ordalis"
libraries=$(ldd "$binary" "$root/$helper")
missing=$(grep 'not found' <<<"$libraries" || true)
[ -z "$missing" ] || fail "unresolved libraries:"$'\n'"$missing"
depended=$(tr ',|' '\n\n' <<<"$depends" | awk '{ print $1 }')
sonames=$(readelf -d "$binary" "$root/$helper" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' | sort -u)
paths=()
for soname in $sonames; do
    # "soname => path (address)", or "path (address)" for the dynamic loader.
    path=$(awk -v so="$soname" '$1 == so { print $3; exit }
        { n = length($1) - length(so) } n > 0 && substr($1, n) == "/" so { print $1; exit }' <<<"$libraries")
    [ -n "$path" ] || fail "ldd does not show where $soname comes from"
    # dpkg knows a library by the path its package ships, with or without /usr in front.
    paths+=("/usr${path#/usr}" "${path#/usr}")
done
# One query for all: dpkg -S takes half a second each time.
owners=$(dpkg -S "${paths[@]}" 2>/dev/null || true)
for soname in $sonames; do
    pkg=$(awk -v so="/$soname" '{ n = length($NF) - length(so) + 1 }
        n > 0 && substr($NF, n) == so { sub(/:.*/, "", $1); print $1; exit }' <<<"$owners")
    [ -n "$pkg" ] || fail "no installed package holds $soname"
    grep -qxF "$pkg" <<<"$depended" || fail "Depends does not name $pkg, which holds $soname"
done

[ "$("$binary" --version)" = "Ordalis $version" ] || fail "the unpacked ordalis does not report version $version"

# --- Install, run from PATH, remove ---
if [ "$(id -u)" -ne 0 ]; then
    echo "SKIP: installing the package with dpkg needs root; everything else passed"
    exit 77
fi
if dpkg-query -W -f='${Status}' ordalis 2>/dev/null | grep -q 'ok installed'; then
    echo "SKIP: ordalis is already installed on this machine; left alone"
    exit 77
fi
ours=1
dpkg_retry -i "$deb" || fail "dpkg -i failed: the declared dependencies are not satisfied here"
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
[ "$(command -v ordalis)" = /usr/bin/ordalis ] || fail "ordalis on PATH is $(command -v ordalis), not /usr/bin/ordalis"
reported=$(cd / && ordalis --version) || fail "the installed ordalis --version failed"
[ "$reported" = "Ordalis $version" ] || fail "the installed ordalis reports \"$reported\", not \"Ordalis $version\""

# The action as polkit reads it once installed. pkaction asks polkitd over the system bus, which need not run here,
# so a private bus carries the question to a polkitd of its own. Where polkitd cannot run, only this is skipped.
polkit_skip=
if [ ! -x /usr/lib/polkit-1/polkitd ] || ! command -v pkaction dbus-daemon >/dev/null; then
    polkit_skip="polkitd, pkaction or dbus-daemon is missing (scripts/install-deps.sh installs them)"
else
    # polkitd runs as a user of its own, which must reach the bus's socket.
    chmod 711 "$work"
    mkdir -m 755 "$work/bus"
    cat >"$work/bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=$work/bus/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
    if ! bus=$(dbus-daemon --config-file="$work/bus.conf" --print-address=1 --print-pid=1 --fork 2>"$work/bus.log")
    then
        polkit_skip="no private D-Bus: $(cat "$work/bus.log")"
    else
        bus_pid=$(sed -n 2p <<<"$bus")
        DBUS_SYSTEM_BUS_ADDRESS=$(sed -n 1p <<<"$bus")
        export DBUS_SYSTEM_BUS_ADDRESS
        /usr/lib/polkit-1/polkitd --no-debug >"$work/polkitd.log" 2>&1 &
        polkitd_pid=$!
        # Asked again until polkitd owns its name on the bus, for 20 seconds at most.
        deadline=$((SECONDS + 20))
        while ! action=$(timeout 5 pkaction --verbose --action-id "$id.read-keys" 2>&1); do
            if grep -q 'No action with action id' <<<"$action"; then fail "polkit does not know $id.read-keys"; fi
            if ! kill -0 "$polkitd_pid" 2>/dev/null; then
                polkit_skip="polkitd cannot run here: $(tail -n 3 "$work/polkitd.log")"
                break
            fi
            if [ "$SECONDS" -ge "$deadline" ]; then
                polkit_skip="polkitd runs but does not answer: $action"
                break
            fi
            sleep 0.2
        done
    fi
fi
if [ -n "$polkit_skip" ]; then
    echo "SKIP (the polkit action as installed, only): $polkit_skip"
else
    echo "$action"
    for line in "implicit any: +no" "implicit inactive: +no" "implicit active: +auth_admin_keep" \
        "annotation: +org\.freedesktop\.policykit\.exec\.path -> /$helper"; do
        grep -Eq "^ *$line\$" <<<"$action" || fail "pkaction shows no \"$line\" for $id.read-keys:"$'\n'"$action"
    done
fi

dpkg_retry --purge ordalis || fail "dpkg --purge ordalis failed"
ours=
[ ! -e /usr/bin/ordalis ] || fail "/usr/bin/ordalis is still there after removal"
status=$(dpkg-query -W -f='${db:Status-Status}' ordalis 2>/dev/null || true)
[ -z "$status" ] || [ "$status" = not-installed ] || fail "ordalis is still registered ($status)"
echo "PASS: ordalis $version packs, installs, runs and removes cleanly"
