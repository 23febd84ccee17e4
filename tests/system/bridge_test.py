#!/usr/bin/python3 -Wignore::DeprecationWarning
"""bridge_test.py BUILD PORT: bridges between programs and two ports of a live server: COM5, a loopback without
modem lines, and PORT of the virtual serial driver, which has everything but very high baud rates. The programs are
sockets, and pyserial as an independent client of RFC 2217. The interpreter is the one for which the package
python3-serial is installed."""
import os
import pathlib
import random
import re
import socket
import struct
import subprocess
import sys
import threading
import unittest

import serial

import programs
from programs import example

PORT = sys.argv.pop(1)
SET_BAUD_RATE, SET_CONTROL, SET_LINE_MASK, LINE_NOTICE, MODEM_NOTICE = 1, 5, 10, 106, 107
BREAK_ON, DTR_OFF = 5, 9


def com_port(*payload):
    return b"\xff\xfa\x2c" + bytes(payload) + b"\xff\xf0"


class Program:
    """A program connected to the TCP port of a bridge."""

    def __init__(self, test, bridge):
        host, _, port = bridge.address.rpartition(":")
        self.test, self.socket = test, socket.create_connection((host, int(port)), 20)
        self.send, self.leave = self.socket.sendall, self.socket.close
        test.addCleanup(self.leave)

    def expect(self, data):
        received = bytearray()
        while len(received) < len(data) and (piece := self.socket.recv(len(data) - len(received))):
            received += piece
        self.test.assertTrue(received == data, bytes(received[:100]))

    def expect_refusal(self, reason):
        self.expect(f"{PORT} {reason}\r\n".encode())
        self.test.assertEqual(self.socket.recv(1), b"")

    def agree(self, modem_status=0):
        """Agrees on control of the port by RFC 2217 and on binary streams in both directions."""
        self.expect(bytes.fromhex("fffb00 fffb01 fffb03 fffb2c fffd00 fffd03 fffd2c"))
        self.send(bytes.fromhex("fffd00 fffd03 fffd2c fffb00 fffb03 fffb2c"))
        self.expect(com_port(MODEM_NOTICE, modem_status))
        return self

    def is_watched(self):
        """Whether the bridge probes this end by TCP keepalive within the next 30 seconds."""
        here, there = self.socket.getsockname()[1], self.socket.getpeername()[1]
        keepalive = rf":{there:04X} \w+:{here:04X} 01 \w+:\w+ 02:(\w+)"
        timer = re.search(keepalive, pathlib.Path("/proc/net/tcp").read_text())
        return timer and int(timer[1], 16) <= 30 * os.sysconf("SC_CLK_TCK")

    def command(self, number, *value, answer=()):
        self.send(com_port(number, *value))
        self.expect(com_port(number + 100, *(answer or value)))


class Bridge:
    def __init__(self, test, port, *options):
        self.process = programs.start("bin/tarnwheel-client.exe", "bridge", ".", port, *options,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        test.addCleanup(self.process.stdout.close)
        test.addCleanup(programs.stop, self.process)
        self.address = self.says("Listening on ").rpartition(" ")[2].strip()

    def says(self, text):
        """Returns the next line that contains the text."""
        said = ""
        for line in map(bytes.decode, self.process.stdout):
            said += line
            if text in line:
                return line
        raise AssertionError(f"the bridge does not say: {text}, but: {said}")


class BridgeTest(unittest.TestCase):
    def setUp(self, anew=1):
        self.server = programs.start_server(self.addCleanup)
        self.far = programs.FarEnd(self.addCleanup, PORT, anew)

    def bridge(self, *options, port=PORT):
        return Bridge(self, port, *options)

    def telnet(self, bridge, modem_status=0):
        return Program(self, bridge).agree(modem_status)

    def pyserial(self, port):
        opened = serial.serial_for_url("rfc2217://" + self.bridge("--listen", "0", port=port).address, timeout=20)
        self.addCleanup(opened.close)
        return opened

    def test_released_port_closes_when_it_has_taken_what_was_sent(self):
        bridge = self.bridge("--listen", "0", "--raw", "--release")
        self.assertTrue(self.far.is_closed())
        sent = random.Random(2).randbytes(50_000)
        for _ in range(2):
            program = Program(self, bridge)
            program.send(sent)
            program.leave()
            self.assertEqual(self.far.read(len(sent)), sent)
            programs.eventually(self.far.is_closed)

    def expect_serves(self, bridge):
        program = self.telnet(bridge)
        program.send(b"hello")
        self.assertEqual(self.far.read(5), b"hello")
        program.leave()
        bridge.says(" has disconnected")

    def test_settings_refused_ones_too_signals_and_modem_lines_of_pyserial(self):
        self.far.set_up(loops_back=1)
        port = self.pyserial(PORT)
        for name, values in {"baudrate": port.BAUDRATES[::6], "bytesize": port.BYTESIZES, "parity": port.PARITIES,
                             "stopbits": port.STOPBITS, "rtscts": (True, False), "xonxoff": (True, False)}.items():
            for value in values:
                with self.subTest(**{name: value}):
                    setattr(port, name, value)
        with self.assertRaisesRegex(ValueError, "rejected value for option 'baudrate'"):
            port.baudrate = 5_000_000
        port.baudrate = 9600
        for level in (False, True, False, True):
            port.dtr, port.rts = level, not level
            programs.eventually(lambda: (port.dsr, port.cd, port.cts) == (level, level, not level))
        port.send_break(0.1)

    def test_bytes_go_both_ways_at_once(self):
        port = self.pyserial("COM5")
        sent = random.Random(1).randbytes(1 << 18)
        writer = threading.Thread(target=port.write, args=[sent])
        writer.start()
        self.addCleanup(writer.join)
        received = b""
        while len(received) < len(sent) and (piece := port.read(min(1 << 14, len(sent) - len(received)))):
            received += piece
        self.assertTrue(received == sent, len(received))

    def test_changes_of_the_line_are_told_both_ways_and_a_break_ends_with_its_program(self):
        self.far.signal("SET_DTR")
        program = self.telnet(self.bridge("--listen", "0"), 0xA0)
        for change, notice in (("SET_RTS", 0xB1), ("CLR_RTS", 0xA1), ("CLR_DTR", 0x0A)):
            self.far.signal(change)
            program.expect(com_port(MODEM_NOTICE, notice))
        # Each modem line alone; a ring is reported when it ends.
        for inputs, event, notice in ((0x20, 0x10, 0x22), (0xA0, 0x20, 0xA8), (0xA0, 0x100, 0xA4)):
            self.far.set_up(inputs=inputs, events=event)
            program.expect(com_port(MODEM_NOTICE, notice))
        program.command(SET_LINE_MASK, 0x10)
        self.far.signal("SET_BREAK_ON")
        program.expect(com_port(LINE_NOTICE, 0x10))
        program.command(SET_CONTROL, DTR_OFF)
        program.command(SET_CONTROL, BREAK_ON)
        self.assertEqual(self.far.outputs(), "RTS BREAK")
        program.leave()
        programs.eventually(lambda: "BREAK" not in self.far.outputs())

    def test_raw_bytes_are_unchanged_and_those_that_nobody_reads_are_kept(self):
        program = Program(self, self.bridge("--listen", "127.0.0.1:0", "--raw"))
        part = random.Random(2).randbytes(1 << 18)
        program.send(part)
        self.assertTrue(self.far.read(len(part)) == part)
        parts, far_more_than_buffers = 0, 200
        with self.assertRaises(TimeoutError):
            for parts in range(1, far_more_than_buffers):
                self.far.call(example.WRITE, struct.pack("<I", len(part)) + part, limit=2)
        program.expect(part * parts)

    def test_pipe_has_one_program_after_another(self):
        bridge = self.bridge("--pipe", "bridge_test")
        for sent in (b"first", b"second"):
            with programs.start_device(self.addCleanup, r"\\.\pipe\bridge_test") as program:
                program.stdin.write(sent)
                self.assertEqual(self.far.read(len(sent)), sent)
                self.far.write(b"x")
                self.assertEqual(program.stdout.read(1), b"x")
            bridge.says(" has disconnected")

    def test_second_program_is_told_that_the_port_is_in_use_and_holds_up_nobody(self):
        bridge = self.bridge("--listen", "0")
        first = self.telnet(bridge)
        programs.eventually(first.is_watched)
        talking = Program(self, bridge)
        talking.send(b"let me in" * 1000)
        Program(self, bridge).expect_refusal("is in use by another program")
        first.command(SET_CONTROL, DTR_OFF)
        first.leave()
        bridge.says(" has disconnected")
        self.expect_serves(bridge)

    def test_next_program_comes_at_once_and_finds_the_line_as_the_options_have_it(self):
        bridge = self.bridge("--listen", "0", "--baud", "9600")
        for breaks in range(8):
            program = self.telnet(bridge)
            self.assertEqual(self.far.outputs(), "DTR RTS")
            program.command(SET_BAUD_RATE, 0, 0, 0, 0, answer=(0, 0, 0x25, 0x80))
            program.command(SET_BAUD_RATE, 0, 0, 1, 44)
            program.command(SET_CONTROL, DTR_OFF)
            program.send(b"\xff\xf3")
            programs.eventually(lambda: self.far.breaks() == breaks + 1)
            program.leave()

    def test_silent_program_is_disconnected_once_the_line_has_its_bytes(self):
        bridge = self.bridge("--listen", "0", "--raw", "--idle-timeout", "1", "--flow", "rtscts")
        silent, sent = Program(self, bridge), random.Random(4).randbytes(1_080_000)  # more than the line holds
        silent.send(sent)
        silent.socket.settimeout(2)
        self.assertRaises(TimeoutError, silent.socket.recv, 1)
        silent.socket.settimeout(20)
        for i in range(0, len(sent), 270_000):
            self.assertEqual(self.far.read(270_000), sent[i:i + 270_000])
        self.assertEqual(silent.socket.recv(1), b"")
        bridge.says(" is idle and has been disconnected")

    def test_ends_with_the_server_unless_it_retries_and_with_the_device(self):
        bridge = self.bridge("--listen", "0", "--retry")
        self.expect_serves(bridge)
        ending = self.bridge("--listen", "0", port="COM5")
        programs.stop(self.server)
        ending.says("the server on this machine ended the connection")
        programs.ends(ending.process, 2)
        bridge.says("trying again")
        Program(self, bridge).expect_refusal("is not available at the moment")
        self.setUp(anew=0)
        bridge.says(f"{PORT} is back")
        self.expect_serves(bridge)
        programs.stop(bridge.process)
        ending = self.bridge("--listen", "0")
        self.far.set_up(vanished=1)
        ending.says(PORT)
        programs.ends(ending.process, 4, limit=40)


unittest.main()
