#!/usr/bin/env bash
# Checks that the C and C++ sources follow .clang-format. The files named in
# .clang-format-ignore keep hand-aligned tables and wrapping that predate the
# check; every other file, and every new one, must match exactly. Skipped,
# with a message, where clang-format is not installed.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-format >/dev/null 2>&1; then
  echo "check-format: clang-format is not installed; the format check is skipped"
  exit 0
fi
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -t sources < <(git ls-files '*.c' '*.cpp' '*.h')
else
  mapfile -t sources < <(find . -path ./build -prune -o -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print | sed 's|^\./||' | sort)
fi
mapfile -t ignored < <(sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' .clang-format-ignore)
checked=()
for file in "${sources[@]}"; do
  skip=0
  for pattern in "${ignored[@]}"; do
    [[ "$file" == $pattern ]] && { skip=1; break; }
  done
  [ "$skip" -eq 0 ] && checked+=("$file")
done
if ! clang-format --dry-run -Werror "${checked[@]}"; then
  echo "check-format: the files above differ from .clang-format (clang-format -i <file> fixes them)"
  exit 1
fi
echo "check-format: ${#checked[@]} files follow .clang-format (${#ignored[@]} patterns ignored)"
