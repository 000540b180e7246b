#!/usr/bin/env bash
# Installs a build into a throw-away prefix, checks what a desktop and a package manager
# will read from it, and builds the Debian package. Usage: check_install.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ASAN_OPTIONS=detect_leaks=0
id=org.kestrova.Kestrova
fail() { echo "check_install: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$work/prefix" >/dev/null
p=$work/prefix
for f in bin/kestrova bin/kestrova-cli \
         share/kestrova/servers.dat share/kestrova/server.dat share/kestrova/sources.json share/kestrova/demo.pgr \
         share/applications/$id.desktop share/icons/hicolor/scalable/apps/$id.svg \
         share/metainfo/$id.metainfo.xml share/mime/packages/$id.xml \
         share/doc/kestrova/user-guide.html share/man/man1/kestrova.1 share/man/man1/kestrova-cli.1; do
    [ -s "$p/$f" ] || fail "$f was not installed"
done

desktop-file-validate "$p/share/applications/$id.desktop"
appstreamcli validate --no-net "$p/share/metainfo/$id.metainfo.xml" >/dev/null ||
    { appstreamcli validate --no-net "$p/share/metainfo/$id.metainfo.xml"; fail "metainfo does not validate"; }
xmllint --noout "$p/share/mime/packages/$id.xml"
# The launcher names the icon and the program that are installed.
grep -qx "Icon=$id" "$p/share/applications/$id.desktop" || fail "launcher icon"
grep -q '^Exec=kestrova ' "$p/share/applications/$id.desktop" || fail "launcher program"
# The guide Help opens, with the sections the help menu jumps to.
for anchor in reporting-a-problem known-problems troubleshooting whats-new; do
    grep -q "id=\"$anchor\"" "$p/share/doc/kestrova/user-guide.html" || fail "user guide lacks #$anchor"
done
# The kestrova-cli page lists the program's own commands.
for cmd in update run demo; do
    grep -qx ".B $cmd" "$p/share/man/man1/kestrova-cli.1" || fail "kestrova-cli.1 lacks $cmd"
done
# The installed programs start from the prefix (no display needed for --help).
"$p/bin/kestrova" --help | grep -q '^Usage: kestrova' || fail "kestrova --help"
"$p/bin/kestrova-cli" --help | grep -q '^Usage: kestrova-cli' || fail "kestrova-cli --help"

(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/pkg" >/dev/null)
deb=$(ls "$work"/pkg/*.deb)
depends=$(dpkg-deb -f "$deb" Depends)
for dep in libqt6widgets6 libqt6core6 libcurl4 libqt6svg6 libsecret-1-0 tzdata ca-certificates; do
    grep -q "$dep" <<<"$depends" || fail "package does not depend on $dep: $depends"
done
contents=$(dpkg-deb -c "$deb")
for f in ./usr/bin/kestrova ./usr/bin/kestrova-cli ./usr/share/applications/$id.desktop \
         ./usr/share/doc/kestrova/user-guide.html; do
    grep -q " $f\$" <<<"$contents" || fail "package lacks $f"
done
echo "installed and packaged: $(basename "$deb")"
