#!/usr/bin/python3
"""Headless start-up time and the peak memory of one update.

Usage: bench/cli_start_rss.py BUILD_DIR [RUNS]

Starts the demo market on a free loopback port, prepares a throw-away data folder with the
demo portfolio pointed at it (paging off, so no modem is needed), then
  - starts `kestrova-cli run` RUNS times and measures the time from exec to the first status
    line on its standard output ("Kestrova started on"), and
  - runs `kestrova-cli update` under /usr/bin/time -v and reads its peak resident set size.
Targets: start to first status line under 50 ms, update peak RSS under 30 MB.
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
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 10
cli = os.path.join(build, "src/cli/kestrova-cli")
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

with socket.socket() as s:
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]

home = tempfile.mkdtemp(prefix="kestrova-bench-")
env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(home, "config"))
data = os.path.join(home, "data")
pgr = os.path.join(home, "demo.pgr")
shutil.copy(os.path.join(root, "data/demo.pgr"), pgr)
market = subprocess.Popen([cli, "--data-dir", data, "demo-market", "--port", str(port), "--retarget"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env)
try:
    market.stdout.readline()  # "demo-market: listening on ..."

    def cli_run(*args, **kw):
        return subprocess.run([cli, "--data-dir", data, "--portfolio", pgr, *args], env=env,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kw)

    cli_run("options", "set", "paging.enabled", "false")
    cli_run("options", "set", "quotes.market_url", "http://127.0.0.1:%d/cgi-bin/getquote.dll?ticker=csco" % port)

    starts = []
    for _ in range(runs):
        t0 = time.perf_counter()
        p = subprocess.Popen([cli, "--data-dir", data, "--portfolio", pgr, "run"], env=env,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = p.stdout.readline()
        starts.append((time.perf_counter() - t0) * 1000)
        p.send_signal(signal.SIGTERM)
        p.wait(10)
        assert b"Kestrova started on" in line, line
    print("start to first status line: median %.1f ms, min %.1f ms, max %.1f ms over %d runs (target < 50 ms)"
          % (statistics.median(starts), min(starts), max(starts), runs))

    r = subprocess.run(["/usr/bin/time", "-v", cli, "--data-dir", data, "--portfolio", pgr, "update"], env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    rss = int(re.search(rb"Maximum resident set size \(kbytes\): (\d+)", r.stderr).group(1))
    with open(os.path.join(data, "activity.txt"), "rb") as f:
        got = f.read().count(b"Internet: Quotes Retrieved")
    print("kestrova-cli update: peak RSS %.1f MB (target < 30 MB), quotes retrieved: %s"
          % (rss / 1024.0, "yes" if got else "no"))
finally:
    market.send_signal(signal.SIGTERM)
    market.wait(10)
    shutil.rmtree(home, ignore_errors=True)
