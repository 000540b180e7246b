#!/usr/bin/env bash
# Installs what Kestrova needs to build, run and test on Debian 12 (as root or via sudo).
#
#   scripts/install-deps.sh [--list] [--test]
#
# --test adds what the tests, benchmarks and fuzz pass need. --list prints the package list
# one a line and installs nothing (the test command hands it to check-deps, which fails
# when the configured build uses a file no listed package brings).
#
# Installs go with --no-install-recommends, so every package the build finds must be named
# here or be a hard dependency of one named: a package that only came as a recommendation
# on the machine where it was tried is missing on the next one.
set -euo pipefail
list=no
test=no
for arg in "$@"; do
    case "$arg" in
    --list) list=yes ;;
    --test) test=yes ;;
    *)
        echo "usage: install-deps.sh [--list] [--test]" >&2
        exit 2
        ;;
    esac
done

# Build: the tool chain, Qt (Charts needs Qt6OpenGL's CMake package, which qt6-base-dev only
# recommends), libcurl, SQLite's headers (the history reads through the driver's own
# handle), cmark for the user guide's HTML, QtKeychain for the desktop's secret service and
# libsecret, which QtKeychain loads when it runs (no package depends on it). What the
# programs read at run time and no library pulls in on a minimal system: the time zone data
# (market hours are New York time, history times are local) and the CA bundle every https
# fetch and TLS mail connection verifies against.
pkgs=(build-essential cmake ninja-build pkg-config qt6-base-dev libqt6opengl6-dev qt6-serialport-dev
      libcurl4-openssl-dev qt6-charts-dev qt6-svg-dev libqt6svg6 libqt6sql6-sqlite libsqlite3-dev qt6-qpa-plugins
      cmark qtkeychain-qt6-dev libsecret-1-0 tzdata ca-certificates)
if [ "$test" = yes ]; then
    # Real peers for the tests: POP3, SMTP, NetworkManager and a GNOME keyring on a private
    # bus (secret-tool looks into the keyring from outside), pty pairs.
    # Desktop checks: Xvfb for screenshots and xprop for the window titles it shows, the
    # .desktop, AppStream and MIME (xmllint) validators, dpkg-dev and file for cpack -G DEB.
    # Benchmarks: Google Benchmark. Fuzzing: clang with its libFuzzer runtime. HTTP/2 peer:
    # hypercorn / nghttpd. sqlite3: the baseline of the history listing's bench.
    pkgs+=(libbenchmark-dev dovecot-pop3d python3-aiosmtpd python3-dbusmock socat dbus openssl xvfb xauth x11-utils
           desktop-file-utils appstream libxml2-utils dpkg-dev file clang libclang-rt-14-dev python3-hypercorn
           nghttp2-server ccache gnome-keyring libsecret-tools sqlite3)
fi

if [ "$list" = yes ]; then
    printf '%s\n' "${pkgs[@]}"
    exit 0
fi

SUDO=""
if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
missing=()
for p in "${pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
    $SUDO apt-get update -qq
    # Debian's policy-rc.d in containers refuses to start services; the tests start
    # their own dovecot on a free port, so the packaged service is not needed.
    $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
