"""vtagent's network probes against real servers on loopback: nginx for HTTP and HTTPS (a test
CA), aiosmtpd for SMTP, vsftpd for FTP, dovecot for IMAP and POP3, small responders written here
for NNTP (no news server is packaged here) and for greetings a real server will not send on
demand, a server that never answers, an echo server for the port probe, and ICMP echo on
127.0.0.1."""
import os
import socket
import subprocess
import threading
import time
import unittest

from test_send_mail import SYSTEM_PYTHON, aiosmtpd_available, make_certificates
from test_service_host import VTAGENT, AgentTestCase, file_lines, services, write_file_rules
from test_syslog import free_port

HERE = os.path.dirname(os.path.abspath(__file__))


class Responder:
    """Accepts connections on loopback and answers each with `greeting` (None: never a word)."""

    def __init__(self, greeting, echo=False):
        self.sock = socket.socket()
        self.sock.bind(("127.0.0.1", 0))
        self.sock.listen(16)
        self.port = self.sock.getsockname()[1]
        self.greeting, self.echo, self.open = greeting, echo, []
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                conn, _ = self.sock.accept()
            except OSError:
                return
            self.open.append(conn)  # a silent server keeps the connection, saying nothing
            if self.greeting is not None:
                conn.sendall(self.greeting.encode() + b"\r\n")
            if self.echo:
                conn.sendall(conn.recv(1024))

    def close(self):
        self.sock.close()
        for c in self.open:
            c.close()


class Probes(AgentTestCase):
    def start_nginx(self, cert, key):
        dir = os.path.join(self.dir, "nginx")
        os.makedirs(os.path.join(dir, "tmp"))
        self.http, self.https = free_port(), free_port()
        conf = os.path.join(dir, "nginx.conf")
        with open(conf, "w") as f:
            f.write("""daemon off; worker_processes 1; pid %(d)s/nginx.pid; error_log %(d)s/error.log;
events {}
http { access_log off; client_body_temp_path %(d)s/tmp; proxy_temp_path %(d)s/tmp;
  fastcgi_temp_path %(d)s/tmp; uwsgi_temp_path %(d)s/tmp; scgi_temp_path %(d)s/tmp;
  server { listen 127.0.0.1:%(http)d; location / { return 200 "up"; }
           location /missing { return 404; } }
  server { listen 127.0.0.1:%(https)d ssl; ssl_certificate %(cert)s; ssl_certificate_key %(key)s;
           location / { return 200 "up"; } } }
""" % {"d": dir, "http": self.http, "https": self.https, "cert": cert, "key": key})
        nginx = subprocess.Popen(["nginx", "-p", dir, "-c", conf, "-e", dir + "/error.log"],
                                 stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (nginx.terminate(), nginx.wait()))
        for _ in range(200):
            try:
                socket.create_connection(("127.0.0.1", self.https), timeout=1).close()
                return
            except OSError:
                time.sleep(0.05)
        self.fail("nginx did not start")

    def wait_listening(self, port, what):
        for _ in range(200):
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
                return
            except OSError:
                time.sleep(0.05)
        self.fail(what + " did not start")

    def start_server(self, name, command, config, port):
        """Starts a Debian server with `config` written to its own file, on loopback `port`."""
        path = os.path.join(self.dir, name + ".conf")
        with open(path, "w") as f:
            f.write(config)
        server = subprocess.Popen(command + [path], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (server.terminate(), server.wait()))
        self.wait_listening(port, name)

    def start_vsftpd(self, port, extra=""):
        empty = os.path.join(self.dir, "ftp-empty")
        os.makedirs(empty, exist_ok=True)
        self.start_server("vsftpd%d" % port, ["/usr/sbin/vsftpd"], (
            "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=%d\n"
            "background=NO\nanonymous_enable=YES\nanon_root=%s\nlocal_enable=NO\n"
            "secure_chroot_dir=%s\nftpd_banner=test FTP ready\nxferlog_enable=NO\n%s"
            % (port, empty, empty, extra)), port)

    def start_dovecot(self, imap, pop3):
        d = os.path.join(self.dir, "dovecot")
        os.makedirs(os.path.join(d, "run"))
        listener = "service %s-login {\n inet_listener %s {\n  port = %d\n }\n " \
                   "inet_listener %ss {\n  port = 0\n }\n}\n"
        self.start_server("dovecot", ["/usr/sbin/dovecot", "-F", "-c"], (
            "base_dir = %(d)s/run\nstate_dir = %(d)s/state\nlog_path = %(d)s/log\n"
            "protocols = imap pop3\nlisten = 127.0.0.1\nssl = no\n"
            "mail_location = maildir:%(d)s/mail/%%u\n"
            "passdb {\n driver = static\n args = password=x\n}\n"
            "userdb {\n driver = static\n args = uid=nobody gid=nogroup home=%(d)s/%%u\n}\n"
            % {"d": d}) + listener % ("imap", "imap", imap, "imap") +
            listener % ("pop3", "pop3", pop3, "pop3"), pop3)

    @unittest.skipUnless(os.path.exists("/usr/sbin/vsftpd") and os.path.exists("/usr/sbin/dovecot"),
                         "vsftpd or dovecot is not installed")
    def test_ftp_imap_pop3_against_their_debian_servers(self):
        # A full vsftpd answers with 421, which fails the FTP probe with that status.
        ftp, full, imap, pop3 = free_port(), free_port(), free_port(), free_port()
        self.start_vsftpd(ftp)
        self.start_vsftpd(full, "max_clients=1\n")
        for _ in range(100):  # the start-up check's own connection may still count
            holder = socket.create_connection(("127.0.0.1", full))
            self.addCleanup(holder.close)
            if holder.recv(100).startswith(b"220"):
                break
            time.sleep(0.05)
        self.start_dovecot(imap, pop3)
        ok = {"nGenerateOnSuccess": 1}
        got = self.run_probes([(18, dict(ok, nFTPPort=ftp)), (21, dict(ok, nIMAPPort=imap)),
                               (20, dict(ok, nPOP3Port=pop3)), (18, {"nFTPPort": full})], 4)
        self.assertIn('18 FTPProbe status="success" target="127.0.0.1" port="%d" netstate="0" '
                      'message="220 test FTP ready"' % ftp, got)
        self.assertTrue(any(l.startswith('18 FTPProbe status="fail" target="127.0.0.1" port="%d" '
                                         'netstate="421" message="421 ' % full) for l in got), got)
        self.assertTrue(any(l.startswith('21 IMAPProbe status="success" target="127.0.0.1" '
                                         'port="%d" netstate="0" message="* OK ' % imap)
                            for l in got), got)
        self.assertTrue(any(l.startswith('20 POP3Probe status="success" target="127.0.0.1" '
                                         'port="%d" netstate="0" message="+OK ' % pop3)
                            for l in got), got)

    def test_ping_in_a_network_namespace_with_nothing_behind_it(self):
        # A fresh network namespace has no route at all: the probe fails with the network's
        # own error instead of waiting for replies that cannot come.
        if subprocess.run(["unshare", "-n", "true"], capture_output=True).returncode != 0:
            self.skipTest("no permission to make a network namespace")
        out = os.path.join(self.dir, "out")
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services((8, "ping", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                                 "szIPAddress": "192.0.2.1", "nSleepTime": 60000,
                                                 "nTimeOutLimit": 1000})))
        agent = subprocess.Popen(["unshare", "-n", VTAGENT, "-r"], env=self.env, cwd=self.dir,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(self.stop, agent)
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lines, "the ping unit", 30, agent)
        self.assertEqual(lines(), [b'8 PingProbe status="fail" target="192.0.2.1" port="0" '
                                   b'netstate="10051" message="Network is unreachable"'])

    def run_probes(self, probes, count):
        """Runs the probes [(type, values)] until `count` units are written; returns them."""
        out = os.path.join(self.dir, "out")
        common = {"nConfigVersion": 1, "szRuleSetName": "Default", "nSleepTime": 60000,
                  "nTimeOutLimit": 1000}
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services(*[(t, "probe%d" % n, dict(common, **v))
                                      for n, (t, v) in enumerate(probes)]))
        agent = self.spawn("-r")
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: len(lines()) >= count, "%d probe units" % count, 60, agent)
        self.stop(agent)
        return sorted(l.decode() for l in lines())

    def test_healthy_servers_report_success(self):
        ca, cert, key = make_certificates(self.dir)
        self.start_nginx(cert, key)
        greet = {name: Responder(text) for name, text in (
            ("nntp", "200 news ready"), ("imap", "* OK IMAP4rev1 ready"),
            ("pop3", "+OK POP3 ready"), ("ftp", "220 FTP ready"))}
        echo = Responder(None, echo=True)
        ok = {"nGenerateOnSuccess": 1}
        probes = [
            (22, dict(ok, nNNTPPort=greet["nntp"].port)),
            (21, dict(ok, nIMAPPort=greet["imap"].port)),
            (20, dict(ok, nPOP3Port=greet["pop3"].port)),
            (18, dict(ok, nFTPPort=greet["ftp"].port)),
            (19, dict(ok, nHTTPPort=self.http)),
            (19, dict(ok, szHTTPServer="localhost", nHTTPPort=self.https, nUseSSL=1, szCAFile=ca)),
            (9, dict(ok, nPortNumber=echo.port, nSendExpect=1, szSendText="PING\\r\\n",
                     szExpectText="PING")),
            (8, dict(ok, szIPAddress="127.0.0.1", nTimeOutLimit=2000)),
        ]
        got = self.run_probes(probes, len(probes))
        self.assertIn('22 NNTPProbe status="success" target="127.0.0.1" port="%d" netstate="0" '
                      'message="200 news ready"' % greet["nntp"].port, got)
        self.assertIn('19 HTTPProbe status="success" target="localhost" port="%d" netstate="0" '
                      'message="HTTP/1.1 200 OK"' % self.https, got)
        self.assertEqual([l.split(" ")[0] for l in got], ["18", "19", "19", "20", "21", "22", "8", "9"])
        self.assertTrue(all('status="success"' in l for l in got), got)

    def test_failures_are_reported_with_their_cause(self):
        ca, cert, key = make_certificates(self.dir, "DNS:other.example")
        self.start_nginx(cert, key)
        silent, refusing = Responder(None), Responder("400 service discontinued")
        closed = free_port()
        probes = [
            (19, {"nHTTPPort": self.http, "szUrl": "/missing"}),
            (19, {"szHTTPServer": "localhost", "nHTTPPort": self.https, "nUseSSL": 1,
                  "szCAFile": ca}),
            (17, {"nSMTPPort": closed}),
            (21, {"nIMAPPort": silent.port}),
            (22, {"nNNTPPort": refusing.port}),
        ]
        started = time.monotonic()
        got = self.run_probes(probes, len(probes))
        self.assertLess(time.monotonic() - started, 30)  # the silent server cannot hold it
        self.assertIn('19 HTTPProbe status="fail" target="127.0.0.1" port="%d" netstate="404" '
                      'message="HTTP status HTTP/1.1 404 Not Found"' % self.http, got)
        self.assertTrue(any("hostname mismatch" in l for l in got), got)
        self.assertIn('17 SMTPProbe status="fail" target="127.0.0.1" port="%d" netstate="10061" '
                      'message="Receive call failed"' % closed, got)
        self.assertIn('21 IMAPProbe status="fail" target="127.0.0.1" port="%d" netstate="10060" '
                      'message="Receive call failed"' % silent.port, got)
        self.assertIn('22 NNTPProbe status="fail" target="127.0.0.1" port="%d" netstate="400" '
                      'message="400 service discontinued"' % refusing.port, got)

    @unittest.skipUnless(aiosmtpd_available(), "python3-aiosmtpd is not installed")
    def test_smtp_probe_against_a_real_server_up_and_stopped(self):
        port = free_port()
        mail = os.path.join(self.dir, "mail")
        os.mkdir(mail)
        peer = subprocess.Popen([SYSTEM_PYTHON, os.path.join(HERE, "smtp_peer.py"), mail,
                                 str(port)], stdout=subprocess.PIPE, text=True)
        self.assertEqual(peer.stdout.readline().strip(), "READY")
        got = self.run_probes([(17, {"nSMTPPort": port, "nGenerateOnSuccess": 1})], 1)
        self.assertTrue(got[0].startswith('17 SMTPProbe status="success"'), got)
        peer.terminate()
        peer.wait()
        got = self.run_probes([(17, {"nSMTPPort": port})], 2)
        self.assertTrue(any('status="fail"' in l and 'netstate="10061"' in l for l in got), got)


if __name__ == "__main__":
    unittest.main()
