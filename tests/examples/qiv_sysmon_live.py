#!/usr/bin/env python3
"""Runs qiv-sysmon against /proc and on a terminal.

usage: qiv_sysmon_live.py COMMAND...      the program, behind its emulator where it needs one

JSON readings hold what /proc says and add up to what was sent; on a terminal the screen is taken
and given back, whatever ends the program.
"""
import codecs
import fcntl
import json
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import termios
import threading
import time

COMMAND = sys.argv[1:]
LIMIT_S = 60  # for something that takes a moment
TAKEN = "\x1b[?1049h\x1b[?25l"
GIVEN_BACK = "\x1b[?25h\x1b[?1049l"


def check(holds, what):
    if not holds:
        sys.exit(f"FAILED: {what}")


# --- JSON against /proc ---------------------------------------------------------------------------


def proc_figure(path, key, column):
    with open(path, encoding="ascii") as lines:
        return next(int(line.split()[column]) for line in lines if line.split()[:1] == [key])


def send_over_loopback(byte_count):
    with socket.create_server(("127.0.0.1", 0)) as server:
        client = socket.create_connection(server.getsockname())
        peer, _ = server.accept()
        sender = threading.Thread(target=lambda: (client.sendall(bytes(byte_count)), client.close()))
        sender.start()
        while peer.recv(1 << 16):
            pass
        sender.join()
        peer.close()


def keep_a_processor_busy(seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        pass


def readings_add_up():
    processors = sum(bool(re.match(r"cpu\d", line)) for line in open("/proc/stat", encoding="ascii"))
    sent = 8_000_000
    before = proc_figure("/proc/net/dev", "lo:", 1)
    program = subprocess.Popen([*COMMAND, "--json", "--interval", "300"], stdout=subprocess.PIPE)
    readings = [json.loads(program.stdout.readline())]
    send_over_loopback(sent)
    keep_a_processor_busy(seconds=1)
    readings += [json.loads(program.stdout.readline()) for _ in range(3)]
    program.terminate()
    check(program.wait() == 0, "the end of the readings")
    after = proc_figure("/proc/net/dev", "lo:", 1)
    total = 1024 * proc_figure("/proc/meminfo", "MemTotal:", 1)
    for reading in readings:
        check(reading["memory"]["total_bytes"] == total, "not the memory of /proc/meminfo")
        check(0 < reading["memory"]["available_bytes"] <= total, "the available memory")
        check(len(reading["cpu"]["each_used_percent"]) == processors, "not all processors")
        for percent in [reading["cpu"]["used_percent"], *reading["cpu"]["each_used_percent"]]:
            check(0 <= percent <= 100, f"{percent} % of a processor")
        check(300 <= reading["interval_ms"] <= 30000, f"{reading['interval_ms']} ms are no interval")
    check(max(reading["cpu"]["used_percent"] for reading in readings) > 0, "no processor has worked")

    loopbacks = [next(each for each in reading["network"] if each["name"] == "lo")
                 for reading in readings]
    check("127.0.0.1" in loopbacks[0]["addresses"], "the loopback has no address")
    for name in "received_bytes", "sent_bytes":
        counters = [each[name] for each in loopbacks]
        check(before <= counters[0] and counters[-1] <= after, f"{name} is not that of /proc/net/dev")
        grown = sum(each[f"{name}_per_second"] * reading["interval_ms"] / 1000
                    for each, reading in zip(loopbacks[1:], readings[1:]))
        # Rates are rounded to bytes.
        check(abs(grown - (counters[-1] - counters[0])) < 100, f"the rates of {name} do not add up")
        check(sent <= grown, f"of {sent} bytes only {grown} are seen")


# --- the terminal -----------------------------------------------------------------------------------


# The shell of the terminal: starts the program as a job of its own, wakes it when it has been
# stopped, and tells the terminal's mode before, meanwhile and behind.
SHELL = r"""
echo "mode $(stty -g)"
sh -c 'echo "pid $$"; exec "$@"' sh "$@"
status=$?
while [ $status -eq 148 ]; do
  echo "stopped, mode $(stty -g)"
  fg >/dev/null
  status=$?
done
echo "mode $(stty -g)"
exit $status
"""


class Terminal:
    """A terminal and the program on it. All that is written there is in `output`."""

    def __init__(self, *options, rows=24, columns=80, **environment):
        self.master, self.slave = pty.openpty()
        self.resize(rows, columns)
        self.output = ""
        self.decoder = codecs.getincrementaldecoder("utf-8")()
        variables = {"TERM": "xterm", "LC_ALL": "C.UTF-8", **environment}
        self.shell = subprocess.Popen(
            ["bash", "-mc", SHELL, "shell", *COMMAND, "--interval", "100", *options],
            stdin=self.slave, stdout=self.slave, stderr=self.slave,
            env={**{k: v for k, v in os.environ.items() if k != "NO_COLOR"}, **variables},
            start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        self.wait_for(r"pid \d+\r\n")
        self.mode = re.search(r"mode (\S+)", self.output).group(1)
        self.pid = int(re.search(r"pid (\d+)", self.output).group(1))

    def resize(self, rows, columns):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self):
        """Takes what there is within a moment."""
        if select.select([self.master], [], [], 0.05)[0]:
            self.output += self.decoder.decode(os.read(self.master, 1 << 16))
            return True
        return False

    def wait_for(self, pattern, since=0):
        """Position behind the pattern."""
        deadline = time.monotonic() + LIMIT_S
        while time.monotonic() < deadline:
            found = re.compile(pattern, re.DOTALL).search(self.output, since)
            if found:
                return found.end()
            self.read()
        sys.exit(f"FAILED: no {pattern!r} in {self.output!r}")

    def wait_for_screen(self, since=0):
        return self.wait_for(re.escape(TAKEN) + r".*Memory.*ms, q ends", since)

    def type(self, text):
        os.write(self.master, text.encode())

    def end(self, status, what):
        """The program's output, when the program has ended as it should."""
        deadline = time.monotonic() + LIMIT_S
        while self.shell.poll() is None:
            self.read()
            check(time.monotonic() < deadline, f"{what}: does not end")
        while self.read():
            pass
        os.close(self.slave)
        os.close(self.master)
        check(self.shell.returncode == status, f"{what}: status {self.shell.returncode}")
        last_line = f"mode {self.mode}\r\n"
        check(self.output.endswith(last_line), f"{what}: not {last_line!r} in {self.output!r}")
        return self.output[self.output.index("pid "):-len(last_line)]


def screen_is_given_back(what, act, *options, status=0):
    terminal = Terminal(*options)
    terminal.wait_for_screen()
    check(not termios.tcgetattr(terminal.slave)[3] & termios.ECHO, f"{what}: keys are echoed")
    act(terminal)
    output = terminal.end(status, what)
    before, _, behind = output.partition(TAKEN)
    shown, _, rest = behind.rpartition(GIVEN_BACK)
    check("\x1b" not in before, f"{what}: codes before the screen is taken")
    check(rest == "", f"{what}: {rest!r} behind the end of the screen")
    check("loop[2]" not in shown, f"{what}: lines of the library on the screen")


def every_end_gives_the_screen_back():
    def send(number):
        return lambda terminal: os.kill(terminal.pid, number)

    screen_is_given_back("SIGTERM", send(signal.SIGTERM))
    screen_is_given_back("SIGHUP", send(signal.SIGHUP))
    screen_is_given_back("Ctrl-C", lambda terminal: terminal.type("\x03"))
    screen_is_given_back("q", lambda terminal: terminal.type("xq"))
    screen_is_given_back("--count", lambda terminal: None, "--count", "3")
    screen_is_given_back("SIGTERM before --count", send(signal.SIGTERM),
                         "--count", "100000", status=130)


def suspension_gives_the_screen_back_meanwhile():
    terminal = Terminal()
    position = terminal.wait_for_screen()
    terminal.type("\x1a")
    position = terminal.wait_for(
        re.escape(GIVEN_BACK) + r"[^\x1b]*stopped, mode " + re.escape(terminal.mode), position)
    terminal.wait_for_screen(position)
    terminal.type("q")
    terminal.end(0, "Ctrl-Z")


def screens_fit_after_a_change_of_size():
    # No reading comes between the first one and the change, which has to show at once.
    terminal = Terminal("--interval", "3600000", rows=30, columns=100, NO_COLOR="1")
    start = terminal.wait_for(r"\x1b\[30;1H\x1b\[2K")
    terminal.resize(7, 33)
    terminal.wait_for(r"\x1b\[1;1H.*\x1b\[7;1H\x1b\[2K", start)
    terminal.type("q")
    output = terminal.end(0, "a change of size")
    frame = output[output.rindex("\x1b[1;1H"):]
    check("Processor" in frame, "nothing on the screen after a change of size")
    for row, line in re.findall(r"\x1b\[(\d+);1H\x1b\[2K([^\x1b]*)", frame):
        check(int(row) <= 7 and len(line) <= 33, f"line {row} after the change: {line!r}")


def terminals_get_what_they_understand():
    def shown(*options, **environment):
        terminal = Terminal("--count", "2", *options, **environment)
        return terminal.end(0, f"{options} {environment}")

    colour = re.compile(r"\x1b\[\d*m")
    check(colour.search(shown()), "no colour on a terminal")
    check("·" in shown(), "no UTF-8 in its locale")
    check(not colour.search(shown(NO_COLOR="1")), "colour with NO_COLOR")
    check(colour.search(shown(NO_COLOR="")), "no colour with an empty NO_COLOR")
    check(shown(LC_ALL="C").isascii(), "more than ASCII in a locale without it")
    check("\x1b" not in shown(TERM="dumb"), "codes on a terminal that knows none")
    check("\x1b" not in shown("--once"), "codes in a plain reading on a terminal")
    check("\x1b" not in shown("--json"), "codes in JSON on a terminal")


readings_add_up()
every_end_gives_the_screen_back()
suspension_gives_the_screen_back_meanwhile()
screens_fit_after_a_change_of_size()
terminals_get_what_they_understand()
print("all checks hold")
