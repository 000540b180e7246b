#!/usr/bin/env bash
# Installs what Kestrova needs to build, run and test on Debian 12 (as root or via sudo).
set -euo pipefail
SUDO=""
if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
pkgs=(build-essential cmake ninja-build pkg-config qt6-base-dev qt6-serialport-dev libcurl4-openssl-dev
      qt6-charts-dev qt6-svg-dev libqt6svg6 libqt6sql6-sqlite qt6-qpa-plugins cmark)
if [ "${1:-}" = "--test" ]; then
    # Real peers for the tests: POP3, SMTP, NetworkManager on a private bus, pty pairs.
    # Desktop checks: Xvfb for screenshots, the .desktop, AppStream and MIME (xmllint)
    # validators, dpkg-dev for cpack -G DEB. Fuzzing:
    # clang with its libFuzzer runtime. HTTP/2 peer: hypercorn / nghttpd.
    pkgs+=(libbenchmark-dev dovecot-pop3d python3-aiosmtpd python3-dbusmock socat dbus openssl xvfb xauth
           desktop-file-utils appstream libxml2-utils dpkg-dev clang libclang-rt-14-dev python3-hypercorn nghttp2-server ccache)
fi
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
