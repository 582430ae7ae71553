#!/usr/bin/env bash
# Installs every Debian package that building, running and testing Pagewright needs.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build pkg-config
  # libraries
  qt6-base-dev libqpdf-dev libtiff-dev libjpeg62-turbo-dev libpng-dev libgif-dev
  libopenjp2-7-dev libgraphicsmagick++1-dev libdeflate-dev libpugixml-dev libcharls-dev
  libfreetype-dev libfontconfig-dev
  libpoppler-cpp-dev zlib1g-dev
  # tests and checks: GoogleTest, PDF inspection, a headless display with a window manager
  # and xprop to ask it about windows, the format check, and a second RTF reader for the saved
  # error report
  libgtest-dev libgmock-dev qpdf poppler-utils libtiff-tools xvfb xauth openbox x11-utils clang-format unrtf
  # load for the window tests' run on a busy machine
  stress-ng
  # runtime: icon theme and fonts so the windows look as they should
  adwaita-icon-theme fonts-dejavu-core
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
