"""vtagent mailing units through a rule to a real SMTP server on loopback (aiosmtpd, run with
/usr/bin/python3): the fields as a mail client reads them, login and STARTTLS with a test CA,
the backup server, a thousand mails across a server restart, and flood control."""
import email
import email.policy
import glob
import json
import os
import subprocess
import unittest

from test_service_host import AgentTestCase, ROOT, services
from test_syslog import free_port

HERE = os.path.dirname(os.path.abspath(__file__))
SYSTEM_PYTHON = "/usr/bin/python3"
RULES = ROOT + "\\RuleSets"


def aiosmtpd_available():
    return subprocess.run([SYSTEM_PYTHON, "-c", "import aiosmtpd"], capture_output=True).returncode == 0


def make_certificates(dir, names="DNS:localhost,IP:127.0.0.1"):
    """A test CA and a server certificate for `names` signed by it; returns (ca, cert, key)."""
    ca, ca_key = os.path.join(dir, "ca.pem"), os.path.join(dir, "ca.key")
    cert, key, csr = (os.path.join(dir, n) for n in ("server.pem", "server.key", "server.csr"))
    ext = os.path.join(dir, "ext.cnf")
    with open(ext, "w") as f:
        f.write("subjectAltName=%s\n" % names)
    run = lambda *a: subprocess.run(["openssl", *a], check=True, capture_output=True)
    run("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=Test CA",
        "-keyout", ca_key, "-out", ca)
    run("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-keyout", key,
        "-out", csr)
    run("x509", "-req", "-in", csr, "-CA", ca, "-CAkey", ca_key, "-CAcreateserial", "-days", "2",
        "-extfile", ext, "-out", cert)
    return ca, cert, key


@unittest.skipUnless(aiosmtpd_available(), "python3-aiosmtpd is not installed")
class SendMail(AgentTestCase):
    def start_peer(self, port, *options, dir=None):
        dir = dir or os.path.join(self.dir, "mail%d" % port)
        os.makedirs(dir, exist_ok=True)
        peer = subprocess.Popen([SYSTEM_PYTHON, os.path.join(HERE, "smtp_peer.py"), dir,
                                 str(port), *options], stdout=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (peer.terminate(), peer.wait()))
        self.assertEqual(peer.stdout.readline().strip(), "READY")
        return peer, dir

    @staticmethod
    def mails(dir):
        out = []
        for path in sorted(glob.glob(os.path.join(dir, "*.eml")),
                           key=lambda p: int(os.path.basename(p).split(".")[0])):
            with open(path, "rb") as f:
                message = email.message_from_bytes(f.read(), policy=email.policy.default)
            with open(path[:-4] + ".env") as f:
                out.append((message, json.load(f)))
        return out

    def run_lines(self, lines, action, wait_for, **general):
        """Writes `lines` to a file the agent follows; each becomes a unit mailed by `action`."""
        source = os.path.join(self.dir, "app.log")
        with open(source, "w", encoding="utf-8") as f:
            f.write("".join(l + "\n" for l in lines))
        monitor = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPathAndFileName": source,
                   "nSleepTime": 100, "nPreventOverrunDelay": 0}
        self.import_config([(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1,
                                     "szRSName1": "Default"}),
                            (RULES + "\\RS1", {"nRuleCount": 1}),
                            (RULES + "\\RS1\\R1", {"nActionCount": 1, "nActionType1": 1002,
                                                   "szActionName1": "mail"}),
                            (RULES + "\\RS1\\R1\\A1", action)] +
                           services((5, "lines", monitor)), nWorkerThreads=1, **general)
        agent = self.spawn("-r")
        self.wait_for(wait_for, "the mails", 120, agent)
        return agent

    def action(self, port, **values):
        values.update({"szSMTPServer": "127.0.0.1", "nSMTPPort": port,
                       "szSMTPSender": "agent@example.org",
                       "szSMTPRecipient": values.pop("to", "ops@example.org; pager@example.org")})
        return values

    def test_fields_as_a_mail_client_reads_them(self):
        port = free_port()
        _, dir = self.start_peer(port)
        # A body that starts with "." must not end the mail early; non-ASCII text arrives whole.
        lines = [".starts with a dot", "Störung im Netz ✓"]
        self.run_lines(lines, self.action(port, szSMTPSubject="Alert: %msg%", szSMTPBody="%msg%",
                                          nMailPriority=2),
                       lambda: len(self.mails(dir)) >= 2)
        mails = self.mails(dir)
        for (message, envelope), line in zip(mails, lines):
            self.assertEqual(message["Subject"], "Alert: " + line)
            self.assertEqual(message["From"], "agent@example.org")
            self.assertEqual([a.addr_spec for a in message["To"].addresses],
                             ["ops@example.org", "pager@example.org"])
            self.assertEqual(envelope["to"], ["ops@example.org", "pager@example.org"])
            self.assertIsNotNone(message["Date"].datetime)
            self.assertTrue(message["Message-ID"].endswith(">"))
            self.assertEqual(message["X-Priority"], "1")
            self.assertEqual(message["X-Mailer"], "Quillet Vantor Reporting Subsystem")
            self.assertEqual(message.get_content().replace("\r\n", "\n"), line + "\n")
        self.assertEqual(len({m["Message-ID"] for m, _ in mails}), 2)

    def test_defaults_give_the_classic_mail(self):
        port = free_port()
        _, dir = self.start_peer(port)
        self.run_lines(["disk full"], self.action(port, to="ops@example.org"),
                       lambda: len(self.mails(dir)) >= 1)
        message, _ = self.mails(dir)[0]
        self.assertEqual(message["Subject"], "No Subject given")
        self.assertRegex(message.get_content().replace("\r\n", "\n"),
                         r"^Event message:\nFacility: 16\nPriority: 5\nSource: \S+\n\nMessage:\n"
                         r"disk full\n$")

    def test_login_over_starttls_with_a_test_ca(self):
        ca, cert, key = make_certificates(self.dir)
        port = free_port()
        _, dir = self.start_peer(port, "--auth", "alert:s3cret", "--starttls", cert, key)
        values = self.action(port, szSMTPServer="localhost", nUseSMTPAuth=1,
                             szSMTPUsername="alert", szSMTPPassword="s3cret", nSMTPTLS=1,
                             szSMTPCAFile=ca)
        values["szSMTPServer"] = "localhost"
        agent = self.run_lines(["over tls"], values, lambda: len(self.mails(dir)) >= 1)
        self.stop(agent)
        message, envelope = self.mails(dir)[0]
        self.assertTrue(envelope["tls"])
        self.assertIn("over tls", message.get_content())
        self.assertNotIn("s3cret", self.log_text())

    def test_implicit_tls_and_starttls_when_offered(self):
        ca, cert, key = make_certificates(self.dir)
        tls_port, plain_port = free_port(), free_port()
        _, tls_dir = self.start_peer(tls_port, "--implicit", cert, key)
        _, plain_dir = self.start_peer(plain_port)
        implicit = self.action(tls_port, nSMTPTLS=3, szSMTPCAFile=ca)
        implicit["szSMTPServer"] = "localhost"
        agent = self.run_lines(["implicit"], implicit, lambda: len(self.mails(tls_dir)) >= 1)
        self.stop(agent)
        self.assertTrue(self.mails(tls_dir)[0][1]["tls"])
        # Mode 2 with a server that offers no STARTTLS goes on in plain text.
        self.run_lines(["plain"], self.action(plain_port, nSMTPTLS=2),
                       lambda: len(self.mails(plain_dir)) >= 1)
        self.assertFalse(self.mails(plain_dir)[0][1]["tls"])

    def test_wrong_password_is_named_and_not_logged(self):
        port = free_port()
        _, dir = self.start_peer(port, "--auth", "alert:right")
        values = self.action(port, nUseSMTPAuth=1, szSMTPUsername="alert",
                             szSMTPPassword="wrong-pass")
        self.run_lines(["x"], values, lambda: "user name or password rejected" in self.log_text())
        self.assertEqual(self.mails(dir), [])
        self.assertNotIn("wrong-pass", self.log_text())

    def test_backup_server_takes_over(self):
        port, dead = free_port(), free_port()
        _, dir = self.start_peer(port)
        values = self.action(dead, nEnableBackupServer=1, szSMTPServerBackup="127.0.0.1",
                             nSMTPPortBackup=port)
        self.run_lines(["via backup"], values, lambda: len(self.mails(dir)) >= 1)
        self.assertIn("Trying Backup Server now!", self.log_text())

    def test_thousand_mails_once_each_across_a_server_restart(self):
        port = free_port()
        peer, dir = self.start_peer(port)
        total = 1000
        agent = self.run_lines(["mail %04d" % n for n in range(total)],
                               self.action(port, szSMTPSubject="%msg%", nTimeoutValue=60000),
                               lambda: len(self.mails(dir)) >= 300,
                               nEnableRetry=1, nRetryCount=200, nRetryPeriod=100)
        peer.terminate()
        peer.wait()
        self.start_peer(port, dir=dir)
        self.wait_for(lambda: len({m["Subject"] for m, _ in self.mails(dir)}) >= total,
                      "every mail", 300, agent)
        subjects = [m["Subject"] for m, _ in self.mails(dir)]
        self.assertEqual(set(subjects), {"mail %04d" % n for n in range(total)})
        # At most the mail in flight when the server went away can come twice.
        self.assertLessEqual(len(subjects), total + 1)

    def test_flood_control_sends_a_summary(self):
        port = free_port()
        _, dir = self.start_peer(port)
        values = self.action(port, to="ops@example.org", szSMTPSubject="%msg%",
                             nMaxMailsPerInterval=10, nMailInterval=2)
        self.run_lines(["alert %d" % n for n in range(100)], values,
                       lambda: len(self.mails(dir)) >= 11)
        subjects = [m["Subject"] for m, _ in self.mails(dir)]
        self.assertEqual(subjects[:10], ["alert %d" % n for n in range(10)])
        self.assertEqual(subjects[10:], ["90 further alerts suppressed"])


if __name__ == "__main__":
    unittest.main()
