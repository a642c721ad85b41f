#!/usr/bin/env bash
# The main job on the simulated host, from start to stop: the service is
# started on the demonstration host (examples/hosts/demo.json) as the
# control manager would start it; two plugins of two sessions (a Windows
# client and a Mac client, played by vexor-plugin) get their printers; a
# document printed to each arrives at its plugin's listener; one session
# cannot remove the other's printer; a plugin that goes away has its printer
# reaped; the stop removes the rest. The spooler is shown as a table before,
# during and after.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default

run_dir="$PWD/build/demo"
rm -rf "$run_dir"
mkdir -p "$run_dir"
export VEXOR_SIM_HOST="$PWD/examples/hosts/demo.json"
export VEXOR_SIM_ROOT="$run_dir"
export VEXOR_SIM_STATE="$run_dir/state.json"
# The simulated host's control socket, through which vexor-plugin prints.
export VEXOR_SIM_CONTROL="$run_dir/control.sock"
service="$PWD/build/default/VexorPrintingService"
vexorctl="$PWD/build/default/tools/vexorctl"
plugin="$PWD/build/default/tools/vexor-plugin"
log_dir="$run_dir/drive-c/ProgramData/Quillion/VexorAgent/logs"

heading() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
# A step's outcome, for a reader and for the check that runs the demo in CI.
step_done() { printf 'STEP %s: done\n' "$1"; }
fail() { echo "demo: $*" >&2; exit 1; }

service_pid=""
plugin_pids=()
# Nothing is left running, however the demonstration ends.
finish() {
  for pid in "${plugin_pids[@]}" $service_pid; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
trap finish EXIT

# Waits up to 10 seconds for a text in a file.
wait_for_text() {
  for _ in $(seq 100); do grep -qsF -- "$2" "$1" && return 0; sleep 0.1; done
  fail "no \"$2\" in $1"
}
wait_for_log() {
  for _ in $(seq 100); do cat "$log_dir"/*.txt 2>/dev/null | grep -qF -- "$1" && return 0; sleep 0.1; done
  fail "no \"$1\" in the service's log"
}

# The state file: SIGUSR1 asks the simulated host to write it while the
# service runs; after the stop it is the final state.
request_state() {
  rm -f "$VEXOR_SIM_STATE"
  kill -USR1 "$service_pid"
  for _ in $(seq 50); do [ -s "$VEXOR_SIM_STATE" ] && return 0; sleep 0.1; done
  fail "no state file"
}

# The spooler's printers as a table: driver, port, the logon session their
# access list is bound to, paper and orientation; then the service's ports.
show_spooler() {
  [ "${1:-}" = "final" ] || request_state
  python3 - "$VEXOR_SIM_STATE" <<'PY'
import json, re, sys
state = json.load(open(sys.argv[1]))
papers = {1: "Letter", 9: "A4"}
rows = [("Printer", "Driver", "Port", "Session", "Paper")]
for p in state["printers"]:
    sids = sorted(set(re.findall(r"S-1-5-5-0-(\d+)", p["securityDescriptor"])))
    session = ", ".join(str(int(s) - 1000) for s in sids) or "-"
    mode = p.get("devMode") or {}
    paper = "%s %s" % (papers.get(mode.get("dmPaperSize"), mode.get("dmPaperSize", "-")),
                       {1: "portrait", 2: "landscape"}.get(mode.get("dmOrientation"), ""))
    rows.append((p["pPrinterName"], p["pDriverName"], p["pPortName"], session, paper.strip()))
if len(rows) == 1:
    print("(no printers)")
else:
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(rows[0]))]
    for n, row in enumerate(rows):
        print("  ".join(str(cell).ljust(widths[i]) for i, cell in enumerate(row)).rstrip())
        if n == 0:
            print("  ".join("-" * w for w in widths))
ports = [p["name"] for p in state["ports"] if p.get("monitor") == "TCPMON.DLL"]
print("TCP/IP ports: " + (", ".join(ports) or "none"))
PY
}

# Starts a plugin in the background; its output goes to <name>.log.
start_plugin() {
  local name="$1"; shift
  mkdir -p "$run_dir/$name"
  "$plugin" "$@" --save "$run_dir/$name" >"$run_dir/$name.log" 2>&1 &
  plugin_pids+=("$!")
  wait_for_text "$run_dir/$name.log" "vexor-plugin: waiting for"
  sed 's/^/  /' "$run_dir/$name.log"
}

started_at=$SECONDS
heading "Starting the service on the simulated host (drive C: is build/demo/drive-c)"
"$service" &
service_pid=$!
wait_for_log "listen returned success"
echo "listening on 127.0.3.1:5555 (process $service_pid); driver store: examples/hosts/inf"
step_done start

heading "The spooler at the start"
echo "(the host had \"Local printer of an earlier run\" on Vexor_127.0.1.20:9105: the start cleared it)"
show_spooler
step_done before

heading "Two plugins of two sessions ask for their printers"
echo "A Windows client in session 2 names its printer by hardware id; the driver is"
echo "staged in the host's driver store and the installation tool installs it:"
echo "\$ vexor-plugin examples/printers/windows-hwid.json --from 127.0.2.2 --documents 0"
start_plugin windows examples/printers/windows-hwid.json --from 127.0.2.2 --documents 0
echo
echo "A Mac client in session 3 names make and model, its device id and its paper:"
echo "\$ vexor-plugin examples/printers/mac-device-id.json --from 127.0.2.3 --keep"
start_plugin mac examples/printers/mac-device-id.json --from 127.0.2.3 --keep
grep -q "^Driver:" "$run_dir/windows.log" && grep -q "^Driver:" "$run_dir/mac.log" || fail "a printer was not made"
step_done printers
echo
show_spooler

heading "A document printed to each printer arrives at its plugin's listener"
windows_printer="Office LaserBox (Local)"
mac_printer="Mac PageWriter (Local)"
printf '%%!PS-Adobe-3.0\n%%%%Title: Quarterly report\n(Hello from session 2) show showpage\n' >"$run_dir/report.ps"
printf 'Hello from session 3: a letter on A4.\f' >"$run_dir/letter.txt"
echo "\$ vexor-plugin print --printer \"$windows_printer\" report.ps"
"$plugin" print --printer "$windows_printer" "$run_dir/report.ps"
echo "\$ vexor-plugin print --printer \"$mac_printer\" letter.txt"
"$plugin" print --printer "$mac_printer" "$run_dir/letter.txt"
wait_for_text "$run_dir/windows.log" "Received:"
wait_for_text "$run_dir/mac.log" "Received:"
echo "What the plugins saw:"
grep -A1 -h "^Received:" "$run_dir/windows.log" "$run_dir/mac.log" | sed 's/^/  /'
cmp -s "$run_dir/report.ps" "$run_dir"/windows/job-*-1.prn && cmp -s "$run_dir/letter.txt" "$run_dir"/mac/job-*-1.prn \
  || fail "a document arrived changed"
echo "(each saved document is byte for byte the one printed)"
step_done printing

heading "Session 3 tries to remove session 2's printer"
echo "\$ vexorctl --from 127.0.2.3 '{\"msg\":\"deletePrinter\",\"_msgUniqueId\":1,\"printerName\":\"$windows_printer\"}'"
refusal=$("$vexorctl" --raw --from 127.0.2.3 \
  "{\"msg\":\"deletePrinter\",\"_msgUniqueId\":1,\"printerName\":\"$windows_printer\"}")
echo "$refusal"
[[ "$refusal" == *'"err":"Printer not owned by sender"'* ]] || fail "the removal was not refused"
step_done refusal

heading "The Windows client's plugin goes away (Ctrl-C)"
kill -INT "${plugin_pids[0]}"
wait "${plugin_pids[0]}" || true
tail -n 2 "$run_dir/windows.log" | sed 's/^/  /'
wait_for_log "Reaped abandoned Printer Port:$(sed -n 's/.*on port \(Vexor_[^ ]*\).*/\1/p' "$run_dir/windows.log")"
echo "(at the next empty queue the reaper finds nobody listening on its port)"
show_spooler
step_done reap

heading "Stopping the service (SIGTERM stands for the control manager's stop)"
kill -TERM "$service_pid"
wait "$service_pid" || true
service_pid=""
wait "${plugin_pids[1]}" || true
plugin_pids=()
echo "The Mac client's plugin saw the service go:"
tail -n 1 "$run_dir/mac.log" | sed 's/^/  /'
step_done stop

heading "After the stop: the service removed everything of its own"
show_spooler final
step_done after

heading "Interesting lines of the log"
grep -h -E "in OnStart|listen returned|Got new connection|Got request id|Running cmd|DRV_MATCH_DETAIL|DRV_MATCH:|Adding port|not owned|Reaped|Client disconnected|worker thread stopped|Done OnStop" \
  "$log_dir"/*.txt | grep -v "JSON:" | sed -E 's/^([^ ]+) LogLevel:([0-9]).*\|([A-Za-z_:~]+)\(\)\| +/\1 L\2 \3: /'

heading "What the control manager and the event log saw"
python3 - "$VEXOR_SIM_STATE" <<'PY'
import json, sys
state = json.load(open(sys.argv[1]))
names = {1: "stopped", 2: "start pending", 3: "stop pending", 4: "running"}
print("status reports:", ", ".join(names.get(s["currentState"], str(s["currentState"])) for s in state["serviceStatusHistory"]))
for event in state["eventLog"]:
    print("event %d from %s: %s" % (event["eventId"], event["source"], ", ".join(event["strings"])))
PY
echo
echo "Full log: build/demo/drive-c/ProgramData/Quillion/VexorAgent/logs   State file: build/demo/state.json"
echo "Documents the plugins saved: build/demo/windows, build/demo/mac"
echo "The demonstration ran for $((SECONDS - started_at)) s (the build aside)."
