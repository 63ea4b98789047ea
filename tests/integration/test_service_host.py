"""vtagent as a program: the command line, install and remove through a systemd unit directory,
console mode, and service mode under a stand-in for systemd's notify socket."""
import os
import signal
import socket
import subprocess
import tempfile
import time
import unittest

VTAGENT = os.environ.get("VTAGENT_BIN", "vtagent")
VTREG = os.environ.get("VTREG_BIN", "vtreg")
GENERAL = r"HKLM\SOFTWARE\Quillet\Vantor\Agent\General"

HELP = (
    "QuilletVantoreAgent Version 4.4 Build 334 (Final Release)\n"
    "Usage: vtagent -h    --> This help message.\n"
    "       vtagent -v    --> Show version information.\n"
    "       vtagent -i    --> Install service.\n"
    "       vtagent -u    --> Remove (uninstall) service.\n"
    "       vtagent -r    --> Run as console application.\n"
    "       vtagent -r -o --> Run ONCE as console application (see Manual!).\n"
)


class DatagramSink:
    """A Unix datagram socket in the test directory (syslog or systemd notify stand-in)."""

    def __init__(self, path):
        self.path = path
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.sock.bind(path)
        self.got = []

    def collect(self, until, timeout=15.0):
        """Receives until `until(list of datagrams)` holds or the time-out passes."""
        deadline = time.monotonic() + timeout
        while not until(self.got) and time.monotonic() < deadline:
            self.sock.settimeout(max(0.01, deadline - time.monotonic()))
            try:
                self.got.append(self.sock.recv(65536).decode("utf-8", "replace"))
            except socket.timeout:
                break
        return self.got

    def close(self):
        self.sock.close()


class AgentTestCase(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="vtagent-it-")
        self.dir = self.tmp.name
        self.env = dict(os.environ)
        self.env.pop("NOTIFY_SOCKET", None)
        self.env["VTAGENT_REGISTRY"] = os.path.join(self.dir, "registry.db")
        self.env["VTAGENT_SYSTEMD_DIR"] = os.path.join(self.dir, "systemd")
        self.env["VTAGENT_EVENTLOG_SOCKET"] = os.path.join(self.dir, "eventlog.sock")
        os.mkdir(self.env["VTAGENT_SYSTEMD_DIR"])
        self.events = DatagramSink(self.env["VTAGENT_EVENTLOG_SOCKET"])

    def tearDown(self):
        self.events.close()
        self.tmp.cleanup()

    def run_agent(self, *args):
        return subprocess.run([VTAGENT, *args], env=self.env, capture_output=True, text=True,
                              timeout=60)

    def vtreg(self, *args):
        r = subprocess.run([VTREG, *args], env=self.env, capture_output=True, text=True,
                           timeout=60)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def event_texts(self, count):
        """The "[id] text" parts of the first `count` events, with their syslog priority."""
        got = self.events.collect(lambda g: len(g) >= count, timeout=5)
        out = []
        for datagram in got:
            pri = datagram[1:datagram.index(">")]
            out.append((int(pri), datagram.split("]: ", 1)[1]))
        return out


class CommandLine(AgentTestCase):
    def test_help_is_printed_byte_for_byte(self):
        r = self.run_agent("-h")
        self.assertEqual(r.stdout, HELP)
        self.assertEqual(r.returncode, 0)

    def test_switches_compare_exactly(self):
        # "-H" and "-vv" are not switches: they go to the dispatcher, which refuses a process
        # that systemd did not start.
        for arg in ("-H", "-vv", "/h"):
            r = self.run_agent(arg)
            self.assertEqual(r.stdout, "", arg)
            self.assertIn("use -r", r.stderr, arg)
            self.assertNotEqual(r.returncode, 0, arg)

    def test_install_life_cycle(self):
        unit = os.path.join(self.env["VTAGENT_SYSTEMD_DIR"], "QuilletVantoreAgent.service")
        version = "QuilletVantoreAgent Version 4.4\n"
        r = self.run_agent("-v")
        self.assertEqual(r.stdout, version + "The service is not installed.\n")

        r = self.run_agent("-i")
        self.assertEqual(r.stdout, "QuilletVantoreAgent installed\n")
        self.assertEqual(r.returncode, 0)
        with open(unit, encoding="utf-8") as f:
            text = f.read()
        exe = os.path.realpath(VTAGENT)
        for line in ("Type=notify", "ExecStart=" + exe, "Restart=on-failure",
                     "WorkingDirectory=/var/lib/vtagent",
                     'Environment="VTAGENT_REGISTRY=%s"' % self.env["VTAGENT_REGISTRY"],
                     "WantedBy=multi-user.target"):
            self.assertIn(line + "\n", text)
        self.assertTrue(text.startswith("[Unit]\n"))
        self.assertIn("\n[Service]\n", text)
        self.assertIn("\n[Install]\n", text)

        self.assertEqual(self.run_agent("-v").stdout,
                         version + "The service is currently installed.\n")
        parameters = self.vtreg(
            "export", r"HKLM\SYSTEM\CurrentControlSet\Services\QuilletVantoreAgent\Parameters")
        for line in ('"nServiceMajor"=dword:00000004', '"nServiceMinor"=dword:00000004',
                     '"nServiceBuildID"=dword:0000014e', '"bReplaceEventLogSource"=dword:00000000'):
            self.assertIn(line, parameters)
        source = self.vtreg(
            "export",
            r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\QuilletVantoreAgent")
        self.assertIn('"TypesSupported"=dword:00000007', source)
        self.assertIn('"EventMessageFile"=hex(2):', source)
        r = self.run_agent("-i")
        self.assertEqual(r.stdout, "QuilletVantoreAgent is already installed\n")

        r = self.run_agent("-u")
        self.assertEqual(
            r.stdout,
            "QuilletVantoreAgent removed. (You must delete the file (%s) yourself.)\n" % exe)
        self.assertFalse(os.path.exists(unit))
        self.assertEqual(self.run_agent("-v").stdout, version + "The service is not installed.\n")
        self.assertEqual(self.run_agent("-u").stdout, "QuilletVantoreAgent is not installed\n")

        self.assertEqual(self.event_texts(2),
                         [(30, "[100] QuilletVantoreAgent"), (30, "[101] QuilletVantoreAgent")])

    def test_install_into_a_missing_directory_fails_with_the_error(self):
        self.env["VTAGENT_SYSTEMD_DIR"] = os.path.join(self.dir, "no", "such", "dir")
        r = self.run_agent("-i")
        self.assertEqual(r.stdout, "QuilletVantoreAgent failed to install. Error 2\n")
        self.assertNotEqual(r.returncode, 0)


class ConsoleMode(AgentTestCase):
    def run_until_signal(self, signum):
        p = subprocess.Popen([VTAGENT, "-r"], env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            lines = [p.stdout.readline(), p.stdout.readline()]
            self.assertEqual(lines, ["QuilletVantoreAgent: Initiating Console mode\n",
                                     "QuilletVantoreAgent: Service Running\n"])
            start = time.monotonic()
            p.send_signal(signum)
            out, _ = p.communicate(timeout=30)
            self.assertLess(time.monotonic() - start, 6.0)
            self.assertEqual(p.returncode, 0)
            self.assertEqual(
                out, "QuilletVantoreAgent: Initiating Shutdown, this can take up to 1 minute\n")
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()

    def test_stops_on_sigint(self):
        self.run_until_signal(signal.SIGINT)

    def test_stops_on_sigterm(self):
        self.run_until_signal(signal.SIGTERM)


class StartupBanner(AgentTestCase):
    def test_debug_log_holds_the_banner_and_last_version_is_written(self):
        log = os.path.join(self.dir, "logs", "agent-debug.txt")
        self.vtreg("set", GENERAL, "nEnableDebugOutput", "REG_DWORD", "1")
        self.vtreg("set", GENERAL, "nDebugMini", "REG_DWORD", "1")
        self.vtreg("set", GENERAL, "nCircularLogging", "REG_DWORD", "0")
        self.vtreg("set", GENERAL, "szDebugFileName", "REG_SZ", log)
        p = subprocess.Popen([VTAGENT, "-r"], env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            self.assertEqual(p.stdout.readline(), "QuilletVantoreAgent: Initiating Console mode\n")
            self.assertEqual(p.stdout.readline(), "QuilletVantoreAgent: Service Running\n")
            p.send_signal(signal.SIGINT)
            p.communicate(timeout=30)
            self.assertEqual(p.returncode, 0)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
        with open(log, "rb") as f:
            text = f.read().decode("utf-8")
        self.assertRegex(text, r"\d+\t\| \d+ \| Minimum\t\| \r\n\r\nService STARTUP "
                               r"\[V4\.4\(Final Release\)\]- the time is .+ \d{4}\r\n\r\n")
        self.assertIn("| Minimum\t| Running Engine Version 4.4.334 ***\r\n", text)
        self.assertEqual(self.vtreg("get", GENERAL, "LastVersionRun").strip(), "4.4.334")


class ServiceMode(AgentTestCase):
    def test_notify_protocol_and_events(self):
        notify = DatagramSink(os.path.join(self.dir, "notify.sock"))
        self.env["NOTIFY_SOCKET"] = notify.path
        p = subprocess.Popen([VTAGENT], env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            got = notify.collect(lambda g: any("READY=1" in d for d in g))
            self.assertTrue(any("READY=1" in d for d in got), got)
            p.send_signal(signal.SIGTERM)
            p.communicate(timeout=30)
            self.assertEqual(p.returncode, 0)
            got = notify.collect(lambda g: any("STATUS=Stopped" in d for d in g), timeout=2)
            stopping = [d for d in got if "STOPPING=1" in d]
            self.assertTrue(stopping, got)
            self.assertIn("EXTEND_TIMEOUT_USEC=5000000", stopping[0])
            self.assertIn("STATUS=Start pending", got[0])
            self.assertIn("STATUS=Stopped", got[-1])
            # The hive holds no services: the service manager says so, the service runs idle.
            self.assertEqual(self.event_texts(3),
                             [(27, "[114] No InfoSource service configured at all - the NT "
                                   "service runs but does not perform any useful work!"),
                              (30, "[105] QuilletVantoreAgent"), (30, "[108] QuilletVantoreAgent")])
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
            notify.close()


if __name__ == "__main__":
    unittest.main(verbosity=2)
