"""Runs inside the virtual machine: the gadget on one side of a real kernel's USB stack, the tool on the other.

Every scenario starts the tool afresh as an ordinary user under an X server, drives it by keyboard only, and is judged by
four witnesses: what the gadget recorded, what the tool logged, what is left in the store, and the pictures of the window.
"""
import contextlib
import glob
import json
import os
import pathlib
import pwd
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import traceback

import display

BUILD = pathlib.Path(sys.argv[1])
WORK = pathlib.Path(sys.argv[2])
OUT = pathlib.Path(sys.argv[3])
GADGET = BUILD / "simulator/gadget/trovik-gadget"
PROBE = BUILD / "tests/e2e/link_probe"
RULE = BUILD / "packaging/60-trovik-reset-tool.rules"
VENDOR = re.search(r"^kTrovikVendorId:.*=0[xX](\w+)$", (BUILD / "CMakeCache.txt").read_text(), re.M)[1].lower()
TREE = pathlib.Path(__file__).parents[2]
PACKAGES = [glob.glob(str(WORK / f"package/{name}_*.deb"))[0] for name in ("trovik-common", "trovik-reset-tool")]
USER = "technician"
DISPLAY = ":7"
SAME = 0.01  # share of a screen's pixels that may differ: a focus frame, the progress bar
PATIENCE = 60.0  # seconds that anything may take on a slow virtual machine; nothing is measured by it
EVENTS = json.loads((TREE / "cli/events.schema.json").read_text(encoding="utf-8"))["properties"]
STATUSES = dict(zip(EVENTS["status"]["enum"], EVENTS["outcome"]["enum"], strict=True))
CANCELLED = 130
SEED, ROUNDS = (int(word) for word in (OUT / "rounds").read_text().split())


class Failure(Exception):
    """What a witness said against a scenario."""


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def wait_for(what, condition, patience=PATIENCE):
    end = time.monotonic() + patience
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise Failure(f"waited {patience:.0f} s for {what}")


def as_user(*command):
    """The command as it is run for the person at the machine."""
    account = pwd.getpwnam(USER)
    return ["setpriv", f"--reuid={account.pw_uid}", f"--regid={account.pw_gid}", "--clear-groups", *map(str, command)]


def fresh_home():
    """Makes that person's folders anew. Returns the environment in which they are found."""
    shutil.rmtree(f"/home/{USER}", ignore_errors=True)
    for path in (f"/home/{USER}", f"/home/{USER}/run"):
        os.mkdir(path, mode=0o700)
        shutil.chown(path, USER, USER)
    return home()


def home():
    return {"HOME": f"/home/{USER}", "XDG_RUNTIME_DIR": f"/home/{USER}/run", "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8",
            "USER": USER}


class Gadget:
    """One simulated device on a controller of its own."""

    def __init__(self, name="one", *options):
        self.lines = []
        self.process = subprocess.Popen([str(GADGET), "--name", name, *options], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, bufsize=1)
        threading.Thread(target=self._read, daemon=True).start()
        self.name = name
        self.expect("ready on")

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def expect(self, text, times=1):
        """Waits until so many lines with that beginning have come."""
        return wait_for(f'"{text}" from the gadget {self.lines[-5:]}',
                        lambda: [line for line in self.lines if line.startswith(text)][times - 1:times])

    def order(self, *orders):
        for order in orders:
            self.process.stdin.write(order + "\n")
        self.process.stdin.flush()

    def record(self):
        path = f"/tmp/record.{self.name}"
        count = sum(line == f"recorded {path}" for line in self.lines)
        self.order(f"record {path}")
        self.expect(f"recorded {path}", count + 1)
        return pathlib.Path(path).read_text(encoding="utf-8")

    def last(self, *beginnings):
        """The newest line with one of these beginnings."""
        return next((line for line in reversed(self.lines) if line.startswith(beginnings)), "")

    def entries(self):
        """Number of entries in the store now."""
        return int(self.last("store ").split()[1])

    def close(self):
        if self.process.poll() is None:
            self.order("quit")
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()


class Tool:
    """The tool in a window, a person at its keyboard."""

    def __init__(self, program, **settings):
        environment = {**fresh_home(), "DISPLAY": DISPLAY, "QT_ACCESSIBILITY": "0", **settings}
        self.logged, self.positions = "", {}
        self.screens = SCREENS.setdefault(settings.get("QT_STYLE_OVERRIDE"), {})
        self.errors = open("/tmp/tool.stderr", "w", encoding="utf-8")
        self.process = subprocess.Popen(as_user(program), env=environment, stderr=self.errors, cwd=f"/home/{USER}")
        self.window = wait_for("the window", self.windows)[0]
        self.wait_log("has started.")

    def windows(self):
        self.gone()
        return SCREEN.windows()

    def log(self):
        """Everything logged so far; reads only what is new."""
        for file in sorted(glob.glob(f"/home/{USER}/.local/share/Trovik/ResetTool/ResetTool_*.txt")):
            with open(file, "rb") as stream:
                stream.seek(self.positions.get(file, 0))
                self.logged += stream.read().decode(errors="replace")
                self.positions[file] = stream.tell()
        return self.logged

    def wait_log(self, text, times=1, patience=PATIENCE):
        try:
            wait_for(f'"{text}" in the log', lambda: self.log().count(text) >= times or self.gone(), patience)
        except Failure as failure:
            raise Failure(f"{failure}:\n{self.log()}{self.threads()}") from failure

    def threads(self):
        """Where each thread sits, in the kernel's words."""
        text = ""
        for task in sorted(glob.glob(f"/proc/{self.process.pid}/task/*")):
            with contextlib.suppress(OSError):
                name = pathlib.Path(task, "comm").read_text().strip()
                text += f"{name}:\n{pathlib.Path(task, 'stack').read_text()}"
        return text

    def gone(self):
        if self.process.poll() is not None:
            raise Failure(f"the tool ended with {self.process.returncode}: {pathlib.Path('/tmp/tool.stderr').read_text()}")
        return False

    def reset(self):
        """Reset Now, then confirm, by keyboard."""
        SCREEN.focus(self.window)
        SCREEN.key("Return")
        alert = wait_for("the alert", lambda: [window for window in self.windows() if window != self.window])[0]
        SCREEN.focus(alert)
        SCREEN.key("Alt_L+r")
        wait_for("the alert to close", lambda: len(self.windows()) == 1)

    def back_to_start(self):
        """Back to Start, by keyboard."""
        self.expect_screen("complete")
        SCREEN.focus(self.window)
        SCREEN.key("Alt_L+s")
        self.expect_screen("start")  # the button takes a moment to look pressed; a key before would still be the old screen's

    def new_screen(self, name, *others):
        """Waits for a screen that is none of the others, and keeps it as the one that it is to be told by."""
        def settled():
            first = SCREEN.picture(self.window)
            if not first or display.colours(first) < 8 or any(display.same(first, self.screens[other], SAME) for other in others):
                return None
            time.sleep(0.3)
            second = SCREEN.picture(self.window)
            return second if second and display.same(first, second, SAME) else None
        self.screens[name] = wait_for(f"the {name} screen", settled)
        save(self.screens[name], name)

    def expect_screen(self, name, picture=None):
        """Waits until the window shows that screen."""
        def shown():
            now = SCREEN.picture(self.window)
            return now if now and display.same(now, self.screens[name], SAME) else None
        found = wait_for(f"the {name} screen", shown)
        if picture:
            save(found, picture)

    def usage(self):
        """Descriptors, threads and resident kilobytes; without the threads that the toolkit's pool keeps for painting,
        which come and go, each with a descriptor of its own."""
        base = pathlib.Path(f"/proc/{self.process.pid}")
        names = [pathlib.Path(task, "comm").read_text() for task in glob.glob(f"{base}/task/*")]
        pooled = sum(name.startswith("Thread (pooled") for name in names)
        resident = re.search(r"VmRSS:\s+(\d+)", (base / "status").read_text())[1]
        return len(os.listdir(base / "fd")) - pooled, len(names) - pooled, int(resident)

    def close(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.errors.close()


class Twin:
    """One run of trovik-reset by that person, without a terminal and without a display, judged by what it says to
    programs."""

    def __init__(self, *arguments):
        self.arguments = arguments
        self.said, self.errors = pathlib.Path("/tmp/twin.jsonl"), pathlib.Path("/tmp/twin.stderr")
        with open(self.said, "wb") as said, open(self.errors, "wb") as errors:
            self.process = subprocess.Popen(as_user(TWIN, *arguments, "--json"), env=home(), cwd=f"/home/{USER}",
                                            stdin=subprocess.DEVNULL, stdout=said, stderr=errors)

    def __enter__(self):
        return self

    def __exit__(self, kind, failure, trace):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        with open(OUT / "twin.jsonl", "ab") as every:  # script/e2e holds it against the schema afterwards
            every.write(self.said.read_bytes())
        if isinstance(failure, Failure):
            raise Failure(f"{failure}\ntrovik-reset {' '.join(self.arguments)} ended with {self.process.returncode} and "
                          f"said:\n{self.said.read_text()}{self.errors.read_text()}") from failure

    def events(self, **wanted):
        """What it has said so far, of that kind."""
        every = [json.loads(line) for line in self.said.read_text(encoding="utf-8").split("\n")[:-1]]
        return [event for event in every if wanted.items() <= event.items()]

    def end(self):
        """Waits for its end and returns its status, which the last event must agree with."""
        wait_for("trovik-reset to end", lambda: self.process.poll() is not None, 3 * PATIENCE)
        status, events = self.process.returncode, self.events()
        expect(status in STATUSES, f"{status} is no status")
        expect(events and events[0]["event"] == "hello" and events[-1]["event"] == "result", "the events are not whole")
        last = events[-1]
        expect((last["status"], last["outcome"]) == (status, STATUSES[status]), f"the status is {status}, the result {last}")
        return status


def save(picture, name):
    (OUT / "pictures").mkdir(exist_ok=True)
    display.save(picture, OUT / "pictures" / f"{name}.png")


def packets(record):
    """What the device received, packet by packet."""
    return [bytes.fromhex(line[1]) for line in re.finditer(r"host -> device  (.*)", record)]


def commands(record):
    """The application commands that the device received, in order, by name."""
    names = {"0a00": {"ae00": "reboot", "2700": "clear"}, "7100": "hold", "dc05": "resume"}
    found = []
    for data in packets(record):
        if len(data) < 12 or data[0] != 20:
            continue
        name = names.get(data[4:6].hex())
        if isinstance(name, dict):
            name = name.get(data[12:14].hex())
        if name:
            found.append(name)
    return found


def nodes():
    """Device nodes of the gadgets that are on the bus."""
    found = []
    for device in glob.glob("/sys/bus/usb/devices/*/idVendor"):
        folder = pathlib.Path(device).parent
        with contextlib.suppress(OSError):  # gone since
            if (folder / "idVendor").read_text().strip() == VENDOR:
                bus, number = ((folder / name).read_text() for name in ("busnum", "devnum"))
                found.append(f"/dev/bus/usb/{int(bus):03d}/{int(number):03d}")
    return sorted(found)


def expect(condition, complaint):
    if not condition:
        raise Failure(complaint)


FULL = ["reboot", "hold", "clear", "resume"]
SCENARIOS = {}
PROGRAM = pathlib.Path("/run/tool/usr/bin/ResetTool")  # where the folders' modes on the host are no matter
TWIN = PROGRAM.with_name("trovik-reset")
SCREENS = {}  # by style, what each screen looks like
SCREEN = None


def scenario(function):
    SCENARIOS[function.__name__.replace("_", " ")] = function
    return function


@contextlib.contextmanager
def the_tool(program=PROGRAM, **settings):
    tool = Tool(program, **settings)
    try:
        yield tool
    finally:
        tool.close()


@contextlib.contextmanager
def a_gadget(*options, name="one", reboot_time=("--reboot-time", "1000")):
    gadget = Gadget(name, *reboot_time, *options)
    try:
        yield gadget
    except Failure as failure:
        said = "\n".join(gadget.lines)
        with contextlib.suppress(OSError):
            said += "\n" + pathlib.Path(f"/proc/{gadget.process.pid}/stack").read_text()
        raise Failure(f"{failure}\nThe gadget said:\n{said}") from failure
    finally:
        gadget.close()


@contextlib.contextmanager
def captured(name):
    """Writes down what passes on all buses; script/e2e has it dissected afterwards."""
    with open(f"/tmp/{name}.dumpcap", "w+", encoding="utf-8") as said:
        process = subprocess.Popen(["dumpcap", "-q", "-i", "usbmon0", "-w", str(OUT / f"{name}.pcapng")], stderr=said)
        wait_for("the capture", lambda: "File:" in pathlib.Path(said.name).read_text(encoding="utf-8"))
        try:
            yield
        finally:
            process.send_signal(signal.SIGINT)
            process.wait(PATIENCE)


def settle():
    """Lets udev finish with what is attached."""
    wait_for("the device on the bus", nodes)
    run("udevadm", "settle")


def tagged():
    """Whether the rule gives the device to the person at the machine."""
    return bool(re.search("^CURRENT_TAGS=.*:uaccess:", run("udevadm", "info", "-q", "property", "-n", nodes()[0]), re.M))


def accessible():
    """Whether that person may write to the device's node."""
    return subprocess.run(as_user("test", "-w", nodes()[0]), check=False).returncode == 0


def judge_complete(name, tool, gadget, expected=None, refusals=()):
    """The four witnesses of a reset that must have ended well."""
    tool.wait_log("Boot resumed")
    # The tool's last write ends when the controller has the packet, a moment before the device looks at it.
    wait_for("the device to resume", lambda: commands(gadget.record())[-1:] == ["resume"])
    record = gadget.record()
    got = commands(record)
    expect(got[-4:] == FULL, f"the device received {got}")
    if expected is not None:
        expect(got == expected, f"the device received {got}, not {expected}")
    refused = [line for line in record.splitlines() if " refused " in line and not any(word in line for word in refusals)]
    expect(not refused, f"the device refused {refused}")
    expect(gadget.entries() == 0, f"{gadget.entries()} entries are left in the store")
    tool.expect_screen("complete", name)


def first_reset(tool, gadget):
    """A reset with the device attached late, in which every screen stays for as long as it takes to picture it."""
    tool.new_screen("start")
    tool.reset()
    tool.wait_log("No device found, waiting for connection")
    tool.new_screen("progress", "start")
    gadget.order("plug")
    tool.wait_log("Boot resumed")
    tool.new_screen("complete", "start", "progress")


def in_order(log, *texts):
    position = 0
    for text in texts:
        found = log.find(text, position)
        expect(found >= 0, f'"{text}" is missing, or out of order, in the log:\n{log}')
        position = found + len(text)


@scenario
def device_attached_after_reset_now():
    with a_gadget("--unplugged") as gadget, the_tool() as tool:
        first_reset(tool, gadget)
        judge_complete("attached late", tool, gadget, FULL)


@scenario
def happy_path():
    with captured("reset"), a_gadget(reboot_time=()) as gadget, the_tool() as tool:
        settle()
        tool.reset()
        judge_complete("happy", tool, gadget, FULL)
        gone, back = re.search(r"([0-9.]+) ms  state +detached\n(?:.*\n)*?.* ([0-9.]+) ms  state +attached\n",
                               gadget.record()).groups()
        expect(float(back) - float(gone) >= 2000, f"left at {gone} ms and came back at {back} ms, not two seconds later")
        in_order(tool.log(), "has started.", "Device found, rebooting", "Device rebooted", "Hold in bootloader sent",
                 "Nonvol cleared", "Boot resumed")
        mode = os.stat(nodes()[0]).st_mode & 0o777
        expect(mode & 0o006 in (0, 0o004), f"the device node may be written by everybody ({mode:o})")


@scenario
def unplug_during_identification():
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        gadget.order("drop 254 1500")
        tool.reset()
        judge_complete("unplug identification", tool, gadget)
        in_order(tool.log(), "Reboot failed:", "Device rebooted", "Boot resumed")


@scenario
def unplug_after_hold():
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        gadget.order("fault hold-unplug")
        tool.reset()
        judge_complete("unplug hold", tool, gadget)
        in_order(tool.log(), "Hold in bootloader failed:", "Device rebooted", "Boot resumed")


@scenario
def unplug_after_clear():
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        gadget.order("fault clear-unplug")
        tool.reset()
        judge_complete("unplug clear", tool, gadget)
        in_order(tool.log(), "Hold in bootloader sent", "failed:", "Device rebooted", "Nonvol cleared", "Boot resumed")


@scenario
def hold_never_answered():
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        gadget.order("fault 1000 hold-ignored")
        tool.reset()
        tool.wait_log("Hold in bootloader failed:", 3)
        SCREEN.focus(tool.window)
        SCREEN.key("Alt_L+t")
        wait_for("the menu", lambda: len(tool.windows()) == 2)
        SCREEN.key("Escape")
        wait_for("the menu to close", lambda: len(tool.windows()) == 1)
        tool.expect_screen("progress", "hold unanswered, waiting")
        expect(set(commands(gadget.record())) == {"reboot", "hold"}, f"the device received {commands(gadget.record())}")
        expect(gadget.entries() > 0, "a store was cleared that is not held")
        in_order(tool.log(), "Device found, rebooting", "Device rebooted",
                 *2 * ("Hold in bootloader failed:", "issueCommand Timeout", "Device rebooted"), "Hold in bootloader failed:")
        gadget.order("clear-faults")
        judge_complete("hold unanswered", tool, gadget)


@scenario
def no_protocol_list():
    with a_gadget("--profile", "old") as gadget, the_tool() as tool:
        settle()
        tool.reset()
        judge_complete("no protocol list", tool, gadget, FULL)


@scenario
def packet_of_more_than_4096_bytes():
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        gadget.order("fault hold-4116-bytes")
        tool.reset()
        judge_complete("long packet", tool, gadget, FULL)


def write_exact_multiples(speed):
    """Writes that end with a full packet, and a reset of the device that got them."""
    with a_gadget() as gadget, the_tool() as tool:
        settle()
        found = pathlib.Path("/sys/bus/usb/devices/1-1/speed").read_text().strip()
        expect(found == speed, f"the device was enumerated at {found} Mbit/s")
        print(run(str(PROBE)))

        def sizes():
            return [len(packet) for packet in packets(gadget.record())]
        # After those of the session's start; the last one tells that the one before has arrived whole.
        wait_for("the last packet", lambda: sizes()[-1] == 64)
        expect(sizes()[-5:] == [511, 512, 513, 1024, 64], f"packets of {sizes()} bytes reached the device")
        tool.reset()
        judge_complete(f"exact multiple, {speed}", tool, gadget, FULL, ["unknown packet: 14 00 00 00 A0 0F"])  # the probe's
        in_order(tool.log(), "Device rebooted", "Hold in bootloader sent", "Nonvol cleared", "Boot resumed")


@scenario
def write_of_an_exact_multiple():
    write_exact_multiples("480")


@scenario
def full_speed():
    run("modprobe", "-r", "dummy_hcd")
    run("modprobe", "dummy_hcd", "num=2", "is_high_speed=N")
    try:
        write_exact_multiples("12")
    finally:
        run("modprobe", "-r", "dummy_hcd")
        run("modprobe", "dummy_hcd", "num=2")


@scenario
def kernel_driver_bound():
    run("modprobe", "usbserial", f"vendor=0x{VENDOR}", "product=0x0003")
    try:
        with a_gadget() as gadget, the_tool() as tool:
            settle()
            driver = "/sys/bus/usb/devices/1-1:1.0/driver"
            wait_for("the kernel's driver", lambda: os.path.exists(driver))
            tool.reset()
            judge_complete("kernel driver", tool, gadget, FULL)
            wait_for("the kernel's driver to be back", lambda: os.path.exists(driver))
    finally:
        run("modprobe", "-r", "usbserial")


@contextlib.contextmanager
def without_the_rule():
    place = pathlib.Path("/run/udev/rules.d") / RULE.name
    place.unlink()
    run("udevadm", "control", "--reload")
    try:
        yield
    finally:
        shutil.copy(RULE, place)
        run("udevadm", "control", "--reload")


@scenario
def access_denied_for_a_second():
    stop = threading.Event()

    def grant():
        seen = set()
        while not stop.is_set():
            for node in nodes():
                if node not in seen:
                    seen.add(node)
                    time.sleep(1)
                    with contextlib.suppress(FileNotFoundError):
                        shutil.chown(node, USER)
            time.sleep(0.02)

    with without_the_rule(), a_gadget("--unplugged") as gadget, the_tool() as tool:
        thread = threading.Thread(target=grant)
        thread.start()
        try:
            tool.reset()
            tool.wait_log("No device found, waiting for connection")
            gadget.order("plug")
            judge_complete("denied for a second", tool, gadget, FULL)
        finally:
            stop.set()
            thread.join()


@scenario
def without_the_udev_rule():
    with without_the_rule(), a_gadget() as gadget, the_tool() as tool:
        settle()
        tool.reset()
        tool.wait_log("Reboot failed:")
        log = tool.log()
        for word in (nodes()[0], "root", RULE.name + " is not installed", "/etc/udev/rules.d", "udevadm control --reload"):
            expect(word in log, f'the log does not say "{word}":\n{log}')
        expect(not packets(gadget.record()), "something reached the device without access")
        expect(gadget.entries() > 0, "the store was cleared without access")
        tool.expect_screen("progress", "no rule")


@scenario
def two_devices():
    with a_gadget("--controller", "dummy_udc.0") as first, \
            a_gadget("--controller", "dummy_udc.1", name="two") as second, the_tool() as tool:
        wait_for("two devices", lambda: len(nodes()) == 2)
        run("udevadm", "settle")
        tool.reset()
        tool.wait_log("Boot resumed")
        records = {gadget: gadget.record() for gadget in (first, second)}
        cleared = [gadget for gadget in records if gadget.entries() == 0]
        expect(len(cleared) == 1, f"{len(cleared)} devices were cleared")
        untouched = second if cleared[0] is first else first
        expect(not packets(records[untouched]), "the other device was touched")
        untouched.order("unplug")  # the foot of the screen would say that there are two, and is part of the picture
        judge_complete("two devices", tool, cleared[0], FULL)
        in_order(tool.log(), "Device found, rebooting", "Device rebooted", "Hold in bootloader sent", "Nonvol cleared")


@scenario
def rule_wants_the_exact_identity():
    for options, wanted in (((), True), (("--product", "0004"), False), (("--release", "0002"), False)):
        with a_gadget(*options):
            settle()
            expect(tagged() == accessible() == wanted, f"on add, {options} has the tag: {tagged()}, access: {accessible()}")
            run("udevadm", "trigger", "--action=change", "--name-match=" + nodes()[0])
            run("udevadm", "settle")
            expect(tagged() == accessible() == wanted, f"on change, {options} has the tag: {tagged()}, access: {accessible()}")


@scenario
def gadget_of_the_same_name():
    with a_gadget() as gadget:
        settle()
        second = subprocess.run([str(GADGET), "--name", "one"], capture_output=True, text=True, check=False)
        expect(second.returncode == 1 and "of the name one is running" in second.stderr, f"the second one said {second}")
        expect(nodes(), "the second one took the first off the bus")
        gadget.process.kill()
        gadget.process.wait()
    with a_gadget():
        settle()


@scenario
def package_installed_used_and_purged():
    place = pathlib.Path("/run/udev/rules.d") / RULE.name
    place.unlink()  # the package brings its own
    run("udevadm", "control", "--reload")
    # The cache of this machine's whole manual would be built anew: minutes, and no business of the package.
    pathlib.Path("/var/lib/man-db/auto-update").unlink(missing_ok=True)
    # Where an ordinary user runs the virtual machine, the host's locks can't be opened.
    for lock in ("lock", "lock-frontend", "triggers/Lock"):
        pathlib.Path("/var/lib/dpkg", lock).unlink(missing_ok=True)
    try:
        listed = [line.split()[-1] for package in PACKAGES for line in run("dpkg-deb", "--contents", package).splitlines()]
        fresh = [path for path in (pathlib.Path("/", name) for name in listed) if not os.path.lexists(path)]
        expect(pathlib.Path("/usr/bin/ResetTool") in fresh, "there is a tool before the package is installed")
        with a_gadget() as gadget:
            settle()
            expect(not tagged() and not accessible(), "there is access before the package is installed")
            run("dpkg", "--install", *PACKAGES)
            run("udevadm", "settle")
            expect(tagged() and accessible(), "the attached device can't be opened after the installation")
            with the_tool("/usr/bin/ResetTool") as tool:
                tool.reset()
                judge_complete("package", tool, gadget, FULL)
            settle()
            run("dpkg", "--purge", "trovik-reset-tool", "trovik-common")
            run("udevadm", "settle")
            expect(not tagged(), "the device has the tag of a rule that has been purged")
            gadget.order("unplug")
            wait_for("the device to leave", lambda: not nodes())
            gadget.order("plug")
            settle()
            expect(not accessible(), "there is access after the purge")
        left = [path for path in fresh if os.path.lexists(path)] + glob.glob("/var/lib/dpkg/info/trovik*")
        expect(not left, f"left behind after purging: {left}")
    finally:
        shutil.copy(RULE, place)
        run("udevadm", "control", "--reload")


def replug(gadget):
    if gadget.last("on the bus", "off the bus") == "on the bus":
        gadget.order("unplug")
        wait_for("the device to leave", lambda: gadget.last("on the bus", "off the bus") == "off the bus")
    gadget.order("plug")


def waits_for_attach(log, gadget, quiet):
    """Whether the tool has done all that it will do before the next attach, and none will come by itself, after so many
    seconds in which neither the tool nor the device said anything."""
    said = [line for line in log.splitlines() if "Device rebooted" in line or "Reboot failed" in line or "sent" in line]
    state, attached = gadget.last("state "), gadget.last("on the bus", "off the bus") == "on the bus"
    if not said or "sent" in said[-1] or state == "state rebooting":
        return False
    if "Reboot failed" in said[-1] and attached:
        return quiet > 1  # for an attach that is still on its way to the tool
    # Longer than the tool waits for an answer, or a fault for the cable to go in again.
    return quiet > 5 and (not attached or state != "state starting")


@scenario
def resets_with_random_faults():
    print(f"seed {SEED}")
    chance = random.Random(SEED)
    # All but those of the operating system's own operations, which a device can't commit.
    usable = [line.partition(":")[0] for line in run(str(GADGET), "--faults").splitlines()
              if not line.startswith("open-")]
    drawn = struck = waited = 0
    # The default style draws its busy indicator so often that an emulated processor does little else.
    with a_gadget("--unplugged", "--profile", "instant", "--reboot-time", "50") as gadget, \
            the_tool(QT_STYLE_OVERRIDE="Windows") as tool:
        first_reset(tool, gadget)
        tool.back_to_start()
        gadget.order("refill")
        for number in range(1, ROUNDS + 1):
            fault = chance.choice(usable) if chance.random() < 0.1 else None
            before = len(gadget.lines)
            if fault:
                drawn += 1
                gadget.order("fault " + fault)
            tool.reset()
            news, quiet_since, end = None, time.monotonic(), time.monotonic() + PATIENCE
            while (log := tool.log()).count("Boot resumed") <= number:
                tool.gone()
                if time.monotonic() > end:
                    raise Failure(f"reset {number} with the fault {fault} does not end:\n{log[-2000:]}")
                if news != (news := (len(log), len(gadget.lines))):
                    quiet_since = time.monotonic()
                elif waits_for_attach(log, gadget, time.monotonic() - quiet_since):
                    waited += 1
                    replug(gadget)
                    quiet_since, end = time.monotonic(), time.monotonic() + PATIENCE
                time.sleep(0.05)
            wait_for(f"the cleared store after reset {number} with the fault {fault}", lambda: gadget.entries() == 0, 10)
            tool.back_to_start()
            struck += f"fault {fault}" in gadget.lines[before:]
            gadget.order("clear-faults", "refill")
            wait_for("the refilled store", lambda: gadget.entries() > 0)
            if number <= 10:
                early = tool.usage()
        late = tool.usage()
        expect(struck > 0 or not drawn, f"none of {drawn} faults came about")
        print(f"{ROUNDS} resets, {struck} of {drawn} faults committed, {waited} times attached again; descriptors, threads, kB: "
              f"{early} after 10, {late} at the end")
        expect(late[:2] == early[:2], f"descriptors and threads went from {early} to {late}")
        expect(late[2] - early[2] < 512, f"memory went from {early[2]} to {late[2]} kB")


@contextlib.contextmanager
def controllers(number):
    """So many of them; two of them afterwards, as before."""
    run("modprobe", "-r", "dummy_hcd")
    run("modprobe", "dummy_hcd", f"num={number}")
    try:
        yield
    finally:
        run("modprobe", "-r", "dummy_hcd")
        run("modprobe", "dummy_hcd", "num=2")


def port_of(unit):
    """Where the gadget with that unit id is."""
    for file in glob.glob("/sys/bus/usb/devices/*/serial"):
        with contextlib.suppress(OSError):  # gone since
            if pathlib.Path(file).read_text().strip() == str(unit):
                return pathlib.Path(file).parent.name
    return None


UNIT = 3812345678  # of a gadget that is given none
BOOTS = ("--boot-time", "500")  # leaves the bus for that long when it is let start


@scenario
def trovik_reset_three_at_once():
    # Chosen ones, one of another model, one of the same model that is not chosen.
    devices = {1: BOOTS, 2: BOOTS, 3: ("--profile", "wearable", *BOOTS), 4: ("--product", "0004"), 5: BOOTS}
    with controllers(len(devices)), contextlib.ExitStack() as stack:
        gadgets = {unit: stack.enter_context(a_gadget("--unit", str(unit), "--controller", f"dummy_udc.{unit - 1}", *options,
                                                      name=f"number-{unit}"))
                   for unit, options in devices.items()}
        wait_for("all devices on the bus", lambda: all(map(port_of, devices)))
        run("udevadm", "settle")
        fresh_home()
        ports = {unit: port_of(unit) for unit in devices}
        with Twin("reset", ports[1], ports[2], ports[3], "--yes") as twin:
            expect(twin.end() == 0, "it was no success")
            ended = {event["port"]: (event["unit"], event["status"]) for event in twin.events(event="device", state="ended")}
            expect(ended == {ports[unit]: (unit, 0) for unit in (1, 2, 3)}, f"the devices ended as {ended}")
            began = [event["at"] for event in twin.events(stage="hold", state="began")]
            first = min(event["at"] for event in twin.events(event="device", state="ended"))
            expect(max(began) < first, "one was over before another one was held: they were not reset at once")
        for unit, gadget in gadgets.items():
            record = gadget.record()
            if unit in (1, 2, 3):
                expect(commands(record) == FULL, f"device {unit} received {commands(record)}")
                expect(" refused " not in record, f"device {unit} refused something:\n{record}")
                expect(gadget.entries() == 0, f"{gadget.entries()} entries are left in the store of device {unit}")
            else:
                expect(not packets(record), f"device {unit} was touched")
                expect(gadget.entries() > 0, f"the store of device {unit} was cleared")


@contextlib.contextmanager
def stopped_in_a_hold(number):
    """A reset that gets that signal while the device is held and has not said so yet."""
    with a_gadget(*BOOTS) as gadget:
        settle()
        fresh_home()
        gadget.order("fault 1000 hold-too-late")
        with Twin("reset", "--yes") as twin:
            # Each look at the record wakes the gadget, which otherwise tells of its state no sooner than it answers.
            wait_for("the hold", lambda: "hold" in commands(gadget.record()))
            twin.process.send_signal(number)
            yield gadget, twin
            expect(gadget.entries() > 0, "the store was cleared")


def judge_let_start(gadget):
    wait_for("the device to resume", lambda: commands(gadget.record())[-2:] == ["hold", "resume"])
    wait_for("the device to start", lambda: gadget.last("state ") == "state running")
    expect(not left_held(), f"still in the journal: {left_held()}")


def left_held():
    """What the journal says."""
    return glob.glob(f"/home/{USER}/.local/state/trovik-reset/held-*")


@scenario
def trovik_reset_cancelled_in_a_hold():
    with stopped_in_a_hold(signal.SIGINT) as (gadget, twin):
        expect(twin.end() == CANCELLED, "it was not cancelled")
        judge_let_start(gadget)
        last = twin.events()[-1]["text"]
        expect("Its settings are as they were; it was told to start." in last, f'the last line says "{last}"')


@scenario
def trovik_reset_killed_in_a_hold_and_resumed():
    with stopped_in_a_hold(signal.SIGKILL) as (gadget, killed):
        killed.process.wait(PATIENCE)
        expect(gadget.last("state ").startswith("state held") and len(left_held()) == 1, "nothing was left held")
        with Twin("list") as twin:
            expect(twin.end() == 0 and len(twin.events(event="note", port=port_of(UNIT), unit=UNIT)) == 1,
                   "the next start does not say which device was left held")
        with Twin("resume") as twin:
            expect(twin.end() == 0, "the device was not let start")
            judge_let_start(gadget)


@scenario
def trovik_reset_with_twenty_random_faults():
    print(f"seed {SEED}")
    chance = random.Random(SEED)
    # All but those of the operating system's own operations, and the one that no host sees: the controller takes the
    # packet at which the device stalls, "resume" has no answer, and a device may well start without leaving the bus.
    usable = [line.partition(":")[0] for line in run(str(GADGET), "--faults").splitlines()
              if not line.startswith(("open-", "resume-stall"))]
    faults = [*chance.sample(usable, len(usable)), *chance.choices(usable, k=20)][:20]
    seen = {}
    with a_gadget("--profile", "instant", *BOOTS, reboot_time=("--reboot-time", "50")) as gadget:
        fresh_home()
        for number, fault in enumerate([*faults, None], 1):  # whatever state they left it in, one without a fault succeeds
            if fault:
                gadget.order("fault " + fault)
            with Twin("reset", "--yes", "--wait", "60", "--limit", "back=20", "--limit", "back-again=20") as twin:
                status = twin.end()
                received = commands(gadget.record())
                what = f"reset {number}, with the fault {fault}, ended with {status} and the device received {received}"
                ended = [event["status"] for event in twin.events(event="device", state="ended")]
                expect(ended == [status], f"{what}; its device ended with {ended}")
                expect((gadget.entries() == 0) == (status in (0, 8)), f"{what}; {gadget.entries()} entries are left in the store")
                expect(fault or status == 0, what)
                if status == 0:
                    expect(received[-2:] == FULL[-2:], what)
                    wait_for(f"the device to be running; {what}", lambda: gadget.last("state ") == "state running")
                    expect(not left_held(), f"{what}; in the journal is {left_held()}")
            seen.setdefault(STATUSES[status], []).append(str(fault))
            gadget.order("clear-faults", "refill")
            wait_for("the refilled store", lambda: gadget.entries() > 0)
            if status != 0:  # as a person would who is told that it failed
                replug(gadget)
    print("\n".join(f"{outcome}: {', '.join(struck)}" for outcome, struck in seen.items()))


def prepare():
    """What a booted system with one person sitting at it would have."""
    uid = 1 + max(account.pw_uid for account in pwd.getpwall() if account.pw_uid < 60000)
    # Not by useradd, which wants to read what an ordinary user's virtual machine can't: the host's shadow file.
    for path, line in (("passwd", f"{USER}:x:{uid}:{uid}::/home/{USER}:/bin/bash"), ("group", f"{USER}:x:{uid}:")):
        with open("/etc/" + path, "a", encoding="utf-8") as file:
            file.write(line + "\n")
    for package in PACKAGES:
        run("dpkg-deb", "-x", package, "/run/tool")
    shutil.copy(BUILD / "cli/trovik-reset", TWIN)
    os.makedirs("/run/systemd/seats")
    pathlib.Path("/run/systemd/seats/seat0").write_text(f"IS_SEAT0=1\nACTIVE=1\nACTIVE_UID={uid}\nUIDS={uid}\n")
    os.makedirs("/run/udev/rules.d")
    shutil.copy(RULE, "/run/udev/rules.d/")
    subprocess.run(["/lib/systemd/systemd-udevd", "--daemon"], check=True)
    run("modprobe", "libcomposite")
    run("modprobe", "dummy_hcd", "num=2")
    run("modprobe", "usbmon")
    run("udevadm", "trigger", "--action=add")
    run("udevadm", "settle")
    subprocess.Popen(["Xvfb", DISPLAY, "-screen", "0", "1280x1024x24", "-nolisten", "tcp"], stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL)
    wait_for("the X server", lambda: os.path.exists("/tmp/.X11-unix/X" + DISPLAY[1:]))
    global SCREEN
    SCREEN = display.Display(DISPLAY)


def main():
    booted = time.clock_gettime(time.CLOCK_BOOTTIME)
    wanted = [line for line in (OUT / "wanted").read_text().split("\n") if line]
    prepare()
    failed = 0
    with open(OUT / "results", "w", encoding="utf-8", buffering=1) as results:
        results.write(f"boot: {booted:.1f} s; devices, X server: {time.clock_gettime(time.CLOCK_BOOTTIME) - booted:.1f} s\n")
        names = [name for name in SCENARIOS if not wanted or any(word in name for word in wanted)]
        first = "device attached after reset now"
        if first not in names and not all(name.startswith("trovik reset ") for name in names):
            names.insert(0, first)  # in which all the others learn what the screens look like
        for name in names:
            function = SCENARIOS[name]
            start = time.monotonic()
            try:
                function()
                verdict = "passed"
            except Exception as error:  # pylint: disable=broad-except
                failed += 1
                verdict = f"FAILED: {error if isinstance(error, Failure) else traceback.format_exc()}"
                with contextlib.suppress(Exception):
                    save(SCREEN.picture(SCREEN.root), f"failed {name}")
            for log in glob.glob(f"/home/{USER}/.local/share/Trovik/ResetTool/*.txt"):
                shutil.copy(log, OUT / f"{name}.log")
            results.write(f"{name}: {verdict} ({time.monotonic() - start:.1f} s)\n")
        results.write(f"{len(SCENARIOS) if not wanted else 'some'} scenarios, {failed} failed\n")
    (OUT / "verdict").write_text("1\n" if failed else "0\n")


main()
