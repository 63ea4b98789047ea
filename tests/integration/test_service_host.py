"""vtagent as a program: the command line, install and remove through a systemd unit directory,
console mode, and service mode under a stand-in for systemd's notify socket. (The start-up
banner in the debug log is checked by the unit tests of the service start.)"""
import os
import pathlib
import signal
import socket
import subprocess
import tempfile
import time
import unittest

VTAGENT = os.environ.get("VTAGENT_BIN", "vtagent")
VTREG = os.environ.get("VTREG_BIN", "vtreg")
ROOT = r"HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent"
CONSOLE_START = ["QuilletVantoreAgent: Initiating Console mode\n",
                 "QuilletVantoreAgent: Service Running\n"]

HELP = (
    "QuilletVantoreAgent Version 4.4 Build 334 (Final Release)\n"
    "Usage: vtagent -h    --> This help message.\n"
    "       vtagent -v    --> Show version information.\n"
    "       vtagent -i    --> Install service.\n"
    "       vtagent -u    --> Remove (uninstall) service.\n"
    "       vtagent -r    --> Run as console application.\n"
    "       vtagent -r -o --> Run ONCE as console application (see Manual!).\n"
    "       vtagent -c    --> Check the configuration (-c -q: exit status only).\n"
    "       vtagent -s    --> Show the counters of the running agent.\n"
)


def reg_value(name, value):
    if isinstance(value, int):
        return '"%s"=dword:%08x\n' % (name, value)
    return '"%s"="%s"\n' % (name, value.replace("\\", "\\\\").replace('"', '\\"'))


def write_file_rules(out, base="out", line_format="%msg%%$CRLF%"):
    """Registry sections of one rule set "Default" whose one rule writes every unit to
    `out`/`base`.log with `line_format`."""
    rules = ROOT + "\\RuleSets"
    return [(rules, {"nRuleSetsVersion": 1, "nRuleSetCount": 1, "szRSName1": "Default"}),
            (rules + "\\RS1", {"nRuleCount": 1}),
            (rules + "\\RS1\\R1",
             {"nActionCount": 1, "nActionType1": 1003, "szActionName1": "file"}),
            (rules + "\\RS1\\R1\\A1",
             {"szFilePath": out, "szFileBaseName": base, "nUniqueFileName": 0, "nFileFormat": 3,
              "szLineFormat": line_format})]


def services(*sources):
    """Registry sections of the Services key; each source is (type, name, values of its key,
    or None for no key)."""
    head = {"nConfigVersion": 1, "nInfoSourceCount": len(sources)}
    keys = []
    for n, (kind, name, values) in enumerate(sources, 1):
        head.update({"nISType%d" % n: kind, "szISName%d" % n: name})
        if values is not None:
            keys.append((ROOT + "\\Services\\IS%d" % n, values))
    return [(ROOT + "\\Services", head)] + keys


def file_lines(*paths):
    """The complete lines (bytes, without line ends) of those of `paths` that exist."""
    datas = [pathlib.Path(p).read_bytes() for p in paths if os.path.exists(p)]
    return [l.rstrip(b"\r") for data in datas for l in data.split(b"\n")[:-1]]


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

    def import_config(self, sections, **general):
        """Imports the General key (a debug log in self.log, plus `general`) and `sections`,
        each a (key, values) pair."""
        self.log = os.path.join(self.dir, "debug.txt")
        values = {"nEnableDebugOutput": 1, "nDebugMini": 1, "nCircularLogging": 0,
                  "szDebugFileName": self.log}
        values.update(general)
        text = "Windows Registry Editor Version 5.00\n"
        for key, vals in [(ROOT + "\\General", values)] + sections:
            text += "\n[%s]\n" % key + "".join(reg_value(k, v) for k, v in vals.items())
        reg = os.path.join(self.dir, "config.reg")
        with open(reg, "w", encoding="utf-8") as f:
            f.write(text)
        self.vtreg("import", reg)

    def log_text(self):
        log = pathlib.Path(self.log)
        return log.read_bytes().decode("utf-8", "replace") if log.exists() else ""

    def spawn(self, *args, console=False):
        """Starts vtagent with its output in pipes; the clean-up stops it if it still runs.
        With `console`, waits for the two lines of a console start."""
        p = subprocess.Popen([VTAGENT, *args], env=self.env, cwd=self.dir,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(self.stop, p)
        if console:
            self.assertEqual([p.stdout.readline(), p.stdout.readline()], CONSOLE_START)
        return p

    def stop(self, p, signum=signal.SIGINT):
        """Stops the agent with `signum` (killed after 30 s, which fails the test); returns
        what it printed."""
        if p.returncode is not None:
            return ""
        if p.poll() is None:
            p.send_signal(signum)
        try:
            out, _ = p.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            p.kill()
            p.communicate()
            self.fail("the agent did not stop on signal %d" % signum)
        return out

    def wait_for(self, condition, what, timeout=60.0, agent=None):
        """Polls `condition` until it holds; fails when `agent` ends or the time is up."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if condition():
                return
            if agent is not None:
                self.assertIsNone(agent.poll(), "the agent ended while waiting for " + what)
            time.sleep(0.05)
        self.fail("timed out waiting for %s\n%s" % (what, self.log_text()[-3000:]))

    def run_agent(self, *args, program=VTAGENT):
        return subprocess.run([program, *args], env=self.env, capture_output=True, text=True,
                              timeout=60)

    def vtreg(self, *args):
        r = self.run_agent(*args, program=VTREG)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def event_texts(self, count):
        """The "[id] text" parts of the first `count` events, with their syslog priority."""
        got = self.events.collect(lambda g: len(g) >= count, timeout=5)
        return [(int(d[1:d.index(">")]), d.split("]: ", 1)[1]) for d in got]


class CommandLine(AgentTestCase):
    def test_help_is_printed_byte_for_byte(self):
        r = self.run_agent("-h")
        self.assertEqual((r.stdout, r.returncode), (HELP, 0))

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
        self.assertEqual(self.run_agent("-v").stdout, version + "The service is not installed.\n")
        r = self.run_agent("-i")
        self.assertEqual((r.stdout, r.returncode), ("QuilletVantoreAgent installed\n", 0))
        text = pathlib.Path(unit).read_text(encoding="utf-8")
        exe = os.path.realpath(VTAGENT)
        self.assertTrue(text.startswith("[Unit]\n"))
        for line in ("[Service]", "Type=notify", "ExecStart=" + exe, "Restart=on-failure",
                     "WorkingDirectory=/var/lib/vtagent", "[Install]",
                     'Environment="VTAGENT_REGISTRY=%s"' % self.env["VTAGENT_REGISTRY"],
                     "WantedBy=multi-user.target"):
            self.assertIn("\n" + line + "\n", text)
        self.assertEqual(self.run_agent("-v").stdout,
                         version + "The service is currently installed.\n")
        parameters = self.vtreg(
            "export", r"HKLM\SYSTEM\CurrentControlSet\Services\QuilletVantoreAgent\Parameters")
        for line in ('"nServiceMajor"=dword:00000004', '"nServiceMinor"=dword:00000004',
                     '"nServiceBuildID"=dword:0000014e', '"bReplaceEventLogSource"=dword:00000000'):
            self.assertIn(line, parameters)
        source_key = (r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application"
                      r"\QuilletVantoreAgent")
        source = self.vtreg("export", source_key)
        self.assertIn('"TypesSupported"=dword:00000007', source)
        self.assertIn('"EventMessageFile"=hex(2):', source)
        self.assertEqual(self.run_agent("-i").stdout, "QuilletVantoreAgent is already installed\n")
        self.assertEqual(self.run_agent("-u").stdout, "QuilletVantoreAgent removed. (You must "
                         "delete the file (%s) yourself.)\n" % exe)
        self.assertFalse(os.path.exists(unit))
        self.assertEqual(self.run_agent("-v").stdout, version + "The service is not installed.\n")
        self.assertEqual(self.run_agent("-u").stdout, "QuilletVantoreAgent is not installed\n")
        # The event source stays registered after the removal.
        self.assertEqual(self.vtreg("export", source_key), source)
        self.assertEqual(self.event_texts(2),
                         [(30, "[100] QuilletVantoreAgent"), (30, "[101] QuilletVantoreAgent")])

    def test_install_into_a_missing_directory_fails_with_the_error(self):
        self.env["VTAGENT_SYSTEMD_DIR"] = os.path.join(self.dir, "no", "such", "dir")
        r = self.run_agent("-i")
        self.assertEqual((r.stdout, r.returncode != 0),
                         ("QuilletVantoreAgent failed to install. Error 2\n", True))


class ConsoleMode(AgentTestCase):
    def test_stops_on_sigint_and_sigterm(self):
        for signum in (signal.SIGINT, signal.SIGTERM):
            p = self.spawn("-r", console=True)
            start = time.monotonic()
            out = self.stop(p, signum)
            self.assertLess(time.monotonic() - start, 1.0)  # the stop waits only for what runs
            self.assertEqual(p.returncode, 0)
            self.assertEqual(
                out, "QuilletVantoreAgent: Initiating Shutdown, this can take up to 1 minute\n")


class ServiceMode(AgentTestCase):
    def test_notify_protocol_and_events(self):
        notify = DatagramSink(os.path.join(self.dir, "notify.sock"))
        self.addCleanup(notify.close)
        self.env["NOTIFY_SOCKET"] = notify.path
        p = self.spawn()
        got = notify.collect(lambda g: any("READY=1" in d for d in g))
        self.assertTrue(any("READY=1" in d for d in got), got)
        self.stop(p, signal.SIGTERM)
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


if __name__ == "__main__":
    unittest.main(verbosity=2)
