#!/usr/bin/python3 -Wignore::DeprecationWarning
"""pyserial_bridge_test.py BUILD PORT: works two ports of a live server through bridges with pyserial,
an independent client of RFC 2217: COM5, which sends every byte back and has neither signals nor 7
data bits, and PORT of the virtual serial driver, which has it all. The interpreter is the one that
the package python3-serial belongs to."""
import pathlib
import random
import signal
import subprocess
import sys
import threading
import time
import unittest

import serial

project = pathlib.Path(__file__).resolve().parent.parent
build, virtual_port = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]


def start(program, *arguments, **options):
    command = [project / "tools/wine", build / program, *arguments]
    return subprocess.Popen(command, start_new_session=True, text=True, **options)


def stop(process):
    process.send_signal(signal.SIGINT)
    code = process.wait(10)
    assert code == 0, f"{process.args[1]} ended with {code}"


def join_wires(case):
    loop = start("tests/virtual_loop.exe", stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    case.addClassCleanup(loop.wait, 10)
    case.addClassCleanup(loop.stdin.close)
    case.addClassCleanup(loop.stdout.close)
    assert loop.stdout.readline().strip() == "ready"


def start_bridge(case, port):
    """Gives the URL that pyserial is to open."""
    arguments = ["bridge", ".", port, "--listen", "0", "--retry"]
    bridge = start("bin/tarnwheel-client.exe", *arguments, stdout=subprocess.PIPE)
    case.addClassCleanup(bridge.stdout.close)
    case.addClassCleanup(stop, bridge)
    listening, _, address = bridge.stdout.readline().strip().rpartition(" ")
    assert listening == "Listening on", listening
    return "rfc2217://" + address


class PyserialBridge(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        server = start("bin/tarnwheel-server.exe", "--nologo", "--no-screen-log", "--no-discovery")
        cls.addClassCleanup(stop, server)
        join_wires(cls)
        cls.loopback = start_bridge(cls, "COM5")
        cls.virtual = start_bridge(cls, virtual_port)

    def open(self, url):
        port = serial.serial_for_url(url, timeout=10)
        self.addCleanup(port.close)
        return port

    def assert_echoes(self, port, data):
        port.write(data)
        self.assertEqual(port.read(len(data)), data)

    def assert_comes(self, condition):
        deadline = time.monotonic() + 10
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.005)

    def test_every_setting_is_taken(self):
        port = self.open(self.virtual)
        settings = {
            "baudrate": port.BAUDRATES,
            "bytesize": port.BYTESIZES,
            "parity": port.PARITIES,
            "stopbits": port.STOPBITS,
            "rtscts": (True, False),
            "xonxoff": (True, False),
        }
        for name, values in settings.items():
            for value in values:
                with self.subTest(**{name: value}):
                    setattr(port, name, value)
        self.assert_echoes(port, b"all set")

    def test_signals_and_modem_lines(self):
        port = self.open(self.virtual)
        for level in (False, True, False, True):
            port.dtr = level
            port.rts = not level
            self.assert_comes(lambda: (port.dsr, port.cd, port.cts) == (level, level, not level))
        port.send_break(0.1)
        self.assert_echoes(port, b"after a break")

    def test_refused_setting_is_reported(self):
        port = self.open(self.loopback)
        with self.assertRaisesRegex(ValueError, "rejected value for option 'datasize'"):
            port.bytesize = serial.SEVENBITS
        port.bytesize = serial.EIGHTBITS
        self.assert_echoes(port, b"as before")

    def test_lack_of_signals_costs_no_time(self):
        port = self.open(self.loopback)
        begin = time.monotonic()
        for level in (False, True) * 5:
            port.dtr = level
            port.rts = level
        port.break_condition = True
        port.break_condition = False
        self.assertEqual([port.cts, port.dsr, port.ri, port.cd], [False] * 4)
        self.assertLess(time.monotonic() - begin, 3)

    def test_mebibyte_both_ways_at_once(self):
        port = self.open(self.loopback)
        sent = random.Random(1).randbytes(1 << 20)
        writer = threading.Thread(target=port.write, args=[sent])
        writer.start()
        self.addCleanup(writer.join)
        self.assertTrue(port.read(len(sent)) == sent)

    def test_fifty_visits(self):
        for number in range(50):
            port = self.open(self.loopback)
            self.assert_echoes(port, b"visit %d" % number)
            port.close()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
