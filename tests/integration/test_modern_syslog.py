"""RFC 5424 headers and octet-counted TCP end to end: vtagent -r parsing what logger and rsyslogd
send, and forwarding in the same form to a socket of the test and to rsyslogd."""
import os
import socket
import subprocess
import threading
import unittest

import test_forward_syslog as forwarding
from test_service_host import ROOT, file_lines, services, write_file_rules
from test_syslog import SyslogAgent, free_port

FIELDS = "%syslogfacility%|%syslogpriority%|%source%|%syslogtag%|%appname%|%procid%|%msgid%|" \
         "%structureddata%|%sd_zoo@123_tiger%|%msg%%$CRLF%"
RULES = ROOT + "\\RuleSets"


def start_relay(case, forward, **source):
    """Runs the agent of `case` with a UDP syslog source (plus `source` values) whose one rule
    forwards over TCP to 127.0.0.1 with `forward`'s values; returns the source's port."""
    inport = free_port()
    forward = dict({"szSyslogSendServer": "127.0.0.1", "nType": 1}, **forward)
    case.import_config(
        [(RULES, {"nRuleSetsVersion": 1, "nRuleSetCount": 1, "szRSName1": "Default"}),
         (RULES + "\\RS1", {"nRuleCount": 1}),
         (RULES + "\\RS1\\R1", {"nActionCount": 1, "nActionType1": 1001, "szActionName1": "fwd"}),
         (RULES + "\\RS1\\R1\\A1", forward)] +
        services((1, "in", dict({"nConfigVersion": 1, "szRuleSetName": "Default",
                                 "nListenPort": inport, "szMyIPAddress": "127.0.0.1"}, **source))))
    case.agent = case.spawn("-r")
    case.wait_for(lambda: "listening on UDP" in case.log_text(), "the source", agent=case.agent)
    return inport


class Rfc5424In(SyslogAgent):
    def test_logger_in_both_header_forms_over_udp_and_counted_tcp(self):
        port = free_port()
        self.start([{"nListenPort": port, "nParseRFC5424": 1, "nTakeSourceSysFromSyslogMsg": 1},
                    {"nListenPort": port, "nProtocolType": 1, "nParseRFC5424": 1,
                     "nTCPOctetCounting": 1, "nEnableTCPMsgSep": 1, "szTCPMsgSep": "\\n"}],
                   line_format=FIELDS)
        common = ["logger", "-n", "127.0.0.1", "-P", str(port), "-p", "local3.err",
                  "-t", "app", "--id=77"]
        subprocess.run(common + ["-d", "--rfc5424", "--msgid", "ID9", "--sd-id", "zoo@123",
                                 "--sd-param", 'tiger="hungry \\"now\\""', "over udp"], check=True)
        subprocess.run(common + ["-T", "--octet-count", "--rfc5424", "over tcp"], check=True)
        subprocess.run(common + ["-d", "--rfc3164", "old form"], check=True)
        lines = {l.decode().rsplit("|", 1)[1]: l.decode() for l in self.wait_lines(3)}
        host = socket.gethostname()
        self.assertRegex(lines["over udp"], r'^19\|3\|%s\|app\[77\]:\|app\|77\|ID9\|\[timeQuality [^]]*\]'
                         r'\[zoo@123 tiger="hungry \\"now\\""\]\|hungry "now"\|over udp$' % host)
        self.assertRegex(lines["over tcp"], r"^19\|3\|127\.0\.0\.1\|app\[77\]:\|app\|77\|\|"
                         r"\[timeQuality [^]]*\]\|\|over tcp$")
        # The older form keeps its header rules: tag in the text, no new properties.
        self.assertEqual(lines["app[77]: old form"], "19|3|%s|app||||||app[77]: old form" % host)

    def test_counted_frames_with_line_feeds_inside(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 1, "nParseRFC5424": 1,
                     "nTCPOctetCounting": 1, "nEnableTCPMsgSep": 1, "szTCPMsgSep": "\\n"}],
                   line_format="%msg%|%$CRLF%", general={"nWorkerThreads": 1})
        messages = ["<14>1 - h a - - - line one\nline two", "<14>1 - h a - - - tail"] * 500
        stream = b"".join(b"%d %s" % (len(m.encode()), m.encode()) for m in messages)
        with socket.create_connection(("127.0.0.1", port)) as s:
            for at in range(0, len(stream), 777):
                s.sendall(stream[at:at + 777])
        got = self.wait_lines(1500)
        self.assertEqual(got, [b"line one", b"line two|", b"tail|"] * 500)


class Rfc5424Out(SyslogAgent):
    def test_a_relayed_message_arrives_unchanged_and_counted(self):
        # Received over UDP with its header parsed, forwarded over TCP with the header rebuilt
        # from the unit: the bytes on the wire are those that came in.
        sink = socket.socket()
        sink.bind(("127.0.0.1", 0))
        sink.listen(1)
        received = bytearray()

        def accept():
            conn, _ = sink.accept()
            with conn:
                while chunk := conn.recv(65536):
                    received.extend(chunk)
        reader = threading.Thread(target=accept, daemon=True)
        reader.start()
        inport = start_relay(self, {"nSyslogSendPort": sink.getsockname()[1], "nSyslogFormat": 1,
                                    "nTCPFraming": 1},
                             nParseRFC5424=1, nTakeSourceSysFromSyslogMsg=1)
        messages = [
            "<165>1 2003-10-11T22:14:15.003Z mymachine.example.com evntslog - ID47 "
            '[exampleSDID@32473 iut="3" eventSource="Application"][p@1 class="h\\]i"] An entry',
            "<34>1 2003-08-24T05:14:15.000003-07:00 192.0.2.1 su 8710 - - Grüße\nzwei Zeilen",
            "<13>1 - - - - - -",
        ]
        expected = b"".join(b"%d %s" % (len(m.encode()), m.encode()) for m in messages)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            for m in messages:
                s.sendto(m.encode(), ("127.0.0.1", inport))
        self.wait_for(lambda: len(received) >= len(expected), "the forwarded frames", 30)
        self.assertEqual(bytes(received), expected)
        sink.close()


RSYSLOGD = forwarding.RSYSLOGD


@unittest.skipUnless(os.path.exists(RSYSLOGD), "no rsyslogd")
class WithRsyslog(SyslogAgent):
    start_rsyslog = forwarding.ForwardToRsyslog.start_rsyslog
    listening = staticmethod(forwarding.ForwardToRsyslog.listening)

    def test_rsyslog_relays_counted_5424_to_vtagent_and_back(self):
        # logger -> rsyslogd (UDP) -> vtagent (counted TCP, 5424) -> rsyslogd (counted TCP, 5424).
        udp, tcp = self.start_rsyslog()
        vt_in, relay_in = free_port(), free_port()
        with open(os.path.join(self.dir, "relay.conf"), "w") as f:
            f.write(f'global(workDirectory="{self.dir}")\nmodule(load="imudp")\n'
                    f'input(type="imudp" address="127.0.0.1" port="{relay_in}" rcvbufSize="16m")\n'
                    f'action(type="omfwd" target="127.0.0.1" port="{vt_in}" protocol="tcp" '
                    'TCP_Framing="octet-counted" template="RSYSLOG_SyslogProtocol23Format")\n')
        os.makedirs(os.path.join(self.dir, "relay"))
        relay = subprocess.Popen([RSYSLOGD, "-n", "-f", os.path.join(self.dir, "relay.conf"),
                                  "-i", os.path.join(self.dir, "relay.pid")],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (relay.terminate(), relay.wait(timeout=10)))
        self.out = os.path.join(self.dir, "out")
        forward = {"szSyslogSendServer": "127.0.0.1", "nSyslogSendPort": tcp, "nType": 1,
                   "nSyslogFormat": 1, "nTCPFraming": 1}
        rules = write_file_rules(self.out, line_format="%appname%|%procid%|%msgid%|%msg%%$CRLF%")
        rules[2][1].update({"nActionCount": 2, "nActionType2": 1001, "szActionName2": "fwd"})
        self.import_config(
            rules + [(RULES + "\\RS1\\R1\\A2", forward)] +
            services((1, "in", {"nConfigVersion": 1, "szRuleSetName": "Default",
                                "nListenPort": vt_in, "szMyIPAddress": "127.0.0.1",
                                "nProtocolType": 1, "nParseRFC5424": 1, "nTCPOctetCounting": 1,
                                "nTakeSourceSysFromSyslogMsg": 1})), nWorkerThreads=1)
        self.agent = self.spawn("-r")
        self.wait_for(lambda: "listening on TCP" in self.log_text(), "the source", agent=self.agent)
        count = 1000
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            self.wait_for(lambda: s.sendto(b"<13>1 - h probe - - - probe", ("127.0.0.1", relay_in))
                          and os.path.exists(os.path.join(self.out, "out.log")),
                          "the relay to forward", agent=self.agent)
            for n in range(count):
                s.sendto(b"<14>1 2024-01-02T03:04:05Z host%d app 42 M%d - message %d" % (n, n, n),
                         ("127.0.0.1", relay_in))
        lines = lambda: [l for l in file_lines(os.path.join(self.out, "out.log"))
                         if l.startswith(b"app|")]
        self.wait_for(lambda: len(lines()) >= count, "the relayed messages", 120, self.agent)
        self.assertEqual(lines(), [b"app|42|M%d|message %d" % (n, n) for n in range(count)])
        tcp_log = os.path.join(self.dir, "tcp.log")
        self.wait_for(lambda: len([l for l in file_lines(tcp_log) if b" app 42 " in l]) >= count,
                      "rsyslogd to receive the forwards", 60, self.agent)
        back = [l for l in file_lines(tcp_log) if b" app 42 " in l]
        self.assertEqual(back[7], b"<14>1 2024-01-02T03:04:05Z host7 app 42 M7 - message 7")


if __name__ == "__main__":
    unittest.main()
