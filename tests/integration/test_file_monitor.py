"""vtagent following a log file into a write-file action: every line is written once, also
across a kill of the agent (at most the line in work at the kill comes twice)."""
import collections
import glob
import os
import random
import signal
import subprocess
import threading
import time
import unittest

from test_service_host import AgentTestCase, VTAGENT

LINES = 100000

CONFIG = r"""Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\General]
"nEnableDebugOutput"=dword:00000001
"nDebugMini"=dword:00000001
"nCircularLogging"=dword:00000000
"nWorkerThreads"=dword:00000002
"szDebugFileName"="{log}"

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\RuleSets]
"nRuleSetsVersion"=dword:00000001
"nRuleSetCount"=dword:00000001
"szRSName1"="Default"

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\RuleSets\RS1]
"nRuleCount"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\RuleSets\RS1\R1]
"nActionCount"=dword:00000001
"nActionType1"=dword:000003eb
"szActionName1"="Write the file"

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\RuleSets\RS1\R1\A1]
"szFilePath"="{out}"
"szFileBaseName"="copy"
"nUniqueFileName"=dword:00000000
"nFileFormat"=dword:00000003
"szLineFormat"="%msg%%$CRLF%"

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\Services]
"nConfigVersion"=dword:00000001
"nInfoSourceCount"=dword:00000001
"nISType1"=dword:00000005
"szISName1"="Application log"

[HKEY_LOCAL_MACHINE\SOFTWARE\Quillet\Vantor\Agent\Services\IS1]
"nConfigVersion"=dword:00000001
"szRuleSetName"="Default"
"szPathAndFileName"="{input}"
"nSleepTime"=dword:00000064
"nPreventOverrunDelay"=dword:00000000
"""


def escaped(path):
    return path.replace("\\", "\\\\")


class FileMonitorExactlyOnce(AgentTestCase):
    def start(self):
        return subprocess.Popen([VTAGENT, "-r"], env=self.env, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def output_numbers(self):
        numbers = []
        for name in glob.glob(os.path.join(self.out, "*")):
            with open(name, "rb") as f:
                for line in f.read().decode("utf-8", "replace").splitlines():
                    if line.startswith("line "):
                        numbers.append(int(line[5:]))
        return numbers

    def wait_for(self, predicate, timeout):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if predicate():
                return True
            time.sleep(0.2)
        return predicate()

    def test_every_line_once_across_a_kill(self):
        self.out = os.path.join(self.dir, "out")
        os.mkdir(self.out)
        log = os.path.join(self.dir, "debug.txt")
        source = os.path.join(self.dir, "app.log")
        open(source, "wb").close()
        reg = os.path.join(self.dir, "config.reg")
        with open(reg, "w", encoding="utf-8") as f:
            f.write(CONFIG.replace("{log}", escaped(log)).replace("{out}", escaped(self.out))
                    .replace("{input}", escaped(source)))
        self.vtreg("import", reg)

        def write_lines():
            with open(source, "ab", buffering=0) as f:
                for start in range(0, LINES, 500):
                    f.write("".join(f"line {n:06d}\n" for n in range(start, start + 500))
                            .encode())
                    time.sleep(0.005)

        agent = self.start()
        writer = threading.Thread(target=write_lines)
        writer.start()
        try:
            # Kill at an arbitrary moment while lines are being read.
            kill_after = random.randint(2000, 40000)
            self.assertTrue(self.wait_for(lambda: len(self.output_numbers()) >= kill_after, 120),
                            "the agent wrote too few lines before the kill")
            agent.send_signal(signal.SIGKILL)
            agent.wait()
            agent = self.start()
            writer.join()
            self.assertTrue(self.wait_for(lambda: len(set(self.output_numbers())) >= LINES, 300),
                            f"{len(set(self.output_numbers()))} of {LINES} lines arrived")
            time.sleep(1)  # anything still to come would be a duplicate
        finally:
            writer.join()
            agent.send_signal(signal.SIGINT)
            try:
                agent.wait(timeout=30)
            except subprocess.TimeoutExpired:
                agent.kill()
                agent.wait()
        numbers = self.output_numbers()
        self.assertEqual(set(numbers), set(range(LINES)))
        twice = [n for n, c in collections.Counter(numbers).items() if c > 1]
        self.assertLessEqual(len(twice), 1, twice[:10])
        self.assertLessEqual(len(numbers), LINES + 1)


if __name__ == "__main__":
    unittest.main()
