#!/usr/bin/env bash
# The main job on the simulated host: the service is started on the
# demonstration host (examples/hosts/demo.json) as the control manager would
# start it, a short session is sent with vexorctl, the interesting lines of
# its log are shown, and it is stopped cleanly with SIGTERM.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default

run_dir="build/demo"
rm -rf "$run_dir"
mkdir -p "$run_dir"
export VEXOR_SIM_HOST="$PWD/examples/hosts/demo.json"
export VEXOR_SIM_ROOT="$PWD/$run_dir"
export VEXOR_SIM_STATE="$PWD/$run_dir/state.json"
service="$PWD/build/default/VexorPrintingService"
vexorctl="$PWD/build/default/tools/vexorctl"
log_dir="$run_dir/drive-c/ProgramData/Quillion/VexorAgent/logs"

heading() { printf '\n\033[1m== %s\033[0m\n' "$*"; }

heading "Starting the service on the simulated host (drive C: is $run_dir/drive-c)"
"$service" &
service_pid=$!
trap 'kill -TERM "$service_pid" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  grep -qs "listen returned success" "$log_dir"/*.txt && break
  sleep 0.1
done
echo "listening on 127.0.3.1:5555 (process $service_pid)"

send() {
  printf '\n$ vexorctl %s\n' "$1"
  "$vexorctl" "$1" || true
}

# The spooler's TCP/IP ports and printers as the state file shows them:
# SIGUSR1 asks the simulated host to write it while the service runs; after
# the stop it is the final state.
show_spooler() {
  if [ "${1:-}" != "final" ]; then
    rm -f "$VEXOR_SIM_STATE"
    kill -USR1 "$service_pid"
    for _ in $(seq 50); do [ -s "$VEXOR_SIM_STATE" ] && break; sleep 0.1; done
  fi
  python3 - "$VEXOR_SIM_STATE" <<'PY'
import json, sys
state = json.load(open(sys.argv[1]))
ports = [p for p in state["ports"] if p.get("monitor") == "TCPMON.DLL"]
print("spooler's TCP/IP ports:", ", ".join("%s -> %s:%s" % (p["name"], p["hostAddress"], p["portNumber"]) for p in ports) or "none")
print("spooler's printers:    ", ", ".join("%s (on %s)" % (p["pPrinterName"], p["pPortName"]) for p in state["printers"]) or "none")
print("plugins listening:     ", ", ".join(state.get("listeners", [])) or "none")
PY
}

# The printers in the state file: driver, port, the session the access list
# names, the paper and orientation of the device mode, and the comment.
show_printers() {
  rm -f "$VEXOR_SIM_STATE"
  kill -USR1 "$service_pid"
  for _ in $(seq 50); do [ -s "$VEXOR_SIM_STATE" ] && break; sleep 0.1; done
  python3 - "$VEXOR_SIM_STATE" <<'PY'
import json, re, sys
state = json.load(open(sys.argv[1]))
papers = {1: "Letter", 9: "A4"}
for p in state["printers"]:
    sessions = sorted(set(re.findall(r"S-1-5-5-0-\d+", p["securityDescriptor"])))
    mode = p.get("devMode") or {}
    print("%s" % p["pPrinterName"])
    print("  driver %s, port %s" % (p["pDriverName"], p["pPortName"]))
    print("  access for logon session %s (%d entries)" % (", ".join(sessions) or "none",
          len(re.findall(r"S-1-5-5-0-\d+", p["securityDescriptor"]))))
    print("  paper %s, orientation %s, copies %s" % (papers.get(mode.get("dmPaperSize"), mode.get("dmPaperSize")),
          {1: "portrait", 2: "landscape"}.get(mode.get("dmOrientation"), mode.get("dmOrientation")), mode.get("dmCopies")))
    print("  comment \"%s\"" % p["pComment"])
    print("  location \"%s\"" % p["pLocation"])
print("drivers installed:", ", ".join(d["name"] for d in state["drivers"]))
PY
}

wait_for_log() {
  for _ in $(seq 100); do grep -qs "$1" "$log_dir"/*.txt && return 0; sleep 0.1; done
  echo "(no \"$1\" in the log)"
}

heading "A short session"
send '{"msg":"hello","_msgUniqueId":1}'
send '{"msg":"getTcpProcessInfo","_msgUniqueId":2,"IP":"127.0.0.1","Port":5555}'
send '{"msg":"createPPort","_msgUniqueId":3,"pPortName":"demo port"}'
send '{"msg":"deletePrinter"}'

heading "What an earlier run left was cleared at the start"
echo "(the host file had \"Local printer of an earlier run\" on Vexor_127.0.1.20:9105)"
show_spooler

heading "Ports for two plugins: one listens, one has gone away"
send '{"msg":"createPPort","_msgUniqueId":4,"pPortName":"Vexor_127.0.1.20:9101","IP":"127.0.1.20","port":9101}'
send '{"msg":"createPPort","_msgUniqueId":5,"pPortName":"Vexor_127.0.1.20:9101","IP":"127.0.1.20","port":9101}'
send '{"msg":"createPPort","_msgUniqueId":6,"pPortName":"Vexor_127.0.1.20:9102","IP":"127.0.1.20","port":9102}'
echo
echo "(each vexorctl leaves after its reply; at the next empty queue the reaper"
echo " keeps the port whose plugin listens and removes the one nobody listens on)"
wait_for_log "Reaped abandoned Printer Port:Vexor_127.0.1.20:9102"
show_spooler

heading "The main job: printers for a Windows client and a Mac client"
echo "(the Windows client names its printer by hardware id: the driver is staged in"
echo " the host's driver store and the installation tool installs it; the Mac client"
echo " names make and model and its paper; each printer is bound to the sender's"
echo " logon session)"
send '{"msg":"createPrinter","_msgUniqueId":7,"printerName":"Office LaserBox","pPortName":"Vexor_127.0.1.20:9101","OS":"Windows","hardwareId":"USBPRINT\\AcmeLaserBox_2000PS5A1C","clientPCName":"DESKTOP-7","pDevMode":{"dmOrientation":2,"dmCopies":2}}'
send '{"msg":"createPrinterAndPort","_msgUniqueId":8,"printerName":"Mac PageWriter","pPortName":"Vexor_127.0.1.20:9103","IP":"127.0.1.20","port":9103,"OS":"OSX","HostRenderSupported":1,"device-id":"MFG:Brightline;MDL:PageWriter 7;","printer-make-and-model":"Brightline PageWriter 7","media-default":"iso_a4_210x297mm","clientPCName":"MacBook"}'
show_printers

heading "Each client removes its printer and port again"
send '{"msg":"deletePrinterAndPort","_msgUniqueId":9,"printerName":"Office LaserBox"}'
send '{"msg":"deletePrinterAndPort","_msgUniqueId":10,"printerName":"Mac PageWriter"}'
show_spooler

heading "Stopping the service (SIGTERM stands for the control manager's stop)"
kill -TERM "$service_pid"
wait "$service_pid" || true
trap - EXIT

heading "After the stop: the service cleared everything of its own"
show_spooler final

heading "Interesting lines of the log"
grep -h -E "Service version|in OnStart|through GPO setting|listen returned|Got new connection|Unauthorized|Got request id|unknown msg verb|Printer Port|DRV_MATCH|Running cmd|Deleting printer|Adding port|Deleting PPort|stale printers removed|getDriverInfoDetail loaded|listener|Reaped|worker thread stopped|Done OnStop" \
  "$log_dir"/*.txt | grep -v "JSON:" | sed -E 's/^([^ ]+) LogLevel:([0-9]).*\|([A-Za-z_:~]+)\(\)\| +/\1 L\2 \3: /'

heading "What the control manager and the event log saw"
python3 - "$VEXOR_SIM_STATE" <<'PY'
import json, sys
state = json.load(open(sys.argv[1]))
names = {1: "stopped", 2: "start pending", 3: "stop pending", 4: "running"}
print("status reports:", ", ".join(names.get(s["currentState"], str(s["currentState"])) for s in state["serviceStatusHistory"]))
for event in state["eventLog"]:
    print("event %d from %s: %s" % (event["eventId"], event["source"], ", ".join(event["strings"])))
print("device nodes left:", ", ".join(d["instanceId"] for d in state["devices"]))
PY
echo
echo "Full log: $log_dir   State file: $VEXOR_SIM_STATE"
