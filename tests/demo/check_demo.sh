#!/usr/bin/env bash
# Runs the README's demonstration as a newcomer would and checks that it
# succeeded, that every step reported itself done, that the documents
# arrived, and that its run (the build aside) took under a minute.
set -euo pipefail
cd "$(dirname "$0")/../.."

output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
bash scripts/demo.sh >"$output" 2>&1 || status=$?
fail() {
  echo "demonstration check: $*" >&2
  tail -n 40 "$output" >&2
  exit 1
}
[ "$status" -eq 0 ] || fail "scripts/demo.sh exited with $status"
for step in start before printers printing refusal reap stop after; do
  grep -qx "STEP $step: done" "$output" || fail "the step \"$step\" did not finish"
done
expect() { grep -qF -- "$1" "$output" || fail "no \"$1\" in its output"; }
expect "Driver:      Acme LaserBox 2000 (PS)"
expect "Driver:      Brightline PageWriter 7"
expect '{"_msgUniqueId":1,"err":"Printer not owned by sender","status":"fail"}'
expect "(each saved document is byte for byte the one printed)"
[ "$(grep -c '^  Received:' "$output")" -eq 2 ] || fail "not both documents arrived"
seconds=$(sed -n 's/^The demonstration ran for \([0-9]*\) s.*/\1/p' "$output")
[ -n "$seconds" ] && [ "$seconds" -lt 60 ] || fail "the demonstration ran for ${seconds:-an unknown number of} seconds"
if pgrep -f "$PWD/build/default/(VexorPrintingService|tools/vexor-plugin)" >/dev/null; then
  fail "a program of the demonstration still runs"
fi
echo "demonstration check: passed (${seconds} s, every step done)"
