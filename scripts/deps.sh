#!/usr/bin/env bash
# Installs the build and test tools that are missing, with apt-get, only when
# something is missing.
set -euo pipefail
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v ninja >/dev/null || need+=(ninja-build)
command -v g++ >/dev/null || need+=(g++)
command -v gfortran >/dev/null || need+=(gfortran)
command -v gencat >/dev/null || need+=(libc-bin)
command -v readelf >/dev/null || need+=(binutils)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
# libquadmath is an oracle and a peer of the quad conversions (tests only).
ls /usr/lib/x86_64-linux-gnu/libquadmath.so.0 >/dev/null 2>&1 || need+=(libquadmath0)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
if [ ${#need[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
