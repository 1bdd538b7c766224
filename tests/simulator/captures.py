#!/usr/bin/env python3
"""Plays a capture of a reset back to trovik-reset, whole and damaged, and masks it; has it reset simulated devices.

captures.py SIMULATOR TROVIK_RESET VENDOR    the two programs, and the vendor id that they are built for

captures/reset.pcap was made by usbmon while trovik-reset reset trovik-gadget, and by "trovik-simulator mask" then.
"""
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import time

SIMULATOR, PROGRAM, VENDOR = (*map(os.path.abspath, sys.argv[1:3]), int(sys.argv[3], 0))
HEADER = "QBBBBHBBqiiII8xiiII"  # usbmon's, of link type 220; in place of 8x the setup packet
PATIENCE = 120.0  # seconds that anything may take; nothing is measured by it
UNIT, MASKED_UNIT = 3812345678, 1000000001
HOLD = bytes([20, 0, 0, 0, 113, 0, 0, 0, 0, 0, 0, 0])  # the packet, and its answer


def records_of(data):
    """Time and bytes of each packet of a pcap file."""
    at, records = 24, []
    while at < len(data):
        seconds, micros, size, _ = struct.unpack_from("<IIII", data, at)
        records.append((seconds, micros, data[at + 16:at + 16 + size]))
        at += 16 + size
    return records


def pcap(records, link=220, order="<"):
    blocks = [struct.pack(order + "IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, link)]
    blocks += [struct.pack(order + "IIII", seconds, micros, len(packet), len(packet)) + packet
               for seconds, micros, packet in records]
    return b"".join(blocks)


def pcapng(records, link=220, order="<"):
    def block(kind, body):
        body += bytes(-len(body) % 4)
        return struct.pack(order + "II", kind, len(body) + 12) + body + struct.pack(order + "I", len(body) + 12)
    blocks = [block(0x0A0D0D0A, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1)),
              block(1, struct.pack(order + "HHI", link, 0, 262144))]
    for seconds, micros, packet in records:
        stamp = seconds * 1000000 + micros
        blocks.append(block(6, struct.pack(order + "IIIII", 0, stamp >> 32, stamp & 0xFFFFFFFF, len(packet), len(packet)) + packet))
    return b"".join(blocks)


def swapped(records):
    """As a machine of the other byte order would have captured it."""
    def turned(packet):
        fields = struct.pack(">" + HEADER, *struct.unpack_from("<" + HEADER, packet))
        return fields[:40] + packet[40:48] + fields[48:] + packet[64:]
    return [(seconds, micros, turned(packet)) for seconds, micros, packet in records]


def number_of(records, kind, data, nth=1):
    """The nth packet of a kind with that data, counted from 1."""
    found = [number for number, (_, _, packet) in enumerate(records, 1)
             if packet[8:9] == kind and packet[64:].startswith(data)]
    assert len(found) >= nth, f"the capture has no {kind} {data.hex()}"
    return found[nth - 1]


def with_data(records, number, data):
    changed = list(records)
    seconds, micros, packet = changed[number - 1]
    assert len(packet) == 64 + len(data)
    changed[number - 1] = (seconds, micros, packet[:64] + data)
    return changed


def at_another_address(record):
    seconds, micros, packet = record
    return seconds, micros, packet[:7] + b"\x63" + packet[8:11] + bytes([packet[11] and 99]) + packet[12:]


def without_data(records, number):
    """As usbmon writes a packet whose data it could not take."""
    changed = list(records)
    seconds, micros, packet = changed[number - 1]
    changed[number - 1] = (seconds, micros, packet[:15] + b"Z" + packet[16:36] + bytes(4) + packet[40:64])
    return changed


def simulate(*arguments, home):
    environment = {**os.environ, "HOME": str(home), "XDG_RUNTIME_DIR": str(home),
                   # The bus's library has to come before that of the sanitizer.
                   "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
    end = time.monotonic() + PATIENCE
    while True:
        ended = subprocess.run([SIMULATOR, *map(str, arguments)], env=environment, capture_output=True, text=True, timeout=PATIENCE)
        # Each emulated bus has the same ports, and one run of trovik-reset on a machine works on the device at a port.
        if "Result: other-run" not in ended.stderr + ended.stdout or time.monotonic() > end:
            return ended


def run_with_devices(home):
    """Several devices, each with what is of it alone: its unit id, its faults, when and how it is attached."""
    empty, full = "the settings store is empty", "the settings store holds settings"
    reset = (PROGRAM, "reset", "--yes")
    rows = (
        ("one of two fails at its first and at its second time", ("handheld,unit=1,hold-ignored,hold-ignored@2", "wearable"),
         (*reset, "--all"), 7, ("(unit 1)", f"device 0: {full}", f"device 1: {empty}")),
        ("it comes back under another port", ("handheld,reboot-unplug", "handheld,boot-loader,after=6"),
         reset, 0, (f"device 0: {full}", f"device 1: {empty}")),
        ("another device comes first", ("handheld", "handheld,boot-loader,unit=7,after=1"),
         (*reset, "1-1"), 0, (f"device 0: {empty}", f"device 1: {full}")),
        ("no such fault", ("handheld,hold-latte",), reset, 2, ('no profile here is "handheld,hold-latte"',)),
        ("no moment", ("handheld,hold-late@0",), reset, 2, ("no profile here",)),
        ("no unit id", ("handheld,unit=4294967296",), reset, 2, ("no profile here",)))
    for what, devices, command, status, said in rows:
        ended = simulate("run", *(word for device in devices for word in ("--profile", device)), *command, home=home)
        text = ended.stderr + ended.stdout
        assert ended.returncode == status and all(one in text for one in said), f"{what}: status {ended.returncode}\n{text}"


def main():
    kept = (pathlib.Path(__file__).parent / "captures/reset.pcap").read_bytes()
    kept = kept.replace(struct.pack("<HHH", 0x1209, 3, 1), struct.pack("<HHH", VENDOR, 3, 1))
    whole = records_of(kept)
    hold, holds = number_of(whole, b"S", HOLD), number_of(whole, b"C", HOLD)
    asks_again = number_of(whole, b"S", bytes([20, 0, 0, 0, 254]), 3)
    with tempfile.TemporaryDirectory() as folder:
        home = pathlib.Path(folder)
        file, out = home / "capture", home / "out"
        reset = (PROGRAM, "reset", "--yes")
        cut = pcap(whole)[:-5]
        last = len(cut) + 5 - 16 - len(whole[-1][2])
        first_setup = next(i for i, (_, _, packet) in enumerate(whole) if packet[14] == 0)
        wrong_size = list(whole)
        wrong_size[first_setup] = (*whole[first_setup][:2], whole[first_setup][2][:36] + b"\x09" + whole[first_setup][2][37:])
        rows = (
            ("whole", pcap(whole), reset, 0, "20 of its 20 captured packets"),
            ("pcapng", pcapng(whole), ("--", *reset), 0, "20 of its 20 captured packets"),
            ("the device says something else for \"it holds\"",
             pcap(with_data(whole, holds, HOLD[:4] + b"\x72" + HOLD[5:])), reset, 1, f"they part at packet {asks_again}. "),
            ("the program does something else",
             pcap(whole), (PROGRAM, "check"), 1, "they part at packet "),
            ("an answer is missing", pcap(whole[:holds - 1] + whole[holds:]), reset, 2, "begins is missing"),
            ("the data of an answer is missing",
             pcap(without_data(whole, holds)), reset, 2, f"packet {holds} lacks its data"),
            ("a command is missing", pcap(whole[:hold - 1] + whole[hold:]), reset, 2,
             f"the beginning of the request that packet {hold} ends is missing"),
            ("cut", cut, reset, 2, f"packet {len(whole)} can't be read (at byte {last} of the file)"),
            ("a header that lies", pcap(wrong_size), reset, 2, f"packet {first_setup + 1} is damaged"),
            ("a time that can't be", pcap([(0, 0, whole[0][2][:23] + b"\x7f" + whole[0][2][24:])]), reset, 2, "packet 1 is damaged"),
            ("of a network", pcap(whole, link=1), reset, 2, "link type is 1"),
            ("no capture", b"nothing of the kind", reset, 2, "it is no capture"),
            ("two devices at a time", pcap([record for one in whole for record in (one, at_another_address(one))]), reset, 2,
             "two devices are attached at packet "),
            ("nothing of ours", pcap(whole[:2]), reset, 2, "no program spoke"),
            ("empty", b"", reset, 2, "it is no capture"))

        for what, data, command, status, said in rows:
            file.write_bytes(data)
            ended = simulate("replay", file, *command, home=home)
            assert ended.returncode == status and said in ended.stderr, f"{what}: status {ended.returncode}\n{ended.stderr}"

        # Masked once more it stays as it is, whatever the file's format and byte order.
        short = [(seconds, micros, packet[:48] + packet[64:]) for seconds, micros, packet in whole]
        for what, data, wanted in (
                ("pcapng", pcapng(whole), kept),
                ("pcapng of the other byte order", pcapng(swapped(whole), order=">"), kept),
                ("pcap of the other byte order", pcap(swapped(whole), order=">"), kept),
                ("link type 189", pcapng(short, 189), pcap(short, 189))):
            file.write_bytes(data)
            ended = simulate("mask", file, out, home=home)
            assert ended.returncode == 0 and out.read_bytes()[24:] == wanted[24:], f"{what}: {ended.stderr}"

        # A unit id is masked as a number, in digits and where it is a text's part; a name and other devices are not there.
        secret = pcap(whole).replace(struct.pack("<I", MASKED_UNIT), struct.pack("<I", UNIT))
        secret = secret.replace(b"Basemap 1.02", f"N:{UNIT}".encode())
        records = records_of(secret)
        named = number_of(records, b"C", bytes([20, 0, 0, 0, 248]))
        data = records[named - 1][2][64:]
        records = with_data(records, named, data[:4] + struct.pack("<H", 525) + data[6:])
        other = [(seconds, micros, packet[:11] + b"\x63" + packet[12:64] + b"somebody else's"[:len(packet) - 64].ljust(len(packet) - 64))
                 for seconds, micros, packet in records[-3:]]
        file.write_bytes(pcap(records + other))
        ended = simulate("mask", file, home=home)
        shown = (home / "capture-masked.pcap").read_bytes()
        assert ended.returncode == 0 and f"{len(other)} of other devices are left out" in ended.stderr, ended.stderr
        for value in (struct.pack("<I", UNIT), str(UNIT).encode(), b"somebody", data[12:16]):
            assert (value in shown) == (value == data[12:16]), f"{value} is shown, or something else is not"
        assert f"N:{MASKED_UNIT}".encode() in shown and len(records_of(shown)) == len(records)
        assert records_of(shown)[named - 1][2][76:80] == b"XXXX", "the owner's name is shown"
        file.write_bytes(shown)
        ended = simulate("replay", file, PROGRAM, "check", home=home)
        assert f"(unit {MASKED_UNIT})" in ended.stdout + ended.stderr, ended.stderr
        run_with_devices(home)


main()
