#!/usr/bin/env bash
# Installs what is needed, builds zenbor.dll with its tools, and runs the demo
# program zenbor-info under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
# Wine keeps its prefix under HOME.
export HOME="${HOME:-/root}"
bash scripts/install-deps.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target zenbor zenbor-info
WINEDEBUG=-all WINEDLLOVERRIDES=winedbg.exe=d wine build/windows/bin/zenbor-info.exe
