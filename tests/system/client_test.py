#!/usr/bin/env python3
"""client_test.py BUILD PORT: the client program with and without a live server. PORT is a port of the virtual serial
driver."""
import random
import shlex
import socket
import subprocess
import sys
import threading
import time
import unittest

import programs

PORT = sys.argv.pop(1)
CLIENT = "bin/tarnwheel-client.exe"
USAGE, CONNECTION, REFUSED = 1, 2, 3
NO_SERVER = "No server runs on this machine (0x80070002)"


class ClientTest(unittest.TestCase):
    def expect(self, arguments, code, output="", errors=""):
        self.assertEqual(programs.run(CLIENT, *shlex.split(arguments)), (code, output, errors and errors + "\n"))

    def pipe(self, *arguments):
        client = programs.start(CLIENT, "pipe", ".", *arguments, stdin=-1, stdout=-1, stderr=-1)
        for clean_up in (client.stdin.close, client.stdout.close, client.stderr.close):
            self.addCleanup(clean_up)
        self.addCleanup(programs.stop, client)
        return client

    def read(self, client, size):
        received = b""
        while len(received) < size and (piece := client.stdout.read(size - len(received))):
            received += piece
        return received

    def test_what_is_wrong_is_told_without_a_server(self):
        self.expect("list .", CONNECTION, errors=NO_SERVER)
        self.expect("lst .", USAGE, errors='Error: Invalid verb specified: "lst"; expected list, discover, send, term, '
                    'pipe or bridge; see "tarnwheel-client --help"')
        self.expect("list . --baud 9600", USAGE, errors='Error: Invalid command line argument specified: "--baud"; see '
                    '"tarnwheel-client list --help"')
        self.assertTrue(programs.run(CLIENT, "send", "-?")[1].startswith("Usage: tarnwheel-client "))

    def test_lists_sends_and_tells_why_a_port_is_refused(self):
        name = "Gerät ж" + 500 * "n"
        for port in (("COM203", name), ("COM202", "Hidden"), ("COM", "Without a number"), ("COM31", "First\x1b")):
            programs.list_port(self.addCleanup, *port)
        programs.start_server(self.addCleanup, "--share-ports", "5,6,31,77,203")
        self.expect("list .", 0, f"COM31\tFirst\\x1B\nCOM203\t{name}\n")
        name = name.replace("ä", "\\u00e4").replace("ж", "\\u0436")
        self.expect("list . --json", 0, '[\n  {"port": "COM31", "name": "First\\u001b"},\n'
                    f'  {{"port": "COM203", "name": "{name}"}}\n]\n')
        self.expect("send . COM5 'Grüße, ж and 漢'", 0, "Grüße, ж and 漢\n")
        programs.connect(self.addCleanup).open(6)
        self.expect("send . COM6 x", REFUSED, errors="COM6 is in use by another program or client (0x80070020)")
        self.expect("pipe . COM77", REFUSED, errors="COM77 does not exist (0x80070002)")
        self.expect("send . COM200 x", REFUSED,
                    errors="COM200 is in use by another program or client, or is not shared (0x80070005)")

    # The outcome of the query to other machines, and the note about it, depend on the network.
    def test_discovers_the_server_of_this_machine_once_or_tells_that_nobody_answers(self):
        server = programs.start_server(self.addCleanup, "--no-discovery-")
        code, output, _ = programs.run(CLIENT, "discover", "--timeout", "2000")
        self.assertEqual((code, output.split("\n").count(socket.gethostname())), (0, 1))
        programs.list_port(self.addCleanup, "COM201", "First")
        self.expect("list", 0, "COM201\tFirst\n")
        self.assertIn(f"{socket.gethostname()}\tCOM201\tFirst\n", programs.run(CLIENT, "list", "--all")[1])
        programs.stop(server)
        code, _, errors = programs.run(CLIENT, "discover", "--timeout", "10")
        self.assertRegex(errors, r"No server answered within 10 ms \(0x800705b4\)\s*$")
        self.assertEqual(code, CONNECTION)

        def later_one_is_told():
            arguments = CLIENT, "discover", "--timeout", "3000"
            either = programs.start(*arguments, stderr=subprocess.PIPE)
            or_other = programs.run(*arguments)[2]
            told = "Another discover is running on this machine (0x800700b7)\n"
            return told in (or_other, either.communicate()[1].decode().replace("\r", ""))

        programs.eventually(later_one_is_told)

    # Every byte value, and more bytes than any buffer on the way can hold.
    def test_pipe_brings_back_what_a_loopback_is_given(self):
        programs.start_server(self.addCleanup)
        client, sent = self.pipe("COM5"), random.Random(1).randbytes(1 << 20)
        threading.Thread(target=client.stdin.write, args=[sent], daemon=True).start()
        received = self.read(client, len(sent))
        self.assertTrue(received == sent, len(received))

    def test_pipe_changes_the_text_as_it_is_told(self):
        programs.start_server(self.addCleanup)
        client = self.pipe("COM5", "--newline", "lf", "--map", "lf-crlf", "--timestamps")
        client.stdin.write(b"one\r\ntwo\n")
        self.assertRegex(self.read(client, 36), rb"^(\d\d:\d\d:\d\d\.\d\d\d (one|two)\r\n){2}$")

    def test_pipe_stays_until_the_line_has_been_quiet(self):
        programs.start_server(self.addCleanup)
        far = programs.FarEnd(self.addCleanup, PORT)
        client = self.pipe(PORT, "--quiet", "4000")
        client.stdin.write(b"\r\n\x1a\n")
        client.stdin.close()
        self.assertEqual(far.read(4), b"\r\n\x1a\n")
        time.sleep(0.5)  # part of the quiet time, which starts afresh with each byte
        start = time.monotonic()
        far.write(b"late\r\n\x1a")
        self.assertEqual(client.stdout.read(7), b"late\r\n\x1a")
        self.assertIsNone(client.poll(), "at once, not at the end")
        programs.ends(client)
        self.assertGreaterEqual(time.monotonic() - start, 3.99)
        programs.eventually(far.is_closed)

    def test_pipe_ends_with_the_server_unless_it_retries(self):
        client = self.pipe("COM5", "--retry")

        def expect_news(text):
            self.assertEqual(client.stderr.readline().decode().strip(), text)

        expect_news(NO_SERVER + "; trying again")
        for text in (b"first ", b"second"):
            server = programs.start_server(self.addCleanup)
            expect_news("COM5 is back")
            client.stdin.write(text)
            self.assertEqual(client.stdout.read(len(text)), text)
            programs.stop(server)
            expect_news("COM5: the server on this machine ended the connection (0x800704c7); trying again")
        programs.stop(client)


unittest.main()
