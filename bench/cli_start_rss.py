#!/usr/bin/python3
"""Headless start-up time against a bare Qt Core program, and the peak memory of one update.

Usage: bench/cli_start_rss.py BUILD_DIR [ROUNDS]

Starts the demo market on a free loopback port (answering after 300 ms, so that an update
is still running while it is looked at) and prepares a throw-away data folder with the demo
portfolio pointed at it: paging off, the market summary and every server file on the
loopback market, and the source order pinned to servers.dat, since the shipped order would
ask quote sources on the Internet first. Then, ROUNDS times (default 7), one after the other:
  - start_floor_core, a bare QCoreApplication, timed from the start of the process to the
    line it prints;
  - `kestrova-cli update`, timed to its first status line ("Kestrova started on") and to the
    first status line after the portfolio, the settings and the server files are read
    ("Internet: Connection established..."), then cancelled with SIGTERM.
While each runs, the CPU time it has used so far (/proc/PID/task/*/schedstat, which the
machine's load does not stretch as it does wall time) is read and the shared libraries it
has mapped are counted from /proc/PID/maps.
Last, one whole `kestrova-cli update` under /usr/bin/time -v gives the peak resident set.
Targets: the start to the status line after the files are read within 1.5x the floor's
(min and median over the rounds); update peak RSS under 30 MB.
"""
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

build = sys.argv[1] if len(sys.argv) > 1 else "build-release"
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 7
cli = os.path.join(build, "src/cli/kestrova-cli")
floor = os.path.join(build, "bench/start_floor_core")
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

with socket.socket() as s:
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]

home = tempfile.mkdtemp(prefix="kestrova-bench-")
env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(home, "config"))
data = os.path.join(home, "data")
pgr = os.path.join(home, "demo.pgr")
shutil.copy(os.path.join(root, "data/demo.pgr"), pgr)
market = subprocess.Popen([cli, "--data-dir", data, "demo-market", "--port", str(port), "--retarget",
                           "--latency-ms", "300"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env)


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
    try:
        with open("/proc/%d/maps" % pid) as f:
            return {line.split()[-1] for line in f if ".so" in line.split()[-1]}
    except OSError:
        return set()


def cli_run(*args):
    r = subprocess.run([cli, "--data-dir", data, "--portfolio", pgr, *args], env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert r.returncode == 0, r.stderr
    return r


def time_floor():
    t0 = time.perf_counter()
    p = subprocess.Popen([floor], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    line = p.stdout.readline()
    ms = (time.perf_counter() - t0) * 1000
    cpu = cpu_ms(p.pid)
    assert line.strip() == b"ready", line
    libs = libraries(p.pid)
    p.stdin.close()
    p.wait(10)
    return ms, cpu, libs


def time_update():
    t0 = time.perf_counter()
    p = subprocess.Popen([cli, "--data-dir", data, "--portfolio", pgr, "update"], env=env,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    first = p.stdout.readline()
    t_first = (time.perf_counter() - t0) * 1000
    second = p.stdout.readline()
    t_read = (time.perf_counter() - t0) * 1000
    cpu = cpu_ms(p.pid)
    libs = libraries(p.pid)
    p.send_signal(signal.SIGTERM)
    p.wait(10)
    assert b"Kestrova started on" in first, first
    assert b"Internet: Connection established..." in second, second
    return t_first, t_read, cpu, libs


try:
    market.stdout.readline()  # "demo-market: listening on ..."
    cli_run("options", "set", "paging.enabled", "false")
    cli_run("options", "set", "quotes.market_url", "http://127.0.0.1:%d/cgi-bin/getquote.dll?ticker=csco" % port)
    cli_run("options", "set", "sources.order", "servers.dat")

    time_floor()  # the first start of all reads the libraries from disk
    floors, firsts, reads, floor_cpus, cli_cpus = [], [], [], [], []
    floor_libs = cli_libs = set()
    for _ in range(rounds):
        ms, cpu, floor_libs = time_floor()
        floors.append(ms)
        floor_cpus.append(cpu)
        t_first, t_read, cpu, cli_libs = time_update()
        firsts.append(t_first)
        reads.append(t_read)
        cli_cpus.append(cpu)
    ratios = [r / f for r, f in zip(reads, floors)]
    cpu_ratios = [c / f for c, f in zip(cli_cpus, floor_cpus)]
    print("bare QCoreApplication to its line: min %.1f ms, median %.1f ms (CPU %.1f/%.1f ms); %d shared libraries"
          % (min(floors), statistics.median(floors), min(floor_cpus), statistics.median(floor_cpus), len(floor_libs)))
    print("kestrova-cli update to its first status line: min %.1f ms, median %.1f ms"
          % (min(firsts), statistics.median(firsts)))
    print("kestrova-cli update to the status line after the files are read: min %.1f ms, median %.1f ms "
          "(CPU %.1f/%.1f ms); %d shared libraries"
          % (min(reads), statistics.median(reads), min(cli_cpus), statistics.median(cli_cpus), len(cli_libs)))
    print("after the files are read / floor (same round): min %.2f, median %.2f over %d rounds (target <= 1.5); "
          "CPU to that point / floor's: min %.2f, median %.2f"
          % (min(ratios), statistics.median(ratios), rounds, min(cpu_ratios), statistics.median(cpu_ratios)))
    extra = sorted(os.path.basename(l) for l in cli_libs - floor_libs)
    print("mapped by kestrova-cli and not by the floor (%d): %s" % (len(extra), " ".join(extra)))

    r = subprocess.run(["/usr/bin/time", "-v", cli, "--data-dir", data, "--portfolio", pgr, "update"], env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    rss = int(re.search(rb"Maximum resident set size \(kbytes\): (\d+)", r.stderr).group(1))
    with open(os.path.join(data, "activity.txt"), "rb") as f:
        log = f.read()
    got = log.rfind(b"Internet: Quotes Retrieved") > log.rfind(b"Internet: Connection established...")
    print("kestrova-cli update: peak RSS %.1f MB (target < 30 MB), quotes retrieved: %s, exit %d"
          % (rss / 1024.0, "yes" if got else "no", r.returncode))
finally:
    market.send_signal(signal.SIGTERM)
    market.wait(10)
    shutil.rmtree(home, ignore_errors=True)
