"""The syslog receiver end to end: vtagent -r with a syslog source and a write-file rule set,
fed by real senders (logger, rsyslog forwarding compressed datagrams, raw sockets)."""
import os
import random
import socket
import subprocess
import tempfile
import threading
import unittest

from test_service_host import AgentTestCase, file_lines, services, write_file_rules


def free_port():
    """A port free for both UDP and TCP on loopback right now."""
    while True:
        with socket.socket() as t, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as u:
            t.bind(("127.0.0.1", 0))
            try:
                u.bind(t.getsockname())
                return t.getsockname()[1]
            except OSError:
                pass


class SyslogAgent(AgentTestCase):
    def start(self, sources, general=None, line_format="%msg%%$CRLF%", wait=True):
        """Imports a configuration with the given syslog sources (dicts of values) and one rule
        set that writes every message with `line_format`, then runs the agent until every
        source listens."""
        self.out = os.path.join(self.dir, "out")
        sources = [(1, "syslog%d" % n, dict({"nConfigVersion": 1, "szRuleSetName": "Default",
                                             "szMyIPAddress": "127.0.0.1"}, **source))
                   for n, source in enumerate(sources, 1)]
        self.import_config(write_file_rules(self.out, line_format=line_format) +
                           services(*sources), **dict({"nWorkerThreads": 3}, **(general or {})))
        self.agent = self.spawn("-r")
        if wait:
            self.wait_for(lambda: self.log_text().count("CInfoSourceSyslog: listening on") >=
                          len(sources), "the sources to listen", agent=self.agent)

    def lines(self):
        return file_lines(os.path.join(self.out, "out.log"))

    def wait_lines(self, count, timeout=120.0):
        self.wait_for(lambda: len(self.lines()) >= count, "%d lines" % count, timeout, self.agent)
        return self.lines()


class RealSenders(SyslogAgent):
    def test_logger_over_udp_and_tcp(self):
        port = free_port()
        # The UDP source resolves the sender's name through the host name cache.
        self.start([{"nListenPort": port, "nProtocolType": 0, "nResolveNames": 1},
                    {"nListenPort": port, "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                     "szTCPMsgSep": "\\n"}],
                   line_format="%source%|%syslogtag%|%syslogpriority%|%msg%%$CRLF%")
        for proto, word in (("-d", "over-udp"), ("-T", "over-tcp")):
            subprocess.run(["logger", "-n", "127.0.0.1", "-P", str(port), proto, "--rfc3164",
                            "-t", "mytag", "-p", "user.warning", "hello " + word], check=True,
                           timeout=30)
        # The TCP message keeps its line feed, so its line is followed by an empty one.
        self.wait_for(lambda: len([l for l in self.lines() if l]) >= 2, "both messages",
                      agent=self.agent)
        got = sorted(l for l in self.lines() if l)
        self.assertEqual(len(got), 2, got)
        resolved = socket.gethostbyaddr("127.0.0.1")[0].encode()
        for line, word, sender in zip(got, (b"over-tcp", b"over-udp"), (b"127.0.0.1", resolved)):
            source, tag, severity, msg = line.split(b"|", 3)
            self.assertEqual((source, tag, severity), (sender, b"mytag", b"4"))
            self.assertTrue(msg.startswith(b"mytag") and msg.endswith(b": hello " + word), msg)

    @unittest.skipUnless(os.path.exists("/usr/sbin/rsyslogd"), "no rsyslogd to send with")
    def test_rsyslog_forwards_compressed_datagrams(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 0}])
        work = tempfile.mkdtemp(prefix="rsys-", dir=self.dir)
        inport = free_port()
        conf = os.path.join(work, "rsyslog.conf")
        with open(conf, "w") as f:
            f.write('global(workDirectory="%s")\n'
                    'module(load="imudp")\n'
                    'input(type="imudp" address="127.0.0.1" port="%d")\n'
                    'action(type="omfwd" target="127.0.0.1" port="%d" protocol="udp" '
                    'ziplevel="9" compression.mode="single")\n' % (work, inport, port))
        rsys = subprocess.Popen(["/usr/sbin/rsyslogd", "-n", "-f", conf, "-i",
                                 os.path.join(work, "pid")],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        payload = "compress me " + "abcdefgh" * 40
        s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(s.close)

        def send(n):
            s.sendto(("<13>Jan  5 10:20:30 host1 app: %d %s" % (n, payload)).encode(),
                     ("127.0.0.1", inport))
            return True
        try:
            # rsyslog drops what comes before its input is bound: resend the first until through.
            self.wait_for(lambda: send(0) and self.lines(), "rsyslog to forward", 30, self.agent)
            send(1)
            send(2)
            self.wait_for(lambda: {l.split(b" ", 2)[1] for l in self.lines()} >= {b"1", b"2"},
                          "the forwarded lines", 30, self.agent)
            got = self.lines()
        finally:
            rsys.terminate()
            rsys.wait(timeout=10)
        self.assertEqual({l.split(b" ", 2)[1] for l in got}, {b"0", b"1", b"2"})
        for line in got:
            self.assertTrue(line.endswith(payload.encode()), line)
        # The datagrams were really compressed: the receiver logs each inflation failure,
        # and a plain receiver would have written the "z" and zlib bytes instead.
        self.assertFalse(any(b"\x78" in l[:2] for l in got))


class HostileInput(SyslogAgent):
    def test_random_datagrams_and_invalid_utf8_do_not_stop_the_receiver(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 0, "nEscapeControlCharacters": 1},
                    {"nListenPort": port, "nProtocolType": 1}])
        rnd = random.Random(8)
        u = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for n in range(2000):
            size = rnd.choice([0, 1, 2, 17, 200, 1400, 32767, 40000])
            data = bytes(rnd.getrandbits(8) for _ in range(min(size, 300))) * (size // 300 + 1)
            if n % 3 == 0:
                data = b"z" + data  # claims to be compressed
            u.sendto(data[:size] if size <= 65000 else data[:65000], ("127.0.0.1", port))
        t = socket.create_connection(("127.0.0.1", port))
        for _ in range(200):
            t.sendall(bytes(rnd.getrandbits(8) for _ in range(rnd.randrange(1, 5000))))
        t.sendall(b"<13>bad \xff\xfe\xc3( utf8\n")
        t.close()
        u.sendto(b"<13>after the storm", ("127.0.0.1", port))
        self.wait_for(lambda: any(l.endswith(b"after the storm") for l in self.lines()),
                      "the last datagram", 120, self.agent)
        self.assertIsNone(self.agent.poll())
        self.assertTrue(any(b"bad \xef\xbf\xbd" in l for l in self.lines()))


class Sessions(SyslogAgent):
    def test_silent_connection_is_dropped_after_the_session_time_out(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 1, "nTimeOutMsg": 200,
                     "nTimeOutSession": 600}])
        t = socket.create_connection(("127.0.0.1", port))
        t.settimeout(30)
        self.assertEqual(t.recv(10), b"")  # the agent closed it
        t.close()
        # A live connection is served as before.
        t = socket.create_connection(("127.0.0.1", port))
        t.sendall(b"<13>still here")
        t.close()
        self.assertEqual(self.wait_lines(1), [b"still here"])

    def test_rfc3195_reports_an_error_and_does_not_run(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 3}], wait=False)
        self.wait_for(lambda: "can't initialize RFC3195 lib." in self.log_text(), "the error",
                      agent=self.agent)
        self.assertNotIn("CInfoSourceSyslog: listening on", self.log_text())
        s = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.assertNotEqual(s.connect_ex(("127.0.0.1", port)), 0)
        s.close()


def send_numbered(port, count, connections):
    """Sends messages 0..count-1, spread round-robin over TCP connections."""
    socks = [socket.create_connection(("127.0.0.1", port)) for _ in range(connections)]
    chunks = [[] for _ in socks]
    for n in range(count):
        chunks[n % connections].append(b"<13>msg %08d\n" % n)
    threads = [threading.Thread(target=s.sendall, args=(b"".join(c),))
               for s, c in zip(socks, chunks)]
    for th in threads:
        th.start()
    for th, s in zip(threads, socks):
        th.join()
        s.close()


class Volume(SyslogAgent):
    COUNT = 100000

    def run_numbered(self, general, connections):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                     "szTCPMsgSep": "\\n"}], general=general, line_format="%msg%")
        send_numbered(port, self.COUNT, connections)
        self.wait_lines(self.COUNT, timeout=300)
        self.stop(self.agent)  # whatever is still to come is written before the agent ends
        numbers = [int(l.split(b" ")[1]) for l in self.lines()]
        self.assertEqual(sorted(numbers), list(range(self.COUNT)))
        return numbers

    def test_every_message_once(self):
        self.run_numbered({}, 4)

    def test_small_queue_slows_senders_and_drops_nothing(self):
        self.run_numbered({"nQueueLimit": 1000}, 4)

    def test_one_worker_keeps_the_order(self):
        numbers = self.run_numbered({"nWorkerThreads": 1}, 1)
        self.assertEqual(numbers, list(range(self.COUNT)))


if __name__ == "__main__":
    unittest.main()
