#!/usr/bin/env python3
"""Turns `bench_vm --summary ID...` output into a Markdown table: cycles per
element at n = 1000 of each slot beside the peers of the same run.

Usage: bench_vm --summary sExp dExp ... | speed_table.py [--targets FILE]

--targets names a file of lines "<id> <LA> <HA> <EP>" (reference costs to
show beside ours, e.g. the sample rows); ids without one show a dash."""
import re
import sys
from collections import OrderedDict

targets = {}
args = sys.argv[1:]
if args[:1] == ["--targets"]:
    for line in open(args[1]):
        f = line.split()
        if len(f) == 4:
            targets[f[0]] = f[1:]
rows = OrderedDict()
for line in sys.stdin:
    f = line.split()
    if len(f) < 5 or f[1] not in ("LA", "HA", "EP"):
        continue
    r = rows.setdefault(f[0], {"peers": {}})
    r[f[1]] = float(f[3])
    # peers: "name n1000 / n1e6" triples after the slot's own figures
    rest = f[5:]
    i = 0
    while i + 3 < len(rest) + 1 and i + 2 < len(rest):
        if rest[i + 2] == "/":
            r["peers"][rest[i]] = float(rest[i + 1])
            i += 4
        else:
            i += 1
cols = ["sleef_u10", "sleef_u35", "libmvec"]
print("| function | LA | HA | EP | reference LA / HA / EP | SLEEF u10 | SLEEF u35 | libmvec |")
print("|---|---|---|---|---|---|---|---|")
for fid, r in rows.items():
    ref = " / ".join(targets[fid]) if fid in targets else "—"
    peers = [("%.2f" % r["peers"][c]) if c in r["peers"] else "—" for c in cols]
    print("| %s | %.2f | %.2f | %.2f | %s | %s |" % (
        fid, r.get("LA", 0), r.get("HA", 0), r.get("EP", 0), ref, " | ".join(peers)))
