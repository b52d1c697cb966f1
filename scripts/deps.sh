#!/usr/bin/env bash
# Installs every Debian package the project needs to build, run and test.
# The one place that lists them: setup.sh and test.sh both call it.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git clang-format ccache
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev libqt6svg6 qcoro-qt6-dev
  libpulse-dev pulseaudio pulseaudio-utils
  # The sound tests run a second time on PipeWire, with its PulseAudio server.
  pipewire pipewire-pulse wireplumber
  libx11-dev libxi-dev libxtst-dev libxfixes-dev
  libcld2-dev libespeak-ng-dev espeak-ng
  libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us
  libsecret-1-dev libssl-dev libarchive-dev libsndfile1-dev libsoxr-dev
  libwayland-dev wayland-protocols libxkbcommon-dev
  xvfb xauth xdotool xclip openbox zenity xterm sox dbus dbus-x11 at-spi2-core openssl
  fonts-dejavu-core
  # The Wayland test desktops: sway, KDE Plasma, GNOME (with XWayland), the portals and
  # their mock, and the clients the tests play.
  sway wtype wl-clipboard qt6-wayland grim xwayland
  kwin-wayland xdg-desktop-portal-kde qtwayland5
  mutter xdg-desktop-portal xdg-desktop-portal-gnome gir1.2-atspi-2.0
  python3-dbus python3-gi python3-dbusmock
  # The Debian package and its checks.
  lintian desktop-file-utils appstream man-db
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
