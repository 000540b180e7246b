#!/usr/bin/env bash
# Installs, builds (Release) and runs the offline demo.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTROVA_BUILD_TESTS=OFF -DKESTROVA_BUILD_BENCH=OFF >/dev/null
cmake --build build-release --target kestrova-cli
demo_home=$(mktemp -d)
trap 'rm -rf "$demo_home"' EXIT
cli=build-release/src/cli/kestrova-cli
XDG_CONFIG_HOME="$demo_home/config" "$cli" --data-dir "$demo_home" --portfolio data/demo.pgr portfolio show
XDG_CONFIG_HOME="$demo_home/config" "$cli" --data-dir "$demo_home" --portfolio data/demo.pgr options list
