#!/usr/bin/env bash
# Installs the Debian packages a benchmark names, if missing: bench/install-tools.sh PKG...
# Runs as root; stops at a package the archive does not offer.
set -euo pipefail
need_packages=()
for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' ||
        need_packages+=("$pkg")
done
((${#need_packages[@]})) || exit 0
echo "== installing ${need_packages[*]}" >&2
apt-get update -qq
for pkg in "${need_packages[@]}"; do
    # grep reads the whole answer: with -q it could stop early and fail apt-cache on SIGPIPE.
    apt-cache policy "$pkg" | grep 'Candidate: [0-9]' >/dev/null ||
        { echo "no candidate for $pkg" >&2; exit 1; }
done
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need_packages[@]}" >/dev/null
