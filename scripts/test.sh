#!/usr/bin/env bash
# Builds everything with warnings as errors and runs every test: the Windows
# build under Wine, then the platform-neutral sources natively under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
# Wine keeps its prefix under HOME.
export HOME="${HOME:-/root}"
bash scripts/install-deps.sh

cmake --preset windows -DZB_WERROR=ON >/dev/null
cmake --build --preset windows
ctest --preset windows

cmake --preset host -DZB_WERROR=ON >/dev/null
cmake --build --preset host
ctest --preset host
