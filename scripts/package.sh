#!/usr/bin/env bash
# Installs what is needed, builds the program and writes its Debian package,
# build/ombry-voice_{version}_{arch}.deb, to install with `apt install ./build/ombry-voice_*.deb`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target ombry-voice ombry_icons ombry_manpage ombry_changelog
(cd build && cpack -G DEB)
