"""vtagent with configured services: the service manager starts what it can, reports what it
cannot, and stops cleanly. The configuration holds types that are reported as not available, an
unknown id and a disabled service."""
import unittest

from test_service_host import AgentTestCase, ROOT, services

CONFIG = [(ROOT + "\\RuleSets",
           {"nRuleSetsVersion": 1, "nRuleSetCount": 1, "szRSName1": "Default"})]
CONFIG += services((23, "Events", {"szRuleSetName": "Default"}), (6, "Nothing", None),
                   (1999999, "Agents", {"szRuleSetName": "Default", "bServiceEnabled": 0}))


class ConfiguredServices(AgentTestCase):
    def setUp(self):
        super().setUp()
        self.import_config(CONFIG, nDebugInternal=1, nWorkerThreads=3)

    def test_unavailable_services_are_reported_and_the_host_stops(self):
        p = self.spawn("-r")
        # Nothing could start: the agent stops itself within one poll of its run loop.
        out, _ = p.communicate(timeout=30)
        self.assertEqual(p.returncode, 0)
        self.assertIn("QuilletVantoreAgent: Service Running\n", out)
        events = [text for _, text in self.event_texts(4)]
        self.assertIn("[114] Service type 23 (CInfoSourceWevtMonitor) is not available in this "
                      "build - ignored!", events)
        self.assertIn("[114] Unknown Service ID 6 found - ignored!", events)
        self.assertIn("[114] Service type 1999999 (CInfoSourceVTRP) is not available in this "
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
        p = self.spawn("-r", console=True)
        self.stop(p)
        self.assertEqual(p.returncode, 0)
        text = self.log_text()
        self.assertIn("### Worker Thread Pool FINISHED! ###\r\n", text)
        self.assertNotIn("NOT FINISHED", text)


if __name__ == "__main__":
    unittest.main()
