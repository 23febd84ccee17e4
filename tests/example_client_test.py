#!/usr/bin/env python3
"""example_client_test.py BUILD: runs the example client against a live server, which it reaches
through a relay, and checks what it gets."""
import contextlib
import errno
import io
import pathlib
import signal
import struct
import subprocess
import sys
import unittest
from unittest import mock

project = pathlib.Path(__file__).resolve().parent.parent
build = pathlib.Path(sys.argv.pop(1)).resolve()
sys.path.insert(0, str(project / "examples"))
import tarnwheel_client as example

GET_BAUD_RATE = 0x001B0050
PIPE = subprocess.PIPE


def start(program, *arguments, **options):
    command = [project / "tools/wine", build / program, *arguments]
    return subprocess.Popen(command, start_new_session=True, bufsize=0, **options)


class Relay:
    """Stands in for the pipe, which is no file here. Gives the bytes in small pieces."""

    def __init__(self):
        self._process = start("tests/pipe_relay.exe", stdin=PIPE, stdout=PIPE)

    def read(self, size):
        return self._process.stdout.read(min(size, 3))

    def write(self, data):
        return self._process.stdin.write(data[:1000])

    def close(self):
        self._process.stdin.close()
        self._process.wait(10)
        self._process.stdout.close()


class ExampleClient(unittest.TestCase):
    def setUp(self):
        device = start("tools/tarnwheel-test-port.exe", "COM5", "Scale (COM5)", stdin=PIPE, stdout=PIPE)
        self.addCleanup(device.wait, 10)
        self.addCleanup(device.stdin.close)
        self.addCleanup(device.stdout.close)
        self.assertEqual(device.stdout.readline().strip(), b"ready")
        options = ["--nologo", "--no-screen-log", "--no-discovery", "--share-ports", "5,77"]
        self.server = start("bin/tarnwheel-server.exe", *options)
        self.addCleanup(self.stop_server)

    def stop_server(self):
        if self.server.poll() is None:
            self.server.send_signal(signal.SIGINT)
            self.assertEqual(self.server.wait(10), 0)

    def connect(self, _=None):
        relay = Relay()
        self.addCleanup(relay.close)
        return relay

    def output_of(self, *arguments):
        with contextlib.redirect_stdout(io.StringIO()) as output:
            example.main(".", *arguments, connect=self.connect)
        return output.getvalue()

    def test_lists_ports(self):
        self.assertEqual(self.output_of(), "COM5\tScale (COM5)\n")

    def test_sends_a_text_and_prints_the_answer(self):
        self.assertEqual(self.output_of("COM5", "Grüße", "9600"), "Grüße\n")

    def test_exchanges_every_byte(self):
        connection = example.Connection(self.connect())
        connection.open(5)
        connection.set_line(115200)
        self.assertEqual(connection.control(GET_BAUD_RATE, output_size=4), (115200).to_bytes(4, "little"))
        sent = bytes(range(256)) * 8
        connection.write(sent)
        received = b""
        while piece := connection.read():
            received += piece
        self.assertEqual(received, sent)

    def test_tells_why_a_port_is_refused(self):
        connection = example.Connection(self.connect())
        with self.assertRaisesRegex(example.Refused, r"no port is open \(0x800708CA\)"):
            connection.read()
        with self.assertRaisesRegex(example.Refused, r"in use, or not shared \(0x80070005\)"):
            connection.open(6)
        with self.assertRaisesRegex(example.Refused, r"no such port \(0x80070002\)"):
            connection.open(77)
        connection.open(5)

    def test_gives_up_what_is_never_answered(self):
        connection = example.Connection(self.connect())
        connection.open(5)
        unknown = struct.pack("<3I", 0x001B0FFC, 0, 0)
        with self.assertRaisesRegex(TimeoutError, "no answer within 0.2 s"):
            connection.call(example.IO_CONTROL, unknown, limit=0.2)

    def test_notices_that_the_server_stops(self):
        connection = example.Connection(self.connect())
        connection.ports()
        self.stop_server()
        with self.assertRaises(OSError):
            connection.ports()

    def test_tries_a_busy_pipe_again(self):
        busy = OSError(errno.EINVAL, "Invalid argument")
        with mock.patch("builtins.open", side_effect=[busy, busy, "the pipe"]) as opened:
            self.assertEqual(example.open_pipe("LAB-PC"), "the pipe")
        name = r"\\LAB-PC\pipe\kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01"
        opened.assert_called_with(name, "r+b", buffering=0)
        with mock.patch("builtins.open", side_effect=FileNotFoundError(errno.ENOENT, "")):
            self.assertRaises(FileNotFoundError, example.open_pipe, "LAB-PC")


if __name__ == "__main__":
    unittest.main()
