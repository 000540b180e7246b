#!/usr/bin/env bash
# Installs, builds (Release) and runs the offline demo: a demo market on loopback, a
# simulated Hayes modem with a TAP paging terminal on a pty, one update with paging.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTROVA_BUILD_TESTS=OFF -DKESTROVA_BUILD_BENCH=OFF >/dev/null
cmake --build build-release --target kestrova-cli
exec build-release/src/cli/kestrova-cli demo "$@"
