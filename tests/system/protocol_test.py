#!/usr/bin/env python3
"""protocol_test.py BUILD: replays the transcripts of docs/protocol.md with a live server, and runs the
example client against it. Both reach the server through a relay."""
import collections
import contextlib
import io
import pathlib
import re
import struct
import sys
import unittest

import programs
from programs import example

PAGE = (programs.project / "docs/protocol.md").read_text()
CODES = re.sub(r"[\s\\]", "", pathlib.Path("/usr/share/mingw-w64/include/ntddser.h").read_text())
HEADER = struct.Struct("<IHHI")


class Relay(programs.Relay):
    def read_message(self):
        message = b""
        while len(message) < 12 or len(message) < 12 + HEADER.unpack(message[:12])[3]:
            piece = self.read(1)
            assert piece, "the connection has ended"
            message += piece
        return message


def bytes_of(lines):
    return b"".join(bytes.fromhex(line[1:].partition("#")[0]) for line in lines)


class Protocol(unittest.TestCase):
    def setUp(self):
        programs.list_port(self.addCleanup, "COM5", "Scale (COM5)")
        programs.list_port(self.addCleanup, "COM7", "Modem (COM7)")
        self.server = programs.start_server(self.addCleanup, "--share-ports", "5,7,8,77")
        programs.FarEnd(self.addCleanup, "COM7").set_up(loops_back=1)

    def connect(self, _=None):
        return Relay(self.addCleanup)

    def replay(self, relay, exchange):
        """Sends the exchange's requests and checks the replies, which may come in any order. Returns the
        method of the first request."""
        sent, rest = (bytes_of(re.findall(rf"^{mark}.*", exchange, re.M)) for mark in "><")
        relay.write(sent)
        expected = []
        while rest:
            size = 12 + HEADER.unpack(rest[:12])[3]
            expected.append(rest[:size].hex(" "))
            rest = rest[size:]
        received = [relay.read_message().hex(" ") for _ in expected]
        self.assertEqual(sorted(received), sorted(expected))
        return HEADER.unpack(sent[:12])[2]

    def test_transcripts_and_control_codes_are_as_the_page_says(self):
        relays = collections.defaultdict(self.connect)
        methods = set()
        for connection, name, text in re.findall(r"^```transcript (\w+) (\S+)\n(.*?)^```$", PAGE, re.M | re.S):
            # A request below a reply is sent after that reply has arrived.
            for exchange in re.findall(r"(?:^>.*\n)+(?:^<.*\n)*", text, re.M):
                with self.subTest(name):
                    methods.add(self.replay(relays[connection], exchange))
        self.assertEqual(methods, set(range(5)))
        table = dict(re.findall(r"^\| `0x001B(\w{4})` \| `(IOCTL_\w+)`", PAGE, re.M))
        self.assertGreater(len(table), 25)
        for code, name in table.items():
            number = re.search(rf"#define{name}CTL_CODE\(FILE_DEVICE_SERIAL_PORT,(\d+),", CODES)
            self.assertEqual(int(code, 16), int(number[1]) << 2, name)

    def test_example_client(self):
        def output_of(*arguments):
            with contextlib.redirect_stdout(io.StringIO()) as output:
                example.main(".", *arguments, connect=self.connect)
            return output.getvalue()

        self.assertEqual(output_of(), "COM5\tScale (COM5)\nCOM7\tModem (COM7)\n")
        self.assertEqual(output_of("COM5", "Grüße", "9600"), "Grüße\n")

        connection = example.Connection(self.connect())
        for reason, attempt in ((r"no port is open \(0x800708CA\)", connection.read),
                                (r"in use, or not shared \(0x80070005\)", lambda: connection.open(6)),
                                (r"no such port \(0x80070002\)", lambda: connection.open(77))):
            self.assertRaisesRegex(example.Refused, reason, attempt)
        connection.open(5)
        with self.assertRaisesRegex(TimeoutError, "no answer within 0.2 s"):
            connection.call(example.IO_CONTROL, struct.pack("<3I", 0x001B0FFC, 0, 0), limit=0.2)
        programs.stop(self.server)
        self.assertRaises(OSError, connection.ports)


unittest.main()
