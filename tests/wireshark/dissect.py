#!/usr/bin/env python3
"""Shows captures to tshark with tools/wireshark/trovik.lua and compares what it says of each packet.

    tests/wireshark/dissect.py                  a capture made here, with packets of every kind and every fault, and the
                                                one of a reset that is kept here
    tests/wireshark/dissect.py CAPTURE…         captures of whole resets, as script/e2e leaves them
"""
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
VENDOR = int(re.search(r"set\(kTrovikVendorId (0x\w+)", (ROOT / "CMakeLists.txt").read_text())[1], 16)
INTERRUPT, BULK_IN, BULK_OUT = 0x81, 0x82, 0x02
USBMON = 220  # libpcap's number for usbmon with its 64-byte header


class Capture:
    """usbmon's view of one device, written as libpcap would write it."""

    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, USBMON))
        self.count = 0
        device = struct.pack("<BBHBBBBHHHBBBB", 18, 1, 0x200, 0, 0, 0, 64, VENDOR, 3, 1, 1, 2, 3, 1)
        endpoints = b"".join(struct.pack("<BBBBHB", 7, 5, address, kind, 64, 1)
                             for address, kind in ((INTERRUPT, 3), (BULK_IN, 2), (BULK_OUT, 2)))
        configuration = (struct.pack("<BBHBBBBB", 9, 2, 18 + len(endpoints), 1, 1, 0, 0x80, 50)
                         + struct.pack("<BBBBBBBBB", 9, 4, 0, 0, 3, 255, 0, 0, 0) + endpoints)
        for kind, descriptor in ((1, device), (2, configuration)):
            setup = struct.pack("<BBHHH", 0x80, 6, kind << 8, 0, len(descriptor))
            self.urb("S", 2, 0x80, len(descriptor), b"", setup)
            self.urb("C", 2, 0x80, len(descriptor), descriptor)

    def urb(self, kind, transfer, endpoint, length, data=b"", setup=None):
        self.count += 1
        missing = 0 if data else ord("<" if endpoint & 0x80 else ">")
        header = struct.pack("<QBBBBHBBqiiII", (self.count - 1) // 2, ord(kind), transfer, endpoint, 5, 1, 0 if setup else ord("-"),
                             missing, self.count, 0, -115 if kind == "S" else 0, length, len(data))
        header += (setup or bytes(8)) + bytes(16)
        size = len(header) + len(data)
        self.file.write(struct.pack("<IIII", self.count, 0, size, size) + header + data)

    def host(self, data):
        self.urb("S", 3, BULK_OUT, len(data), data)
        self.urb("C", 3, BULK_OUT, len(data))

    def device(self, data, endpoint=INTERRUPT):
        transfer = 1 if endpoint == INTERRUPT else 3
        self.urb("S", transfer, endpoint, 4096)
        self.urb("C", transfer, endpoint, len(data), data)

    def close(self):
        self.file.close()


def packet(layer, number, data=b""):
    return struct.pack("<BBHHHI", layer, 0, 0, number, 0, len(data)) + data


def tshark(path, *fields):
    """For each of the protocol's frames the fields asked for."""
    asked = [word for field in fields for word in ("-e", field)]
    said = subprocess.run(["tshark", "-X", f"lua_script:{ROOT}/tools/wireshark/trovik.lua", "-r", str(path), "-Y", "trovik",
                           "-T", "fields", "-E", "separator=\t", "-E", "aggregator=;", *asked],
                          check=True, capture_output=True, text=True)
    complaints = [line for line in said.stderr.splitlines() if "Lua" in line or "Error" in line]
    assert not complaints, complaints
    return [line.split("\t") for line in said.stdout.splitlines()]


def made_here():
    time = struct.pack("<BBHHBB", 11, 22, 2026, 13, 5, 59)
    big = packet(20, 253, b"A\x01\x00" * 1500)
    name = packet(20, 525, b"x" * 51 + b"\0")  # fills its transfer of 64 bytes
    steps = [  # who sends what on which pipe; column Info, one field and its value, what is pointed out
        ("host", packet(0, 5), None, "start session (5)", "trovik.layer", "0", ""),
        ("device", packet(0, 6, struct.pack("<I", 1234)), INTERRUPT, "session started (6)", "trovik.unit_id", "1234", ""),
        ("host", packet(0, 16), None, "largest packet? (16)", "trovik.size", "0", ""),
        ("device", packet(0, 17, struct.pack("<I", 4108)), INTERRUPT, "largest packet (17)", "trovik.largest", "4108", ""),
        ("host", packet(20, 254), None, "product data? (254)", "trovik.id", "254", ""),
        ("device", packet(20, 255, struct.pack("<Hh", 77, 310) + b"Model Software 3.10\0more\0"), INTERRUPT,
         "product data (255): product 77, version 3.10", "trovik.text", "Model Software 3.10;more", ""),
        ("device", packet(0, 2), INTERRUPT, "data available (2)", "trovik.usb.id", "2", ""),
        ("device", packet(20, 253, b"A\x01\0A\x0a\0D\x6c\0"), BULK_IN, "protocol list (253): A001 A010 D108", "trovik.protocol",
         "A001;A010;D108", ""),
        ("device", b"", BULK_IN, None, None, None, None),
        ("device", packet(20, 248, b"Battery OK\0"), INTERRUPT, "extended product data (248)", "trovik.text", "Battery OK", ""),
        ("host", packet(20, 28, b"\0\0"), None, "data wanted unasked (28)", "trovik.requests", "0x0000", ""),
        ("host", packet(20, 10, b"\x05\0"), None, "command (10): get time", "trovik.command", "5", ""),
        ("device", packet(20, 14, time), INTERRUPT, "time (14)", "trovik.time.year", "2026", ""),
        ("device", packet(20, 14, time), INTERRUPT, "time (14)", "trovik.time.second", "59", "nobody asked"),
        ("device", packet(20, 981, struct.pack("<qB", 7 << 20, 1)), INTERRUPT, "region size (981)", "trovik.region.size",
         "7340032", "nobody asked"),
        ("device", packet(20, 38, b"\x01"), INTERRUPT, "unit id (38)", "trovik.unit_id", "", "nobody asked;Too short for its"),
        ("host", name, None, "unit name (525)", "trovik.text", "x" * 51, ""),
        ("host", b"", None, None, None, None, None),
        ("host", name, None, "unit name (525)", "trovik.id", "525", ""),
        ("host", packet(20, 10, b"\xae\0"), None, "command (10): reboot", "trovik.command", "174", "no empty transfer"),
        ("device", bytes(5), INTERRUPT, "shorter than a header", "trovik.id", "", "Shorter than a header"),
        ("device", packet(7, 1), INTERRUPT, "packet (1)", "trovik.layer", "7", "Neither of the two layers;Unknown packet id"),
        ("device", struct.pack("<BBHHHI", 20, 0, 0, 10, 0, 5) + b"\x27\0\0\0", INTERRUPT, "command (10): erase the settings store",
         "trovik.size", "5", "Data size is not"),
        ("device", big[:4096], BULK_IN, "part of a packet", "trovik.id", "", ""),
        ("device", big[4096:], BULK_IN, None, "trovik.size", "4500", "nobody asked"),
    ]
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "made.pcap"
        capture = Capture(path)
        for who, data, pipe, *_ in steps:
            capture.host(data) if who == "host" else capture.device(data, pipe)
        capture.close()
        fields = sorted({step[4] for step in steps if step[4]})
        rows = tshark(path, "_ws.col.Info", "_ws.expert.message", *fields)
    seen = [step for step in steps if step[4]]
    assert len(rows) == len(seen), f"{len(rows)} packets shown, {len(seen)} sent"
    for (info, remarks, *values), (_, _, _, title, field, value, wanted) in zip(rows, seen):
        where = f'"{info}"'
        assert title is None or info == title, f'{where} instead of "{title}"'
        got = values[fields.index(field)]
        assert got == value, f'{where}: {field} is "{got}" and not "{value}"'
        parts = [part for part in wanted.split(";") if part]
        assert len(remarks.split(";") if remarks else []) == len(parts) and all(part in remarks for part in parts), \
            f'{where}: "{remarks}" is pointed out, not "{wanted}"'
    print(f"{len(seen)} packets made here: shown as they are")


def of_a_reset(path):
    """Every packet has a name, nothing is pointed out, and the commands of a reset come in their order."""
    rows = tshark(path, "_ws.col.Info", "_ws.expert.message", "trovik.id", "trovik.command")
    for info, remarks, *_ in rows:
        assert not remarks, f'{path}: {info}: "{remarks}"'
    sent = [info for info, _, number, _ in rows if number in ("10", "113", "1500")]
    expected = ["command (10): reboot", "hold in boot loader (113)", "hold in boot loader (113)",
                "command (10): erase the settings store", "resume boot (1500)"]
    assert sent == expected, f"{path}: {sent}"
    print(f"{path.name}: {len(rows)} packets, each with a name")


if len(sys.argv) == 1:
    made_here()
    of_a_reset(ROOT / "tests/simulator/captures/reset.pcap")
for capture_path in sys.argv[1:]:
    of_a_reset(pathlib.Path(capture_path))
