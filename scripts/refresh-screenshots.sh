#!/usr/bin/env bash
# Refreshes the README's pictures from a run of the screenshot tests: every picture in
# docs/images is replaced by the one of the same name the tests wrote into
# BUILD/screenshots (BUILD: the first argument, else build-asan, configured already).
# A picture no test writes any more stops the script, so the README never keeps a stale one.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-asan}
tests='^(test_screenshot|test_dialogscreenshots|test_pricechart)$'
cmake --build "$build" --target test_screenshot test_dialogscreenshots test_pricechart
rm -rf "$build/screenshots"
(cd "$build" && ctest -R "$tests" --output-on-failure)
for picture in docs/images/*.png; do
    made="$build/screenshots/$(basename "$picture")"
    if [ ! -f "$made" ]; then
        echo "refresh-screenshots: no test writes $(basename "$picture") any more" >&2
        exit 1
    fi
    cp "$made" "$picture"
    echo "refreshed $picture"
done
