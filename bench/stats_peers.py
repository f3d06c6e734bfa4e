#!/usr/bin/python3
"""Absolute deviations: SciPy / NumPy against bench_stats, in one run.

Times SciPy's median_abs_deviation and NumPy's mean absolute deviation
(mean(|x - mean(x)|), and np.average for the weighted form) over p = 16
variables of n = 10^6 observations in both layouts, runs bench_stats on the
same shapes, and prints ns per value (p * n values per call) side by side.

usage: /usr/bin/python3 bench/stats_peers.py [--bench build/bin/bench_stats] [--repeat 5] [--threads 2]
"""
import argparse
import json
import subprocess
import sys
import time

import numpy as np
from scipy import stats

P, N = 16, 1_000_000


def best_ns_per_value(fn, repeat):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.perf_counter()
        fn()
        best = min(best, time.perf_counter() - t0)
    return best * 1e9 / (P * N)


def peers(repeat):
    rng = np.random.default_rng(11)
    cols = rng.standard_normal((P, N)) * (1 + np.arange(P))[:, None]  # variable contiguous
    rows = np.ascontiguousarray(cols.T)                               # observation k is a row
    w = rng.uniform(0.5, 2.0, N)
    out = {}
    for dtype, name in ((np.float64, "double"), (np.float32, "float")):
        c, r, ww = cols.astype(dtype), rows.astype(dtype), w.astype(dtype)
        out[(name, "median", "cols", 0)] = best_ns_per_value(
            lambda: stats.median_abs_deviation(c, axis=1), repeat)
        out[(name, "median", "rows", 0)] = best_ns_per_value(
            lambda: stats.median_abs_deviation(r, axis=0), repeat)
        out[(name, "mean", "cols", 0)] = best_ns_per_value(
            lambda: np.mean(np.abs(c - c.mean(axis=1, keepdims=True)), axis=1), repeat)
        out[(name, "mean", "rows", 0)] = best_ns_per_value(
            lambda: np.mean(np.abs(r - r.mean(axis=0)), axis=0), repeat)
        out[(name, "mean", "cols", 1)] = best_ns_per_value(
            lambda: np.average(np.abs(c - np.average(c, axis=1, weights=ww)[:, None]),
                               axis=1, weights=ww), repeat)
        out[(name, "mean", "rows", 1)] = best_ns_per_value(
            lambda: np.average(np.abs(r - np.average(r, axis=0, weights=ww)),
                               axis=0, weights=ww), repeat)
    return out


def ours(bench, threads):
    res = subprocess.run([bench, "--benchmark_format=json"], check=True,
                         capture_output=True, text=True)
    out = {}
    for b in json.loads(res.stdout)["benchmarks"]:
        name = b["name"]  # BM_MAD<double>/mean:1/rows:0/threads:2/w:0/...
        fields = dict(part.split(":") for part in name.split("/")[1:5])
        if int(fields["threads"]) != threads:
            continue
        dtype = name[name.index("<") + 1:name.index(">")]
        est = "mean" if fields["mean"] == "1" else "median"
        layout = "rows" if fields["rows"] == "1" else "cols"
        out[(dtype, est, layout, int(fields["w"]))] = b["ns_per_obs"]
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bench", default="build/bin/bench_stats")
    ap.add_argument("--repeat", type=int, default=5)
    ap.add_argument("--threads", type=int, default=2)
    a = ap.parse_args()
    q = ours(a.bench, a.threads)
    s = peers(a.repeat)
    print(f"p = {P}, n = {N}; ns per value (p*n values per call); qor on {a.threads} threads,"
          f" SciPy {__import__('scipy').__version__} / NumPy {np.__version__}")
    print(f"{'type':7} {'estimate':9} {'layout':6} {'w':2} {'qor':>8} {'peer':>8} {'peer/qor':>9}")
    worst = float("inf")
    for key in sorted(s):
        if key not in q:
            continue
        ratio = s[key] / q[key]
        worst = min(worst, ratio)
        dtype, est, layout, w = key
        print(f"{dtype:7} {est:9} {layout:6} {w:<2} {q[key]:8.2f} {s[key]:8.2f} {ratio:9.1f}")
    print(f"smallest speed-up: {worst:.1f}x")
    return 0


if __name__ == "__main__":
    sys.exit(main())
