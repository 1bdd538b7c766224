"""Checks what trovik-reset does as a process: signals, a person at a terminal, trace files, a wrong command line.

check_process.py PROGRAM SCHEMA
"""
import fcntl
import json
import os
import pathlib
import re
import signal
import struct
import subprocess
import sys
import tempfile
import termios

import jsonschema

PROGRAM = sys.argv[1]
SCHEMA = jsonschema.Draft7Validator(json.loads(pathlib.Path(sys.argv[2]).read_text(encoding="utf-8")))
LIMIT = 60  # seconds; only reached where something hangs
faults = []


def check(condition, what):
    if not condition:
        faults.append(what)


def start(*arguments, **more):
    return subprocess.Popen([PROGRAM, *arguments], env={"PATH": os.environ["PATH"], "HOME": home}, **more)


def check_events(what, text, status):
    """All lines are events, from hello to a result of that status."""
    events = [json.loads(line) for line in text.splitlines()]
    for event in events:
        for error in SCHEMA.iter_errors(event):
            faults.append(f"{what}: {error.message} in {event}")
    check(events and events[0]["event"] == "hello" and events[-1]["event"] == "result"
          and events[-1]["status"] == status, f"{what}: these are not all events of a run with status {status}: {text}")


def scenario_file(scenario):
    path = pathlib.Path(home) / "scenario.json"
    path.write_text(json.dumps(scenario), encoding="utf-8")
    return path


class Terminal:
    """A pseudo terminal, and what a program has drawn on it."""

    def __init__(self):
        self.ours, self.programs = os.openpty()
        fcntl.ioctl(self.programs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 200, 0, 0))
        self.written = ""

    def read(self, until=None):
        """Until that text, or until the program has ended."""
        while until is None or until not in self.written:
            try:
                self.written += os.read(self.ours, 4096).decode()
            except OSError:  # nobody has the other side open any more
                return

    def hand_over(self):
        os.close(self.programs)

    def screen(self):
        """The lines that are left after all erasing."""
        lines, row = [""], 0
        for part in re.findall(r"\x1b\[[0-9;]*[A-Za-z]|\r|\n|[^\x1b\r\n]+", self.written):
            if part == "\x1b[1A":
                row -= 1
            elif part == "\x1b[2K":
                lines[row] = ""
            elif part == "\n":
                row += 1
                lines.extend([""] * (row + 1 - len(lines)))
            elif part != "\r":
                check(not part.startswith("\x1b"), f"an unknown sequence: {part!r}")
                lines[row] += part
        return [line for line in lines if line]


def second_signal_ends_at_once():
    """The standard error is a pipe that is full: after the first signal the program can't say what it has to."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    try:
        while os.write(writing, b" " * 4096):
            pass
    except BlockingIOError:
        os.set_blocking(writing, True)
    program = start("list", "--watch", "--json", "--simulate", stdout=subprocess.PIPE, stderr=writing, text=True)
    check("hello" in program.stdout.readline(), "there is no hello")
    program.send_signal(signal.SIGINT)
    program.send_signal(signal.SIGTERM)
    check(program.wait(LIMIT) == 130, f"status {program.returncode} after a second signal")
    check('"result"' not in program.stdout.read(), "the second signal did not end the program at once")
    os.close(reading)
    os.close(writing)


def signal_at_the_question():
    terminal = Terminal()
    program = start("reset", "--keep-station", "--json", "--simulate", stdin=terminal.programs, stderr=terminal.programs,
                    stdout=subprocess.PIPE, text=True)
    terminal.hand_over()
    terminal.read("go on:")
    program.send_signal(signal.SIGHUP)
    terminal.read()
    check_events("a signal at the question", program.stdout.read(), 130)
    check(program.wait(LIMIT) == 130, f"status {program.returncode} after a signal at the question")


def hangup_under_nohup():
    program = subprocess.Popen(["nohup", PROGRAM, "reset", "--yes", "--keep-station", "--json", "--simulate=back-at-once"],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               env={"PATH": os.environ["PATH"], "HOME": home})
    hello = program.stdout.readline()
    program.send_signal(signal.SIGHUP)
    check_events("a hangup under nohup", hello + program.stdout.read(), 0)
    check(program.wait(LIMIT) == 0, f"status {program.returncode} after a hangup under nohup")


def person_says(answer, status):
    terminal = Terminal()
    program = start("reset", "--keep-station", "--simulate=back-at-once", stdin=terminal.programs,
                    stderr=terminal.programs, stdout=subprocess.DEVNULL)
    terminal.hand_over()
    terminal.read("go on:")
    os.write(terminal.ours, answer.encode() + b"\n")
    terminal.read()
    check(program.wait(LIMIT) == status, f"status {program.returncode} after \"{answer}\"")
    return terminal


def lines_of_stages_are_redrawn():
    terminal = person_says("yes", 0)
    screen = terminal.screen()
    check(re.search(r"of 15\.0 s\r\n\x1b\[1A\x1b\[2K", terminal.written), "no line of a stage was drawn anew")
    check(screen[-1] == "Result: done (0)" and not any(" s of " in line for line in screen),
          f"what is left on the terminal: {screen}")
    screen = person_says("no", 130).screen()
    check(screen[-1] == "Result: cancelled (130)", f"what is left on the terminal: {screen}")


def watch_on_a_terminal():
    scenario = scenario_file({"devices": [{}], "cues": [{"after": 2, "do": "unplug", "device": 1},
                                                        {"after": 3, "do": "plug", "device": 1}]})
    terminal = Terminal()
    program = start("list", "--watch", f"--simulate={scenario}", stdin=subprocess.DEVNULL, stderr=terminal.programs,
                    stdout=subprocess.DEVNULL)
    terminal.hand_over()
    terminal.read("attached Trailmate 300\r\n1-1: departed Trailmate 300\r\n1-1: attached Trailmate 300\r\n")
    program.send_signal(signal.SIGINT)
    terminal.read()
    check(program.wait(LIMIT) == 130, f"status {program.returncode} after a signal to a watch")
    check(terminal.screen() == ["1-1: attached Trailmate 300", "1-1: departed Trailmate 300",
                                "1-1: attached Trailmate 300", "Result: cancelled (130)"], f"a watch: {terminal.screen()}")


def trace_holds_a_devices_events_and_no_others():
    scenario = scenario_file({"devices": [{"rebootTime": 0, "bootTime": 0}] * 2})
    text = subprocess.run([PROGRAM, "reset", "--all", "--yes", "--json", "--trace", home, f"--simulate={scenario}"],
                          capture_output=True, text=True, timeout=LIMIT, check=False).stdout
    check_events("with traces", text, 0)
    for port in ("1-1", "1-2"):
        trace = (pathlib.Path(home) / f"{port}.jsonl").read_text(encoding="utf-8")
        wanted = [line for line in text.splitlines() if json.loads(line).get("port") == port]
        check(wanted and trace.splitlines() == wanted, f"the trace of {port} holds {trace}")


def wrong_command_line():
    for arguments in (["lunch", "--json"], ["--json"], ["reset", "--limit", "lunch=3", "--json"],
                      ["--json", "list", "--simulate=/"]):
        for is_json in (True, False):
            words = arguments if is_json else [word for word in arguments if word != "--json"]
            ended = subprocess.run([PROGRAM, *words], capture_output=True, text=True, timeout=LIMIT, check=False)
            check(ended.returncode == 2 and ended.stderr, f"{words}: status {ended.returncode}, {ended.stderr}")
            if is_json:
                check_events(words, ended.stdout, 2)
            else:
                check(not ended.stdout, f"{words}: {ended.stdout}")


signal.signal(signal.SIGHUP, signal.SIG_DFL)  # what is ignored here, as under nohup, the programs would ignore as well
with tempfile.TemporaryDirectory() as home:
    for test in (second_signal_ends_at_once, signal_at_the_question, hangup_under_nohup, lines_of_stages_are_redrawn,
                 watch_on_a_terminal, trace_holds_a_devices_events_and_no_others, wrong_command_line):
        test()
print("\n".join(map(str, faults)) or "signals, terminals, traces and wrong command lines: as they are to be")
sys.exit(bool(faults))
