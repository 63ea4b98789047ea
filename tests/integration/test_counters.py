"""The agent's counters: after 100,000 syslog messages through a queue whose limit makes the
input wait, SIGUSR1 writes a counters line whose numbers are the truth."""
import os
import re
import signal
import socket
import unittest
import urllib.error
import urllib.request

from test_syslog import SyslogAgent, free_port


class Counters(SyslogAgent):
    def stats_lines(self):
        return [l for l in self.log_text().splitlines() if "Stats| queue" in l]

    def test_counts_add_up_after_a_flood(self):
        port, metrics = free_port(), free_port()
        count = 100000
        self.start([{"nListenPort": port, "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                     "szTCPMsgSep": "\\n"}], line_format="%msg%",
                   general={"nWorkerThreads": 1, "nQueueLimit": 50, "nMetricsPort": metrics})
        with socket.create_connection(("127.0.0.1", port)) as s:
            s.sendall(b"".join(b"<13>m%06d\n" % n for n in range(count)))
        self.wait_lines(count)
        os.kill(self.agent.pid, signal.SIGUSR1)
        self.wait_for(lambda: self.stats_lines(), "the counters line", agent=self.agent)
        line = self.stats_lines()[-1]
        numbers = lambda pattern: [int(x) for x in re.search(pattern, line).groups()]
        self.assertEqual(numbers(r"input 'syslog1' units=(\d+) dropped=(\d+)"), [count, 0])
        self.assertEqual(numbers(r"action 'file' \(WriteFile\) done=(\d+) failed=(\d+) "
                                 r"retried=(\d+) aborted=(\d+)"), [count, 0, 0, 0])
        length, highwater, waits = numbers(r"queue length=(\d+) highwater=(\d+) waits=(\d+)")
        self.assertEqual(length, 0)
        self.assertTrue(0 < highwater <= 51, line)
        self.assertGreater(waits, 0, line)
        self.assertRegex(line, r"\| process rss=\d+KB threads=\d+")
        # vtagent -s shows the same counters of the running agent (within a second), one part a
        # line; once the agent has stopped, it says that none runs.
        expected = "input 'syslog1' units=%d dropped=0\n" % count
        self.wait_for(lambda: expected in self.run_agent("-s").stdout, "vtagent -s",
                      agent=self.agent)
        shown = self.run_agent("-s")
        self.assertEqual(shown.returncode, 0, shown.stdout)
        self.assertTrue(shown.stdout.startswith("Stats| queue length=0 "), shown.stdout)
        # The same in the Prometheus text format; any other path is not found.
        url = "http://127.0.0.1:%d/" % metrics
        text = urllib.request.urlopen(url + "metrics", timeout=10).read().decode()
        for sample in ('vtagent_input_units_total{input="syslog1"} %d' % count,
                       'vtagent_action_done_total{action="file",type="WriteFile"} %d' % count,
                       "vtagent_queue_length 0", "# TYPE vtagent_queue_producer_waits_total counter"):
            self.assertIn(sample + "\n", text)
        with self.assertRaises(urllib.error.HTTPError) as missing:
            urllib.request.urlopen(url + "other", timeout=10)
        self.assertEqual(missing.exception.code, 404)
        self.stop(self.agent)
        gone = self.run_agent("-s")
        self.assertEqual((gone.returncode, gone.stdout.split(":")[0]), (1, "No running agent"))


if __name__ == "__main__":
    unittest.main()
