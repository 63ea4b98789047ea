"""vtagent with configured services: the service manager starts what it can, reports what it
cannot, and stops cleanly. No input type is part of the build yet, so the configurations hold
types that are reported as not available, unknown ids and disabled services."""
import os
import signal
import subprocess
import time
import unittest

from test_service_host import AgentTestCase, GENERAL, VTAGENT

CONFIG = """Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\General]
"nEnableDebugOutput"=dword:00000001
"nDebugMini"=dword:00000001
"nDebugInternal"=dword:00000001
"nCircularLogging"=dword:00000000
"nWorkerThreads"=dword:00000003
"szDebugFileName"="{log}"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets]
"nRuleSetsVersion"=dword:00000001
"nRuleSetCount"=dword:00000001
"szRSName1"="Default"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\Services]
"nConfigVersion"=dword:00000001
"nInfoSourceCount"=dword:00000003
"nISType1"=dword:00000002
"szISName1"="Heartbeat"
"nISType2"=dword:00000006
"szISName2"="Nothing"
"nISType3"=dword:00000004
"szISName3"="Files"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\Services\\IS1]
"szRuleSetName"="Default"

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillet\\Vantor\\Agent\\Services\\IS3]
"szRuleSetName"="Default"
"bServiceEnabled"=dword:00000000
"""


class ConfiguredServices(AgentTestCase):
    def import_config(self):
        self.log = os.path.join(self.dir, "debug.txt")
        reg = os.path.join(self.dir, "config.reg")
        with open(reg, "w", encoding="utf-8") as f:
            f.write(CONFIG.replace("{log}", self.log.replace("\\", "\\\\")))
        self.vtreg("import", reg)

    def log_text(self):
        with open(self.log, "rb") as f:
            return f.read().decode("utf-8", "replace")

    def test_unavailable_services_are_reported_and_the_host_stops(self):
        self.import_config()
        p = subprocess.Popen([VTAGENT, "-r"], env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            # Nothing could start: the agent stops itself within one poll of its run loop.
            out, _ = p.communicate(timeout=30)
            self.assertEqual(p.returncode, 0)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
        self.assertIn("QuilletVantoreAgent: Service Running\n", out)
        events = [text for _, text in self.event_texts(4)]
        self.assertIn("[114] Service type 2 (CInfoSourceHeartbeat) is not available in this build"
                      " - ignored!", events)
        self.assertIn("[114] Unknown Service ID 6 found - ignored!", events)
        self.assertIn("[114] Service type 4 (CInfoSourceSNMPTrap) is not available in this "
                      "build - ignored!", events)
        self.assertIn("[114] No InfoSource service could successfully be started - the service "
                      "will now be stopped!", events)
        text = self.log_text()
        order = ["CServiceManager|ShutdownServices: in stop loop, service id 1, pointer "
                 "0x00000000 \r\n",
                 "CServiceManager|ShutdownServices: in stop loop, service id 3",
                 "### Worker Thread Pool FINISHED! ###\r\n"]
        at = [text.find(line) for line in order]
        self.assertNotIn(-1, at, text)
        self.assertEqual(at, sorted(at))
        self.assertNotIn("Cancel thread", text)

    def test_sigint_during_run_stops_cleanly(self):
        self.import_config()
        p = subprocess.Popen([VTAGENT, "-r"], env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            self.assertEqual(p.stdout.readline(), "QuilletVantoreAgent: Initiating Console mode\n")
            self.assertEqual(p.stdout.readline(), "QuilletVantoreAgent: Service Running\n")
            start = time.monotonic()
            p.send_signal(signal.SIGINT)
            p.communicate(timeout=30)
            # The stop grace of two seconds for the configured services, then the workers.
            self.assertLess(time.monotonic() - start, 8.0)
            self.assertEqual(p.returncode, 0)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
        text = self.log_text()
        self.assertIn("### Worker Thread Pool FINISHED! ###\r\n", text)
        self.assertNotIn("NOT FINISHED", text)


if __name__ == "__main__":
    unittest.main()
