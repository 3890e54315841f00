#!/usr/bin/env python3
"""Says of each Mach-O program what it runs on and what it loads; fails for one that is none."""

import struct
import sys

MACH_O_64 = 0xFEEDFACF
EXECUTABLE = 2
ARCHITECTURES = {0x0100000C: "arm64", 0x01000007: "x86_64"}
LOAD_DYLIB, BUILD_VERSION = 0x0C, 0x32


def description(path):
    with open(path, "rb") as file:
        data = file.read()
    magic, architecture, _, kind, count = struct.unpack_from("<5I", data)
    if magic != MACH_O_64 or kind != EXECUTABLE:
        sys.exit(f"{path} is no 64-bit Mach-O executable")
    oldest, libraries, at = "?", [], 32
    for _ in range(count):
        command, size = struct.unpack_from("<2I", data, at)
        if command == BUILD_VERSION:
            version = struct.unpack_from("<I", data, at + 12)[0]
            oldest = f"{version >> 16}.{version >> 8 & 0xFF}"
        elif command == LOAD_DYLIB:
            name = struct.unpack_from("<I", data, at + 8)[0]
            libraries.append(data[at + name : at + size].split(b"\0")[0].decode())
        at += size
    return f"{ARCHITECTURES[architecture]}, macOS {oldest} and later, loads {' '.join(libraries)}"


for program in sys.argv[1:]:
    print(f"{program.rsplit('/', 1)[-1]}: {description(program)}")
