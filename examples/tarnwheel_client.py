#!/usr/bin/env python3
"""Lists the ports of a Tarnwheel server, or sends text through one of them.

    python tarnwheel_client.py SERVER
    python tarnwheel_client.py SERVER COM5 TEXT [BAUD]

SERVER is a computer's name, or "." for this machine. A template for your own clients, written
from docs/protocol.md with Python's standard library alone.
"""
import errno
import os
import struct
import sys
import threading
import time

PIPE = r"\\{}\pipe\kelvarine_{{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}}_v1.01"
CODE = 1  # the client's connection code
HEADER = struct.Struct("<IHHI")  # call identifier, connection code, method, length of the payload
ENUMERATE_PORTS, OPEN_PORT, IO_CONTROL, WRITE, READ = range(5)
SET_BAUD_RATE, SET_LINE_CONTROL, SET_TIMEOUTS = 0x001B0004, 0x001B000C, 0x001B001C
ANSWER_LIMIT = 5.0  # seconds, beyond the time that the device may take
QUIET = 0.5  # seconds of silence that end an answer

REFUSALS = {0x80070002: "no such port", 0x80070005: "the port is in use, or not shared",
            0x800700B7: "this connection has a port already", 0x800708CA: "no port is open"}


class Refused(Exception):
    def __init__(self, code):
        super().__init__(f"{REFUSALS.get(code, 'the port cannot be opened')} (0x{code:08X})")


class Connection:
    """A connection to a server, with one port at most. `pipe` is any object whose `read` and `write`
    reach the server. A pipe opened like a file cannot be written to while a read is pending, so there
    is one call at a time."""

    def __init__(self, pipe):
        self._pipe, self._last_call, self._baud = pipe, 0, 9600

    def call(self, method, payload=b"", limit=ANSWER_LIMIT):
        """Returns the reply's payload. A request that the device refuses is never answered, hence
        `limit`, in seconds. Once it has passed, the pipe still waits for the answer, and the
        connection can no longer be used."""
        outcome = []
        arguments = (method, payload, outcome)
        worker = threading.Thread(target=self._exchange, args=arguments, daemon=True)
        worker.start()
        worker.join(limit)
        if not outcome:
            raise TimeoutError(f"no answer within {limit:g} s: the device refuses or is gone")
        if isinstance(outcome[0], Exception):
            raise outcome[0]
        return outcome[0]

    def _exchange(self, method, payload, outcome):
        self._last_call += 1
        request = (self._last_call, CODE, method)
        try:
            self._send(HEADER.pack(*request, len(payload)) + payload)
            answered = None
            while answered != request:
                *header, length = HEADER.unpack(self._receive(HEADER.size))
                answered, reply = tuple(header), self._receive(length)
            outcome.append(reply)
        except OSError as error:
            outcome.append(error)

    def _send(self, data):
        while data:
            data = data[self._pipe.write(data):]

    def _receive(self, size):
        data = b""
        while len(data) < size:
            piece = self._pipe.read(size - len(data))
            if not piece:
                raise ConnectionError("the server ended the connection")
            data += piece
        return data

    def _port_call(self, method, payload, limit=ANSWER_LIMIT):
        reply = self.call(method, payload, limit)
        code = struct.unpack_from("<I", reply)[0]
        if code:
            raise Refused(code)
        return reply[8:]  # the bytes, if any, after the code and their count

    def ports(self):
        """Returns the ports that may be opened, as pairs of number and name."""
        reply, result, at = self.call(ENUMERATE_PORTS), [], 4
        for _ in range(struct.unpack_from("<I", reply)[0]):
            end = at + 4 + 2 * struct.unpack_from("<I", reply, at)[0]
            name = reply[at + 4:end].decode("utf-16-le", "replace")
            result.append((struct.unpack_from("<I", reply, end)[0], name))
            at = end + 4
        return result

    def open(self, number):
        self._port_call(OPEN_PORT, struct.pack("<I", number))

    def control(self, code, data=b"", output_size=0):
        return self._port_call(IO_CONTROL, struct.pack("<3I", code, output_size, len(data)) + data)

    def set_line(self, baud, data_bits=8, parity=0, stop_bits=0):
        self.control(SET_BAUD_RATE, struct.pack("<I", baud))
        self.control(SET_LINE_CONTROL, bytes([stop_bits, parity, data_bits]))
        self.control(SET_TIMEOUTS, struct.pack("<5I", 0, 0, int(QUIET * 1000), 0, 0))
        self._baud = baud

    def write(self, data):
        limit = ANSWER_LIMIT + 12 * len(data) / self._baud  # at most 12 bits per byte
        self._port_call(WRITE, struct.pack("<I", len(data)) + data, limit)

    def read(self, size=4096):
        """Returns the bytes that arrive within QUIET, possibly none."""
        return self._port_call(READ, struct.pack("<I", size), ANSWER_LIMIT + QUIET)


def open_pipe(server):
    deadline = time.monotonic() + 2
    while True:
        try:
            return open(PIPE.format(server), "r+b", buffering=0)
        except OSError as error:
            # "Pipe busy", for which Python has no errno of its own: the server is just creating the
            # next pipe instance.
            if error.errno != errno.EINVAL or time.monotonic() > deadline:
                raise
        time.sleep(0.05)


def main(server, port="", text="", baud="115200", connect=open_pipe):
    connection = Connection(connect(server))
    if not port:
        for number, name in connection.ports():
            print(f"COM{number}\t{name}")
        return
    connection.open(int(port.upper().removeprefix("COM")))
    connection.set_line(int(baud))
    connection.write(text.encode())
    print(b"".join(iter(connection.read, b"")).decode(errors="replace"))


if __name__ == "__main__":
    if not 2 <= len(sys.argv) <= 5:
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except (OSError, Refused, ValueError) as error:
        print(f"{sys.argv[1]}: {error}", file=sys.stderr, flush=True)
        os._exit(1)  # closing a pipe that still waits for an answer would block
