"""Log rotation: the files are renamed away while messages flow and the agent gets SIGHUP; every
message is in exactly one of the two files and the debug log starts anew under its name."""
import os
import signal
import socket
import threading
import unittest

from test_service_host import file_lines
from test_syslog import SyslogAgent, free_port


class Rotation(SyslogAgent):
    def test_sighup_while_messages_flow_loses_and_doubles_nothing(self):
        port = free_port()
        self.start([{"nListenPort": port, "nProtocolType": 1, "nEnableTCPMsgSep": 1,
                     "szTCPMsgSep": "\\n"}], line_format="%msg%", general={"nWorkerThreads": 2})
        out = os.path.join(self.out, "out.log")
        count = 100000
        halfway = threading.Event()

        def send():
            with socket.create_connection(("127.0.0.1", port)) as s:
                for start in range(0, count, 1000):
                    s.sendall(b"".join(b"<13>msg %06d\n" % n for n in range(start, start + 1000)))
                    if start == count // 2:
                        halfway.set()
        sender = threading.Thread(target=send)
        sender.start()
        halfway.wait(60)
        self.wait_for(lambda: os.path.exists(out), "the first lines", agent=self.agent)
        os.rename(out, out + ".1")
        os.rename(self.log, self.log + ".1")
        os.kill(self.agent.pid, signal.SIGHUP)
        sender.join()
        lines = lambda: file_lines(out + ".1", out)
        self.wait_for(lambda: len(lines()) >= count, "every line", 120, self.agent)
        self.assertEqual(sorted(lines()), [b"msg %06d" % n for n in range(count)])
        self.assertTrue(file_lines(out), "nothing was written after the rotation")
        self.wait_for(lambda: "log files are reopened on request" in self.log_text(),
                      "the new debug log", agent=self.agent)
        self.assertIsNone(self.agent.poll())


if __name__ == "__main__":
    unittest.main()
