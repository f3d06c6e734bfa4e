#!/usr/bin/env bash
# Installs the Debian packages that the build, tests and benchmarks need,
# asking apt only when something is missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ binutils libgtest-dev libgmock-dev libbenchmark-dev
      libmpfr-dev libgmp-dev libsleef-dev libgsl-dev librandom123-dev
      python3-numpy python3-scipy valgrind)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}" >/dev/null
fi
