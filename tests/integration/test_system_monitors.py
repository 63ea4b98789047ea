"""vtagent's system monitors started from the registry: heartbeat and disk space units reach
their files through rules that select them with the unit type and the free space filters; the
alive monitor between two agents; the serial monitor on a pseudo-terminal; the service monitor
without a system bus."""
import os
import time
import unittest

from test_service_host import AgentTestCase, ROOT, file_lines, services, write_file_rules
from test_syslog import free_port

RULES = ROOT + "\\RuleSets"


def filtered_rule(n, out, base, *conditions):
    """Rule n of rule set 1: units matching all `conditions` go to out/base.log."""
    rule = RULES + "\\RS1\\R%d" % n
    return [(rule, {"nActionCount": 1, "nActionType1": 1003, "szActionName1": base}),
            (rule + "\\A1", {"szFilePath": out, "szFileBaseName": base, "nUniqueFileName": 0,
                             "nFileFormat": 3, "szLineFormat": "%iut% %msg%%$CRLF%"}),
            (rule + "\\Filters", {"nFilterCount": len(conditions)})] + [
            (rule + "\\Filters\\F%d" % f, dict(nOperationType=4, **c))
            for f, c in enumerate(conditions, 1)]


class SystemMonitors(AgentTestCase):
    def test_heartbeat_and_disk_space_units_through_filters(self):
        out = os.path.join(self.dir, "out")
        is_heartbeat = {"PropertyType": 5, "PropertyName": "IsHeartbeat", "PropertyValue": "1"}
        is_disk = dict(is_heartbeat, PropertyName="IsDiskSpaceMonitor")
        # Free space below 101 % of the size: always true, so the disk alerts at once. (Other
        # units have no free space: undetermined, which the rule counts as a match.)
        free_below = {"PropertyType": 6, "PropertyValueType": 5, "CompareOperation": 3,
                      "PropertyValue": "101"}
        common = {"nConfigVersion": 1, "szRuleSetName": "Default"}
        self.import_config(
            [(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1, "szRSName1": "Default"}),
             (RULES + "\\RS1", {"nRuleCount": 2})] +
            filtered_rule(1, out, "heartbeat", is_heartbeat) +
            filtered_rule(2, out, "disk", is_disk, free_below) +
            services((2, "beat", dict(common, nSleepTime=1000, szHeartbeatMessage="alive")),
                     (11, "disk", dict(common, nSleepTime=200, nThreshold=101,
                                       szDiskPaths=self.dir + ";/no/such/mount")),
                     (14, "cpu", dict(common, nSleepTime=200, nThreshold=101)),
                     (10, "services", dict(common, nSleepTime=200, szServiceNames="ssh;cron"))))
        # No system bus: the service monitor must say so once and raise no alert.
        self.env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + os.path.join(self.dir, "no-bus")
        agent = self.spawn("-r")
        beats = lambda: file_lines(os.path.join(out, "heartbeat.log"))
        self.wait_for(lambda: len(beats()) >= 2, "two heartbeats", 30, agent)
        self.stop(agent)
        self.assertEqual(set(beats()), {b"2 alive"})
        disk = file_lines(os.path.join(out, "disk.log"))
        # One alert per crossing, not one per poll (the repeat interval is an hour).
        self.assertEqual(len(disk), 1, disk)
        self.assertRegex(disk[0].decode(), r"^11 Disk space low on '%s': \d+ MB free of \d+ MB "
                         r"\(\d+%%\), threshold 101%%$" % self.dir)
        self.assertEqual(sorted(os.listdir(out)), ["disk.log", "heartbeat.log"])
        log = self.log_text()
        self.assertEqual(log.count("cannot read '/no/such/mount' - error 2"), 1)
        self.assertRegex(log, r"Service \(Number 3, Name 'cpu'\) \w+ running")
        self.assertNotIn("cannot read the processor counters", log)
        self.assertEqual(log.count("cannot reach the system bus"), 1, log)


class AliveMonitor(AgentTestCase):
    def spawn_echo_agent(self, port):
        """A second agent, with a hive and a debug log of its own, running only the echo
        responder; returns once it listens."""
        own = dict(self.env, VTAGENT_REGISTRY=os.path.join(self.dir, "echo.db"))
        mine, self.env = self.env, own
        log = os.path.join(self.dir, "echo-debug.txt")
        self.import_config(write_file_rules(os.path.join(self.dir, "echo-out")) +
                           services((1999998, "echo", {"nConfigVersion": 1,
                                                       "szRuleSetName": "Default",
                                                       "szMyIPAddress": "127.0.0.1",
                                                       "nListenPort": port})),
                           szDebugFileName=log)
        agent = self.spawn("-r")
        self.env = mine
        running = lambda: os.path.exists(log) and "listening on UDP" in open(log, errors="replace").read()
        self.wait_for(running, "the echo responder", 30, agent)
        return agent

    def test_silent_peer_alerts_once_and_recovery_is_reported(self):
        out = os.path.join(self.dir, "out")
        port = free_port()
        request = {"nConfigVersion": 1, "szRuleSetName": "Default", "szTargetHost": "127.0.0.1",
                   "nTargetPort": port, "nSleepTime": 200, "nTimeOutLimit": 300,
                   "nNbrOfRetries": 0}
        echo = self.spawn_echo_agent(port)
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services((16, "alive", request)))
        agent = self.spawn("-r")
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: "'alive'" in self.log_text(), "the request side", 30, agent)
        time.sleep(1)  # some rounds: those that find the peer alive produce nothing
        self.assertEqual(lines(), [])
        self.stop(echo)
        self.wait_for(lambda: len(lines()) >= 1, "the alert", 30, agent)
        echo = self.spawn_echo_agent(port)
        self.wait_for(lambda: len(lines()) >= 2, "the recovery", 30, agent)
        self.stop(agent)
        self.stop(echo)
        got = [l.decode() for l in lines()]
        self.assertEqual(got[0], "16 Alive monitor: no echo from 127.0.0.1 port %d after 1 "
                         "request(s) - error 10060" % port)
        self.assertRegex(got[1], r"^16 Alive monitor: 127.0.0.1 port %d answers again "
                         r"\(\d+ ms\)$" % port)
        self.assertEqual(len(got), 2, got)


class SerialMonitor(AgentTestCase):
    def test_lines_from_a_pseudo_terminal(self):
        """A pseudo-terminal stands in for the serial line: what the device side writes, in
        pieces and with binary bytes, arrives as one unit per line."""
        out = os.path.join(self.dir, "out")
        device, port = os.openpty()
        self.addCleanup(os.close, device)
        self.addCleanup(os.close, port)
        serial = {"nConfigVersion": 1, "szRuleSetName": "Default", "szPortName": os.ttyname(port),
                  "nBps": 9600, "nSleepTime": 100}
        self.import_config(write_file_rules(out, line_format="%iut% %msg%%$CRLF%") +
                           services((13, "serial", serial)))
        agent = self.spawn("-r")
        self.wait_for(lambda: "reading '" in self.log_text(), "the port", 30, agent)
        for piece in (b"UPS on batt", b"ery\r\n", b"\r\nline \xff\x01 two\n"):
            os.write(device, piece)
        lines = lambda: file_lines(os.path.join(out, "out.log"))
        self.wait_for(lambda: len(lines()) >= 2, "two lines", 30, agent)
        self.stop(agent)
        self.assertEqual(lines()[0], b"13 UPS on battery")
        self.assertTrue(lines()[1].startswith(b"13 line "), lines())
        self.assertEqual(len(lines()), 2)


if __name__ == "__main__":
    unittest.main()
