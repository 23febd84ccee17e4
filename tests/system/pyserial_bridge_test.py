#!/usr/bin/python3 -Wignore::DeprecationWarning
"""pyserial_bridge_test.py BUILD PORT: works two ports of a live server through bridges with pyserial,
an independent client of RFC 2217: COM5, which sends every byte back and has neither signals nor 7
data bits, and PORT of the virtual serial driver, which has it all. The interpreter is the one that
the package python3-serial belongs to."""
import pathlib
import random
import subprocess
import sys
import threading
import time
import unittest

import serial

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import programs

virtual_port = sys.argv.pop(1)


def start_bridge(clean_up, port):
    """Gives the URL that pyserial is to open."""
    arguments = ["bridge", ".", port, "--listen", "0", "--retry"]
    bridge = programs.start("bin/tarnwheel-client.exe", *arguments, stdout=subprocess.PIPE)
    clean_up(bridge.stdout.close)
    clean_up(programs.stop, bridge)
    listening, _, address = bridge.stdout.readline().decode().strip().rpartition(" ")
    assert listening == "Listening on", listening
    return "rfc2217://" + address


class PyserialBridge(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        programs.start_server(cls.addClassCleanup)
        programs.start_device(cls.addClassCleanup, "loop")
        cls.loopback = start_bridge(cls.addClassCleanup, "COM5")
        cls.virtual = start_bridge(cls.addClassCleanup, virtual_port)

    def open(self, url):
        port = serial.serial_for_url(url, timeout=10)
        self.addCleanup(port.close)
        return port

    def assert_echoes(self, port, data):
        port.write(data)
        self.assertEqual(port.read(len(data)), data)

    def test_settings_signals_and_modem_lines(self):
        port = self.open(self.virtual)
        for name, values in {"baudrate": port.BAUDRATES[::6], "bytesize": port.BYTESIZES, "parity": port.PARITIES,
                             "stopbits": port.STOPBITS, "rtscts": (True, False), "xonxoff": (True, False)}.items():
            for value in values:
                with self.subTest(**{name: value}):
                    setattr(port, name, value)
        for level in (False, True, False, True):
            port.dtr, port.rts = level, not level
            deadline = time.monotonic() + 10
            while (port.dsr, port.cd, port.cts) != (level, level, not level):
                self.assertLess(time.monotonic(), deadline)
        port.send_break(0.1)
        self.assert_echoes(port, b"all set")

    def test_lack_of_settings_and_signals_is_reported_or_costs_no_time(self):
        port = self.open(self.loopback)
        with self.assertRaisesRegex(ValueError, "rejected value for option 'datasize'"):
            port.bytesize = serial.SEVENBITS
        port.bytesize = serial.EIGHTBITS
        begin = time.monotonic()
        for level in (False, True) * 5:
            port.dtr = port.rts = level
        port.break_condition = True
        port.break_condition = False
        self.assertEqual([port.cts, port.dsr, port.ri, port.cd], [False] * 4)
        self.assertLess(time.monotonic() - begin, 3)

    def test_mebibyte_both_ways_at_once(self):
        """pyserial takes seconds for so much, more beside other programs: the limit is one of silence."""
        port = self.open(self.loopback)
        sent = random.Random(1).randbytes(1 << 20)
        writer = threading.Thread(target=port.write, args=[sent])
        writer.start()
        self.addCleanup(writer.join)
        received = b""
        while len(received) < len(sent) and (piece := port.read(min(1 << 14, len(sent) - len(received)))):
            received += piece
        self.assertEqual(len(received), len(sent))
        self.assertTrue(received == sent)


if __name__ == "__main__":
    unittest.main()
