#!/usr/bin/env python3
"""installer_test.py BUILD: the installer installs the product, upgrades it to a later version, and removes it."""
import hashlib
import pathlib
import subprocess
import unittest

import programs
from programs import windows

KEY = r"HKLM\Software\Quorvane\Tarnwheel Server 1.01"
FOLDER = programs.prefix / "drive_c/Program Files/Tarnwheel"
PATH = r"HKLM\System\CurrentControlSet\Control\Session Manager\Environment"


def pack(version):
    run = subprocess.run([programs.project / "tools/pack.sh", programs.build, version], check=True, capture_output=True)
    return pathlib.Path(run.stdout.decode().split("\n")[-2]) / f"tarnwheel-{version}-x64.msi"


class InstallerTest(unittest.TestCase):
    def installer(self, action, file):
        self.assertEqual(windows("msiexec", action, "Z:" + str(file).replace("/", "\\"), "/qn")[0], 0)

    def expect_installed(self):
        programs.eventually(lambda: " RUNNING" in windows("sc", "query", "qrvtwsrv")[1])
        self.assertEqual(programs.run("bin/tarnwheel-client.exe", "list")[0], 0)
        self.assertIn(r"C:\Program Files\Tarnwheel", windows("reg", "query", PATH, "/v", "PATH")[1])
        names = "README.md administration.md licences.txt protocol.md tarnwheel-client.exe tarnwheel-server.exe"
        self.assertEqual(sorted(path.name for path in FOLDER.iterdir()), names.split())

    def test_life(self):
        self.addCleanup(windows, "reg", "delete", KEY, "/f")
        first = pack("1.1.0")
        sum_of_first = hashlib.sha256(first.read_bytes()).digest()
        self.assertEqual(hashlib.sha256(pack("1.1.0").read_bytes()).digest(), sum_of_first, "reproducible")
        self.installer("/i", first)
        self.expect_installed()
        windows("reg", "add", KEY, "/v", "SharedPorts", "/t", "REG_BINARY", "/d", "0100000005000000", "/f")
        second = pack("1.1.1")
        self.installer("/i", second)
        self.expect_installed()
        self.installer("/x", second)
        self.assertNotEqual(windows("sc", "query", "qrvtwsrv")[0], 0)
        self.assertFalse(FOLDER.exists())
        self.assertNotIn("Tarnwheel", windows("reg", "query", PATH, "/v", "PATH")[1])
        self.assertIn("0100000005000000", windows("reg", "query", KEY)[1])


unittest.main()
