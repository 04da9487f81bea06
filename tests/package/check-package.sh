#!/usr/bin/env bash
# check-package.sh CPACK BUILD: makes the Debian package of a build and looks into it.
set -euo pipefail
export LC_ALL=C.UTF-8
cpack=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "check-package: $*" >&2
  exit 1
}

(cd "$build" && "$cpack" -G DEB -B "$work") >"$work/log" 2>&1 || {
  cat "$work/log" >&2
  fail "no package"
}
package=$(echo "$work"/*.deb)
root=$work/root
dpkg-deb -x "$package" "$root"

# Everything that the programs are linked with, from packages of the system.
depends=$(dpkg-deb -f "$package" Depends)
for library in libc6 libssl3 libsqlite3-0 libicu libjsoncpp libfmt libstdc++6; do
  [[ $depends == *"$library"* ]] || fail "does not depend on $library: $depends"
done
for program in tolven-daemon tolven-server tolvenctl; do
  ! readelf -d "$root/usr/bin/$program" | grep -qE 'R(UN)?PATH' || fail "$program has a run path"
  ! readelf -S "$root/usr/bin/$program" | grep -qF .debug_info || fail "$program is not stripped"
done
grep -q '^ExecStart=tolvenctl run' "$root/usr/lib/systemd/user/tolvenctl.service" || fail "no unit"
[[ -s $root/usr/share/doc/tolven-hub/docs/install.md ]] || fail "no installation text"
owners=$(dpkg-deb -c "$package" | awk '{print $2}' | sort -u)
[[ $owners == root/root ]] || fail "belongs to $owners"
writable=$(find "$root" ! -type l -perm /022)
[[ -z $writable ]] || fail "others may write: $writable"

# page PROGRAM: the text of its manual page, without markup.
page() {
  zcat "$root/usr/share/man/man1/$1.1.gz" | sed 's/\\f[BIR]//g; s/\\-/-/g'
}
# missing PROGRAM [COMMAND]: what its help offers and its page does not tell.
missing() {
  local help word
  help=$("$root/usr/bin/$1" ${2:-} --help)
  while read -r word; do
    grep -qE -- "(^|[^-a-z])$word([^-a-z]|\$)" "$work/$1.page" || echo "$1 ${2:-}: $word"
  done < <(grep -oE '^ +(-., ?)?--[a-z-]+|^  [a-z]+  ' <<<"$help" | grep -oE -- '(--)?[a-z-]{3,}|--[a-z]+')
}
subcommands() {
  "$root/usr/bin/$1" ${2:-} --help | sed -n '/^Subcommands:/,$p' | grep -oE '^  [a-z]+ ' || true
}
: >"$work/missing"
for program in tolven-server tolvenctl; do
  page "$program" >"$work/$program.page"
  missing "$program" >>"$work/missing"
  for command in $(subcommands "$program"); do
    missing "$program" "$command" >>"$work/missing"
    for below in $(subcommands "$program" "$command"); do
      missing "$program" "$command $below" >>"$work/missing"
    done
  done
done
[[ ! -s $work/missing ]] || fail "the manual pages do not tell: $(cat "$work/missing")"
