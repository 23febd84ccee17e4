"""Runs this project's programs for the tests written in Python, whose first argument is the build folder."""
import os
import pathlib
import re
import signal
import struct
import subprocess
import sys
import time

project = pathlib.Path(__file__).resolve().parent.parent.parent
prefix = pathlib.Path(os.environ.get("TARNWHEEL_PREFIX", project / "build/wine"))
build = pathlib.Path(sys.argv.pop(1)).resolve()
sys.path.insert(0, str(project / "examples"))
import tarnwheel_client as example
example.ANSWER_LIMIT = 20
os.environ["LC_ALL"] = "C.UTF-8"  # the encoding in which Wine takes arguments

# Wine kills a program that is still there half a second after the end of its last thread, as on a machine that is
# suspended for a moment. Its exit code is then lost.
KILLED = -signal.SIGKILL


def start(program, *arguments, **pipes):
    command = [project / "tools/wine", build / program, *arguments]
    return subprocess.Popen(command, start_new_session=True, bufsize=0, **pipes)


def run(program, *arguments):
    """Returns the exit code, the output and the errors."""
    process = start(program, *arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    output, errors = (text.decode().replace("\r", "") for text in process.communicate())
    if process.returncode == KILLED:
        return run(program, *arguments)
    # Wine's own complaint about a thread that starts while its program ends.
    return process.returncode, output, re.sub("wine client error:.*\n?", "", errors)


def windows(*command):
    """Runs a program of Windows; returns its exit code and its output."""
    command = [project / "tools/wine", *command]
    process = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return process.returncode, process.stdout.decode(errors="replace")


def ends(process, expected=0, limit=20):
    try:
        code = process.wait(limit)
    finally:
        process.kill()  # a program that does not end must not hold up the next test
    assert code in (expected, KILLED), f"{process.args[1]} ended with {code}"


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGINT)
        ends(process)


def start_server(clean_up, *arguments):
    server = start("bin/tarnwheel-server.exe", "--nologo", "--no-screen-log", "--no-discovery", *arguments)
    clean_up(stop, server)
    connect(clean_up).ports()  # waits until it serves
    return server


def start_device(clean_up, *arguments):
    """Starts tarnwheel-test-port, which runs until its standard input is closed or the test ends."""
    device = start("tests/tarnwheel-test-port.exe", *arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    for end in (device.wait, device.stdin.close, device.stdout.close):
        clean_up(end)
    return device


def list_port(clean_up, port, name):
    assert start_device(clean_up, port, name).stdout.readline().strip() == b"ready"


class Relay:
    """Stands in for a pipe, which is not a file here. Delivers the bytes in small pieces."""

    def __init__(self, clean_up, *name):
        process = start_device(clean_up, *name)
        self.read = lambda size: process.stdout.read(min(size, 3))
        self.write = lambda data: process.stdin.write(data[:1000])


def connect(clean_up):
    return example.Connection(Relay(clean_up))


class FarEnd(example.Connection):
    """The far end of the virtual serial port's line. Its reads wait for all the bytes that they ask for."""

    def __init__(self, clean_up, port, anew=1):
        super().__init__(Relay(clean_up))
        self.open(int(port.removeprefix("COM")) + 1)
        self.set_up(anew)
        self.control(example.SET_TIMEOUTS, struct.pack("<5I", 0, 0, 20000, 0, 0))

    def set_up(self, anew=0, vanished=0, loops_back=0, inputs=0, events=0):
        """Sends the set-up order to the port's driver."""
        self.control(0x222000, struct.pack("<8I", anew, vanished, loops_back, 0, 0, 0, inputs, events))

    def state(self):
        return struct.unpack("<8I", self.control(0x222004, b"", 32))

    def is_closed(self):
        return self.state()[0] == 0

    def outputs(self):
        """The outputs of the port, not of this end."""
        return " ".join(name for bit, name in enumerate(("DTR", "RTS", "BREAK")) if self.state()[2] >> bit & 1)

    def breaks(self):
        return self.state()[7]

    def signal(self, name):
        self.control({"SET_BREAK_ON": 0x1B0010, "SET_DTR": 0x1B0024, "CLR_DTR": 0x1B0028, "SET_RTS": 0x1B0030,
                      "CLR_RTS": 0x1B0034}[name])


def eventually(condition, explain=lambda: "not in time"):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline, explain()
        time.sleep(0.01)
