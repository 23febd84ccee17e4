"""Runs this project's programs for the tests that are written in Python; their first argument is the
folder of the build."""
import pathlib
import signal
import subprocess
import sys

project = pathlib.Path(__file__).resolve().parent.parent.parent
build = pathlib.Path(sys.argv.pop(1)).resolve()


def start(program, *arguments, **pipes):
    command = [project / "tools/wine", build / program, *arguments]
    return subprocess.Popen(command, start_new_session=True, bufsize=0, **pipes)


def stop(process):
    if process.poll() is None:
        process.send_signal(signal.SIGINT)
        code = process.wait(20)
        assert code == 0, f"{process.args[1]} ended with {code}"


def start_server(clean_up, *arguments):
    server = start("bin/tarnwheel-server.exe", "--nologo", "--no-screen-log", "--no-discovery", *arguments)
    clean_up(stop, server)
    return server


def start_device(clean_up, *arguments):
    """What tarnwheel-test-port does, until the end of the test."""
    device = start("tests/tarnwheel-test-port.exe", *arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    for end in (device.wait, device.stdin.close, device.stdout.close):
        clean_up(end)
    assert not arguments or device.stdout.readline().strip() == b"ready"
    return device
