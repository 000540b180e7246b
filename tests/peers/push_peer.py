#!/usr/bin/python3
"""A loopback push server (ntfy topic or JSON webhook) for the tests.

Usage: push_peer.py PORT OUTDIR MODE

MODE is "accept" (200 to every request), "fail" (500 to every request) or "hang" (reads
the request, then never answers). Each request is written to OUTDIR/request-N.json as
{"method", "path", "headers": {name: value}, "body"}, N counting from 1, before any answer.
"READY" is printed once the server listens; the server stops when its standard input closes.
"""
import json
import os
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer


def main():
    port = int(sys.argv[1])
    outdir = sys.argv[2]
    mode = sys.argv[3]
    lock = threading.Lock()
    count = [0]

    class Handler(BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_POST(self):
            length = int(self.headers.get("Content-Length", "0"))
            body = self.rfile.read(length)
            with lock:
                count[0] += 1
                n = count[0]
            record = {
                "method": self.command,
                "path": self.path,
                "headers": {k: v for k, v in self.headers.items()},
                "body": body.decode("utf-8", "replace"),
            }
            path = os.path.join(outdir, "request-%d.json" % n)
            with open(path + ".part", "w") as f:
                json.dump(record, f)
            os.rename(path + ".part", path)
            if mode == "hang":
                time.sleep(3600)
                return
            status = 500 if mode == "fail" else 200
            reply = b'{"id":"%d"}' % n
            self.send_response(status)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(reply)))
            self.end_headers()
            self.wfile.write(reply)

        def log_message(self, *args):
            pass

    server = ThreadingHTTPServer(("127.0.0.1", port), Handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print("READY", flush=True)
    sys.stdin.read()
    os._exit(0)


if __name__ == "__main__":
    main()
