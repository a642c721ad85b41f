#!/usr/bin/env bash
# Compares the simulated host with Wine, call by call. vexor-probe calls the
# Windows functions the service uses and prints what each answers, one
# observation a line; this script runs the Windows build of it under Wine in
# a fresh prefix and the Linux build on the simulated host arranged from
# tests/windows/probe-host.json, and compares the two outputs line by line:
#
#   bash tests/windows/probe_compare.sh [MINGW_BUILD_DIR] [LINUX_BUILD_DIR]
#
# (defaults build/mingw and build/default). Every line that differs is
# printed with the side it comes from. A difference listed in
# tests/windows/probe-known-differences.txt is known, and explained in
# docs/simulated-host.md, "Differences from Wine"; any other fails the
# comparison (exit status 1). The script removes its prefix and leaves
# nothing running. It does not use the command port.
#
# Both machines get the same arrangement: the INF file tests/windows/probe.inf
# at C:\VexorProbe\probe.inf, and an installed printer driver "Vexor Probe
# Driver" of the environment "Windows x64" (the host file's driver; under
# Wine its registration in the spooler's registry, which is all Wine's
# spooler reads of a driver), for the printer the probe makes on LPT1:.
set -euo pipefail
cd "$(dirname "$0")/../.."

windows_build="$(realpath -m "${1:-build/mingw}")"
linux_build="$(realpath -m "${2:-build/default}")"
windows_probe="$windows_build/tools/vexor-probe.exe"
linux_probe="$linux_build/tools/vexor-probe"
host_file="$PWD/tests/windows/probe-host.json"
inf_file="$PWD/tests/windows/probe.inf"
known_file="$PWD/tests/windows/probe-known-differences.txt"
driver_key='HKLM\System\CurrentControlSet\Control\Print\Environments\Windows x64\Drivers\Version-3\Vexor Probe Driver'
done_line='vexor-probe: done'

work_dir=""
failure=""

source tests/windows/wine_prefix.sh

finish() {
  local status=$?
  if [ -n "${known_checked:-}" ]; then end_prefix "$status" no; else end_prefix "$status"; fi
  report_end probe_compare "$status"
}
trap finish EXIT

check_prerequisites() {
  require_tools diff cmp sed
  [ -f "$windows_probe" ] || fail "no $windows_probe: build the mingw preset first"
  [ -x "$linux_probe" ] || fail "no $linux_probe: build the default preset first"
  [ -f "$known_file" ] || fail "no $known_file"
}

# The probe's output, without carriage returns; it must end with its last line.
run_probe() {
  local output="$1"
  shift
  "$@" | tr -d '\r' >"$output" || true
  [ "$(tail -n 1 "$output")" = "$done_line" ] ||
    fail "the probe did not finish (${output##*/}); its last lines: $(tail -n 3 "$output" | tr '\n' '|')"
  echo "$(wc -l <"$output") observations"
}

probe_wine() {
  step "vexor-probe.exe under Wine"
  mkdir -p "$WINEPREFIX/drive_c/VexorProbe"
  cp "$inf_file" "$WINEPREFIX/drive_c/VexorProbe/probe.inf"
  wine_run reg add "$driver_key" /v Version /t REG_DWORD /d 3 /f >/dev/null || fail "reg add $driver_key"
  run_probe "$work_dir/wine.txt" timeout 120 wine "$windows_probe" 2>>"$work_dir/wine-stderr.txt"
}

probe_simulated_host() {
  step "vexor-probe on the simulated host"
  mkdir -p "$work_dir/sim"
  run_probe "$work_dir/sim.txt" env VEXOR_SIM_HOST="$host_file" VEXOR_SIM_ROOT="$work_dir/sim" \
    timeout 120 "$linux_probe"
}

# Known differences, one a line, fields separated by tabs:
#   id  wine|sim  pattern           a line of that side that differs: a bash
#                                   pattern the whole line matches
#   id  mask  lines  regex  text    before the comparison, on the lines both
#                                   outputs have that match the extended
#                                   regular expression `lines`, every match of
#                                   `regex` becomes `text` (sed's s///g)
known_ids=()
known_sides=()
known_patterns=()
mask_ids=()
mask_scripts=()
read_known_differences() {
  local id side pattern regex text
  while IFS=$'\t' read -r id side pattern regex text; do
    [[ -z "$id" || "$id" == \#* ]] && continue
    [ -n "$pattern" ] || fail "$known_file: $id has no pattern"
    case "$side" in
      wine | sim)
        known_ids+=("$id")
        known_sides+=("$side")
        known_patterns+=("$pattern")
        ;;
      mask)
        [ -n "$regex" ] || fail "$known_file: the mask $id has no regular expression"
        mask_ids+=("$id")
        mask_scripts+=("\#$pattern#s#$regex#$text#g")
        ;;
      *) fail "$known_file: \"$side\" of $id is neither wine, sim nor mask" ;;
    esac
  done <"$known_file"
}

# Applies the masks to an output; names the masks that changed a line.
apply_masks() {
  local input="$1" output="$2" i
  cp "$input" "$output"
  for i in "${!mask_ids[@]}"; do
    sed -E "${mask_scripts[$i]}" "$output" >"$output.next"
    cmp -s "$output" "$output.next" || echo "${mask_ids[$i]}" >>"$work_dir/masks-used"
    mv "$output.next" "$output"
  done
}

# The id of the known difference the line of the side matches, or nothing.
known_difference() {
  local side="$1" line="$2" i
  for i in "${!known_ids[@]}"; do
    # shellcheck disable=SC2053 # the pattern is a pattern
    if [ "${known_sides[$i]}" = "$side" ] && [[ "$line" == ${known_patterns[$i]} ]]; then
      echo "${known_ids[$i]}"
      return
    fi
  done
}

compare() {
  step "Lines that differ (wine: under Wine, sim: on the simulated host)"
  read_known_differences
  : >"$work_dir/masks-used"
  apply_masks "$work_dir/wine.txt" "$work_dir/wine.masked"
  apply_masks "$work_dir/sim.txt" "$work_dir/sim.masked"
  local side line id unknown=0 known=0
  declare -A seen=()
  while read -r id; do seen[$id]=1; done <"$work_dir/masks-used"
  while IFS=$'\t' read -r side line; do
    id="$(known_difference "$side" "$line")"
    if [ -n "$id" ]; then
      printf '  %-4s %s   [known: %s]\n' "$side" "$line" "$id"
      seen[$id]=1
      known=$((known + 1))
    else
      printf '  %-4s %s   [NOT KNOWN]\n' "$side" "$line"
      unknown=$((unknown + 1))
    fi
  done < <(diff --old-line-format=$'wine\t%L' --new-line-format=$'sim\t%L' --unchanged-line-format='' \
    "$work_dir/wine.masked" "$work_dir/sim.masked" || true)
  known_checked=1
  local unused=()
  for id in "${mask_ids[@]}" "${known_ids[@]}"; do
    [ -n "${seen[$id]:-}" ] || [[ " ${unused[*]} " == *" $id "* ]] || unused+=("$id")
  done
  echo "$(grep -c '' "$work_dir/wine.txt") lines compared; masks used: $(sort -u "$work_dir/masks-used" | tr '\n' ' ')"
  echo "$known lines differ as known, $unknown not known"
  [ ${#unused[@]} -eq 0 ] || echo "known differences not seen in this run: ${unused[*]}"
  [ "$unknown" -eq 0 ] || fail "$unknown lines differ in a way tests/windows/probe-known-differences.txt does not list"
}

check_prerequisites
make_prefix
probe_wine
probe_simulated_host
compare
