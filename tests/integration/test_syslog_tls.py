"""Syslog over TLS end to end: vtagent -r with a TLS listener fed by Python's TLS client and by
rsyslogd's OpenSSL driver, forwarding over TLS to rsyslogd; hostile peers (plain text, wrong CA,
expired certificate, a stalled handshake) refused while the listener goes on. Certificates are
made by the test with the openssl tool."""
import os
import socket
import ssl
import subprocess
import time
import unittest

import test_forward_syslog as forwarding
from test_modern_syslog import start_relay
from test_service_host import ROOT, file_lines, services, write_file_rules
from test_syslog import SyslogAgent, free_port

RSYSLOGD = forwarding.RSYSLOGD
OSSL_DRIVER = "/usr/lib/x86_64-linux-gnu/rsyslog/lmnsd_ossl.so"
RULES = ROOT + "\\RuleSets"


def make_pki(dir):
    """A CA with a server certificate (localhost, 127.0.0.1), a client certificate, an expired
    client certificate, and a second CA with a client certificate of its own. Returns a dict of
    paths: ca, server, server_key, client, client_key, expired, expired_key, stranger,
    stranger_key."""
    run = lambda *a: subprocess.run(["openssl", *a], check=True, capture_output=True, cwd=dir)
    ext = os.path.join(dir, "san.cnf")
    with open(ext, "w") as f:
        f.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
    for ca in ("ca", "other"):
        run("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=" + ca,
            "-keyout", ca + ".key", "-out", ca + ".pem")
    paths = {"ca": os.path.join(dir, "ca.pem")}
    for name, ca, days in (("server", "ca", "2"), ("client", "ca", "2"), ("expired", "ca", "-1"),
                           ("stranger", "other", "2")):
        run("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-keyout",
            name + ".key", "-out", name + ".csr")
        run("x509", "-req", "-in", name + ".csr", "-CA", ca + ".pem", "-CAkey", ca + ".key",
            "-CAcreateserial", "-days", days, "-extfile", ext, "-out", name + ".pem")
        paths[name] = os.path.join(dir, name + ".pem")
        paths[name + "_key"] = os.path.join(dir, name + ".key")
    return paths


class TlsListener(SyslogAgent):
    def start_tls(self, **values):
        self.pki = make_pki(self.dir)
        self.port = free_port()
        self.start([dict({"nListenPort": self.port, "nProtocolType": 1, "nUseTLS": 1,
                          "nParseRFC5424": 1, "nTCPOctetCounting": 1, "nEnableTCPMsgSep": 1,
                          "szTCPMsgSep": "\\n", "szTLSCertFile": self.pki["server"],
                          "szTLSKeyFile": self.pki["server_key"], "szTLSCAFile": self.pki["ca"]},
                         **values)], line_format="%msg%%$CRLF%", general={"nWorkerThreads": 1})

    def client(self, cert=None):
        context = ssl.create_default_context(cafile=self.pki["ca"])
        if cert:
            context.load_cert_chain(self.pki[cert], self.pki[cert + "_key"])
        raw = socket.create_connection(("127.0.0.1", self.port), timeout=10)
        return context.wrap_socket(raw, server_hostname="localhost")

    def send(self, text, cert=None):
        with self.client(cert) as s:
            s.sendall(b"%d %s" % (len(text), text))

    def test_messages_over_tls_and_every_refusal_leaves_it_listening(self):
        self.start_tls(nTLSVerifyPeer=1)
        self.send(b"<13>1 - h app - - - first", cert="client")
        self.wait_lines(1)
        # Refused: no client certificate, one of another CA, an expired one, plain text on
        # the TLS port, and a peer that connects and never starts the handshake.
        for cert in (None, "stranger", "expired"):
            with self.assertRaises((ssl.SSLError, ConnectionError, OSError)):
                with self.client(cert) as s:
                    s.sendall(b"9 <13>1 - - - - - - x")
                    s.recv(1)
        with socket.create_connection(("127.0.0.1", self.port)) as plain:
            plain.sendall(b"<13>Jan  1 00:00:00 h app: in the clear\n")
            plain.settimeout(10)
            while plain.recv(100):  # an alert may come first; then the listener closes
                pass
        stalled = socket.create_connection(("127.0.0.1", self.port))
        self.addCleanup(stalled.close)
        self.send(b"<13>1 - h app - - - second", cert="client")
        self.assertEqual(self.wait_lines(2), [b"first", b"second"])
        stalled.settimeout(20)
        self.assertEqual(stalled.recv(1), b"")  # closed by the listener's handshake time-out
        log = self.log_text()
        # Every refusal came from 127.0.0.1: one line for the minute, not one per peer attempt.
        self.assertEqual(log.count("CTCPServer|TLS: connection from 127.0.0.1 refused"), 1)
        self.assertNotIn("in the clear", "".join(l.decode() for l in self.lines()))

    def test_pinned_fingerprint_instead_of_a_ca(self):
        pki = make_pki(self.dir)
        out = subprocess.run(["openssl", "x509", "-in", pki["client"], "-noout", "-fingerprint",
                              "-sha256"], capture_output=True, text=True, check=True).stdout
        self.pki = pki
        self.port = free_port()
        self.start([{"nListenPort": self.port, "nProtocolType": 1, "nUseTLS": 1,
                     "szTLSCertFile": pki["server"], "szTLSKeyFile": pki["server_key"],
                     "szTLSPeerFingerprint": out.split("=", 1)[1].strip(), "nTCPOctetCounting": 1}],
                   line_format="%msg%%$CRLF%")
        # The other certificate is refused after the handshake (TLS 1.3 clients do not wait for
        # the server's verdict): whatever the client sees, its message must not arrive.
        try:
            with self.client("stranger") as s:
                s.sendall(b"<13>other")
                s.recv(1)
        except (ssl.SSLError, OSError):
            pass
        self.send(b"<13>pinned", cert="client")
        self.assertEqual(self.wait_lines(1), [b"pinned"])
        self.assertIn("fingerprint", self.log_text())

    def test_missing_certificate_stops_the_source_with_the_reason(self):
        self.port = free_port()
        self.start([{"nListenPort": self.port, "nProtocolType": 1, "nUseTLS": 1,
                     "szTLSCertFile": os.path.join(self.dir, "none.pem")}], wait=False)
        self.wait_for(lambda: "TLS listener not started" in self.log_text(), "the refusal",
                      agent=self.agent)
        self.assertIn("none.pem", self.log_text())


class TlsForward(SyslogAgent):
    def test_server_of_the_wrong_name_is_refused(self):
        # A server whose certificate does not name "wrong.example" gets nothing, and the reason
        # is in the log.
        pki = make_pki(self.dir)
        server = socket.socket()
        server.bind(("127.0.0.1", 0))
        server.listen(1)
        self.addCleanup(server.close)
        inport = start_relay(self, {"nSyslogSendPort": server.getsockname()[1], "nUseTLS": 1,
                                    "szTLSCAFile": pki["ca"], "szTLSServerName": "wrong.example"})
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(pki["server"], pki["server_key"])
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            s.sendto(b"<13>secret", ("127.0.0.1", inport))
        conn, _ = server.accept()
        with self.assertRaises((ssl.SSLError, OSError)):
            with context.wrap_socket(conn, server_side=True) as tls:
                tls.recv(100)
        self.wait_for(lambda: "certificate verification failed" in self.log_text(),
                      "the refusal", agent=self.agent)


@unittest.skipUnless(os.path.exists(RSYSLOGD) and os.path.exists(OSSL_DRIVER),
                     "no rsyslogd with its OpenSSL driver")
class WithRsyslogOverTls(SyslogAgent):
    COUNT = 100000

    def rsyslogd(self, name, config):
        path = os.path.join(self.dir, name + ".conf")
        with open(path, "w") as f:
            f.write(f'global(workDirectory="{self.dir}" DefaultNetstreamDriver="ossl" '
                    f'DefaultNetstreamDriverCAFile="{self.pki["ca"]}" '
                    f'DefaultNetstreamDriverCertFile="{self.pki["client"]}" '
                    f'DefaultNetstreamDriverKeyFile="{self.pki["client_key"]}")\n' + config)
        p = subprocess.Popen([RSYSLOGD, "-n", "-f", path, "-i",
                              os.path.join(self.dir, name + ".pid")],
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (p.terminate(), p.wait(timeout=30)))

    def test_hundred_thousand_each_way_none_lost_or_changed(self):
        # rsyslogd (imudp) -> TLS, 5424, counted -> vtagent -> TLS, 5424, counted -> rsyslogd.
        self.pki = make_pki(self.dir)
        relay_in, vt_in, sink_in = free_port(), free_port(), free_port()
        sink_log = os.path.join(self.dir, "sink.log")
        self.rsyslogd("sink", 'module(load="imtcp" StreamDriver.Name="ossl" StreamDriver.Mode="1" '
                      'StreamDriver.AuthMode="anon")\n'
                      f'template(name="raw" type="string" string="%rawmsg%\\n")\n'
                      f'input(type="imtcp" address="127.0.0.1" port="{sink_in}")\n'
                      f'action(type="omfile" file="{sink_log}" template="raw")\n')
        self.rsyslogd("relay", 'module(load="imudp")\n'
                      f'input(type="imudp" address="127.0.0.1" port="{relay_in}" '
                      'rcvbufSize="64m")\n'
                      f'action(type="omfwd" target="127.0.0.1" port="{vt_in}" protocol="tcp" '
                      'StreamDriver="ossl" StreamDriverMode="1" StreamDriverAuthMode="x509/name" '
                      'StreamDriverPermittedPeers="localhost" TCP_Framing="octet-counted" '
                      'template="RSYSLOG_SyslogProtocol23Format" '
                      'queue.type="LinkedList" queue.size="200000")\n')
        self.out = os.path.join(self.dir, "out")
        rules = write_file_rules(self.out, line_format="%msg%%$CRLF%")
        rules[2][1].update({"nActionCount": 2, "nActionType2": 1001, "szActionName2": "fwd"})
        forward = {"szSyslogSendServer": "127.0.0.1", "nSyslogSendPort": sink_in, "nType": 1,
                   "nSyslogFormat": 1, "nTCPFraming": 1, "nUseTLS": 1,
                   "szTLSCAFile": self.pki["ca"], "szTLSServerName": "localhost"}
        self.import_config(
            rules + [(RULES + "\\RS1\\R1\\A2", forward)] +
            services((1, "in", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                "nListenPort": vt_in, "szMyIPAddress": "127.0.0.1",
                                "nProtocolType": 1, "nParseRFC5424": 1, "nTCPOctetCounting": 1,
                                "nTakeSourceSysFromSyslogMsg": 1, "nUseTLS": 1,
                                "szTLSCertFile": self.pki["server"],
                                "szTLSKeyFile": self.pki["server_key"]})), nWorkerThreads=1)
        self.agent = self.spawn("-r")
        self.wait_for(lambda: "listening on TCP" in self.log_text(), "the source", agent=self.agent)
        lines = lambda: file_lines(os.path.join(self.out, "out.log"))
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            self.wait_for(lambda: s.sendto(b"<13>1 - h probe - - - probe", ("127.0.0.1", relay_in))
                          and lines(), "the relay to connect", agent=self.agent)
            start = time.monotonic()
            for n in range(self.COUNT):
                s.sendto(b"<14>1 2024-01-02T03:04:05Z host app 42 M - message %06d" % n,
                         ("127.0.0.1", relay_in))
                if n % 500 == 499:
                    time.sleep(max(0.0, start + (n + 1) / 20000 - time.monotonic()))
        got = lambda: [l for l in lines() if l.startswith(b"message ")]
        self.wait_for(lambda: len(got()) >= self.COUNT, "the relayed messages", 300, self.agent)
        self.assertEqual(got(), [b"message %06d" % n for n in range(self.COUNT)])
        back = lambda: [l for l in file_lines(sink_log) if b" message " in l]
        self.wait_for(lambda: len(back()) >= self.COUNT, "rsyslogd to receive", 300, self.agent)
        self.assertEqual(back(), [b"<14>1 2024-01-02T03:04:05Z host app 42 M - message %06d" % n
                                  for n in range(self.COUNT)])


if __name__ == "__main__":
    unittest.main()
