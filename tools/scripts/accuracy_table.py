#!/usr/bin/env python3
"""Turns `qor-accuracy all --type all --accuracy all --library` output into a
Markdown table: one row per function, max ulp per type and slot."""
import re
import sys
from collections import OrderedDict

LINE = re.compile(r'^(\w+)\s+([sdcz]) (LA|HA|EP)\s+n=\d+\s+max ([0-9.e+]+) ulp.*?(ok|FAIL)\s*$')

def main():
    rows = OrderedDict()
    for line in sys.stdin:
        m = LINE.match(line.strip())
        if not m:
            continue
        func, t, slot, ulp, verdict = m.groups()
        u = float(ulp)
        cell = f'{u:.2f}' if u < 1e4 else f'{u:.1e}'
        if verdict == 'FAIL':
            cell += ' (!)'
        rows.setdefault(func, {})[(t, slot)] = cell
    cols = [(t, s) for t in 'sdcz' for s in ('LA', 'HA', 'EP')]
    print('| function | ' + ' | '.join(f'{t} {s}' for t, s in cols) + ' |')
    print('|---|' + '---|' * len(cols))
    for func, cells in rows.items():
        print(f'| {func} | ' + ' | '.join(cells.get(c, '') for c in cols) + ' |')

if __name__ == '__main__':
    main()
