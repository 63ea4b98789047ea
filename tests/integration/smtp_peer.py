"""A real SMTP server for the send-mail tests (aiosmtpd, Debian's python3-aiosmtpd): run with
/usr/bin/python3. Every message goes to DIR/<n>.eml (what DATA carried) with DIR/<n>.env (the
envelope: sender, recipients, whether TLS was on). Prints READY once it listens.
    smtp_peer.py DIR PORT [--auth USER:PASSWORD] [--starttls CERT KEY] [--implicit CERT KEY]"""
import argparse
import itertools
import json
import os
import ssl
import time

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword

parser = argparse.ArgumentParser()
parser.add_argument("dir")
parser.add_argument("port", type=int)
parser.add_argument("--auth")
parser.add_argument("--starttls", nargs=2)
parser.add_argument("--implicit", nargs=2)
args = parser.parse_args()
# A restarted server goes on numbering after what the one before it stored.
counter = itertools.count(len([n for n in os.listdir(args.dir) if n.endswith(".eml")]) + 1)


class Store:
    async def handle_DATA(self, server, session, envelope):
        n = next(counter)
        with open(os.path.join(args.dir, "%d.eml.part" % n), "wb") as f:
            f.write(envelope.original_content)
        with open(os.path.join(args.dir, "%d.env" % n), "w") as f:
            json.dump({"from": envelope.mail_from, "to": envelope.rcpt_tos,
                       "tls": session.ssl is not None or bool(args.implicit)}, f)
        os.rename(os.path.join(args.dir, "%d.eml.part" % n), os.path.join(args.dir, "%d.eml" % n))
        return "250 OK"


def authenticator(server, session, envelope, mechanism, data):
    user, password = args.auth.encode().split(b":", 1)
    ok = isinstance(data, LoginPassword) and data.login == user and data.password == password
    return AuthResult(success=ok)


def context(cert, key):
    c = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    c.load_cert_chain(cert, key)
    return c


options = {"hostname": "127.0.0.1", "port": args.port}
if args.auth:
    options.update(authenticator=authenticator, auth_required=True,
                   auth_require_tls=bool(args.starttls))
if args.starttls:
    options.update(tls_context=context(*args.starttls), require_starttls=True)
if args.implicit:
    options.update(ssl_context=context(*args.implicit))
controller = Controller(Store(), **options)
controller.start()
print("READY", flush=True)
try:
    while True:
        time.sleep(3600)
finally:
    controller.stop()
