#!/usr/bin/env bash
# Makes the Debian package from a release build, checks it (lintian, the desktop entry, the
# AppStream file), installs it with apt as a user would, and runs both programs from the
# installed copy: --version, and a merge of generated files that needs both loaded modules.
# The package is removed again at the end unless it was installed before. Needs root or sudo.
# The build folder is build-release/ (shared with ./run.sh), or the one given: CI passes the
# test build, already built by ./test.sh, so that the package costs no second compile.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-release}
./scripts/install-deps.sh --packaging
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

if [[ ! -f $build/CMakeCache.txt ]]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAGEWRIGHT_TESTS=OFF >/dev/null
fi
cmake --build "$build" --parallel "$(nproc)"
rm -f "$build"/pagewright_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(realpath "$build"/pagewright_*.deb)
echo "package: $deb"
dpkg-deb --field "$deb" Depends

lintian --fail-on error --suppress-tags-from-file /dev/null "$deb"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb --extract "$deb" "$work/root"
desktop-file-validate "$work/root/usr/share/applications/pagewright.desktop"
appstreamcli validate --no-net "$work"/root/usr/share/metainfo/*.metainfo.xml
# The programs carry no path of this checkout or its build.
if grep -rlaF "$PWD" "$work/root"; then
    echo "the files above hold the build machine's path $PWD" >&2
    exit 1
fi

if ! dpkg-query -W -f='${Status}' pagewright 2>/dev/null | grep -q 'install ok installed'; then
    trap '$sudo apt-get purge -y -qq pagewright >/dev/null; rm -rf "$work"' EXIT
fi
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "$deb" >/dev/null

# As a user would run them: from PATH, with a home of their own.
export HOME=$work/home
mkdir -p "$HOME/files"
cd "$HOME/files"
for program in pagewright pagewright-batch; do
    [[ $(command -v $program) == /usr/bin/$program ]]
    $program --version | grep -qx "$program [0-9.]*"
    [[ -f /usr/share/man/man1/$program.1.gz ]]
done
[[ -f /usr/share/doc/pagewright/help.html ]]
# A grey picture as a PGM file (read through the GraphicsMagick module), merged into a PDF;
# that PDF merged again with the picture (read through the qpdf module).
printf 'P5\n2 2\n255\n\x00\x80\x80\xff' >grey.pgm
pagewright-batch merge -o one.pdf grey.pgm
pagewright-batch merge -o two.pdf one.pdf grey.pgm
[[ $(pagewright-batch pages two.pdf) == $'two.pdf\t2' ]]
echo "package installed and working: $(basename "$deb")"
