"""The port, HTTP and SMTP probes of the Windows build (vtagent.exe under Wine) against the same
real servers as the Linux probe tests: an echo server, nginx, aiosmtpd. Run by the Windows
stage of the test command:
    python3 tests/integration/wine_probes.py BUILD_DIR_OF_THE_WINDOWS_BUILD"""
import os
import signal
import subprocess
import sys
import unittest

import test_probes
from test_service_host import ROOT, file_lines, reg_value, services, write_file_rules
from test_send_mail import SYSTEM_PYTHON, aiosmtpd_available, make_certificates
from test_syslog import free_port

BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/windows")
EXE = os.path.join(BUILD, "vtagent.exe")


def windows_path(path):
    return "Z:" + path.replace("/", "\\")


class WineProbes(test_probes.Probes):
    def setUp(self):
        super().setUp()
        self.env.update(WINEPREFIX=os.environ.get("WINEPREFIX", os.path.join(BUILD, "wineprefix")),
                        WINEDEBUG="-all", WINEDLLOVERRIDES="mscoree,mshtml=")

    def wine(self, *args, **kwargs):
        return subprocess.run(["wine", *args], env=self.env, capture_output=True, timeout=120,
                              **kwargs)

    def run_probes(self, probes, count):
        out = os.path.join(self.dir, "out")
        self.log = os.path.join(self.dir, "debug.txt")
        common = {"nConfigVersion": 1, "szRuleSetName": "Default", "nSleepTime": 60000,
                  "nTimeOutLimit": 2000}
        sections = [(ROOT + "\\General", {"nEnableDebugOutput": 1, "nDebugMini": 1,
                                          "nCircularLogging": 0,
                                          "szDebugFileName": windows_path(self.log)})]
        sections += write_file_rules(windows_path(out), line_format="%iut% %msg%%$CRLF%")
        sections += services(*[(t, "probe%d" % n, dict(common, **v))
                               for n, (t, v) in enumerate(probes)])
        reg = os.path.join(self.dir, "wine.reg")
        with open(reg, "w", encoding="utf-8") as f:
            f.write("Windows Registry Editor Version 5.00\n")
            for key, values in sections:
                f.write("\n[%s]\n" % key + "".join(reg_value(k, v) for k, v in values.items()))
        self.wine("reg", "delete", ROOT, "/f")
        # The Wine prefix is the unit tests' too, and they expect no configuration there.
        self.addCleanup(self.wine, "reg", "delete", ROOT, "/f")
        self.assertEqual(self.wine("regedit", "/S", windows_path(reg)).returncode, 0)
        agent = subprocess.Popen(["wine", EXE, "-r"], env=self.env, cwd=self.dir,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # Wine turns SIGINT into the console's Ctrl+C.
        self.addCleanup(self.stop, agent, signal.SIGINT)
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: len(lines()) >= count, "%d probe units" % count, 120, agent)
        self.stop(agent)
        return sorted(l.decode() for l in lines())

    def test_port_http_and_smtp_probes_under_wine(self):
        ca, cert, key = make_certificates(self.dir)
        self.start_nginx(cert, key)
        echo = test_probes.Responder(None, echo=True)
        ok = {"nGenerateOnSuccess": 1}
        probes = [(19, dict(ok, nHTTPPort=self.http)),
                  (19, {"nHTTPPort": self.http, "szUrl": "/missing"}),
                  (9, dict(ok, nPortNumber=echo.port, nSendExpect=1, szSendText="PING\\r\\n",
                           szExpectText="PING"))]
        peer = None
        if aiosmtpd_available():
            port = free_port()
            mail = os.path.join(self.dir, "mail")
            os.mkdir(mail)
            peer = subprocess.Popen([SYSTEM_PYTHON, os.path.join(test_probes.HERE, "smtp_peer.py"),
                                     mail, str(port)], stdout=subprocess.PIPE, text=True)
            self.addCleanup(lambda: (peer.terminate(), peer.wait()))
            self.assertEqual(peer.stdout.readline().strip(), "READY")
            probes.append((17, dict(ok, nSMTPPort=port)))
        got = self.run_probes(probes, len(probes))
        self.assertIn('19 HTTPProbe status="success" target="127.0.0.1" port="%d" netstate="0" '
                      'message="HTTP/1.1 200 OK"' % self.http, got)
        self.assertIn('19 HTTPProbe status="fail" target="127.0.0.1" port="%d" netstate="404" '
                      'message="HTTP status HTTP/1.1 404 Not Found"' % self.http, got)
        self.assertTrue(any(l.startswith('9 PortProbe status="success"') for l in got), got)
        if peer:
            self.assertTrue(any(l.startswith('17 SMTPProbe status="success"') for l in got), got)


if __name__ == "__main__":
    if not os.path.exists(EXE):
        sys.exit("wine_probes: %s is not built" % EXE)
    result = unittest.TextTestRunner(verbosity=1).run(
        unittest.TestSuite([WineProbes("test_port_http_and_smtp_probes_under_wine")]))
    sys.exit(0 if result.wasSuccessful() else 1)
