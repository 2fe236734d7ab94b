#!/usr/bin/env bash
# Checks the style of all Java files that git tracks: prints FILE:LINE: MESSAGE for each fault, and exits with status 1
# when there is one, with status 2 when the checks cannot run. The checks are in tools/java-style.xml.
set -euo pipefail

cd "$(dirname "$0")/.."

if ! command -v checkstyle >/dev/null; then
  echo "lint-java: checkstyle is missing: apt-get install checkstyle" >&2
  exit 2
fi

mapfile -t files < <(git ls-files '*.java')
if ((${#files[@]} == 0)); then
  echo "lint-java: no Java files" >&2
  exit 2
fi

# Besides faults, checkstyle prints a first and a last line, and a stack of calls when it cannot read a file.
status=0
report=$(checkstyle -c tools/java-style.xml "${files[@]}" 2>&1) || status=$?
faults=$(sed -nE "s|^\[(ERROR\|WARN)\] $PWD/||p; s|^Caused by: $PWD/||p" <<<"$report" | sort -u)
if [[ -n $faults ]]; then
  echo "$faults"
  exit 1
fi
if ((status != 0)); then
  echo "$report" >&2
  exit 2
fi
echo "lint-java: ${#files[@]} files, no faults"
