#!/usr/bin/env bash
# Installs every Debian package that building, running and testing Pagewright needs; with
# --packaging, also what making and checking the Debian package needs (scripts/test-package.sh).
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
  # toolchain, and help2man for the manual pages made from the programs' --help
  g++ cmake ninja-build pkg-config help2man
  # libraries
  qt6-base-dev libqpdf-dev libtiff-dev libjpeg62-turbo-dev libpng-dev libgif-dev
  libopenjp2-7-dev libgraphicsmagick++1-dev libdeflate-dev libpugixml-dev libcharls-dev
  libfreetype-dev libfontconfig-dev
  libpoppler-cpp-dev zlib1g-dev
  # the orientation photos carry in their EXIF data
  libexif-dev
  # text recognition for searchable PDFs, and its English language data
  libtesseract-dev tesseract-ocr-eng
  # tests and checks: GoogleTest, PDF inspection, a headless display with a window manager
  # and xprop to ask it about windows, the format check, and a second RTF reader for the saved
  # error report
  libgtest-dev libgmock-dev qpdf poppler-utils libtiff-tools xvfb xauth openbox x11-utils clang-format unrtf
  # load for the window tests' run on a busy machine
  stress-ng
  # runtime: icon theme and fonts so the windows look as they should
  adwaita-icon-theme fonts-dejavu-core
)

if [[ ${1:-} == --packaging ]]; then
  # dependencies read from the binaries (dpkg-shlibdeps, which CPack finds with file), the
  # package check, and the desktop entry's and the AppStream file's validators
  packages+=(dpkg-dev file lintian desktop-file-utils appstream)
fi

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
