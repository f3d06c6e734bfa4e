#!/bin/sh
# Regenerates the independent reference tables of tests/rng/qrng from GSL
# (libgsl-dev) and SciPy (python3-scipy).  Run from the repository root.
set -e
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cc -O2 -o "$tmp/nied" tools/qrng/gsl_niederreiter_ref.c -lgsl -lgslcblas -lm
"$tmp/nied" > tests/rng/qrng/gsl_niederreiter_ref.inc
/usr/bin/python3 tools/qrng/scipy_sobol_ref.py > tests/rng/qrng/scipy_sobol_ref.inc
