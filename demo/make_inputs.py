#!/usr/bin/env python3
"""Writes the raw inputs of the demo root, in the formats the boot loader and
the kernel leave behind: kernel printk records for "md_kmsg", Android pmsg
records for "md_pmsg", a compact trust-zone log and its dictionary, and a raw
dump partition of mixed content. tessel-image then places them in images.

usage: make_inputs.py OUT_DIR
"""
import os
import random
import struct
import sys

# An arm64 kernel oops as the kernel printed it (from a public bug report:
# a NULL pointer write in a misc driver), kept in /dev/kmsg's record format
# ("level,seq,usec,flags;text") and shared with the end-to-end tests.
OOPS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data",
                    "arm64-null-write-oops.kmsg")


def read_kmsg(path):
    """(seconds, level, text) for every "level,seq,usec,flags;text" line."""
    lines = []
    with open(path) as f:
        for line in f:
            prefix, text = line.rstrip("\n").split(";", 1)
            level, _, usec = prefix.split(",")[:3]
            lines.append((int(usec) / 1e6, int(level), text))
    return lines


PANIC = read_kmsg(OOPS)

BOOT = [(0.000000, 6, "Booting Linux on physical CPU 0x0000000000 [0x410fd034]"),
        (0.000000, 5, "Linux version 5.15.18 (builder@zelkor) #1 SMP PREEMPT"),
        (1.204332, 6, "init: starting service 'vendor.tessel'..."),
        (42.118020, 4, "thermal: cpu0 temperature high, throttling")]


def printk_records(lines):
    """struct printk_log: u64 ts_nsec, u16 len, u16 text_len, u16 dict_len,
    u8 facility, u8 flags/level; 8-byte aligned records."""
    out = bytearray()
    for seconds, level, text in lines:
        body = text.encode()
        length = (16 + len(body) + 7) & ~7
        out += struct.pack("<QHHHBB", int(seconds * 1e9), length, len(body), 0, 0, level & 7)
        out += body + b"\0" * (length - 16 - len(body))
    return bytes(out)


def pmsg_records(entries):
    """liblog's pmsg framing: android_pmsg_log_header_t ('l', len, uid, pid),
    android_log_header_t (id, tid, sec, nsec), then prio, tag\\0, message\\0."""
    out = bytearray()
    for sec, pid, tid, prio, tag, msg in entries:
        payload = bytes([prio]) + tag.encode() + b"\0" + msg.encode() + b"\0"
        log_header = struct.pack("<BHII", 0, tid, int(sec), int((sec % 1) * 1e9))
        total = 7 + len(log_header) + len(payload)
        out += struct.pack("<BHHH", ord("l"), total, 1000, pid) + log_header + payload
    return bytes(out)


def main():
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "md_kmsg.bin"), "wb") as f:
        f.write(printk_records(BOOT + PANIC))
    now = 1795000000.0
    with open(os.path.join(out, "md_pmsg.bin"), "wb") as f:
        f.write(pmsg_records([
            (now, 612, 612, 4, "ActivityManager", "Start proc 1604:com.android.camera"),
            (now + 0.25, 1604, 1631, 6, "CameraService", "camera 0: open failed, retrying"),
            (now + 1.5, 612, 640, 5, "Watchdog", "Blocked in handler on main thread"),
        ]))
    with open(os.path.join(out, "md_ltz.txt"), "w") as f:
        f.write("[0x1a2b](101)\n[0x1a2f](205 3 9)\n[0x1a30](999 1)\n")
    with open(os.path.join(out, "tzlog.dict"), "w") as f:
        f.write("101:BOOT:secure world up\n205:XPU:violation on resource %d by master %d\n")
    # The raw dump: zeros, kernel text and random pages, as a RAM dump holds.
    rng = random.Random(7)
    with open(os.path.join(out, "rawdump.img"), "wb") as f:
        text = "\n".join(t for _, _, t in BOOT + PANIC).encode()
        for i in range(64):
            kind = i % 3
            if kind == 0:
                f.write(b"\0" * 65536)
            elif kind == 1:
                f.write((text * (65536 // len(text) + 1))[:65536])
            else:
                f.write(bytes(rng.getrandbits(8) for _ in range(65536)))


if __name__ == "__main__":
    main()
