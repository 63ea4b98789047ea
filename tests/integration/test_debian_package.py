"""The Debian package: built by scripts/build_deb.sh from the tested programs, without lintian
errors, with the expected files, and a default configuration the packaged vtreg imports."""
import gzip
import os
import shutil
import subprocess
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.environ.get("VT_SOURCE_DIR", os.path.join(HERE, "..", ".."))
BUILD_DIR = os.path.dirname(os.environ.get("VTAGENT_BIN", os.path.join(SOURCE_DIR, "build",
                                                                       "linux", "vtagent")))
EXPECTED = ["./usr/sbin/vtagent", "./usr/sbin/vtreg", "./lib/systemd/system/QuilletVantoreAgent.service",
            "./etc/logrotate.d/vtagent", "./usr/share/vtagent/vtagent_default.reg",
            "./usr/share/vtagent/mibs/VTAGENT-BASE-MIB.txt", "./usr/share/man/man8/vtagent.8.gz",
            "./usr/share/man/man8/vtreg.8.gz", "./usr/share/doc/vtagent/copyright"]


@unittest.skipUnless(shutil.which("dpkg-deb") and os.path.exists(os.path.join(BUILD_DIR, "vtagent")),
                     "no dpkg-deb or no built vtagent")
class DebianPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory(prefix="vtagent-deb-")
        out = subprocess.run(["bash", os.path.join(SOURCE_DIR, "scripts", "build_deb.sh"),
                              BUILD_DIR, cls.tmp.name], capture_output=True, text=True,
                             check=True, timeout=600)
        cls.deb = out.stdout.strip().splitlines()[-1]

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    @unittest.skipUnless(shutil.which("lintian"), "no lintian")
    def test_lintian_finds_no_error(self):
        r = subprocess.run(["lintian", "--fail-on", "error", self.deb], capture_output=True,
                           text=True, timeout=600)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)

    def test_files_and_the_default_configuration(self):
        listing = subprocess.run(["dpkg-deb", "-c", self.deb], capture_output=True, text=True,
                                 check=True).stdout
        paths = {line.split()[-1] for line in listing.splitlines()}
        for path in EXPECTED:
            self.assertIn(path, paths)
        root = os.path.join(self.tmp.name, "root")
        subprocess.run(["dpkg-deb", "-x", self.deb, root], check=True)
        with open(os.path.join(root, "lib/systemd/system/QuilletVantoreAgent.service")) as f:
            self.assertIn("ExecStart=/usr/sbin/vtagent\n", f.read())
        with gzip.open(os.path.join(root, "usr/share/man/man8/vtreg.8.gz"), "rt") as f:
            self.assertIn(".SH COMMANDS", f.read())
        # What postinst does on the first installation, into a hive of the test's own.
        env = dict(os.environ, VTAGENT_REGISTRY=os.path.join(self.tmp.name, "registry.db"))
        vtreg = os.path.join(root, "usr/sbin/vtreg")
        subprocess.run([vtreg, "import", os.path.join(root, "usr/share/vtagent/vtagent_default.reg")],
                       env=env, check=True)
        port = subprocess.run([vtreg, "get", r"HKLM\SOFTWARE\Quillet\Vantor\Agent\Services\IS2",
                               "nListenPort"], env=env, capture_output=True, text=True, check=True)
        self.assertEqual(port.stdout, "10514\n")
        control = subprocess.run(["dpkg-deb", "-f", self.deb, "Depends", "Version"],
                                 capture_output=True, text=True, check=True).stdout
        self.assertIn("libsnmp40", control)
        self.assertIn("Version: 4.4.334", control)


if __name__ == "__main__":
    unittest.main()
