#!/usr/bin/env bash
# two-systems.sh LINUX_BUILD WINDOWS_BUILD
# A Linux daemon and a Windows daemon under wine sync one view through the Linux server. Wine runs
# already (with_wine in .ci/tools.sh); the Windows side's folder lies in its drive C.
set -euo pipefail
linux=$(realpath "$1") windows=$(realpath "$2")
work=$(mktemp -d)
a=$work/linux
b=$WINEPREFIX/drive_c/sync
patience=300
mkdir "$a" "$b"

ctl() { XDG_DATA_HOME=$work/home "$linux/ctl/tolvenctl" "$@"; }
# Output goes to a file: what wine starts on the way would hold a pipe open.
winctl() { /usr/lib/wine/wine64 "$windows/ctl/tolvenctl.exe" "$@" >"$work/winctl.out" 2>&1 </dev/null; }

end() {
  local status=$?
  winctl stop || true
  ctl stop >/dev/null 2>&1 || true
  [[ -z ${server_pid:-} ]] || kill "$server_pid" || true
  wait || true
  if ((status != 0)); then
    echo "== Windows"; tail -n 20 "$work/windows.out" "$work/winctl.out" | cut -c1-300
    grep -ha 'ERROR\|CRIT' "$WINEPREFIX"/drive_c/data/Tolvenhub/log/*.log | tail -n 20 | cut -c1-300
    echo "== Linux"; tail -n 20 "$work/linux.out" | cut -c1-300
  fi
  rm -rf "$work"
}
trap end EXIT

# Names, with the hash of each file. What lies in the folders that $1 names is left out.
tree() {
  (cd "$1" && find . -mindepth 1 \( -name .ZentrovaWorkingDirectory -o -path ./only-linux \) -prune -o \
    -type d -print -o -type f -exec sha256sum {} + 2>/dev/null | sort)
}
is_same() { diff <(tree "$a") <(tree "$b") >"$work/difference" 2>&1; }

# same WHAT [CONDITION..]: both folders come to hold the same, for which the condition is true.
same() {
  local what=$1 end=$((SECONDS + patience))
  shift
  until is_same && { (($# == 0)) || "$@"; }; do
    if ((SECONDS > end)); then
      echo "FAILED: $what"
      head -n 40 "$work/difference"
      return 1
    fi
    sleep 0.3
  done
  echo "ok: $what"
}
has() { [[ -e $a/$1 && -e $b/$1 ]]; }
lacks() { [[ ! -e $a/$1 && ! -e $b/$1 ]]; }
holds() { grep -qs "$2" "$a/$1" && grep -qs "$2" "$b/$1"; }

start() {
  local server=$linux/server/tolven-server data=(--data "$work/server")
  "$server" init "${data[@]}" >/dev/null
  "$server" user add ada --uid 1000 --group 100 "${data[@]}" >/dev/null
  "$server" view add team "${data[@]}" >/dev/null
  local token
  token=$("$server" session ada "${data[@]}")
  "$server" serve "${data[@]}" --listen 127.0.0.1:0 >"$work/server.out" 2>&1 &
  server_pid=$!
  until grep -q 'listening on 127.0.0.1:' "$work/server.out"; do sleep 0.1; done
  local port
  port=$(sed -n 's/.*listening on 127.0.0.1:\([0-9]*\).*/\1/p' "$work/server.out")
  ctl up "$a" --server "127.0.0.1:$port" --token "$token" --view 1 >"$work/linux.out" 2>&1 </dev/null &
  /usr/lib/wine/wine64 "$windows/ctl/tolvenctl.exe" up C:/sync --server "127.0.0.1:$port" \
    --token "$token" --view 1 >"$work/windows.out" 2>&1 </dev/null &
}

mkdir -p "$a/before/deep" "$b/other"
echo one >"$a/before/deep/one.txt"
echo two >"$b/other/two.txt"
start
same "what was there before the first start" has before/deep/one.txt has other/two.txt

mkdir -p "$a/Ünï 日本/😀" "$b/Ελλάς/نص"
echo from-linux >"$a/Ünï 日本/😀/ß é.txt"
echo from-windows >"$b/Ελλάς/نص/ы ~.txt"
: >"$b/empty"
same "Unicode names" holds "Ünï 日本/😀/ß é.txt" from-linux
holds "Ελλάς/نص/ы ~.txt" from-windows

head -c 6000000 /dev/urandom >"$a/large"
same "a large file" has large
printf 'changed in the middle by windows' | dd of="$b/large" bs=1 seek=3000000 conv=notrunc status=none
same "a delta up from Windows" holds large 'middle by windows'
printf 'and at the start by linux' | dd of="$a/large" bs=1 seek=1000 conv=notrunc status=none
same "a delta down to Windows" holds large 'start by linux'

mv "$a/large" "$a/moved by linux"
mv "$b/empty" "$b/before/moved by windows"
same "renames of files" has "moved by linux"
has "before/moved by windows" && lacks large && lacks empty
mv "$a/before" "$a/after"
same "the rename of a folder" has after/deep/one.txt
lacks before

rm "$b/moved by linux"
rm -r "$a/Ünï 日本"
same "removals" lacks "moved by linux"
lacks "Ünï 日本"

echo base >"$a/contested"
same "a file for a conflict" holds contested base
ctl pause >/dev/null
winctl pause
echo linux-edit >"$a/contested"
echo windows-edit >"$b/contested"
winctl resume
ctl resume >/dev/null
both_edits() {
  grep -rqs linux-edit "$a" && grep -rqs windows-edit "$a" && grep -rqs linux-edit "$b" &&
    grep -rqs windows-edit "$b"
}
same "both edits of a conflict" both_edits

# What Windows cannot hold stays away from it and hinders nothing.
mkdir "$a/only-linux"
echo stream >"$a/only-linux/a:b"
echo device >"$a/only-linux/nul.txt"
echo blank >"$a/only-linux/x "
echo upper >"$a/only-linux/Name"
echo lower >"$a/only-linux/name"
echo plain >"$a/only-linux/plain"
echo last >"$a/last"
same "files behind names that Windows cannot hold" holds last last
end=$((SECONDS + patience))
until [[ -e $b/only-linux/plain ]] && grep -qs upper\\\|lower "$b/only-linux/"[Nn]ame; do
  ((SECONDS < end)) || { echo "FAILED: the others of their folder"; exit 1; }
  sleep 0.3
done
sleep 2
found=$(cd "$b/only-linux" && ls | sort -f | tr '\n' ' ')
[[ $found == "Name plain " || $found == "name plain " ]] || { echo "FAILED: found '$found'"; exit 1; }
[[ $(cd "$a/only-linux" && ls | wc -l) == 6 ]] || { echo "FAILED: the Linux side lost something"; exit 1; }
echo "ok: names that Windows cannot hold"

winctl stop
ctl stop >/dev/null
echo passed
