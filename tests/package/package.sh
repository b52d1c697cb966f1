#!/usr/bin/env bash
# The Debian package as a user gets it: built by CPack from this build, unpacked into a
# throw-away root, its program drawing its icons and its pages, its menu entry and software
# centre metadata accepted by the desktop's validators, and lintian finding no error or
# warning. usage: package.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/out/ombry-voice_*_*.deb)
echo "paquet: $(basename "$deb")"
dpkg-deb -x "$deb" "$work/root"
root=$work/root

# The installed program runs from the package's files, with a home of its own.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/config XDG_DATA_HOME=$work/home/data
"$root/usr/bin/ombry-voice" --icon "$work/icons" | { ! grep -q . || { echo "--icon a écrit"; false; }; }
test -s "$work/icons/hicolor/256x256/apps/ombry-voice.png"
"$root/usr/bin/ombry-voice" --snapshot "$work/pages"
# Every picture the metadata shows is one that --snapshot makes.
for shot in $(grep -o 'captures/[a-z]*\.png' "$root/usr/share/metainfo/com.quennard.ombryvoice.metainfo.xml"); do
    test -s "$work/pages/${shot#captures/}" || { echo "capture absente: $shot"; exit 1; }
done
"$root/usr/bin/ombry-voice" --help | grep -q -- '--snapshot DOSSIER'

desktop-file-validate "$root/usr/share/applications/ombry-voice.desktop"
grep -q '^Exec=ombry-voice$' "$root/usr/share/applications/ombry-voice.desktop"
appstreamcli validate --no-net --pedantic "$root/usr/share/metainfo/com.quennard.ombryvoice.metainfo.xml"
# The manual is readable by man and lists every mode of --help.
for switch in $("$root/usr/bin/ombry-voice" --help | grep -o '^  --[a-z]*'); do
    zcat "$root/usr/share/man/man1/ombry-voice.1.gz" | grep -q -- "\\\\-\\\\-${switch#--}" ||
        { echo "manuel: $switch absent"; exit 1; }
done
LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l "$root/usr/share/man/man1/ombry-voice.1.gz" 2>&1 >/dev/null |
    { ! grep . || { echo "manuel: avertissements de groff"; false; }; }

# Errors and warnings fail; the informational tags (French words taken for typos) are listed.
lintian --allow-root --fail-on error,warning "$deb"
echo "paquet: tout est bon"
