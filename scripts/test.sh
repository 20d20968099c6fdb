#!/usr/bin/env bash
# Builds everything with warnings as errors and runs every test: the format
# check, the Windows build under Wine with its API reference and its SDK, then
# the platform-neutral sources natively under AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
# Wine keeps its prefix under HOME.
export HOME="${HOME:-/root}"
bash scripts/install-deps.sh
bash scripts/check-format.sh

cmake --preset windows -DZB_WERROR=ON >/dev/null
cmake --build --preset windows
# The API reference builds with no warning.
cmake --build --preset windows --target docs
# The tests include the SDK's: installed into a temporary prefix and used by
# consumer programs that see nothing else.
ctest --preset windows

cmake --preset host -DZB_WERROR=ON >/dev/null
cmake --build --preset host
ctest --preset host
