#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test twice: in a normal build, then in a
# build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh

jobs=$(nproc)
# A compiler cache, when the machine has one, makes a second run of this script quick.
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
# Paths inside the clone count relative to it, so another clone of the same tree hits the cache.
export CCACHE_BASEDIR="$PWD"
export QT_QPA_PLATFORM=offscreen
# The desktop tests start their own Xvfb and PulseAudio; nothing here may reach the user's own.
unset DISPLAY WAYLAND_DISPLAY PULSE_SERVER

echo "== build"
# Optimised like a release, without debug information, which makes each compile about a
# quarter slower and each object twenty times larger (so the links too).
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" "${launcher[@]}" >/dev/null
cmake --build build
echo "== tests"
ctest --test-dir build --output-on-failure -j "$jobs"

echo "== build with AddressSanitizer and UndefinedBehaviorSanitizer"
# Line tables are all the sanitizers' reports need.
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g1" \
    -DOMBRY_SANITIZE=ON -DOMBRY_BENCH=OFF "${launcher[@]}" >/dev/null
cmake --build build-asan
echo "== tests under the sanitizers"
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-asan --output-on-failure -j "$jobs"
