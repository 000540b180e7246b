#!/usr/bin/python3
"""A loopback web server that fails in one way, for the fault matrix and the page-size bench.

Usage: http_fault_peer.py PORT MODE [--tls CERT KEY]

MODE "reset": reads the request, then resets the connection (RST, no answer).
MODE "500": answers every request with "500 Internal Server Error".
MODE "empty": reads the request and closes the connection without a reply.
MODE "hang": reads the request and never answers.
MODE "slow": answers one byte a second, for ever.
MODE "huge": a 50 MB page without a stated length, as fast as the client reads it.
MODE "echo": answers "400" with the JSON {"error": "bad request PATH"}, PATH as asked
(a service that quotes the request back, key and all).
MODE "redirect:URL": answers "302 Found" with Location: URL to every request.
With --tls the server speaks HTTPS with the given certificate and key.
Prints "READY" once listening; serves until its standard input closes.
"""
import json
import socket
import ssl
import struct
import sys
import threading
import time

HUGE = 50 * 1024 * 1024


def read_request(conn):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(4096)
        if not chunk:
            return None
        data += chunk
    return data


def serve(conn, mode):
    try:
        head = read_request(conn)
        if head is None:
            return
        if mode == "echo":
            path = head.split(b"\r\n", 1)[0].split(b" ")[1].decode("latin-1")
            body = json.dumps({"error": "bad request " + path}).encode()
            conn.sendall(b"HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\n"
                         b"Content-Length: %d\r\nConnection: close\r\n\r\n" % len(body) + body)
        elif mode.startswith("redirect:"):
            conn.sendall(b"HTTP/1.1 302 Found\r\nLocation: " + mode[9:].encode() +
                         b"\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
        elif mode == "reset":
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        elif mode == "500":
            body = b"<html><body>Internal Server Error</body></html>"
            conn.sendall(b"HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/html\r\n"
                         b"Content-Length: %d\r\nConnection: close\r\n\r\n" % len(body) + body)
        elif mode == "hang":
            while conn.recv(4096):
                pass
        elif mode == "slow":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\n\r\n")
            while True:
                conn.sendall(b"x")
                time.sleep(1)
        elif mode == "huge":
            conn.sendall(b"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n\r\n")
            block = b"<td>" + b"9" * 1020
            for _ in range(HUGE // len(block)):
                conn.sendall(block)
    except OSError:
        pass
    finally:
        conn.close()


def main():
    port = int(sys.argv[1])
    mode = sys.argv[2]
    srv = socket.socket()
    srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    srv.bind(("127.0.0.1", port))
    srv.listen(16)
    tls = None
    if "--tls" in sys.argv:
        i = sys.argv.index("--tls")
        tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        tls.load_cert_chain(sys.argv[i + 1], sys.argv[i + 2])

    def handshake_and_serve(conn):
        if tls is not None:
            try:
                conn = tls.wrap_socket(conn, server_side=True)
            except (OSError, ssl.SSLError):
                conn.close()
                return
        serve(conn, mode)

    def accept():
        while True:
            conn, _ = srv.accept()
            threading.Thread(target=handshake_and_serve, args=(conn,), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    print("READY", flush=True)
    sys.stdin.read()


if __name__ == "__main__":
    main()
