#!/usr/bin/python3
"""Peak memory of `kestrova-cli quotes` against a 50 MB answer.

Usage: bench/huge_page_rss.py BUILD_DIR

Prepares a throw-away data folder whose demo-market quote service points at a loopback
peer (tests/peers/http_fault_peer.py huge) that answers every request with a 50 MB page
without a stated length, then runs `kestrova-cli quotes` for one ticker under
/usr/bin/time -v: once with the default page cap (prefs.max_page_kb, 4096) and once with
the cap raised to 100 MB, which reads the whole answer. Prints peak RSS and the error line.
Target: with the cap, peak RSS stays near an ordinary update's (< 30 MB).
"""
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

build = sys.argv[1] if len(sys.argv) > 1 else "build-release"
cli = os.path.join(build, "src/cli/kestrova-cli")
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

with socket.socket() as s:
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]

home = tempfile.mkdtemp(prefix="kestrova-bench-")
env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(home, "config"))
data = os.path.join(home, "data")
pgr = os.path.join(home, "one.pgr")
shutil.copy(os.path.join(root, "data/demo.pgr"), pgr)


def cli_run(*args):
    return subprocess.run([cli, "--data-dir", data, "--portfolio", pgr, *args], env=env,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


# The demo market only writes the retargeted server files; the fault peer then takes its port.
market = subprocess.Popen([cli, "--data-dir", data, "demo-market", "--port", str(port), "--retarget"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env)
market.stdout.readline()
market.send_signal(signal.SIGTERM)
market.wait(10)
peer = subprocess.Popen([sys.executable, os.path.join(root, "tests/peers/http_fault_peer.py"), str(port), "huge"],
                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=env)
try:
    peer.stdout.readline()  # READY
    cli_run("options", "set", "quotes.market_summary", "false")
    # The peer alone: the shipped failure order would ask sources on the Internet first.
    cli_run("options", "set", "sources.order", "servers.dat")
    listed = cli_run("portfolio", "show").stdout.decode().split("\n")
    tickers = [l[5:18].strip() for l in listed[1:] if l.strip()]  # the Ticker column
    for t in tickers[1:]:
        r = cli_run("portfolio", "remove", t)
        assert r.returncode == 0, r.stderr
    for cap in (None, 102400):
        if cap:
            cli_run("options", "set", "prefs.max_page_kb", str(cap))
        r = subprocess.run(["/usr/bin/time", "-v", cli, "--data-dir", data, "--portfolio", pgr, "quotes"], env=env,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        rss = int(re.search(rb"Maximum resident set size \(kbytes\): (\d+)", r.stderr).group(1))
        said = [l for l in r.stderr.decode(errors="replace").split("\n") if l.startswith("kestrova-cli:")]
        print("cap %s: peak RSS %.1f MB, exit %d, %s" % ("%d KB" % cap if cap else "default", rss / 1024.0,
                                                          r.returncode, said[0] if said else "no error line"))
finally:
    peer.stdin.close()
    peer.wait(10)
    shutil.rmtree(home, ignore_errors=True)
