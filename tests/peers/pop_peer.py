#!/usr/bin/python3
"""A tiny scripted POP3 server for faults Dovecot will not produce.

Usage: pop_peer.py PORT MODE

MODE "octets": two messages; TOP and RETR answer "+OK <size> octets" as older servers do.
MODE "hangup": the connection is dropped in the middle of the first TOP reply.
MODE "silent": greets, then never answers.
Prints "READY" once listening; serves one connection, then exits.
"""
import socket
import sys

MESSAGES = [
    b"From: Dana Lee <dana@example.test>\r\nSubject: Margin Call\r\nDate: Tue, 24 Nov 2026 08:00:00 +0000\r\n"
    b"Message-ID: <p1@example.test>\r\n\r\nCall me.\r\n",
    b"From: eve@example.test\r\nSubject: Hi\r\nDate: Tue, 24 Nov 2026 08:05:00 +0000\r\n"
    b"Message-ID: <p2@example.test>\r\n\r\nHello.\r\n",
]


def headers(msg):
    return msg[: msg.index(b"\r\n\r\n") + 4]


def main():
    port = int(sys.argv[1])
    mode = sys.argv[2]
    srv = socket.socket()
    srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    srv.bind(("127.0.0.1", port))
    srv.listen(1)
    print("READY", flush=True)
    conn, _ = srv.accept()
    f = conn.makefile("rb")
    conn.sendall(b"+OK scripted ready\r\n")
    for line in f:
        if mode == "silent":
            continue
        cmd = line.strip().split(b" ")
        verb = cmd[0].upper()
        if verb in (b"USER", b"PASS"):
            conn.sendall(b"+OK\r\n")
        elif verb == b"STAT":
            conn.sendall(b"+OK %d %d\r\n" % (len(MESSAGES), sum(len(m) for m in MESSAGES)))
        elif verb == b"TOP":
            msg = MESSAGES[int(cmd[1]) - 1]
            if mode == "hangup":
                conn.sendall(b"+OK %d octets\r\nFrom: Dana" % len(msg))
                conn.close()
                return
            conn.sendall(b"+OK %d octets\r\n" % len(msg) + headers(msg) + b".\r\n")
        elif verb == b"RETR":
            msg = MESSAGES[int(cmd[1]) - 1]
            conn.sendall(b"+OK %d octets\r\n" % len(msg) + msg + b".\r\n")
        elif verb == b"LIST":
            conn.sendall(b"-ERR not expected here\r\n")
        elif verb == b"QUIT":
            conn.sendall(b"+OK bye\r\n")
            conn.close()
            return
        else:
            conn.sendall(b"-ERR unknown\r\n")


if __name__ == "__main__":
    main()
