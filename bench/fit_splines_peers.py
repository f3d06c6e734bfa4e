#!/usr/bin/python3
"""SciPy peers for bench_spline and bench_interp: times CubicSpline (natural
ends) and Akima1DInterpolator, construction over 10^6 breakpoints and
evaluation at 10^6 random sites, on data drawn like the C++ benchmarks draw it
(spacings uniform in [0.5, 1.5); y = sin(1e-3 x) for construction as in
bench/spline.cpp, sin(0.1 x) for evaluation as in bench/interp.cpp; sites
uniform over the partition).  The random streams differ from the C++ ones;
the distributions are the same.

Prints wall-clock and process-CPU nanoseconds per breakpoint (construction) or
per site (evaluation), the median of --repeat runs.

Usage: /usr/bin/python3 bench/fit_splines_peers.py [--repeat N]
(the Debian interpreter, which has python3-scipy)
"""
import argparse
import time

import numpy as np
from scipy.interpolate import Akima1DInterpolator, CubicSpline

NX = 1_000_000
SITES = 1_000_000


def partition(nx, rng):
    x = np.empty(nx)
    x[0] = 0.0
    x[1:] = np.cumsum(rng.uniform(0.5, 1.5, nx - 1))
    return x


def timed(fn, repeat):
    walls, cpus = [], []
    for _ in range(repeat):
        w0, c0 = time.perf_counter_ns(), time.process_time_ns()
        fn()
        cpus.append(time.process_time_ns() - c0)
        walls.append(time.perf_counter_ns() - w0)
    return float(np.median(walls)), float(np.median(cpus))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--repeat", type=int, default=3)
    args = ap.parse_args()
    rng = np.random.default_rng(42)
    rows = []

    x = partition(NX, rng)
    y = np.sin(1e-3 * x)
    w, c = timed(lambda: CubicSpline(x, y, bc_type="natural"), args.repeat)
    rows.append(("CubicSpline(natural) construction, nx=1e6", w / NX, c / NX))
    w, c = timed(lambda: Akima1DInterpolator(x, y), args.repeat)
    rows.append(("Akima1DInterpolator construction, nx=1e6", w / NX, c / NX))

    for nx in (1000, NX):
        xs = partition(nx, rng)
        ys = np.sin(0.1 * xs)
        sites = rng.uniform(xs[0], xs[-1], SITES)
        cs = CubicSpline(xs, ys, bc_type="natural")
        ak = Akima1DInterpolator(xs, ys)
        w, c = timed(lambda: cs(sites), args.repeat)
        rows.append((f"CubicSpline evaluation, nx={nx}, 1e6 sites", w / SITES, c / SITES))
        w, c = timed(lambda: ak(sites), args.repeat)
        rows.append((f"Akima1DInterpolator evaluation, nx={nx}, 1e6 sites", w / SITES, c / SITES))
        srt = np.sort(sites)
        w, c = timed(lambda: cs(srt), args.repeat)
        rows.append((f"CubicSpline evaluation, nx={nx}, 1e6 sorted sites", w / SITES, c / SITES))

    print(f"{'peer':<56} {'wall ns':>9} {'cpu ns':>9}")
    for name, w, c in rows:
        print(f"{name:<56} {w:9.1f} {c:9.1f}")


if __name__ == "__main__":
    main()
