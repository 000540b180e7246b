#!/usr/bin/env bash
# Installs everything the tests need, builds Debug with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test; then builds the libFuzzer targets with
# clang and runs each for a few seconds (KESTROVA_FUZZ_SECONDS, 3; 0 skips the pass).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh --test
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKESTROVA_SANITIZE=ON >/dev/null
cmake --build build-asan
(cd build-asan && ctest --output-on-failure --timeout 300 -j2)
fuzz_seconds=${KESTROVA_FUZZ_SECONDS:-3}
if [ "$fuzz_seconds" != 0 ]; then
    ./scripts/fuzz.sh all "$fuzz_seconds"
fi
