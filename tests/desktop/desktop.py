"""The tool on a desktop: window system, screen reader, message buses. Everything here is the real thing except for the
services that answer on the buses, and the device, which is simulated.

    desktop.py BUILD OUT [SCENARIO…]
"""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

from backends import Wayland, X11  # noqa: E402
from session import SessionManager  # noqa: E402

BUILD = pathlib.Path(sys.argv[1]).resolve()
OUT = pathlib.Path(sys.argv[2]).resolve()
TOOL, DEMO = BUILD / "app/ResetTool", BUILD / "app/ResetToolDemo"
ENTRY = BUILD / "packaging/org.trovik.ResetTool.desktop"
NAME = "org.trovik.ResetTool"
PATIENCE = 60.0  # seconds that anything may take on a busy machine; nothing is measured by it


class Failure(Exception):
    pass


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        while GLib.MainContext.default().iteration(False):
            pass
        value = condition()
        if value:
            return value
        time.sleep(0.02)
    raise Failure(f"waited {PATIENCE:.0f} s for {what}")


def expect(condition, what):
    if not condition:
        raise Failure(what)


class Bus:
    """A private message bus, which knows of no service that this machine could start but the screen reader's."""

    def __init__(self, folder):
        services = folder / "services"
        services.mkdir()
        shutil.copy("/usr/share/dbus-1/services/org.a11y.Bus.service", services)
        config = folder / "bus.conf"
        config.write_text(f"""<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={folder}/bus-socket</listen><auth>EXTERNAL</auth><servicedir>{services}</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>""")
        self._daemon = subprocess.Popen(["dbus-daemon", f"--config-file={config}", "--nofork", "--print-address=1"],
                                        stdout=subprocess.PIPE, stderr=open(folder / "bus.log", "w"), text=True)
        self.address = self._daemon.stdout.readline().strip()

    def connect(self):
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        return Gio.DBusConnection.new_for_address_sync(self.address, flags, None, None)

    def close(self):
        self._daemon.terminate()
        self._daemon.wait()


class Service:
    """Answers one call on a bus, and keeps what came."""

    def __init__(self, bus, name, path, interface, method, signature, result, answer):
        self.calls = []
        self._bus = bus.connect()
        arguments = "".join(f'<arg type="{kind}" direction="in"/>' for kind in signature)
        result = f'<arg type="{result}" direction="out"/>' if result else ""
        node = Gio.DBusNodeInfo.new_for_xml(
            f'<node><interface name="{interface}"><method name="{method}">{arguments}{result}</method></interface></node>')

        def called(_bus, _sender, _path, _interface, _method, parameters, invocation):
            self.calls.append(parameters.unpack())
            answer(invocation)
        self._bus.register_object(path, node.interfaces[0], called, None, None)
        # Without a queue, so that a name that somebody else has is a failure.
        reply = self._bus.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
                                    GLib.Variant("(su)", (name, 4)), None, 0, -1, None)
        expect(reply.unpack() == (1,), f"{name} has another owner")

    def close(self):
        self._bus.flush_sync(None)  # the last answer is still to get out
        self._bus.close_sync(None)


class FileManager(Service):
    def __init__(self, bus):
        super().__init__(bus, "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1",
                         "ShowItems", ("as", "s"), "", lambda invocation: invocation.return_value(None))


class Login(Service):
    """Gives out inhibitor locks and knows of each whether it is still open."""

    def __init__(self, bus, refuses=False):
        self._locks = []

        def answer(invocation):
            if refuses:
                return invocation.return_dbus_error("org.freedesktop.DBus.Error.AccessDenied", "not\nfor you")
            read, write = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
            self._locks.append(read)
            descriptors = Gio.UnixFDList.new()
            descriptors.append(write)
            os.close(write)
            invocation.return_value_with_unix_fd_list(GLib.Variant("(h)", (0,)), descriptors)
        super().__init__(bus, "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit",
                         ("s", "s", "s", "s"), "h", answer)

    def held(self):
        """How many locks are open somewhere."""
        count = 0
        for lock in self._locks:
            try:
                os.read(lock, 1)  # nothing is ever written: this is the end, or there is a writer
            except BlockingIOError:
                count += 1
        return count


class ScreenReader:
    """What comes over the accessibility bus from the tool's window."""
    KINDS = ("object:state-changed:focused", "object:announcement", "object:property-change:accessible-name", "window:activate")

    def __init__(self):
        self.heard = []
        self._listener = Atspi.EventListener.new(self._hear)
        for kind in self.KINDS:
            self._listener.register(kind)

    def _hear(self, event):
        with contextlib.suppress(GLib.Error):  # gone since
            if event.type.endswith(":focused") and not event.detail1:
                return
            self.heard.append((event.type, event.source.get_role_name(), event.source.get_name(), event.source.get_description()))

    def take(self):
        heard, self.heard = self.heard, []
        return heard

    def close(self):
        for kind in self.KINDS:
            self._listener.deregister(kind)

    def everything(self, role, showing=True):
        """Each thing of a role in the windows that are there; those that can't be seen too where that is asked for."""
        def below(thing):
            found = []
            with contextlib.suppress(GLib.Error):
                if (not showing or thing.get_state_set().contains(Atspi.StateType.SHOWING)
                        or thing.get_role() == Atspi.Role.APPLICATION):
                    if role == thing.get_role():
                        found.append(thing)
                    for i in range(thing.get_child_count()):
                        child = thing.get_child_at_index(i)
                        if child:
                            found += below(child)
            return found
        desktop = Atspi.get_desktop(0)
        return [thing for i in range(desktop.get_child_count()) for thing in below(desktop.get_child_at_index(i))]

    def named(self, role, text, showing=True):
        return next((thing for thing in self.everything(role, showing) if text in thing.get_name()), None)


class Program:
    """The tool or the demo, with a home of its own."""

    def __init__(self, desk, program, home="home", **settings):
        self.home = desk.folder / home
        self.home.mkdir(exist_ok=True)
        environment = {"HOME": str(self.home), "PATH": f"{desk.folder}/bin:/usr/bin:/bin", "LANG": "C.UTF-8",
                       "XDG_RUNTIME_DIR": os.environ["XDG_RUNTIME_DIR"], "QT_QPA_PLATFORM": desk.system.platform,
                       "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "DBUS_SESSION_BUS_ADDRESS": desk.session.address,
                       "DBUS_SYSTEM_BUS_ADDRESS": desk.system_bus.address, **desk.system.environment, **settings}
        self._errors = open(self.home / "stderr", "a+", encoding="utf-8")
        self.process = subprocess.Popen([str(program)], env={name: value for name, value in environment.items() if value},
                                        stdout=subprocess.DEVNULL, stderr=self._errors, cwd=self.home)
        desk.programs.append(self)

    def errors(self):
        return (self.home / "stderr").read_text()

    def log(self):
        return "".join(path.read_text() for path in sorted(self.home.glob(".*/**/ResetTool_*.txt")))

    def wait_log(self, text):
        wait_for(f'"{text}" in the log', lambda: text in self.log() or self._gone())

    def _gone(self):
        expect(self.process.poll() is None, f"the tool ended with {self.process.poll()}: {self.errors()}")

    def close(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.terminate()
            self.process.wait()
        self._errors.close()


class Desk:
    """One window system with its buses, for one scenario."""

    def __init__(self, kind, folder):
        self.folder = folder
        (folder / "bin").mkdir()
        self.programs, self.services = [], []
        self.session = SESSION
        self.system_bus = SESSION  # a bus is a bus
        self.system = kind(folder)

    def program(self, *arguments, **settings):
        return Program(self, *arguments, **settings)

    def service(self, kind, **options):
        self.services.append(kind(self.session, **options))
        return self.services[-1]

    def opener(self, status):
        """Has xdg-open keep its argument and end with that status; returns what it was given."""
        path = self.folder / "opener"
        path.write_text(f'#!/bin/sh\necho "$@" >> "{self.folder}/opened"\nexit {status}\n')
        path.chmod(0o755)
        path.replace(self.folder / "bin/xdg-open")  # whole: a shell may still be reading the one before
        return lambda: (self.folder / "opened").read_text().split() if (self.folder / "opened").exists() else []

    def picture(self, name):
        self.system.picture(OUT / f"{self.system.name}-{name}.png")

    def close(self):
        for thing in (*self.programs, *self.services, self.system):
            with contextlib.suppress(Exception):
                thing.close()


def wait_for_keyboard(desk, reader, name):
    """Waits until what has that name has got the keyboard."""
    def focused():
        desk.system.attend()
        return any(kind.endswith("focused") and name in heard for kind, _, heard, _ in reader.heard)
    wait_for(f'the keyboard at "{name}"', focused)


def confirm(desk, reader):
    """Reset Now and the alert, by keys."""
    wait_for("the first screen", lambda: reader.named(Atspi.Role.PUSH_BUTTON, "Reset Now"))
    wait_for_keyboard(desk, reader, "Reset Now")
    desk.picture("1-not-started")
    desk.system.key("Return")
    wait_for("the alert", lambda: reader.named(Atspi.Role.PUSH_BUTTON, "Cancel"))
    wait_for_keyboard(desk, reader, "Cancel")
    desk.picture("2-confirmation")
    desk.system.key("Alt_L+r")


def whole_reset_by_keys(desk, reader):
    login = desk.service(Login)
    demo = desk.program(DEMO)
    confirm(desk, reader)
    bar = wait_for("the bar", lambda: next(iter(reader.everything(Atspi.Role.PROGRESS_BAR)), None))
    states = bar.get_state_set()
    expect(states.contains(Atspi.StateType.BUSY) and bar.get_name(), "the bar is not busy or has no name")
    screen = bar
    while screen and not (screen.get_role() == Atspi.Role.PANEL and screen.get_name()):
        screen = screen.get_parent()
    expect(screen, "the progress screen has no role and name")
    heading = screen.get_name()
    wait_for_keyboard(desk, reader, heading)
    desk.picture("3-in-progress")
    wait_for("the lock", lambda: login.held() == 1)
    what, _who, why, mode = login.calls[0]
    expect((what, mode) == ("sleep:idle:handle-lid-switch", "block") and why, f"an odd lock: {login.calls[0]}")

    demo.wait_log("Boot resumed")
    again = wait_for("the complete screen", lambda: reader.named(Atspi.Role.PUSH_BUTTON, "Back to Start"))
    wait_for("the end of the lock", lambda: login.held() == 0)
    expect(len(login.calls) == 1, "there was more than one lock")
    desk.picture("4-complete")
    wait_for_keyboard(desk, reader, "has been reset")

    # Each screen once, by the focus, with all of its texts.
    spoken = [(role, name, description) for kind, role, name, description in reader.take()
              if kind.endswith("focused") and role in ("label", "push button") and name != "Cancel"]
    names = [name for _, name, _ in spoken]
    progress, complete = (next((entry for entry in spoken if text in entry[1]), None) for text in (heading, "has been reset"))
    expect(progress and complete and names.count(heading) == 1 and names.count(complete[1]) == 1, f"spoken: {spoken}")
    expect("two minutes" in progress[2] and "erased" in complete[2], f"not with its texts: {spoken}")

    desk.system.key("Return")  # goes nowhere
    desk.system.key("Alt_L+s")
    wait_for("the first screen", lambda: reader.named(Atspi.Role.PUSH_BUTTON, "Reset Now"))
    desk.system.key("Control_L+q")
    wait_for("the end", lambda: demo.process.poll() is not None)
    expect(demo.process.returncode == 0, f"it ended with {demo.process.returncode}: {demo.errors()}")
    del again


def no_lock_to_be_had(desk, reader):
    for service in (None, Login):
        if service:
            desk.service(service, refuses=True)
        demo = desk.program(DEMO, home=f"home-{bool(service)}")
        reader.take()
        confirm(desk, reader)
        demo.wait_log("Boot resumed")
        lines = [line for line in demo.log().splitlines() if "TRV-509 " in line]
        expect(len(lines) == 1, f"lines about the lock: {lines}")
        demo.close()


def window_and_entry(desk, _reader):
    entry = ENTRY.read_text()
    desk.program(TOOL)
    found = wait_for("the window", desk.system.windows)[0][0]
    if desk.system.name == "x11":
        wanted = re.search(r"^StartupWMClass=(.*)$", entry, re.M)[1]
    else:
        wanted = ENTRY.stem
    expect(wanted in found, f"the entry joins {wanted}, the window is {found}")


def second_start(desk, reader):
    first = desk.program(TOOL)
    wait_for("the window", desk.system.windows)
    first.wait_log("has started.")
    other = desk.program(DEMO, home="demo")
    wait_for("the other's window", lambda: len(desk.system.windows()) == 2)
    kind = "ResetTool" if desk.system.name == "x11" else NAME
    wait_for("the other in front", lambda: not desk.system.is_in_front(kind))
    launch = 'launcher\\"1_TIME4711'  # whoever names a start so has the name quoted
    settings = {"DESKTOP_STARTUP_ID": launch} if desk.system.name == "x11" else {"XDG_ACTIVATION_TOKEN": desk.system.token()}
    second = desk.program(TOOL, **settings)
    expect(second.process.wait(PATIENCE) == 0, f"the second start: {second.errors()}")
    wait_for("the first in front", lambda: desk.system.is_in_front(kind))
    expect(len(desk.system.windows()) == 2 and first.log().count("has started.") == 1, "the second start was more than that")
    if desk.system.name == "x11":
        wish = wait_for("its wish for the keyboard", desk.system.asked_for_the_keyboard)
        expect(wish == [(desk.system.windows()[-1][1], 4711)], f"not as of the start: {wish}")
        told = desk.system.screen.texts()
        expect(told == ['remove: ID="launcher\\\\\\"1_TIME4711"'], f"the launcher has been told {told}")

    # With a first one that hangs, and without a bus, both run.
    other.close()
    first.process.send_signal(signal.SIGSTOP)
    third = desk.program(TOOL)
    wait_for("a window in spite of the first", lambda: first.log().count("has started.") == 2)
    third.close()
    first.process.send_signal(signal.SIGCONT)
    fourth = desk.program(TOOL, DBUS_SESSION_BUS_ADDRESS="", XDG_RUNTIME_DIR=str(runtime_without_bus(desk)))
    wait_for("a window without a bus", lambda: first.log().count("has started.") == 3)
    expect(first.process.poll() is None and fourth.process.poll() is None, "one of the two has ended")


def runtime_without_bus(desk):
    """The session's folder without its bus."""
    folder = desk.folder / "runtime"
    folder.mkdir(mode=0o700)
    for entry in pathlib.Path(os.environ["XDG_RUNTIME_DIR"]).iterdir():
        if entry.name.startswith("wayland"):
            (folder / entry.name).symlink_to(entry)
    return folder


def log_files(desk, reader):
    opened = desk.opener(0)
    demo = desk.program(DEMO)
    wait_for("the first screen", lambda: reader.named(Atspi.Role.PUSH_BUTTON, "Reset Now"))
    wait_for_keyboard(desk, reader, "Reset Now")
    demo.wait_log("has started.")
    log = next(iter(demo.home.glob(".*/**/ResetTool_*.txt")))

    def choose():
        """As a screen reader does it for its user. Not by Alt+T: under X11 the toolkit's accessibility bridge has each key
        go to the bus and back before the window gets it, while a menu's letter opens the menu at once. Of keys that are
        sent in one go the press of Alt comes to the menu when that is open, and closes it; a person is slower than that."""
        item = reader.named(Atspi.Role.MENU_ITEM, "Show Log Files", showing=False)
        expect(item and Atspi.Action.do_action(item, 0), "the menu has no such item")

    manager = desk.service(FileManager)
    choose()
    wait_for("the file manager", lambda: manager.calls)
    expect(manager.calls == [([log.as_uri()], "")], f"it was told {manager.calls}")
    expect(not opened(), "the folder was opened as well")
    manager.close()

    choose()
    wait_for("the opener", opened)
    expect(opened() == [log.parent.as_uri()], f"it was told {opened()}")

    desk.opener(3)
    choose()
    path = wait_for("the path", lambda: next((thing for thing in reader.everything(Atspi.Role.TEXT)
                                              if Atspi.Text.get_text(thing, 0, -1) == str(log.parent)), None))
    expect(path.get_name(), "the path has no name")
    wait_for_keyboard(desk, reader, "Path of")
    desk.picture("log-folder")
    desk.system.key("Escape")
    wait_for("the box to go", lambda: not reader.everything(Atspi.Role.DIALOG))


def attention_at_the_end(desk, reader):
    demo = desk.program(DEMO)
    confirm(desk, reader)
    wait_for("the progress screen", lambda: reader.everything(Atspi.Role.PROGRESS_BAR))
    desk.system.screen.focus(desk.system.screen.root)  # the person is elsewhere
    expect(not desk.system.asked_for_attention(), "it asks before the end")
    demo.wait_log("Boot resumed")
    wait_for("the request", desk.system.asked_for_attention)


def end_of_session(desk, _reader):
    """Somebody logs out, thinks better of it, and logs out again."""
    manager = SessionManager()
    desk.services.append(manager)
    tool = desk.program(TOOL, SESSION_MANAGER=manager.address)
    wait_for("its registration", manager.serve)
    tool.wait_log("has started.")
    for times in (1, 2):
        manager.end()
        wait_for("its consent", lambda: manager.serve() and manager.has_saved == times)
        expect(tool.log().count("The session is about to end") == times, f"not logged before its consent: {tool.log()}")
        expect(tool.process.poll() is None and desk.system.windows(), "it has not waited for the end")
        if times == 1:
            manager.cancel()
    manager.die()
    wait_for("the end", lambda: manager.serve() and tool.process.poll() is not None)
    expect(tool.process.returncode == 0, f"it ended with {tool.process.returncode}: {tool.errors()}")
    expect(tool.log().count("The tool ends: ") == 1, f"the end is not in the log: {tool.log()}")


SCENARIOS = [whole_reset_by_keys, no_lock_to_be_had, window_and_entry, second_start, log_files, attention_at_the_end,
             end_of_session]
# This toolkit asks no Wayland compositor for attention, and knows session managers under X11 alone.
X11_ONLY = [attention_at_the_end, end_of_session]


def main():
    wanted = sys.argv[3:] or [scenario.__name__ for scenario in SCENARIOS]
    expect(set(wanted) <= {scenario.__name__ for scenario in SCENARIOS}, f"no such scenario: {wanted}")
    failed = []
    for kind in (X11, Wayland):
        for scenario in SCENARIOS:
            if scenario.__name__ not in wanted or (scenario in X11_ONLY and kind is not X11):
                continue
            name, start = f"{kind.name}: {scenario.__name__}", time.monotonic()
            with tempfile.TemporaryDirectory(prefix="d") as folder:
                desk = Desk(kind, pathlib.Path(folder))
                reader = ScreenReader()
                try:
                    scenario(desk, reader)
                    print(f"passed  {name} ({time.monotonic() - start:.1f} s)", flush=True)
                except Exception:
                    failed.append(name)
                    print(f"FAILED  {name}\n{traceback.format_exc()}", flush=True)
                    for program in desk.programs:
                        print(program.errors()[-2000:], program.log()[-2000:], sep="\n", flush=True)
                    with contextlib.suppress(Exception):
                        desk.picture(f"failed-{scenario.__name__}")
                finally:
                    reader.close()
                    desk.close()
    return 1 if failed else 0


with tempfile.TemporaryDirectory(prefix="d") as base:
    os.environ["XDG_RUNTIME_DIR"] = base
    os.chmod(base, 0o700)
    for variable in ("DISPLAY", "WAYLAND_DISPLAY", "AT_SPI_BUS_ADDRESS", "LANGUAGE", "LC_ALL"):
        os.environ.pop(variable, None)
    SESSION = Bus(pathlib.Path(base))
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = SESSION.address
    try:
        expect(Atspi.init() in (0, 1), "no accessibility bus")
        STATUS = main()
    finally:
        SESSION.close()
sys.exit(STATUS)
