#!/usr/bin/env python3
"""service_test.py BUILD: the effect of options beside --install-service on the service, its log and events, and the
commands of docs/administration.md."""
import pathlib
import re
import tempfile
import unittest

import programs
from programs import windows

SERVER = "bin/tarnwheel-server.exe"
KEYS = r"HKLM\Software\Quorvane\Tarnwheel Server 1.01", \
       r"HKLM\System\CurrentControlSet\Services\EventLog\Application\Tarnwheel Server"


class ServiceTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.log = pathlib.Path(folder.name) / "server.log"
        self.addCleanup(windows, "reg", "delete", KEYS[0], "/f")
        self.addCleanup(programs.run, SERVER, "--uninstall-service")

    def install(self, *options):
        return programs.run(SERVER, "--install-service", *options)

    def runs_once(self):
        windows("net", "start", "qrvtwsrv")
        ports = programs.run("bin/tarnwheel-client.exe", "list", ".")
        windows("net", "stop", "qrvtwsrv")
        programs.eventually(lambda: " STOPPED" in windows("sc", "query", "qrvtwsrv")[1])
        return ports

    def test_options_beside_the_installation_are_the_service_s(self):
        programs.list_port(self.addCleanup, "COM201", "Shared")
        programs.list_port(self.addCleanup, "COM202", "Hidden")
        log = "Z:" + str(self.log).replace("/", "\\")
        options = "--log-path", log, "--log-level", "debug", "--no-discovery", "--share-ports", "201"
        self.assertEqual(self.install(*options)[0], 0)
        self.assertEqual(self.runs_once(), (0, "COM201\tShared\n", ""))
        lines = [line.split("\t", 1)[1] for line in self.log.read_text("utf-16").splitlines()]
        self.assertEqual(lines[0], "DEBUG\tLogging system is initialized")
        self.assertIn("INFO\tAuto-discovery is turned off", lines)
        self.assertEqual(lines[-3:], ["DEBUG\tStop event received, stopping server...",
                                      "INFO\tServer has been stopped", "=====\t====="])
        # If the log cannot be opened, only the log is lost; the other parameters keep their values.
        self.assertEqual(self.install("--log-path", r"C:\no such folder\x.log")[0], 183)
        self.assertEqual(self.runs_once(), (0, "COM201\tShared\n", ""))

    def test_a_value_that_cannot_be_used_installs_nothing(self):
        for option, value, code, message in (("--security-descriptor", "nonsense", 87, "(0x80070057)\n"),
                                             ("--log-level", "loud", 0, "Invalid logging level specified.\n"),
                                             ("--share-ports", "1;2", 0, "--share-ports parameter.\n")):
            found = self.install(option, value)
            self.assertEqual((found[0], found[2][-len(message):]), (code, message))
        self.assertNotEqual(windows("sc", "query", "qrvtwsrv")[0], 0)

    def test_events_have_texts_as_long_as_the_service_is_installed(self):
        self.install()
        self.assertIn("tarnwheel-server.exe", windows("reg", "query", KEYS[1], "/v", "EventMessageFile")[1])
        program = (programs.build / SERVER).read_bytes()
        for text in ("The server cannot start: %1 (%2)", "stopped by an error: %1 (%2)", "cannot be written: %1 (%2)"):
            self.assertIn(text.encode("utf-16-le"), program)
        programs.run(SERVER, "--uninstall-service")
        self.assertNotEqual(windows("reg", "query", KEYS[1])[0], 0)

    def test_every_command_of_the_administration_guide_succeeds(self):
        for clean_up in (("reg", "delete", KEYS[0].replace("1.01", "1.02"), "/f"),
                         ("cmd", "/c", r"rd C:\ProgramData\Tarnwheel")):
            windows(*clean_up)  # a run that was killed may have left them
            self.addCleanup(windows, *clean_up)
        page = (programs.project / "docs/administration.md").read_text()
        batch = self.log.with_name("command.bat")
        for command in "".join(re.findall(r"^```cmd\n(.*?)^```$", page, re.M | re.S)).splitlines():
            batch.write_text("@" + command.replace("%", "%%").replace("tarnwheel-server", f"Z:{programs.build}/bin/tarnwheel-server"))
            self.assertEqual(windows("cmd", "/c", f"Z:{batch}".replace("/", "\\"))[0], 0, command)


unittest.main()
