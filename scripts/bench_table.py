"""The benchmark report's table: each figure of the benchmark programs'
outputs (in the folder given) beside the reference measured in the same run,
and their ratio."""
import json
import re
import sys
from pathlib import Path

results = Path(sys.argv[1])
rows = []


def row(figure, value, unit, reference, reference_value):
    ratio = value / reference_value if reference_value else float("nan")
    rows.append((figure, "%.4g %s" % (value, unit), reference, "%.4g %s" % (reference_value, unit), "%.3g" % ratio))


def text(name):
    path = results / (name + ".txt")
    return path.read_text() if path.exists() else ""


def benchmarks(name):
    body = text(name)
    return json.loads(body)["benchmarks"] if body else []


def light_requests():
    out = text("command_load")
    found = {m.group(1).strip(): m for m in re.finditer(
        r"^(echo server|service)\s+(\d+) requests\s+(\d+) req/s\s+p50\s+([\d.]+) us\s+p99\s+([\d.]+) us", out, re.M)}
    if "service" in found and "echo server" in found:
        service, echo = found["service"], found["echo server"]
        clients = re.search(r"^(\d+) clients", out, re.M).group(1)
        row("light request p50, %s clients" % clients, float(service.group(4)), "us",
            "bare loopback echo p50", float(echo.group(4)))
        row("light request p99", float(service.group(5)), "us", "bare loopback echo p99", float(echo.group(5)))
        rows.append(("light requests per second", service.group(3) + " /s", "bare loopback echo",
                     echo.group(3) + " /s", "%.3f" % (float(service.group(3)) / float(echo.group(3)))))
        return float(service.group(4))
    return None


def ports(light_p50):
    m = re.search(r"(\d+) ports\s+createPPort\s+([\d.]+) us/port\s+deletePPort\s+([\d.]+) us/port",
                  text("command_load_ports"))
    if m and light_p50:
        row("createPPort, %s ports" % m.group(1), float(m.group(2)), "us", "light request p50", light_p50)
        row("deletePPort", float(m.group(3)), "us", "light request p50", light_p50)


def printers():
    out = text("command_load_printers")
    add = re.search(r"one add ([\d.]+) us directly", out)
    for m in re.finditer(r"^(.+?)\s+(\d+) creations\s+([\d.]+) /s\s+p50\s+([\d.]+) us\s+p99\s+([\d.]+) us\s+"
                         r"removal p50\s+([\d.]+) us", out, re.M):
        if add:
            row("printer creation p50: " + m.group(1).strip(), float(m.group(4)), "us",
                "one AddPrinterW, directly", float(add.group(1)))


def selection():
    out = text("driver_selection")
    enumerations = {m.group(1, 2): float(m.group(3)) for m in re.finditer(
        r"catalogue\s+(\d+)\s+installed\s+(\d+)\s+one enumeration ([\d.]+) us", out)}
    for m in re.finditer(r"catalogue\s+(\d+)\s+installed\s+(\d+)\s+(.+?)\s+p50\s+([\d.]+) us", out):
        shape = m.group(1, 2)
        if shape in enumerations:
            row("selectDriver %s (catalogue %s, installed %s)" % (m.group(3).strip(), shape[0], shape[1]),
                float(m.group(4)), "us", "one enumeration of the drivers", enumerations[shape])


def catalogue():
    for b in benchmarks("driver_catalogue"):
        if "parse_ms" in b:
            row("catalogue build, %d INF files" % int(b["inf_files"]), b["real_time"], "ms",
                "one plain parse of them", b["parse_ms"])


def reaper():
    for b in benchmarks("reaper"):
        if "pass_over_enumeration" in b:
            ports = b["name"].split("/")[-1]
            value = b["real_time"]
            row("reap pass, %s ports" % ports, value, "ms", "the spooler's own enumeration",
                value / b["pass_over_enumeration"])


def enumeration():
    timings = {b["name"]: b for b in benchmarks("spooler_enumeration")}
    for name, b in timings.items():
        if name.startswith("BM_EnumPrintersW/"):
            count = name.split("/")[-1]
            ports = timings.get("BM_EnumPortsW/" + count)
            if ports:
                row("EnumPrintersW level 2, %s printers" % count, b["real_time"], "us",
                    "EnumPortsW level 2, %s ports" % count, ports["real_time"])


def make_and_model():
    timings = [b for b in benchmarks("make_and_model") if b["name"].startswith("BM_AddMakeAndModelHwids/")]
    if timings:
        first = timings[0]
        for b in timings:
            row("make-and-model ids, %s blanks (%d ids)" % (b["name"].split("/")[-1], int(b["ids"])),
                b["real_time"], "ms", "the same, %s blanks" % first["name"].split("/")[-1], first["real_time"])


light = light_requests()
ports(light)
printers()
selection()
catalogue()
reaper()
enumeration()
make_and_model()

headers = ("figure", "value", "reference (same run)", "reference", "ratio")
widths = [max(len(str(r[i])) for r in rows + [headers]) for i in range(len(headers))]
print("| " + " | ".join(h.ljust(w) for h, w in zip(headers, widths)) + " |")
print("|" + "|".join("-" * (w + 2) for w in widths) + "|")
for r in rows:
    print("| " + " | ".join(str(c).ljust(w) for c, w in zip(r, widths)) + " |")
