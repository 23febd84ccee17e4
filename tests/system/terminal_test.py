#!/usr/bin/env python3
"""terminal_test.py BUILD PORT: uses the client's terminal as a user does, by keys in a real terminal (tmux) of 80 by
24, and checks its screen, the file of --log, and the shell that follows it. PORT is a port of the virtual serial
driver.

A Windows console passes Ctrl+C to the terminal as a key. Wine's turns it into an event or ends the input with it, so
the test raises that event. Wine keeps keys for the terminal that were struck before it started, so nothing is struck
before the terminal has greeted. Wine restores the terminal of a Unix shell by itself but leaves a console's modes to
its programs, as Windows does, so the second test uses the Windows shell."""
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

import programs

PORT = sys.argv.pop(1)
WINE = programs.project / "tools/wine"


class Terminal(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.work = pathlib.Path(folder.name)
        self.server = programs.start_server(self.addCleanup)
        programs.FarEnd(self.addCleanup, PORT)  # resets the port

    def tmux(self, *arguments):
        command = ["tmux", "-u", "-S", self.work / "socket", "-f", "/dev/null", *arguments]
        return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode()

    def begin(self, command):
        self.tmux("new-session", "-d", "-x", "80", "-y", "24", f"cd {programs.build}/bin; {command}")
        self.addCleanup(self.tmux, "kill-server")

    def screen(self):
        return "\n" + self.tmux("capture-pane", "-p")

    def shows(self, text, times=1):
        programs.eventually(lambda: self.screen().count(text) >= times, lambda: f"no {text} on {self.screen()}")

    def shows_line(self, text):
        self.shows(f"\n{text}\n")

    def keys(self, *names):
        self.tmux("send-keys", *names)

    def strike(self, text):
        self.tmux("send-keys", "-l", "--", text)

    def press(self, command):
        self.keys("C-]")
        self.strike(command)

    def ctrl_c(self):
        shell = self.tmux("display-message", "-p", "#{pane_pid}").strip()
        client, = pathlib.Path(f"/proc/{shell}/task/{shell}/children").read_text().split()
        os.kill(int(client), signal.SIGINT)

    def greets(self, port, times=1):
        self.shows(f"[{port} of this machine; Ctrl+] q leaves, Ctrl+] ? shows the keys]", times)

    def shell_runs(self, command):
        """The shell must echo what is typed; Enter follows only then, as from a user."""
        self.shows_line(">")
        self.strike(command)
        self.shows_line(">" + command)
        self.keys("Enter")

    def ends(self):
        self.shell_runs("echo code %errorlevel%")
        self.shows_line("code 0")

    def test_every_key_and_a_paste_arrive_as_they_were_and_are_seen(self):
        log, paste = self.work / "log", self.work / "paste"
        windows_log = "Z:" + str(log).replace("/", "\\")
        self.begin(f"{WINE} tarnwheel-client.exe term . COM5 --hex --log '{windows_log}'; echo code $?; cat")
        self.greets("COM5")
        self.ctrl_c()
        self.shows("00000000  03 ")
        self.keys("Up", "F1", "C-]", "C-]", "M-x")
        self.shows_line("00000000  03 1b 5b 41 1b 4f 50 1d  1b 78                    |..[A.OP..x|")
        paste.write_text(" ".join(f"{number:04}" for number in range(2000)))
        self.tmux("load-buffer", paste)
        self.tmux("paste-buffer")
        programs.eventually(lambda: log.read_bytes() == b"\3\33[A\33OP\35\33x" + paste.read_bytes())
        self.press("f")
        self.strike(str(paste) + "x")
        self.keys("BSpace", "Enter")
        struck = b"\3\33[A\33OP\35\33x" + 2 * paste.read_bytes()
        programs.eventually(lambda: log.read_bytes() == struck)
        self.press("q")
        self.shows_line("code 0")

    def test_commands_reach_the_line_and_the_console_is_left_as_it_was(self):
        self.begin(f"{WINE} cmd /k prompt '$G'")
        for leaves in (True, False):
            self.shell_runs(f"cls & tarnwheel-client term . {PORT} --echo --retry")
            programs.eventually(lambda: "code" not in self.screen())
            self.greets(PORT)
            self.strike("Grüße, 漢 and more")
            self.shows_line("Grüße, 漢 and more")
            if leaves:
                self.press("d")
                self.shows_line("[DTR off]")
                self.press("s")
                self.shows(f"[{PORT}: 115200 baud 8N1; DTR off, RTS on\n CTS off, DSR off, RI off, DCD off; no errors]")
                self.press("b")
                self.shows_line("[break sent]")
                self.press("q")
                self.ends()
        # More than the line holds.
        (self.work / "file").write_bytes(bytes(3 << 20))
        self.press("f")
        self.strike(str(self.work / "file"))
        self.keys("Enter")
        self.shows("[10 % of 3145728 bytes]")
        # Keys are discarded while there is no server.
        programs.stop(self.server)
        self.shows("[only part of the file was sent]")
        self.shows(", Ctrl+] q leaves")
        self.strike("discarded")
        programs.start_server(self.addCleanup)
        self.greets(PORT, 2)
        self.strike("kept")
        self.shows_line("kept")
        self.press("q")
        self.ends()


unittest.main()
