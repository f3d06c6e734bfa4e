#!/usr/bin/env python3
"""Records measured kernel costs in src/vm/catalogue.inc.

Usage: bench_vm --costs > costs.txt
       record_vm_costs.py [--all] costs.txt [catalogue]

costs.txt holds lines "<table id> <LA> <HA> <EP>" (cycles per element at
n = 1000, fastest of 41 calls).  By default only cells still marked
UNMEASURED are replaced; with --all every measured cell is replaced (after a
change that speeds up many kernels at once).  Fixed costs are never touched:
the contiguous tables of the given sample rows and the 1111.0 cells.
"""
import re
import sys

FIXED = {"sExp", "dLn", "dPow", "dSinCos", "sErf", "sAdd"}
# Complex rows given whole, contiguous and strided alike.
for f in ("cMul", "cMulByConj", "cDiv", "zMul", "zMulByConj", "zDiv"):
    FIXED |= {f, f + "I"}

args = sys.argv[1:]
replace_all = "--all" in args
args = [a for a in args if a != "--all"]
costs = {}
for line in open(args[0]):
    f = line.split()
    if len(f) == 4:
        costs[f[0]] = f[1:]
path = args[1] if len(args) > 1 else "src/vm/catalogue.inc"
out = []
row_re = re.compile(r'^QOR_VM_FN\(([sdcz]), (\w+), (.*), ("v\w+"), (.*)\)$')
for line in open(path):
    m = row_re.match(line.rstrip("\n"))
    if m:
        t, f, mid, rep, cells = m.groups()
        cells = [c.strip() for c in cells.split(",")]
        for k, tid in ((0, t + f), (3, t + f + "I")):
            if tid not in costs or tid in FIXED:
                continue
            for s in range(3):
                cell = cells[k + s]
                if cell == "UNMEASURED" or (replace_all and cell != "1111.0f"):
                    cells[k + s] = "%.3ff" % float(costs[tid][s])
        line = "QOR_VM_FN(%s, %s, %s, %s, %s)\n" % (t, f, mid, rep, ", ".join(cells))
    out.append(line)
open(path, "w").write("".join(out))
