#!/usr/bin/env bash
# Installs what building and testing Zenbor needs on Debian 12 (as root), and
# prepares a Wine prefix that reports Windows 10. Safe to run again.
set -euo pipefail

packages=(cmake make g++ clang googletest
          g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
          wine wine64 tzdata python3
          doxygen clang-format pkgconf lld libfmt-dev)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

export WINEDEBUG=-all
export HOME="${HOME:-/root}"
prefix="${WINEPREFIX:-$HOME/.wine}"
mkdir -p "$HOME"
if [ ! -f "$prefix/system.reg" ]; then
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w || true
fi
wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f >/dev/null 2>&1 || true
wineserver -w || true
