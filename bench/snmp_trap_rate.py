#!/usr/bin/env python3
"""Traps lost by the SNMP trap receiver at a given send rate: 10,000 v2c traps replayed on
loopback at each rate into a write-file rule set, counted by their sequence numbers.
    bench/snmp_trap_rate.py [BUILD_DIR] [RATE ...]"""
import os
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build", "linux")
rates = [int(r) for r in sys.argv[2:]] or [2000, 10000, 20000]
os.environ.update(VTAGENT_BIN=os.path.join(build, "vtagent"),
                  VTREG_BIN=os.path.join(build, "vtreg"), VT_SOURCE_DIR=ROOT)
sys.path.insert(0, os.path.join(ROOT, "tests", "integration"))
from test_snmp_trap import Hostile  # noqa: E402

COUNT = 10000


class Rate(Hostile):
    def runTest(self):
        for rate in rates:
            self.start()
            got = self.flood(COUNT, rate)
            print("%6d traps/s: %5d of %d arrived, %.2f %% lost" %
                  (rate, len(got), COUNT, 100.0 * (COUNT - len(got)) / COUNT), flush=True)
            self.stop(self.agent)
            os.remove(os.path.join(self.out, "out.log"))


if __name__ == "__main__":
    unittest.TextTestRunner(verbosity=0).run(Rate())
