#!/usr/bin/env bash
# check-zip.sh CPACK BUILD OBJDUMP: makes the zip of a build for Windows and looks into it.
set -euo pipefail
cpack=$1 build=$2 objdump=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "check-zip: $*" >&2
  exit 1
}

(cd "$build" && "$cpack" -G ZIP -B "$work") >"$work/log" 2>&1 || {
  cat "$work/log" >&2
  fail "no zip"
}
mkdir "$work/root"
(cd "$work/root" && cmake -E tar xf "$work"/*.zip)
for text in README.md docs/install.md docs/windows.md; do
  [[ -s $(echo "$work"/root/*/"$text") ]] || fail "no $text"
done
for program in tolven-daemon tolven-server tolvenctl; do
  file=$(echo "$work"/root/*/"$program.exe")
  [[ -s $file ]] || fail "no $program.exe"
  # What every Windows since 7 has.
  foreign=$("$objdump" -p "$file" | sed -n 's/.*DLL Name: //p' | tr '[:upper:]' '[:lower:]' |
    grep -vxE '(advapi32|crypt32|gdi32|iphlpapi|kernel32|msvcrt|mswsock|netapi32|ole32|shell32|user32|ws2_32)\.dll' || true)
  [[ -z $foreign ]] || fail "$program.exe needs" $foreign
done
