#!/usr/bin/env bash
# Installs everything the tests need, builds Debug with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test; then builds the libFuzzer targets with
# clang and runs each for a few seconds (KESTROVA_FUZZ_SECONDS, 3; 0 skips the pass).
# After configuring it checks that the install list brings every package the build uses.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh --test
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKESTROVA_SANITIZE=ON >/dev/null
# Every library, CMake package and tool the build found must come from the install list (or
# what it depends on): a package present here by chance would be missing on a fresh machine.
check_deps=../shared/tools/check-deps.sh
if [ -x "$check_deps" ]; then
    # shellcheck disable=SC2046
    "$check_deps" build-asan $(./scripts/install-deps.sh --list --test)
else
    echo "test.sh: $check_deps is not beside this checkout; the install list is not checked against the build"
fi
cmake --build build-asan
(cd build-asan && ctest --output-on-failure --timeout 300 -j2)
fuzz_seconds=${KESTROVA_FUZZ_SECONDS:-3}
if [ "$fuzz_seconds" != 0 ]; then
    ./scripts/fuzz.sh all "$fuzz_seconds"
fi
