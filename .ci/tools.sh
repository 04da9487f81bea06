# Steps of .ci/run that need more than a line. Sourced, not run.

# install_ci_tools LIST..: the packages of the list files that this machine lacks.
install_ci_tools() {
  local missing=() package sudo=()
  while read -r package; do
    [[ -z $package || $package == \#* ]] && continue
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done < <(cat "$@")
  ((${#missing[@]})) || return 0
  ((EUID == 0)) || sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
    --no-install-recommends "${missing[@]}" >/dev/null
}

# run_fuzzers FOLDER SECONDS: each fuzz target on a copy of its seed corpus.
run_fuzzers() {
  local target corpus pids=() status=0
  for target in "$1"/*/fuzz_*; do
    [[ -f $target && -x $target ]] || continue
    corpus=$(mktemp -d)
    cp -r "fuzz/$(basename "$(dirname "$target")")/corpus/$(basename "$target")/." "$corpus/"
    "$target" -max_total_time="$2" -rss_limit_mb=2048 -timeout=10 \
      -artifact_prefix="$corpus/" "$corpus" >"$corpus.log" 2>&1 &
    pids+=("$!:$target:$corpus")
    # Two at a time.
    if ((${#pids[@]} % 2 == 0)); then wait_fuzzers "${pids[@]: -2}" || status=1; fi
  done
  ((${#pids[@]})) || { echo "no fuzz target was built"; return 1; }
  if ((${#pids[@]} % 2)); then wait_fuzzers "${pids[-1]}" || status=1; fi
  return $status
}

wait_fuzzers() {
  local entry pid target corpus status=0
  for entry in "$@"; do
    IFS=: read -r pid target corpus <<<"$entry"
    if wait "$pid"; then
      echo "${target##*/}: $(tail -n 1 "$corpus.log")"
    else
      echo "${target##*/} found something:"
      tail -n 60 "$corpus.log"
      status=1
    fi
    rm -rf "$corpus" "$corpus.log"
  done
  return $status
}

# run_chaos BUILD SECONDS: random work on two daemons and a server. It ends within a round of SECONDS,
# and prints each seed as it begins and the figures at its end. The seeds are those of this moment
# unless CHAOS_SEED names one; what is left of a failure is in BUILD/chaos-failures. A round that hangs
# is ended.
run_chaos() {
  timeout -k 10 "$(($2 + 600))" "$1/tests/chaos/test_chaos" --seconds "$2" \
    --seed "${CHAOS_SEED:-$(date +%s)}" --operations 100 --phases 2 --keep "$1/chaos-failures"
}

# run_tidy BUILD: clang-tidy on every source whose text, or that of a header it includes, has changed
# since it last passed. Verdicts are kept by content in ~/.cache/tolven/tidy.
run_tidy() {
  local build=$1 cache=${XDG_CACHE_HOME:-$HOME/.cache}/tolven/tidy
  mkdir -p "$cache"
  local top sources
  top=$(pwd)
  sources=$(git ls-files 'src/**.cpp' 'ctl/**.cpp' 'server/**.cpp' | grep -v -- '-windows\.cpp$')
  # One line for each object file with the project files it was made from.
  ninja -C "$build" -t deps | awk -v top="$top/" '
    /^[^ ].*: #deps/ { if (line) print line; line = ""; next }
    /^    / {
      file = $1
      if (index(file, top) == 1) line = line " " substr(file, length(top) + 1)
      else if (file ~ /^\.\.\/\.\.\//) { sub(/^\.\.\/\.\.\//, "", file); line = line " " file }
    }
    END { if (line) print line }' >"$build/deps.list"
  local source deps key pending=()
  for source in $sources; do
    deps=$(grep -m1 -E "^ $source( |\$)" "$build/deps.list" || echo "$source")
    key=$(cat .clang-tidy $deps | sha256sum | cut -d' ' -f1)
    [[ -e $cache/$key ]] || pending+=("$source:$key")
  done
  echo "${#pending[@]} of $(wc -w <<<"$sources") sources to look at"
  ((${#pending[@]})) || return 0
  export build cache
  printf '%s\n' "${pending[@]}" | xargs -P "$(nproc)" -I{} bash -c '
    source=${1%%:*} key=${1##*:}
    if out=$(clang-tidy -p "$build" --quiet "$source" 2>/dev/null); then touch "$cache/$key"
    else printf "%s\n%s\n" "$source" "$out"; exit 1; fi' _ {}
}

# with_wine COMMAND..: under a wine of its own, which ends with the command. Its server starts first and
# away from our pipes: whatever wine process came first would start services that hold them open, and
# whoever reads such a pipe would wait for those.
with_wine() (
  WINEPREFIX=$(mktemp -d)
  # The recycle bin is the desktop's trash.
  XDG_DATA_HOME=$WINEPREFIX/data
  # Where local application data is, which tests move for the programs that they start.
  TOLVEN_DATA_HOME='C:\data'
  export LC_ALL=C.UTF-8 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  export WINEPREFIX XDG_DATA_HOME TOLVEN_DATA_HOME
  wine=/usr/lib/wine/wine64 server=/usr/lib/wine/wineserver64
  trap '$server -k; $server -w; rm -rf "$WINEPREFIX"' EXIT
  start_wine </dev/null >/dev/null 2>&1
  "$@"
)

# Windows without a display, names with a leading dot visible, a crash ends the program at once.
start_wine() {
  $wine wineboot -i
  $server -w
  printf '%s\n' REGEDIT4 '' '[HKEY_CURRENT_USER\Software\Wine\Drivers]' '"Graphics"="null"' '' \
    '[HKEY_CURRENT_USER\Software\Wine]' '"ShowDotFiles"="Y"' '' \
    '[HKEY_CURRENT_USER\Software\Wine\WineDbg]' '"ShowCrashDialog"=dword:00000000' '' \
    >"$WINEPREFIX/settings.reg"
  $wine regedit "$WINEPREFIX/settings.reg"
  $wine reg add 'HKCU\Software\Microsoft\Windows\CurrentVersion\Explorer\User Shell Folders' \
    /v 'Local AppData' /t REG_EXPAND_SZ /d %TOLVEN_DATA_HOME% /f
  mkdir -p "$WINEPREFIX/drive_c/data"
  $server -w
  $server -p
  $wine cmd /c exit
}

# run_windows_tests LINUX_BUILD WINDOWS_BUILD [CTEST ARGUMENT..]
run_windows_tests() {
  local linux=$1 windows=$2
  shift 2
  with_wine ctest --test-dir "$windows" --output-on-failure --repeat until-pass:2 -j "$(nproc)" "$@"
  with_wine tests/windows/two-systems.sh "$linux" "$windows"
}
