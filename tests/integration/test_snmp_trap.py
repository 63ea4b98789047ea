"""The SNMP trap receiver end to end: vtagent -r with a trap source and a write-file rule set, fed
by Debian's snmptrap and snmpinform on a loopback port, by hostile datagrams and by a replayed
flood."""
import os
import random
import re
import socket
import subprocess
import time
import unittest

from test_service_host import AgentTestCase, ROOT, file_lines, services, write_file_rules
from test_syslog import free_port

SOURCE_DIR = os.environ.get("VT_SOURCE_DIR",
                            os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
MIBS = os.path.join(SOURCE_DIR, "config", "mibs")
FIELDS = ("%source%|%snmp_community%|%snmp_version%|%snmp_enterprise%|%snmp_generic_name%|"
          "%snmp_specifictype%|%snmp_uptime%|%snmp_securityname%|%msg%%$CRLF%")
BASE = "VTAGENT-BASE-MIB::"
ENGINE = "0x8000000001020304"


class SnmpTrapAgent(AgentTestCase):
    def start(self, users=(), **values):
        self.port = free_port()
        self.out = os.path.join(self.dir, "out")
        source = dict({"nConfigVersion": 1, "szRuleSetName": "Default",
                       "nListenPort": self.port}, **values)
        sections = write_file_rules(self.out, line_format=FIELDS) + services((4, "traps", source))
        for name, keys in users:
            sections.append((ROOT + "\\Services\\IS1\\SNMPv3Users\\" + name, keys))
        self.import_config(sections, szMIBSPath=MIBS)
        self.agent = self.spawn("-r")
        self.wait_for(lambda: "CInfoSourceSNMPTrap| listening on" in self.log_text(),
                      "the receiver to listen", agent=self.agent)

    def snmp(self, tool, *args, check=True):
        # The tools keep their state in the test directory, not in the system's.
        env = dict(os.environ, SNMP_PERSISTENT_DIR=self.dir, SNMPCONFPATH=self.dir)
        return subprocess.run([tool, "-M", MIBS, "-t", "1", "-r", "0", *args[:-1],
                               "127.0.0.1:%d" % self.port, *args[-1]], env=env,
                              capture_output=True, text=True, check=check, timeout=30)

    def trap(self, *options, payload):
        return self.snmp("snmptrap", *options, payload)

    def rows(self, count):
        self.wait_for(lambda: len(self.lines()) >= count, "%d units" % count, 60, self.agent)
        return [l.decode("utf-8").split("|") for l in self.lines()]

    def lines(self):
        return file_lines(os.path.join(self.out, "out.log"))


class Versions(SnmpTrapAgent):
    def test_version_1_generic_types_and_uptime(self):
        # Every generic name, an unknown generic type, and an up-time of more than a day.
        self.start()
        cases = [(0, "Cold Start"), (1, "Warm Start"), (2, "Link Down"), (3, "Link Up"),
                 (4, "Authentication Failure"), (5, "EGP Neighbor Loss"),
                 (6, "Enterprise Specific"), (9, "Unknown Type")]
        for generic, _ in cases:
            self.trap("-v", "1", "-c", "public", payload=[
                "1.3.6.1.4.1.8072.2.3", "192.0.2.7", str(generic), "17", "12345"])
        self.trap("-v", "1", "-c", "site-7", payload=[
            "1.3.6.1.4.1.99", "10.0.0.1", "6", "3", "8640123", "1.3.6.1.2.1.1.5.0", "s", "sw1"])
        rows = self.rows(len(cases) + 1)
        for row, (_, name) in zip(rows, cases):
            self.assertEqual(row, [
                "192.0.2.7", "public", "0", BASE + "enterprises.8072.2.3", name, "17", "12345", "",
                'source="192.0.2.7" community="public" enterprise="%senterprises.8072.2.3" '
                'generic_name="%s"version="Ver1" specific_type="17" uptime="12345, 0:02:03.45"'
                % (BASE, name)])
        self.assertEqual(rows[-1][-1], (
            'source="10.0.0.1" community="site-7" enterprise="%senterprises.99" generic_name='
            '"Enterprise Specific"version="Ver1" specific_type="3" uptime="8640123, 1 day '
            '0:00:01.23"' % BASE))

    def test_version_2c_bindings_of_every_type(self):
        # 0, 1, 3 and 20 own bindings after the two every v2c trap carries, every value type.
        self.start()
        types = [("i", "-42", "INTEGER: -42"), ("u", "42", "Gauge32: 42"),
                 ("c", "7", "Counter32: 7"), ("t", "500", "Timeticks: (500) 0:00:05.00"),
                 ("a", "10.1.2.3", "IpAddress: 10.1.2.3"),
                 ("o", "1.3.6.1.2.1.1.5", "OID: %ssysName" % BASE),
                 ("s", "Störung ✓", 'STRING: "Störung ✓"'), ("x", "00ff", "Hex-STRING: 00 FF "),
                 ("U", "18446744073709551615", "Opaque: UInt64: 18446744073709551615"),
                 ("F", "1.5", "Opaque: Float: 1.500000")]
        counts = [0, 1, 3, 20]
        for count in counts:
            bindings = []
            for n in range(count):
                kind, value, _ = types[n % len(types)]
                bindings += ["1.3.6.1.4.1.99.%d" % n, kind, value]
            self.trap("-v", "2c", "-c", "public", payload=["4242", "1.3.6.1.6.3.1.1.5.3"] +
                      bindings)
        for row, count in zip(self.rows(len(counts)), counts):
            expected = ["%ssysUpTime.0: 'Timeticks: (4242) 0:00:42.42'" % BASE,
                        "%ssnmpTrapOID.0: 'OID: %slinkDown'" % (BASE, BASE)]
            expected += ["%senterprises.99.%d: '%s'" % (BASE, n, types[n % len(types)][2])
                         for n in range(count)]
            self.assertEqual(row[:8], ["127.0.0.1", "public", "1", "", "", "", "4242", ""])
            head, variables = row[8].split(" variables: ")
            self.assertEqual(head, 'source="127.0.0.1" community="public" version="Ver2"')
            self.assertEqual(variables, " , ".join(
                "snmp_var_%d = '%s'" % (n, text) for n, text in enumerate(expected, 1)))

    def test_version_filter(self):
        # With nSnmpVersion 1 a v2c inform is neither answered nor turned into a unit, while a
        # v1 trap still is.
        self.start(nSnmpVersion=1)
        refused = self.snmp("snmpinform", "-v", "2c", "-c", "public",
                            ["", "1.3.6.1.6.3.1.1.5.1"], check=False)
        self.assertNotEqual(refused.returncode, 0)
        self.trap("-v", "1", "-c", "public", payload=["1.3.6.1.4.1.99", "10.0.0.1", "0", "0", "1"])
        self.assertEqual(len(self.rows(1)), 1)
        self.assertIn("dropped: nSnmpVersion is 1", self.log_text())

    def test_inform_is_answered(self):
        # snmpinform exits 0 only when the response came back.
        self.start()
        answered = self.snmp("snmpinform", "-v", "2c", "-c", "public",
                             ["77", "1.3.6.1.6.3.1.1.5.1", "1.3.6.1.2.1.1.5.0", "s", "ups"])
        self.assertEqual(answered.returncode, 0)
        self.assertIn("snmp_var_3 = '%ssysName.0: 'STRING: \"ups\"''" % BASE, self.rows(1)[0][-1])

    def test_long_names_walk_the_mib_tree(self):
        self.start(nResolveLongMibNames=1)
        self.trap("-v", "2c", "-c", "public", payload=["5", "1.3.6.1.6.3.1.1.5.1",
                                                       "1.3.6.1.2.1.2.2.1.1.7", "i", "7"])
        self.assertTrue(self.rows(1)[0][-1].endswith(
            "snmp_var_3 = 'iso.org.dod.internet.mgmt.mib-2.interfaces.ifTable.ifEntry.ifIndex.7:"
            " 'INTEGER: 7''"))

    def test_version_3_user_and_wrong_key(self):
        # The right keys deliver the unit; three packets with a wrong key deliver nothing and
        # cost one log line for the sender, not three.
        user = {"szEngineID": ENGINE, "szAuthProtocol": "SHA", "szAuthPassphrase": "auth-pass-1",
                "szPrivProtocol": "AES", "szPrivPassphrase": "priv-pass-1"}
        self.start(users=[("ops", user)])
        v3 = ["-v", "3", "-e", ENGINE, "-u", "ops", "-l", "authPriv", "-a", "SHA", "-x", "AES",
              "-X", "priv-pass-1"]
        for _ in range(3):
            self.trap(*v3, "-A", "wrong-pass-1", payload=["1", "1.3.6.1.6.3.1.1.5.1"])
        self.trap(*v3, "-A", "auth-pass-1", payload=["9", "1.3.6.1.6.3.1.1.5.2"])
        row = self.rows(1)[0]
        self.assertEqual(row[:8], ["127.0.0.1", "", "3", "", "", "", "9", "ops"])
        self.assertIn('version="Ver3"', row[-1])
        self.assertEqual(len(self.lines()), 1)
        self.assertEqual(self.log_text().count("wrong key"), 1)


class Hostile(SnmpTrapAgent):
    def capture(self, *args):
        """The datagram snmptrap sends for `args`, caught on a socket of the test's own."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sink:
            sink.bind(("127.0.0.1", 0))
            real, self.port = self.port, sink.getsockname()[1]
            self.trap("-v", "2c", "-c", "public", payload=list(args))
            self.port = real
            return sink.recv(65536)

    def test_garbage_and_truncated_packets_leave_it_receiving(self):
        self.start()
        packet = self.capture("1", "1.3.6.1.6.3.1.1.5.1", "1.3.6.1.4.1.99.1", "s", "x" * 40)
        rng = random.Random(7)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            for size in range(1, len(packet)):
                s.sendto(packet[:size], ("127.0.0.1", self.port))
            for size in list(range(1, 200)) + [1500, 9000]:
                s.sendto(bytes(rng.randrange(256) for _ in range(size)), ("127.0.0.1", self.port))
            s.sendto(b"\x30\x84\xff\xff\xff\xff" + packet, ("127.0.0.1", self.port))
        self.trap("-v", "2c", "-c", "public", payload=["2", "1.3.6.1.6.3.1.1.5.2"])
        self.assertEqual(len(self.rows(1)), 1)
        self.assertIsNone(self.agent.poll())
        self.assertIn("refused: malformed packet", self.log_text())

    def flood(self, count, rate):
        """Replays one captured trap `count` times at `rate` per second, each with its number
        in a string binding; returns the numbers that arrived."""
        packet = self.capture("1", "1.3.6.1.6.3.1.1.5.1", "1.3.6.1.4.1.99.1", "s", "seq-00000")
        start = time.monotonic()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            for n in range(count):
                s.sendto(packet.replace(b"seq-00000", b"seq-%05d" % n), ("127.0.0.1", self.port))
                ahead = start + (n + 1) / rate - time.monotonic()
                if ahead > 0:
                    time.sleep(ahead)
        deadline = time.monotonic() + 60
        while len(self.lines()) < count and time.monotonic() < deadline:
            time.sleep(0.2)
            before = len(self.lines())
            time.sleep(1)
            if len(self.lines()) == before:
                break
        return {int(m) for m in re.findall(rb"seq-(\d{5})", b"\n".join(self.lines()))}

    def test_ten_thousand_traps_at_two_thousand_a_second_none_lost(self):
        self.start()
        self.assertEqual(self.flood(10000, 2000), set(range(10000)))


if __name__ == "__main__":
    unittest.main()
