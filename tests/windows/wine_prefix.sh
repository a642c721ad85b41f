# What the scripts that run the Windows executables under Wine share: a
# fresh prefix of their own with a persistent server, time limits on every
# Wine program, and the prefix's removal at the end. Sourced, not run; the
# sourcing script sets `work_dir=""` and `failure=""` and calls
# `end_prefix` from its exit trap.

fail() {
  failure="$*"
  exit 1
}

step() { printf '\n== %s\n' "$*"; }

# Every Wine program gets a time limit, so that a hang fails the script
# rather than holding it; their messages on stderr are kept for a failure
# report.
wine_run() { timeout 120 wine "$@" 2>>"$work_dir/wine-stderr.txt"; }

# Fails naming the first of the tools given that is missing.
require_tools() {
  local tool
  for tool in wine wineboot wineserver timeout realpath "$@"; do
    command -v "$tool" >/dev/null || fail "$tool is missing: run scripts/setup-wine.sh"
  done
}

# A fresh 64-bit prefix, made without a display and without the .NET and
# HTML engine installers. Its server is then kept running: without it a
# service dies a second after `net start` returns.
make_prefix() {
  work_dir="$(mktemp -d)"
  export WINEPREFIX="$work_dir/prefix" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  unset DISPLAY WAYLAND_DISPLAY
  step "Making a Wine prefix"
  timeout 300 wineboot --init 2>>"$work_dir/wine-stderr.txt" || fail "wineboot --init"
  timeout 300 wineserver -w || fail "wineserver -w after wineboot"
  wineserver -p || fail "starting a persistent wineserver"
  wine --version
}

# Ends the prefix's server and removes the prefix; after a failure
# (`$1` not 0) Wine's last messages are shown first, unless `$2` says not to.
end_prefix() {
  local status="$1" show_stderr="${2:-yes}"
  [ -n "$work_dir" ] || return 0
  if [ "$status" -ne 0 ] && [ "$show_stderr" = yes ] && [ -s "$work_dir/wine-stderr.txt" ]; then
    step "Last messages of Wine on stderr"
    tail -n 20 "$work_dir/wine-stderr.txt"
  fi
  # Only our own prefix's server, never one the caller's environment names.
  if [ "${WINEPREFIX:-}" = "$work_dir/prefix" ]; then
    timeout 60 wineserver -k 2>/dev/null || true
    timeout 60 wineserver -w 2>/dev/null || true
  fi
  rm -rf "$work_dir"
}

# The last line of the script's output: passed, or failed with the reason.
report_end() {
  local name="$1" status="$2"
  if [ "$status" -eq 0 ]; then
    printf '\n%s: passed in %d s\n' "$name" "$SECONDS"
  else
    printf '\n%s: FAILED: %s (after %d s)\n' "$name" "${failure:-unexpected error, status $status}" "$SECONDS" >&2
  fi
}
