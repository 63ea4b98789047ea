"""Forward syslog end to end: vtagent -r receives syslog and forwards every message to a real
rsyslogd over UDP, TCP and compressed UDP; rsyslogd writes each raw message to a file."""
import os
import socket
import subprocess
import unittest

from test_service_host import ROOT, AgentTestCase, file_lines, services
from test_syslog import free_port

RSYSLOGD = "/usr/sbin/rsyslogd"
TRANSPORTS = {"udp": {"nType": 0}, "tcp": {"nType": 1},
              "zudp": {"nType": 0, "nUseCompression": 1, "nCompressionLevel": 9}}


@unittest.skipUnless(os.path.exists(RSYSLOGD), "no rsyslogd to receive with")
class ForwardToRsyslog(AgentTestCase):
    def start_rsyslog(self):
        """rsyslogd with a UDP and a TCP input, each writing the raw message to its own file;
        returns the two ports."""
        udp, tcp = free_port(), free_port()
        d = self.dir
        with open(os.path.join(d, "rsyslog.conf"), "w") as f:
            f.write(f'global(workDirectory="{d}" maxMessageSize="128k")\n'
                    'module(load="imudp")\nmodule(load="imtcp")\n'
                    'template(name="raw" type="string" string="%rawmsg%\\n")\n'
                    f'ruleset(name="u") {{ action(type="omfile" file="{d}/udp.log" '
                    'template="raw") }\n'
                    f'ruleset(name="t") {{ action(type="omfile" file="{d}/tcp.log" '
                    'template="raw") }\n'
                    # A burst of datagrams must not overflow the default socket buffer.
                    f'input(type="imudp" address="127.0.0.1" port="{udp}" ruleset="u" '
                    'rcvbufSize="16m")\n'
                    f'input(type="imtcp" address="127.0.0.1" port="{tcp}" ruleset="t")\n')
        rsys = subprocess.Popen([RSYSLOGD, "-n", "-f", os.path.join(d, "rsyslog.conf"), "-i",
                                 os.path.join(d, "rsyslog.pid")],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (rsys.terminate(), rsys.wait(timeout=10)))
        self.wait_for(lambda: self.listening(tcp), "rsyslogd to listen on TCP")
        udp_log = os.path.join(d, "udp.log")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            # Datagrams sent before its UDP input is bound are lost: probe until one arrives.
            self.wait_for(lambda: s.sendto(b"<13>probe", ("127.0.0.1", udp)) and
                          os.path.exists(udp_log) and b"probe" in open(udp_log, "rb").read(),
                          "rsyslogd to listen on UDP")
        return udp, tcp

    @staticmethod
    def listening(port):
        with socket.socket() as s:
            return s.connect_ex(("127.0.0.1", port)) == 0

    def test_every_message_reaches_rsyslog_over_each_transport(self):
        udp, tcp = self.start_rsyslog()
        inport = free_port()
        rules = ROOT + "\\RuleSets"
        rule = {"nActionCount": len(TRANSPORTS)}
        actions = []
        for n, (name, values) in enumerate(TRANSPORTS.items(), 1):
            rule.update({"nActionType%d" % n: 1001, "szActionName%d" % n: name})
            port = tcp if values["nType"] == 1 else udp
            actions.append((rules + "\\RS1\\R1\\A%d" % n,
                            dict(values, szSyslogSendServer="127.0.0.1", nSyslogSendPort=port,
                                 szMessageFormat="%msg%")))
        self.import_config(
            [(rules, {"nRuleSetsVersion": 1, "nRuleSetCount": 1, "szRSName1": "Default"}),
             (rules + "\\RS1", {"nRuleCount": 1}), (rules + "\\RS1\\R1", rule)] + actions +
            services((1, "in", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                "nListenPort": inport, "szMyIPAddress": "127.0.0.1"})),
            nWorkerThreads=1)
        agent = self.spawn("-r")
        self.wait_for(lambda: "listening on UDP" in self.log_text(), "the receiver", agent=agent)
        count = 300
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            for n in range(count):
                s.sendto(b"<13>Jan  5 10:20:30 host1 app: message %04d" % n, ("127.0.0.1", inport))
        logs = [os.path.join(self.dir, f) for f in ("udp.log", "tcp.log")]
        lines = lambda *paths: [l for l in file_lines(*paths) if not l.endswith(b"probe")]
        # UDP and compressed UDP both land in udp.log: every message twice there, once in tcp.log.
        self.wait_for(lambda: len(lines(*logs)) >= 3 * count, "every message forwarded",
                      agent=agent)
        self.stop(agent)
        numbers = lambda path: [int(l.rsplit(b" ", 1)[1]) for l in lines(path)]
        self.assertEqual(numbers(logs[1]), list(range(count)))  # TCP keeps the order
        self.assertEqual(sorted(numbers(logs[0])), sorted(list(range(count)) * 2))
        for line in lines(*logs):
            self.assertRegex(line, rb"^<13>\w{3} [ \d]\d \d\d:\d\d:\d\d \S+ app: message \d{4}$")


if __name__ == "__main__":
    unittest.main()
