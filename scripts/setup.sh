#!/usr/bin/env bash
# Installs what is needed, builds the program and runs it. Arguments go to the program,
# e.g. `bash scripts/setup.sh --icon /tmp/icons`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build
exec ./build/src/app/ombry-voice "$@"
