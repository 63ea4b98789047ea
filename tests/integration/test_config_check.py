"""vtagent -c: the bundled configuration passes, and each broken configuration of the table gives
exactly its line and exit status 1."""
import os
import unittest

from test_service_host import ROOT, AgentTestCase, services, write_file_rules

SERVICES = ROOT[len("HKEY_LOCAL_MACHINE\\"):] + "\\Services"
RULE = ROOT[len("HKEY_LOCAL_MACHINE\\"):] + "\\RuleSets\\RS1\\R1"
SOURCE_DIR = os.environ.get("VT_SOURCE_DIR",
                            os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))


def syslog(port=5140, **values):
    return (1, "syslog", dict({"nConfigVersion": 1, "szRuleSetName": "Default",
                               "nListenPort": port}, **values))


class ConfigCheck(AgentTestCase):
    def check(self, *args):
        r = self.run_agent("-c", *args)
        return r.returncode, r.stdout

    def test_bundled_configuration_has_no_problem(self):
        self.vtreg("import", os.path.join(SOURCE_DIR, "config", "vtagent_default.reg"))
        self.assertEqual(self.check(), (0, "The configuration has no problem.\n"))

    def test_each_broken_configuration_gives_its_line(self):
        blocked = os.path.join(self.dir, "a-file")
        open(blocked, "w").close()
        extra_action = {"nActionCount": 2, "nActionType2": 1014, "szActionName2": "call"}
        cases = [
            ([syslog(), (77, "x", None)], {},
             "HKLM\\%s\\nISType2: unknown input type 77" % SERVICES),
            ([syslog(), (23, "x", None)], {},
             "HKLM\\%s\\nISType2: input type 23 (CInfoSourceWevtMonitor) is not available in "
             "this build" % SERVICES),
            ([syslog(nListenPort="514")], {},
             "HKLM\\%s\\IS1\\nListenPort: is not a number (REG_DWORD); the default is used "
             "instead" % SERVICES),
            ([syslog(szRuleSetName="Nope")], {},
             "HKLM\\%s\\IS1\\szRuleSetName: rule set 'Nope' does not exist" % SERVICES),
            ([syslog(), syslog(nProtocolType=0)], {},
             "HKLM\\%s\\IS2\\nListenPort: port 5140/udp on 0.0.0.0 is also used by input 1"
             % SERVICES),
            ([syslog()], {"action_type": 1999},
             "HKLM\\%s\\nActionType1: unknown action type 1999" % RULE),
            ([syslog()], {"rule": extra_action, "A2": {"szRuleSet": "Missing"}},
             "HKLM\\%s\\A2\\szRuleSet: rule set 'Missing' does not exist" % RULE),
            ([syslog()], {"path": os.path.join(blocked, "logs")},
             "HKLM\\%s\\A1\\szFilePath: directory '%s' cannot be written"
             % (RULE, os.path.join(blocked, "logs"))),
        ]
        for sources, change, expected in cases:
            with self.subTest(expected=expected):
                if os.path.exists(self.env["VTAGENT_REGISTRY"]):
                    os.remove(self.env["VTAGENT_REGISTRY"])
                rules = write_file_rules(change.get("path", os.path.join(self.dir, "out")))
                rules[2][1]["nActionType1"] = change.get("action_type", 1003)
                rules[2][1].update(change.get("rule", {}))
                if "A2" in change:
                    rules.append((rules[2][0] + "\\A2", change["A2"]))
                self.import_config(rules + services(*sources))
                self.assertEqual(self.check(), (1, expected + "\n"))
                self.assertEqual(self.check("-q"), (1, ""))


if __name__ == "__main__":
    unittest.main()
