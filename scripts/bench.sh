#!/usr/bin/env bash
# Builds and runs every benchmark of the Windows build under Wine. Each prints
# "name zenbor_ns raw_ns ratio" per pair.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset windows >/dev/null
cmake --build --preset windows
for bench in build/windows/bin/*Bench.exe; do
  echo "== $(basename "$bench")"
  WINEDEBUG=-all WINEDLLOVERRIDES=winedbg.exe=d wine "$bench"
done
