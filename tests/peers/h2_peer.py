#!/usr/bin/python3
"""A quote-page server that speaks HTTP/2 over TLS (and HTTP/1.1 to clients that do not
offer h2), for the tests and the benchmarks: Debian's hypercorn with a small ASGI app.

    h2_peer.py --port N --cert FILE --key FILE [--latency-ms M] [--http1-close]

--http1-close plays an old server over TLS instead: HTTP/1.1 only, and every connection is
closed after its answer.

  /stock?t=TICKER   a stock page in the Demo Market layout, answered after the latency
  /stats            JSON: connections seen, requests answered, the most waiting for their
                    answer at once, HTTP versions used

Prints "ready" on standard output once it accepts connections.
"""
import argparse
import asyncio
import json
import socket
import sys
import zlib
from urllib.parse import parse_qs

from hypercorn.asyncio import serve
from hypercorn.config import Config

STATE = {"clients": set(), "requests": 0, "versions": set(), "in_flight": 0, "max_in_flight": 0}
ARGS = None


def stock_page(ticker):
    # A price that depends only on the ticker, in the cells the Demo Market definition reads.
    base = 10 + (zlib.crc32(ticker.encode()) % 19000) / 100.0
    rows = [
        ("Name:", "Demo %s Corp" % ticker),
        ("Last Trade:", "%.2f" % base),
        ("Change:", "+0.25"),
        ("Pct Change:", "+%.2f%%" % (25.0 / base)),
        ("Volume: 120000 shares", ""),
        ("Bid:", "%.2f" % (base - 0.05)),
        ("Ask:", "%.2f" % (base + 0.05)),
        ("Open:", "%.2f" % (base - 0.5)),
        ("Prev Close:", "%.2f" % (base - 0.25)),
        ("Day High:", "%.2f" % (base + 1)),
        ("Day Low:", "%.2f" % (base - 1)),
        ("Updated:", "11/23/2026 @ 10:00AM ET"),
    ]
    cells = "".join("<tr><td>%s</td><td>%s</td></tr>\r\n" % r for r in rows)
    return ("<html><head><title>%s</title></head>\r\n<body><table class=quote>\r\n%s</table></body></html>\r\n"
            % (ticker, cells)).encode()


async def app(scope, receive, send):
    if scope["type"] == "lifespan":
        while True:
            message = await receive()
            if message["type"] == "lifespan.startup":
                asyncio.get_running_loop().create_task(announce_when_listening())
                await send({"type": "lifespan.startup.complete"})
            elif message["type"] == "lifespan.shutdown":
                await send({"type": "lifespan.shutdown.complete"})
                return
    if scope["type"] != "http":
        return
    STATE["clients"].add(tuple(scope.get("client") or ()))
    STATE["versions"].add(scope.get("http_version", "?"))
    if scope["path"] == "/stats":
        body = json.dumps({"connections": len(STATE["clients"]), "requests": STATE["requests"],
                           "max_in_flight": STATE["max_in_flight"], "versions": sorted(STATE["versions"])}).encode()
        kind = b"application/json"
    else:
        query = parse_qs(scope.get("query_string", b"").decode())
        ticker = query.get("t", ["X"])[0].upper()
        STATE["in_flight"] += 1
        STATE["max_in_flight"] = max(STATE["max_in_flight"], STATE["in_flight"])
        try:
            await asyncio.sleep(ARGS.latency_ms / 1000.0)
        finally:
            STATE["in_flight"] -= 1
        STATE["requests"] += 1
        body = stock_page(ticker)
        kind = b"text/html; charset=utf-8"
    headers = [(b"content-type", kind), (b"content-length", str(len(body)).encode())]
    if ARGS.http1_close:
        headers.append((b"connection", b"close"))
    await send({"type": "http.response.start", "status": 200, "headers": headers})
    await send({"type": "http.response.body", "body": body})


async def announce_when_listening():
    while True:
        try:
            with socket.create_connection(("127.0.0.1", ARGS.port), timeout=1):
                break
        except OSError:
            await asyncio.sleep(0.05)
    print("ready", flush=True)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--cert", required=True)
    parser.add_argument("--key", required=True)
    parser.add_argument("--latency-ms", type=int, default=0)
    parser.add_argument("--http1-close", action="store_true")
    ARGS = parser.parse_args()
    config = Config()
    # A listening socket of our own with Nagle off (accepted sockets inherit it): otherwise a
    # response's body waits for the client's delayed acknowledgement of its headers, some
    # 40 ms a request on loopback.
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    listener.bind(("127.0.0.1", ARGS.port))
    listener.set_inheritable(True)
    config.bind = ["fd://%d" % listener.fileno()]
    config.certfile = ARGS.cert
    config.keyfile = ARGS.key
    config.alpn_protocols = ["http/1.1"] if ARGS.http1_close else ["h2", "http/1.1"]
    config.accesslog = None
    config.errorlog = "-"
    # Many streams on one connection: the default would do, but say so.
    config.h2_max_concurrent_streams = 100
    config.keep_alive_timeout = 60
    asyncio.run(serve(app, config))


if __name__ == "__main__":
    sys.exit(main())
