#!/usr/bin/env python3
"""Compares all stereo files of a run with what call_sender sent, octet by octet.

Usage: compare_recordings.py FOLDER SECONDS

FOLDER is the recorder's. Each voice must be in its channel as it was sent, without a gap, and before and after it there
must be silence only. Prints the numbers of voices compared and of those that differ. Status 1 when one differs.
"""
import csv
import pathlib
import sys

HEADER = 58
SAMPLES = 160
SPEECH = bytes((i * 2654435761 >> 24) & 0xFF for i in range(1 << 16))
WRAP = len(SPEECH) - SAMPLES
SILENCE = b"\xd5"


def spoken(call, from_caller, packets):
    """Returns what call_sender sends in one direction: see speechAt() there."""
    start = call * 7919 + (0 if from_caller else 104729)
    offsets = ((start + packet * SAMPLES) % WRAP for packet in range(packets))
    return b"".join(SPEECH[offset:offset + SAMPLES] for offset in offsets)


def fault(recorded, sent):
    begin = recorded.find(sent)
    if begin < 0:
        return f"{len(recorded)} samples without the {len(sent)} that were sent in one piece"
    rest = recorded[:begin] + recorded[begin + len(sent):]
    return "" if rest.count(SILENCE) == len(rest) else "sound beside what was sent"


def main():
    folder, packets = pathlib.Path(sys.argv[1]), int(sys.argv[2]) * 50
    voices = faults = 0
    with open(folder / "calls.csv", newline="", encoding="utf-8") as table:
        for row in list(csv.reader(table))[1:]:
            call = int(next(cell for cell in row if cell.startswith("load-"))[5:])
            sound = (folder / row[-1]).read_bytes()[HEADER:]
            for channel in range(2):
                voices += 1
                what = fault(sound[channel::2], spoken(call, channel == 0, packets))
                faults += what != ""
                if what and faults <= 10:
                    print(f"{row[-1]}, {'callee' if channel else 'caller'}: {what}")
    print(f"{voices} voices compared, {faults} differ")
    return 0 if voices and not faults else 1


sys.exit(main())
