#!/usr/bin/env python3
"""Writes the streams of one job in every version, as bytes in hexadecimal.

Run once when a version is added; the files are what older hosts have written
and must never change afterwards. Each line is one value, with its meaning.
"""
import os
import struct

TYPE = bytes.fromhex("11111111222233334444555555555555")


def number(value):
    return struct.pack("<I", value)


def text(value):
    raw = value.encode()
    return number(len(raw)) + raw


def byte(value):
    return struct.pack("<B", value)


def stream(version):
    lines = [
        ("type ID", TYPE),
        ("number of the host's values", number(2)),
        ("name", text("Name") + text("Shot 7")),
        ("scene", text("Scene") + text("/s/shot_0001.ma")),
        ("version", number(version)),
        ("command string", text("-s $(ActualScene)")),
        ("image start text", text("saved")),
        ("image end text", text("done")),
        ("number of extra parameters", number(2)),
        ("OutDir", text("OutDir") + text("/r/out")),
        ("Width", text("Width") + text("640")),
        ("image not-end text", text("skipped")),
    ]
    if version >= 1:
        lines.append(("success texts", text("all done;fine")))
    if version >= 2:
        lines.append(("scene name format", text("/s/shot_%04d.ma")))
        lines.append(("enquote override: no", byte(2)))
        lines.append(("hide-subrange override: yes", byte(1)))
    return lines


def main():
    folder = os.path.dirname(os.path.abspath(__file__))
    for version in (0, 1, 2, 3, 7):
        with open(os.path.join(folder, f"version{version}.hex"), "w", encoding="ascii") as out:
            for meaning, raw in stream(version):
                out.write(f"{raw.hex(' ')} # {meaning}\n")


if __name__ == "__main__":
    main()
