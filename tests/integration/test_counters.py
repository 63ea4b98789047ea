"""The agent's counters: after 100,000 syslog messages through a queue whose limit makes the
input wait, SIGUSR1 writes a counters line whose numbers are the truth."""
import os
import re
import signal
import socket
import unittest

from test_syslog import SyslogAgent, free_port


class Counters(SyslogAgent):
    def stats_lines(self):
        return [l for l in self.log_text().splitlines() if "Stats| queue" in l]

    def test_counts_add_up_after_a_flood(self):
        port = free_port()
        count = 100000
        self.start([{"nListenPort": port, "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                     "szTCPMsgSep": "\\n"}], line_format="%msg%",
                   general={"nWorkerThreads": 1, "nQueueLimit": 50})
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
        self.stop(self.agent)
        gone = self.run_agent("-s")
        self.assertEqual((gone.returncode, gone.stdout.split(":")[0]), (1, "No running agent"))


if __name__ == "__main__":
    unittest.main()
