"""The X server's keyboard, windows and pixels, without a process for each key: on an emulated processor those cost more
than the tool under test."""
import collections
import ctypes
import struct
import time
import zlib

Picture = collections.namedtuple("Picture", "width height pixels")  # four bytes a pixel: blue, green, red, nothing

_VIEWABLE = 2
_ALL_PLANES = 0xFFFFFFFF
_Z_PIXMAP = 2


class _Attributes(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int), ("y", ctypes.c_int), ("width", ctypes.c_int), ("height", ctypes.c_int),
                ("border", ctypes.c_int), ("depth", ctypes.c_int), ("visual", ctypes.c_void_p), ("root", ctypes.c_ulong),
                ("kind", ctypes.c_int), ("gravities", ctypes.c_int * 3), ("planes", ctypes.c_ulong * 2),
                ("save_under", ctypes.c_int), ("colormap", ctypes.c_ulong), ("installed", ctypes.c_int),
                ("map_state", ctypes.c_int), ("rest", ctypes.c_char * 128)]


class _Image(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int), ("height", ctypes.c_int), ("xoffset", ctypes.c_int), ("format", ctypes.c_int),
                ("data", ctypes.POINTER(ctypes.c_char)), ("order", ctypes.c_int * 4), ("depth", ctypes.c_int),
                ("bytes_per_line", ctypes.c_int)]


# A window may go away between two questions about it: the question then has no answer, and that is all. (The library
# would end the process.)
@ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)
def _ignore(_display, _error):
    return 0


class Display:
    """One connection. One thread."""

    def __init__(self, name):
        self._x = ctypes.CDLL("libX11.so.6")
        self._test = ctypes.CDLL("libXtst.so.6")
        self._x.XOpenDisplay.restype = ctypes.c_void_p
        self._x.XDefaultRootWindow.restype = ctypes.c_ulong
        self._x.XStringToKeysym.restype = ctypes.c_ulong
        self._x.XGetImage.restype = ctypes.POINTER(_Image)
        self._x.XSetErrorHandler(_ignore)
        self._display = ctypes.c_void_p(self._x.XOpenDisplay(name.encode()))
        if not self._display:
            raise OSError(f"the X server {name} can't be reached")
        self.root = self._x.XDefaultRootWindow(self._display)

    def windows(self):
        """Windows that can be seen, the topmost last."""
        root, parent, children, count = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.POINTER(ctypes.c_ulong)(), ctypes.c_uint()
        self._x.XQueryTree(self._display, ctypes.c_ulong(self.root), ctypes.byref(root), ctypes.byref(parent),
                           ctypes.byref(children), ctypes.byref(count))
        found = [children[i] for i in range(count.value)]
        if count.value:
            self._x.XFree(children)
        return [window for window in found if self._attributes(window).map_state == _VIEWABLE]

    def _attributes(self, window):
        attributes = _Attributes()
        self._x.XGetWindowAttributes(self._display, ctypes.c_ulong(window), ctypes.byref(attributes))
        return attributes

    def focus(self, window):
        """Gives a window the keyboard and waits until it has it."""
        self._x.XSetInputFocus(self._display, ctypes.c_ulong(window), 2, ctypes.c_ulong(0))
        holder, revert = ctypes.c_ulong(), ctypes.c_int()
        end = time.monotonic() + 60
        while holder.value != window and time.monotonic() < end:
            self._x.XGetInputFocus(self._display, ctypes.byref(holder), ctypes.byref(revert))

    def key(self, combination):
        """Presses and lets go of a key, "Return" or "Alt_L+r"."""
        codes = [self._x.XKeysymToKeycode(self._display, ctypes.c_ulong(self._x.XStringToKeysym(name.encode())))
                 for name in combination.split("+")]
        for down, order in ((1, codes), (0, reversed(codes))):
            for code in order:
                self._test.XTestFakeKeyEvent(self._display, ctypes.c_uint(code & 0xFF), down, ctypes.c_ulong(0))
        self._x.XSync(self._display, 0)

    def picture(self, window):
        """What a window shows; nothing when it has just gone."""
        attributes = self._attributes(window)
        image = self._x.XGetImage(self._display, ctypes.c_ulong(window), 0, 0, attributes.width, attributes.height,
                                  ctypes.c_ulong(_ALL_PLANES), _Z_PIXMAP)
        if not image:
            return None
        size = image.contents
        picture = Picture(size.width, size.height, ctypes.string_at(size.data, size.bytes_per_line * size.height))
        self._x.XDestroyImage(image)
        return picture


def save(picture, path):
    """Writes a PNG file."""
    rgb = bytearray(picture.width * picture.height * 3)
    for channel in range(3):
        rgb[channel::3] = picture.pixels[2 - channel::4]
    row = picture.width * 3
    rows = b"".join(b"\0" + rgb[at:at + row] for at in range(0, len(rgb), row))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", picture.width, picture.height, 8, 2, 0, 0, 0)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 1)) + chunk(b"IEND", b""))


def same(first, second, share):
    """Whether no more than this share of the pixels differs."""
    if (first.width, first.height) != (second.width, second.height):
        return False
    left = share * first.width * first.height
    row = first.width * 4
    for at in range(0, len(first.pixels), row):
        one, other = first.pixels[at:at + row], second.pixels[at:at + row]
        if one != other:
            left -= sum(a != b for a, b in zip(memoryview(one).cast("I"), memoryview(other).cast("I")))
            if left < 0:
                return False
    return True


def colours(picture):
    return len(set(memoryview(picture.pixels).cast("I")))
