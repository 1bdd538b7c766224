"""The two window systems as a person meets them: keys go in, windows and pixels come out."""
import ctypes
import json
import os
import pathlib
import pwd
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "e2e"))
import display  # noqa: E402


class _ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("sent", ctypes.c_int), ("display", ctypes.c_void_p),
                ("window", ctypes.c_ulong), ("message", ctypes.c_ulong), ("format", ctypes.c_int), ("data", ctypes.c_long * 5),
                ("rest", ctypes.c_long * 24)]


class _ClassHint(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("kind", ctypes.c_char_p)]


class _Screen(display.Display):
    """What a window manager would see as well: the requests that programs make of it."""

    def __init__(self, name):
        super().__init__(name)
        self._x.XInternAtom.restype = ctypes.c_ulong
        self._x.XSelectInput(self._display, ctypes.c_ulong(self.root), ctypes.c_long(1 << 17 | 1 << 19 | 1 << 22))  # structure and substructure, properties
        self._requests, self._pieces = [], b""

    def requests(self):
        """Each request so far: kind, window, first two words."""
        event = _ClientMessage()
        while self._x.XPending(self._display):
            self._x.XNextEvent(self._display, ctypes.byref(event))
            if event.type == 33 and event.format == 8:
                self._pieces += bytes(event.data)[:20]
            elif event.type == 33:
                self._requests.append((event.message, event.window, event.data[0], event.data[1]))
        return self._requests

    def texts(self):
        """What launchers have been told."""
        self.requests()
        return [text.decode() for text in self._pieces.split(b"\0") if text]

    def focused(self):
        holder, revert = ctypes.c_ulong(), ctypes.c_int()
        self._x.XGetInputFocus(self._display, ctypes.byref(holder), ctypes.byref(revert))
        return holder.value

    def atom(self, name):
        return self._x.XInternAtom(self._display, name.encode(), 0)

    def kind(self, window):
        hint = _ClassHint()
        self._x.XGetClassHint(self._display, ctypes.c_ulong(window), ctypes.byref(hint))
        return {text.decode() for text in (hint.name, hint.kind) if text}

    def is_menu(self, window):
        """Whether no window manager would be asked about it."""
        attributes = self._attributes(window)
        rest = ctypes.string_at(ctypes.addressof(attributes) + type(attributes).rest.offset, 28)
        return bool(int.from_bytes(rest[24:], sys.byteorder))  # behind three masks


class X11:
    """A bare X server. There is no window manager: the newest window gets the keyboard, as most of them would have it."""
    name = "x11"
    platform = "xcb"

    def __init__(self, folder):
        read, write = os.pipe()
        self._server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1024x768x24", "-nolisten", "tcp"],
                                        pass_fds=[write], stdout=subprocess.DEVNULL, stderr=open(folder / "Xvfb.log", "w"))
        os.close(write)
        with os.fdopen(read) as stream:
            self.environment = {"DISPLAY": ":" + stream.readline().strip()}
        self.screen = _Screen(self.environment["DISPLAY"])

    def windows(self):
        """Of programs that can be seen, by what a desktop tells programs by, the topmost last. Menus are not among them."""
        return [(self.screen.kind(window), window) for window in self.screen.windows()
                if self.screen.kind(window) and not self.screen.is_menu(window)]

    def attend(self):
        """Gives the newest window the keyboard."""
        windows = self.windows()
        if windows and self.screen.focused() != windows[-1][1]:
            self.screen.focus(windows[-1][1])

    def key(self, combination):
        self.attend()
        self.screen.key(combination)

    def picture(self, path):
        display.save(self.screen.picture(self.screen.root), path)

    def asked_for_the_keyboard(self):
        """The windows that were to get it, and the times of the wish."""
        kind = self.screen.atom("_NET_ACTIVE_WINDOW")
        return [(request[1], request[3]) for request in self.screen.requests() if request[0] == kind and request[2] == 1]

    def asked_for_attention(self):
        kind, state = self.screen.atom("_NET_WM_STATE"), self.screen.atom("_NET_WM_STATE_DEMANDS_ATTENTION")
        return any(request[0] == kind and request[2:] == (1, state) for request in self.screen.requests())

    def is_in_front(self, kind):
        return kind in self.windows()[-1][0]

    def close(self):
        self._server.terminate()
        self._server.wait()


class Wayland:
    """A compositor without a screen, a keyboard or a graphics processor. It refuses to run as root; root's programs may
    talk to anybody's."""
    name = "wayland"
    platform = "wayland"

    def __init__(self, folder):
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="w"))
        (self._folder / "config").write_text(
            "xwayland disable\noutput HEADLESS-1 resolution 1024x768\n"
            "for_window [app_id=\".*\"] floating enable\nfocus_on_window_activation focus\n")
        (self._folder / "config").chmod(0o644)
        drop = []
        if os.geteuid() == 0:
            nobody = pwd.getpwnam("nobody")
            os.chown(self._folder, nobody.pw_uid, nobody.pw_gid)
            drop = ["setpriv", f"--reuid={nobody.pw_uid}", f"--regid={nobody.pw_gid}", "--clear-groups"]
        control = self._folder / "sway"
        environment = {"PATH": "/usr/bin:/bin", "HOME": str(self._folder), "XDG_RUNTIME_DIR": str(self._folder),
                       "WLR_BACKENDS": "headless", "WLR_LIBINPUT_NO_DEVICES": "1", "WLR_RENDERER": "pixman", "SWAYSOCK": str(control)}
        self._sway = subprocess.Popen([*drop, "sway", "-c", str(self._folder / "config")], env=environment,
                                      stdout=subprocess.DEVNULL, stderr=open(folder / "sway.log", "w"))
        end = time.monotonic() + 60
        displays = []
        while not displays or not control.exists():
            if time.monotonic() > end or self._sway.poll() is not None:
                raise OSError("sway does not start: " + (folder / "sway.log").read_text()[-2000:])
            time.sleep(0.05)
            displays = [path for path in self._folder.glob("wayland-*") if path.suffix != ".lock"]
        self.environment = {"WAYLAND_DISPLAY": str(displays[0])}
        self._own = {**os.environ, **self.environment, "SWAYSOCK": str(control)}
        # A keyboard that stays: a program that has none yet would miss the first key of another.
        self._keyboard = subprocess.Popen(["wtype", "-s", "86400000", "-k", "Shift_L"], env=self._own)

    def _tree(self):
        def leaves(node):
            below = node["nodes"] + node["floating_nodes"]
            return [leaf for child in below for leaf in leaves(child)] if below else [node]
        tree = json.loads(subprocess.run(["swaymsg", "-r", "-t", "get_tree"], env=self._own, check=True, capture_output=True).stdout)
        return [leaf for leaf in leaves(tree) if leaf.get("pid")]

    def windows(self):
        return [({leaf["app_id"]}, leaf["id"]) for leaf in sorted(self._tree(), key=lambda leaf: leaf["focused"])]

    def key(self, combination):
        *modifiers, key = combination.split("+")
        names = {"Alt_L": "alt", "Control_L": "ctrl", "Shift_L": "shift"}
        down = [word for name in modifiers for word in ("-M", names[name])]
        up = [word for name in modifiers for word in ("-m", names[name])]
        subprocess.run(["wtype", *down, "-k", key, *up], env=self._own, check=True)

    def attend(self):
        """The compositor gives each new window the keyboard."""

    def token(self):
        """An activation token, as a launcher gets one from the compositor: the few messages that takes."""
        number, size = "=I", "=HH"

        def text(value):
            data = value.encode() + b"\0"
            return struct.pack(number, len(data)) + data + b"\0" * (-len(data) % 4)

        with socket.socket(socket.AF_UNIX) as wire:
            wire.connect(self.environment["WAYLAND_DISPLAY"])
            wire.settimeout(60)

            def send(thing, operation, data=b""):
                wire.sendall(struct.pack(number, thing) + struct.pack(size, operation, 8 + len(data)) + data)

            def receive(thing, event):
                """Events up to that one of that thing."""
                while True:
                    head = wire.recv(8, socket.MSG_WAITALL)
                    kind, length = struct.unpack(size, head[4:])
                    data = wire.recv(length - 8, socket.MSG_WAITALL) if length > 8 else b""
                    yield struct.unpack(number, head[:4])[0], kind, data
                    if (struct.unpack(number, head[:4])[0], kind) == (thing, event):
                        return

            display_, registry, done, activation, token = 1, 2, 3, 4, 5
            send(display_, 1, struct.pack(number, registry))  # get_registry
            send(display_, 0, struct.pack(number, done))  # sync
            globals_ = [data for thing, kind, data in receive(done, 0) if (thing, kind) == (registry, 0)]
            found = next(data for data in globals_ if b"xdg_activation_v1\0" in data)
            send(registry, 0, found[:4] + text("xdg_activation_v1") + struct.pack("=II", 1, activation))  # bind
            send(activation, 1, struct.pack(number, token))  # get_activation_token
            send(token, 3)  # commit
            *_, (_, _, data) = receive(token, 0)  # done
            return data[4:4 + struct.unpack(number, data[:4])[0] - 1].decode()

    def picture(self, path):
        subprocess.run(["grim", str(path)], env=self._own, check=True)

    def is_in_front(self, kind):
        return any(leaf["focused"] and leaf["app_id"] == kind for leaf in self._tree())

    def close(self):
        for process in (self._keyboard, self._sway):
            process.kill()  # one that is just starting misses a polite request
            process.wait()
        shutil.rmtree(self._folder)
