#!/usr/bin/env bash
# Installs, builds (Release) and starts the desktop program kestrova on the offline demo:
# a demo market on loopback and a simulated modem, one update at once. Needs a desktop
# session (X11 or Wayland). Arguments go to kestrova, e.g. a portfolio file instead of
# the demo: scripts/desktop.sh --no-demo MYWATCH.pgr
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTROVA_BUILD_TESTS=OFF -DKESTROVA_BUILD_BENCH=OFF >/dev/null
cmake --build build-release --target kestrova kestrova_docs
if [ "${1:-}" = "--no-demo" ]; then
    shift
    exec build-release/src/gui/kestrova "$@"
fi
exec build-release/src/gui/kestrova --demo "$@"
