#!/usr/bin/python3
"""The desktop program's start to its first paint, against a bare Qt Widgets window.

Usage: xvfb-run -a -s "-screen 0 1280x1000x24" bench/desktop_start.py BUILD_DIR [ROUNDS]

Each round starts, one after the other, `bench_desktop --start-only` (the main window with
the demo portfolio, built as the desktop program builds it) and `start_floor_widgets` (a
bare QApplication showing a main window with a 50 x 12 table) and times each from the
start of the process to its "ready" line, printed once the window is exposed and painted.
While each waits, the CPU time it has used (/proc/PID/task/*/schedstat) is read and the
shared libraries it has mapped are counted from /proc/PID/maps.
Target: the program's start within 1.3x the floor's, min and median over the rounds.
"""
import os
import statistics
import subprocess
import sys
import time

build = sys.argv[1] if len(sys.argv) > 1 else "build-release"
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 7


def cpu_ms(pid):
    """CPU time the process (all its threads) has used so far, from the scheduler's own count."""
    total = 0
    try:
        for task in os.listdir("/proc/%d/task" % pid):
            with open("/proc/%d/task/%s/schedstat" % (pid, task)) as f:
                total += int(f.read().split()[0])
    except OSError:
        pass
    return total / 1e6


def libraries(pid):
    with open("/proc/%d/maps" % pid) as f:
        return {line.split()[-1] for line in f if ".so" in line.split()[-1]}


def start(argv):
    t0 = time.perf_counter()
    p = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    line = p.stdout.readline()
    ms = (time.perf_counter() - t0) * 1000
    cpu = cpu_ms(p.pid)
    assert line.strip() == b"ready", (argv, line)
    libs = libraries(p.pid)
    p.stdin.close()
    p.wait(30)
    return ms, cpu, libs


kinds = {
    "program": [os.path.join(build, "bench/bench_desktop"), "--start-only"],
    "floor": [os.path.join(build, "bench/start_floor_widgets")],
}
times = {k: [] for k in kinds}
cpus = {k: [] for k in kinds}
libs = {}
start(kinds["floor"])  # the first start of all reads the libraries from disk
for r in range(rounds):
    for k, argv in kinds.items():
        ms, cpu, libs[k] = start(argv)
        times[k].append(ms)
        cpus[k].append(cpu)
ratios = [p / f for p, f in zip(times["program"], times["floor"])]
cpu_ratios = [p / f for p, f in zip(cpus["program"], cpus["floor"])]
for k in kinds:
    print("%-8s start to first paint: min %.1f ms, median %.1f ms (CPU %.1f/%.1f ms); %d shared libraries mapped"
          % (k, min(times[k]), statistics.median(times[k]), min(cpus[k]), statistics.median(cpus[k]), len(libs[k])))
print("program / floor (same round): min %.2f, median %.2f over %d rounds (target <= 1.3); CPU: min %.2f, median %.2f"
      % (min(ratios), statistics.median(ratios), rounds, min(cpu_ratios), statistics.median(cpu_ratios)))
print("ratio of the medians: %.2f" % (statistics.median(times["program"]) / statistics.median(times["floor"])))
extra = sorted(os.path.basename(l) for l in libs["program"] - libs["floor"])
print("mapped by the program and not by the floor (%d): %s" % (len(extra), " ".join(extra)))
