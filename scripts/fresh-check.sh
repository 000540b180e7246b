#!/usr/bin/env bash
# Proves the README's two set-up commands on a machine that has nothing: builds a minimal
# Debian 12 root with mmdebstrap, copies the committed tree in (git archive, so a file that
# is only in the work tree cannot make it pass), and runs ./scripts/demo.sh and
# ./scripts/test.sh inside it with chroot, printing each one's wall time and result.
#
#   scripts/fresh-check.sh [--keep] [--only demo|test] [--root DIR]
#
# --keep leaves the root in place (its path is printed); --only runs one of the commands;
# --root picks where the root is built (default: a new folder under /var/tmp).
# Needs root, mmdebstrap and a reachable Debian mirror (the one apt uses here). It takes
# most of an hour on two cores, so it is run by hand before a change to the dependencies,
# scripts/ or the CMake files is resolved, not by CI.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD

keep=no
only=""
root=""
while [ $# -gt 0 ]; do
    case "$1" in
    --keep) keep=yes ;;
    --only)
        only=${2:?--only needs demo or test}
        shift
        ;;
    --root)
        root=${2:?--root needs a folder}
        shift
        ;;
    *)
        echo "usage: fresh-check.sh [--keep] [--only demo|test] [--root DIR]" >&2
        exit 2
        ;;
    esac
    shift
done
case "$only" in "" | demo | test) ;; *)
    echo "fresh-check: --only takes demo or test" >&2
    exit 2
    ;;
esac
[ "$(id -u)" = 0 ] || {
    echo "fresh-check: run as root (mmdebstrap, mount and chroot need it)" >&2
    exit 2
}
command -v mmdebstrap >/dev/null || {
    echo "fresh-check: mmdebstrap is missing (apt-get install mmdebstrap)" >&2
    exit 2
}

if [ -z "$root" ]; then
    root=$(mktemp -d /var/tmp/kestrova-fresh.XXXXXX)
    rmdir "$root" # mmdebstrap wants to create it
fi
root=$(realpath -m "$root")
[ ! -e "$root" ] || {
    echo "fresh-check: $root already exists" >&2
    exit 2
}

mounted=() # mount points inside the root, innermost last

# Everything that still runs inside the root (a test peer, a daemon a test left) keeps its
# mounts busy: end it before unmounting.
stop_root_processes() {
    local pid link
    for pid in /proc/[0-9]*; do
        link=$(readlink "$pid/root" 2>/dev/null) || continue
        case "$link" in "$root" | "$root"/*) kill -KILL "${pid#/proc/}" 2>/dev/null || true ;; esac
    done
}

unmount_all() {
    local i
    stop_root_processes
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
        umount "${mounted[i]}" 2>/dev/null || umount -l "${mounted[i]}" 2>/dev/null || true
    done
    mounted=()
}

# Nothing may be mounted below the root when it is removed: rm -rf through a bound /dev or
# /proc would reach the host's.
still_mounted() {
    awk -v r="$root" '$2 == r || index($2, r "/") == 1 { found = 1 } END { exit !found }' /proc/mounts
}

cleanup() {
    local rc=$?
    trap - EXIT INT TERM
    unmount_all
    if [ -d "$root" ]; then
        if still_mounted; then
            echo "fresh-check: something is still mounted below $root; left in place" >&2
        elif [ "$keep" = yes ]; then
            echo "fresh-check: root kept at $root"
        else
            rm -rf --one-file-system "$root"
        fi
    fi
    exit "$rc"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mount_in_root() { # TYPE-OR---bind SOURCE TARGET-INSIDE-ROOT
    local kind=$1 source=$2 target=$root$3
    mkdir -p "$target"
    if [ "$kind" = --bind ]; then
        mount --bind "$source" "$target"
    else
        mount -t "$kind" "$source" "$target"
    fi
    mounted+=("$target")
}

# The same mirror apt uses on this machine, else Debian's default.
mirror=()
for f in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
    if [ -f "$f" ] && grep -q 'deb.debian.org\|debian' "$f"; then
        mirror=("$f")
        break
    fi
done

echo "fresh-check: building a Debian 12 root in $root"
t0=$(date +%s)
mmdebstrap --variant=apt --quiet bookworm "$root" "${mirror[@]}"
echo "fresh-check: root built in $(($(date +%s) - t0)) s"
cp /etc/resolv.conf "$root/etc/resolv.conf"
grep -q localhost "$root/etc/hosts" 2>/dev/null || printf '127.0.0.1 localhost\n::1 localhost\n' >>"$root/etc/hosts"

# The committed tree, as a new user would clone it; the shared tools beside it when this
# checkout has them, so the test command's package guard runs too.
# The commit is read once: the checkout may move on while the check runs, and the summary
# must name what was tested.
tree=$(git -C "$src" rev-parse --short HEAD)
mkdir -p "$root/work/kestrova"
git -C "$src" archive --format=tar "$tree" | tar -x -C "$root/work/kestrova"
if [ -d "$src/../shared/tools" ]; then
    mkdir -p "$root/work/shared"
    cp -r "$src/../shared/tools" "$root/work/shared/"
fi
echo "fresh-check: copied $tree into the root"

mount_in_root proc proc /proc
mount_in_root --bind /dev /dev
mount_in_root --bind /dev/pts /dev/pts
mount_in_root tmpfs tmpfs /dev/shm

results=()
failed=0
run_in_root() { # NAME COMMAND
    local name=$1 cmd=$2 start rc
    echo "fresh-check: $name: $cmd"
    start=$(date +%s)
    set +e
    # In the background and waited for, so that a signal to this script is acted on at once
    # (bash keeps a trap waiting while a foreground command runs): the cleanup then stops
    # what runs in the root before it unmounts.
    (
        chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb LANG=C.UTF-8 \
            /bin/bash -c "cd /work/kestrova && $cmd" 2>&1 | sed "s/^/[$name] /"
        exit "${PIPESTATUS[0]}"
    ) &
    wait $!
    rc=$?
    set -e
    results+=("$(printf '%-5s %-20s %5d s  %s' "$name" "$cmd" $(($(date +%s) - start)) \
        "$([ "$rc" = 0 ] && echo passed || echo "FAILED (exit $rc)")")")
    [ "$rc" = 0 ] || failed=1
}

if [ "$only" != test ]; then run_in_root demo ./scripts/demo.sh; fi
if [ "$only" != demo ]; then run_in_root test ./scripts/test.sh; fi

echo
echo "fresh-check: Debian 12 root, tree $tree"
printf '  %s\n' "${results[@]}"
exit "$failed"
