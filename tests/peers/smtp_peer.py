#!/usr/bin/python3
"""A loopback SMTP server for the tests, built on aiosmtpd.

Usage: smtp_peer.py PORT OUTDIR MODE [--tls CERT KEY] [--auth FILE]

MODE is "accept", "refuse" (every mail gets 550), "refuse-first" (only the first
mail is refused), "defer-first" (the first mail gets 451, a try-again) or "drop-data"
(the connection is dropped once the mail's text has come, before any reply). Each accepted mail is written raw to OUTDIR/mail-N.eml, N counting
from 1. With --auth the log-on is required; FILE holds the user name on its first line
and the password on its second (never on the command line). "READY" is printed once the
server listens; the server stops when its standard input closes.
"""
import os
import ssl
import sys

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword


class Handler:
    def __init__(self, outdir, mode):
        self.outdir = outdir
        self.mode = mode
        self.attempts = 0
        self.saved = 0

    async def handle_DATA(self, server, session, envelope):
        self.attempts += 1
        if self.mode == "drop-data":
            server.transport.close()
            return "250 OK"
        if self.mode == "defer-first" and self.attempts == 1:
            return "451 Greylisted, try again later"
        if self.mode == "refuse" or (self.mode == "refuse-first" and self.attempts == 1):
            return "550 Mailbox unavailable"
        self.saved += 1
        path = os.path.join(self.outdir, "mail-%d.eml" % self.saved)
        with open(path + ".part", "wb") as f:
            f.write(envelope.original_content)
        os.rename(path + ".part", path)
        return "250 OK"


def main():
    port = int(sys.argv[1])
    outdir = sys.argv[2]
    mode = sys.argv[3]
    rest = sys.argv[4:]
    kwargs = {}
    if "--tls" in rest:
        i = rest.index("--tls")
        ctx = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        ctx.load_cert_chain(rest[i + 1], rest[i + 2])
        kwargs["tls_context"] = ctx
        kwargs["require_starttls"] = True
    if "--auth" in rest:
        i = rest.index("--auth")
        with open(rest[i + 1], "rb") as f:
            lines = f.read().split(b"\n")
        user, password = lines[0], lines[1]

        def authenticator(server, session, envelope, mechanism, auth_data):
            ok = isinstance(auth_data, LoginPassword) and auth_data.login == user and auth_data.password == password
            return AuthResult(success=ok, handled=False)

        kwargs["authenticator"] = authenticator
        kwargs["auth_required"] = True
        kwargs["auth_require_tls"] = "--tls" in rest
    handler = Handler(outdir, mode)
    controller = Controller(handler, hostname="127.0.0.1", port=port, **kwargs)
    controller.start()
    print("READY", flush=True)
    try:
        sys.stdin.read()
    finally:
        controller.stop()


if __name__ == "__main__":
    main()
