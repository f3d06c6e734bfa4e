#!/usr/bin/python3
"""NumPy peer for bench_fit: times numpy.searchsorted on the partitions and
sites that bench/fit.cpp builds (same closed forms, same splitmix64 stream),
and prints wall-clock and process CPU nanoseconds per site in a table that sits
beside bench_fit's output.

Usage: /usr/bin/python3 bench/fit_peers.py (the Debian interpreter that has python3-numpy) [--repeat N]
"""
import argparse
import time

import numpy as np

SITES = 1_000_000



def splitmix64(z):
    """Vectorised splitmix64 over a uint64 array (wrapping arithmetic)."""
    with np.errstate(over="ignore"):
        z = z + np.uint64(0x9E3779B97F4A7C15)
        z = (z ^ (z >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        return z ^ (z >> np.uint64(31))


def unit(first, count):
    z = np.arange(count, dtype=np.uint64) + np.uint64(first)
    return (splitmix64(z) >> np.uint64(11)).astype(np.float64) * 2.0 ** -53


def partition(kind, nx):
    u = np.arange(nx, dtype=np.float64) / float(nx - 1)
    if kind == 0:
        return u
    if kind == 1:
        gaps = 0.5 + unit(1000003, nx)
        gaps[0] = 0.0
        return np.add.accumulate(gaps)  # sequential, as the C++ loop adds
    return u * u * u + 1e-3 * u


def sites(x, seed, sort):
    a, span = x[0], x[-1] - x[0]
    s = a + span * (1.1 * unit(seed, SITES) - 0.05)
    return np.sort(s) if sort else s


def cpu_time(fn, repeat):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.process_time()
        fn()
        best = min(best, time.process_time() - t0)
    return best


def wall_time(fn, repeat):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.perf_counter()
        fn()
        best = min(best, time.perf_counter() - t0)
    return best


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--repeat", type=int, default=5)
    args = ap.parse_args()
    cases = [
        ("uniform, nx 1e6, random sites", 0, 1_000_000, 1, False),
        ("random spacing, nx 1e6, random sites", 1, 1_000_000, 2, False),
        ("clustered, nx 1e6, random sites", 2, 1_000_000, 2, False),
        ("random spacing, nx 1e3, sorted sites", 1, 1000, 3, True),
    ]
    print(f"numpy {np.__version__} searchsorted(side='right'), {SITES} sites, best of {args.repeat}")
    print(f"{'case':40s} {'wall ns/site':>13s} {'cpu ns/site':>12s}")
    for name, kind, nx, seed, sort in cases:
        x = partition(kind, nx)
        s = sites(x, seed, sort)

        def run():
            np.searchsorted(x, s, side="right").astype(np.int64, copy=False)

        wall = wall_time(run, args.repeat) / SITES * 1e9
        cpu = cpu_time(run, args.repeat) / SITES * 1e9
        print(f"{name:40s} {wall:13.2f} {cpu:12.2f}")


if __name__ == "__main__":
    main()
