#!/usr/bin/env python3
"""Records measured kernel costs in src/vm/catalogue.inc.

Usage: bench_vm --costs > costs.txt; record_vm_costs.py costs.txt [catalogue]

costs.txt holds lines "<table id> <LA> <HA> <EP>" (cycles per element at
n = 1000, fastest of 41 calls).  Only cells still marked UNMEASURED are
replaced; fixed costs (the given sample rows and the 1111.0 rows) are kept.
"""
import re
import sys

costs = {}
for line in open(sys.argv[1]):
    f = line.split()
    if len(f) == 4:
        costs[f[0]] = f[1:]
path = sys.argv[2] if len(sys.argv) > 2 else "src/vm/catalogue.inc"
out = []
row_re = re.compile(r'^QOR_VM_FN\(([sdcz]), (\w+), (.*), ("v\w+"), (.*)\)$')
for line in open(path):
    m = row_re.match(line.rstrip("\n"))
    if m:
        t, f, mid, rep, cells = m.groups()
        cells = [c.strip() for c in cells.split(",")]
        for k, tid in ((0, t + f), (3, t + f + "I")):
            if tid in costs:
                for s in range(3):
                    if cells[k + s] == "UNMEASURED":
                        cells[k + s] = "%.3ff" % float(costs[tid][s])
        line = "QOR_VM_FN(%s, %s, %s, %s, %s)\n" % (t, f, mid, rep, ", ".join(cells))
    out.append(line)
open(path, "w").write("".join(out))
