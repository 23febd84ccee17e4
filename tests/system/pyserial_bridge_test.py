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


class PyserialBridge(unittest.TestCase):
    def setUp(self):
        programs.start_server(self.addCleanup)
        programs.start_device(self.addCleanup, "loop")

    def open(self, port):
        bridge = programs.start("bin/tarnwheel-client.exe", "bridge", ".", port, "--listen", "0", "--retry",
                                stdout=subprocess.PIPE)
        self.addCleanup(bridge.stdout.close)
        self.addCleanup(programs.stop, bridge)
        address = bridge.stdout.readline().decode().rpartition(" ")[2].strip()
        opened = serial.serial_for_url("rfc2217://" + address, timeout=20)
        self.addCleanup(opened.close)
        return opened

    def test_settings_signals_and_modem_lines(self):
        port = self.open(virtual_port)
        for name, values in {"baudrate": port.BAUDRATES[::6], "bytesize": port.BYTESIZES, "parity": port.PARITIES,
                             "stopbits": port.STOPBITS, "rtscts": (True, False), "xonxoff": (True, False)}.items():
            for value in values:
                with self.subTest(**{name: value}):
                    setattr(port, name, value)
        for level in (False, True, False, True):
            port.dtr, port.rts = level, not level
            deadline = time.monotonic() + 20
            while (port.dsr, port.cd, port.cts) != (level, level, not level):
                self.assertLess(time.monotonic(), deadline)
        port.send_break(0.1)

    def test_bytes_go_both_ways_at_once_and_lack_of_a_setting_is_reported(self):
        port = self.open("COM5")
        with self.assertRaisesRegex(ValueError, "rejected value for option 'datasize'"):
            port.bytesize = serial.SEVENBITS
        port.bytesize = serial.EIGHTBITS
        sent = random.Random(1).randbytes(1 << 18)
        writer = threading.Thread(target=port.write, args=[sent])
        writer.start()
        self.addCleanup(writer.join)
        received = b""
        while len(received) < len(sent) and (piece := port.read(min(1 << 14, len(sent) - len(received)))):
            received += piece
        self.assertTrue(received == sent, len(received))


if __name__ == "__main__":
    unittest.main()
