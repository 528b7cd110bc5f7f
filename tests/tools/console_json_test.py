#!/usr/bin/python3
# Compares what each command of citp-console prints with --json with docs/citp-console.schema.json, and the reports of the
# command "test" with citp-console-test.schema.json beside it.
# usage: console_json_test.py CONSOLE MEDIASERVER SCHEMA CAPTURE, in a network namespace
# SPDX-License-Identifier: Apache-2.0
import json
import os
import struct
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed: see scripts/setup")
    sys.exit(77)

SECONDS = 120
KEY = "127.0.0.2:4811"
CONSOLE, SERVER, SCHEMA, CAPTURE = sys.argv[1:]


def read_schema(path):
    with open(path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    return schema, jsonschema.Draft7Validator(schema)


schema, validator = read_schema(SCHEMA)
report_schema, report_validator = read_schema(SCHEMA.replace(".schema", "-test.schema"))
seen = set()
codes = set()
failed = False


def check(name, output, validator=validator):
    global failed
    for line in output.splitlines():
        record = json.loads(line)
        for error in validator.iter_errors(record):
            failed = True
            print(f"{name}: {error.message}\n  at {list(error.absolute_path)} of {line[:500]}")
        seen.add(record.get("record"))
        codes.add(record.get("code"))


def run(*arguments, network=True, report=None):
    words = [CONSOLE, *arguments, "--json"] + ([report] if report else []) + (["--adapter", "lo"] if network else [])
    return subprocess.Popen(words, stdout=subprocess.PIPE, text=True)


with tempfile.TemporaryDirectory() as folder:
    patch = os.path.join(folder, "patch.json")
    with open(patch, "w", encoding="utf-8") as file:
        json.dump([{"id": 7, "universe": 1, "channel": 21, "channels": 20, "make": "Acme", "name": "Wash"}], file)
    pictures = os.path.join(folder, "pictures")
    pages = os.path.join(folder, "pages")
    recorded = os.path.join(folder, "recorded.pcap")
    server = subprocess.Popen([SERVER, "--adapter", "lo", "--interval", "100", "--layer-rate", "5", "--patch", patch,
                               "--effects", "1", "--generic", "1"], stdout=subprocess.PIPE, text=True)
    try:
        server.stdout.readline()
        recorder = subprocess.Popen([CONSOLE, "capture", "--adapter", "lo", "--write", recorded],
                                    stdout=subprocess.PIPE, text=True)
        recorder.stdout.readline()
        watch = run("watch")
        commands = {" ".join(words): run(*words) for words in (
            ("adapters",), ("servers",), ("doctor",), ("doctor", "--timeout", "0.1", "none"),
            ("libraries", KEY), ("elements", KEY, "1"), ("elements", KEY, "1", "--type", "2"),
            ("elements", KEY, "1", "--type", "3"), ("layers", KEY, "--seconds", "4"), ("patch", KEY),
            ("stats", KEY, "--seconds", "5"), ("thumbnails", KEY, "2", "--to", pictures, "--html", pages))}
        for name, program in commands.items():
            check(name, program.communicate(timeout=SECONDS)[0])
        # A line once the server is up.
        event = watch.stdout.readline()
        watch.terminate()
        check("watch", event + watch.communicate(timeout=SECONDS)[0])
        # A server by another key: the reports of a healthy one, and of one that fails.
        faulty = subprocess.Popen([SERVER, "--adapter", "lo", "--port", "4812", "--fault", "nameless", "--fault-on",
                                   "SInf,ELIn"], stdout=subprocess.PIPE, text=True)
        faulty.stdout.readline()
        reports = [os.path.join(folder, name) for name in ("good.json", "bad.json")]
        for key, report, old in ((KEY, reports[0], ()), ("127.0.0.2:4812", reports[1], ("--compare", reports[0]))):
            tester = run("test", key, "--only", "information,501,505,921", "--silence", "1", "--timeout", "2", *old,
                         report=report)
            tester.communicate(timeout=SECONDS)
            with open(report, encoding="utf-8") as file:
                check("test " + key, file.read(), report_validator)
        faulty.kill()
        faulty.communicate()
        recorder.terminate()
        recorder.communicate(timeout=SECONDS)
    finally:
        server.kill()
        server.communicate()
    # The damaged copy has an error, a gap and a list that is wrong.
    with open(CAPTURE, "rb") as file:
        whole = file.read()
    kept = whole[:24]
    while len(whole) > 24:
        end = 40 + struct.unpack_from("<I", whole, 32)[0]
        kept += b"" if b"SInf" in whole[40:end] else whole[24:end]
        whole = whole[:24] + whole[end:]
    damaged = os.path.join(folder, "damaged.pcap")
    with open(damaged, "wb") as file:
        file.write(kept.replace(b"CITP\x01\0", b"CITQ\x01\0", 4).replace(b"LSta\x02", b"LSta\xff"))
    for words in (("decode", recorded), ("decode", recorded, "--summary"), ("decode", damaged),
                  ("decode", damaged, "--summary")):
        check(" ".join(words), run(*words, network=False).communicate(timeout=SECONDS)[0])

for record in schema["properties"]["record"]["enum"] + report_schema["properties"]["record"]["enum"]:
    if record not in seen:
        failed = True
        print(f"no command has printed a record '{record}'")
for code in ("PLoc", "PNam", "CInf", "SInf", "GELI", "ELIn", "GEIn", "MEIn", "EEIn", "GLEI", "LSta", "SPtc", "Ptch",
             "GETh", "EThn"):
    if code not in codes:
        failed = True
        print(f"no message '{code}' was decoded")
# What is not described is refused.
for record in ({"record": "test"}, {"record": "server", "server": KEY, "time": "now", "program": "x"},
               {"record": "change", "number": 101, "verdict": "good", "before": "failed", "isBetter": True}):
    if report_validator.is_valid(record):
        failed = True
        print(f"the schema of reports accepts {record}")
for record in ({}, {"record": "other"}, {"record": "announcement", "server": KEY},
               {"record": "announcement", "server": KEY, "name": "x", "more": 1},
               {"record": "message", "time": "2026-11-21T15:14:17.595Z", "from": KEY, "to": KEY, "server": KEY,
                "direction": "discovery", "layer": "PINF", "code": "PNam", "size": 24, "fields": {"names": "x"}}):
    if validator.is_valid(record):
        failed = True
        print(f"the schema accepts {record}")
print(f"{len(seen)} types of records, {len(codes) - 1} types of messages")
sys.exit(1 if failed else 0)
