"""Links from the telephones to the devices of the sniffers, and the calls that pass by on them."""

import fcntl
import os
import pathlib
import re
import socket
import struct
import sys
import time
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "integration" / "live"))
for name in ("SNIFFER_PROGRAM", "SNIFFER_SAMPLES", "SNIFFER_TEST_FILES"):
    os.environ.setdefault(name, ".")  # of no matter here
import harness
from harness import make_socket
from recorder import H323, RTP, SIP

PROBE = 0x88B5  # the EtherType for experiments


class End:
    """One end of a link: may be put up and down."""

    def __init__(self, namespace, name):
        self.name = name
        self.control = make_socket(socket.SOCK_DGRAM, namespace)

    def flags(self, new=None):
        request = struct.pack("16sH14x", self.name.encode(), new or 0)
        get, put = 0x8913, 0x8914  # SIOCGIFFLAGS, SIOCSIFFLAGS
        return struct.unpack("16sH14x", fcntl.ioctl(self.control, get if new is None else put, request))[1]

    def put(self, up):
        flags = self.flags()
        self.flags(flags | 1 if up else flags & ~1)


class Link:
    """A wire from the telephones to a device of the sniffers, and what has passed on it."""

    def __init__(self, number, there, here):
        self.device = f"tap{number}"
        name = f"wire{number}"
        there.join(name, here, self.device)
        self.ends = [End(there, name), End(here, self.device)]
        self.wire = make_socket(socket.SOCK_RAW, there, socket.AF_PACKET)
        self.wire.bind((name, 0))
        self.probe = make_socket(socket.SOCK_RAW, here, socket.AF_PACKET, socket.htons(PROBE))
        self.probe.bind((self.device, PROBE))
        self.probe.settimeout(0.01)
        self.up, self.passed, self.lost, self.downs, self.number = False, 0, 0, 0, 0
        self.came_up()

    def came_up(self):
        """Returns when a frame gets through."""
        for end in self.ends:
            end.put(True)
        self.await_probe()
        self.up = True

    def go_down(self, choose):
        """Returns when the link is down; what was sent before has arrived."""
        self.await_probe()
        choose(self.ends).put(False)
        self.up, self.downs = False, self.downs + 1

    def await_probe(self):
        self.number += 1
        probe = b"\2" * 12 + struct.pack("!HI", PROBE, self.number) + bytes(46)
        while True:
            try:
                self.wire.send(probe)
                while self.probe.recv(100) != probe:
                    pass
                return
            except OSError:
                time.sleep(0.005)

    def send(self, frame):
        """Whether it counts: not when the link is down."""
        try:
            self.wire.send(frame)
        except OSError:
            if self.up:
                raise
        if self.up:
            self.passed += 1
        else:
            self.lost += 1
        return self.up


# ---- calls ----


class Frame(harness.Frame):
    """One of a recorded call; `kind` is what the recorder is to get, or None."""

    def __init__(self, data, time):
        super().__init__(data, time)
        self.payload_at = len(data) - len(self.payload)
        self.port = self.destination[1]
        self.is_signalling = self.is_tcp or self.is_sip
        self.kind = None if self.is_tcp else SIP if self.is_sip else RTP


class Template:
    """A captured call, whose copies have hosts and call identification of their own."""

    CALLER, CALLEE = "10.20.0.1", "10.20.0.2"

    def __init__(self, path, expected=None):
        self.frames, last, ended = [], None, False
        described = iter(re.findall(r"^(true|false)\t", expected.read_text(), re.M)) if expected else None
        guid = re.search(r"c:([\da-f-]+)", expected.read_text())[1] if expected else ""
        self.guid = bytes.fromhex(guid.replace("-", ""))
        for captured in harness.read_capture(path):
            frame = Frame(captured.data, captured.time)
            if not (frame.is_udp or frame.is_tcp):
                continue
            if frame.is_tcp and frame.payload and next(described) == "true":
                frame.kind = H323
            pause = frame.time - last.time if last else 0.0
            if frame.is_signalling and frame.payload:
                ended = bool(last) and frame.time - self.frames[0][1].time > 5
            elif not frame.is_signalling:
                # Media that is behind the signalling of the end would be nobody's.
                if ended:
                    continue
                # The recorder gets time to ask for the media.
                if last and last.is_signalling:
                    pause = max(pause, 1.0)
            self.frames.append((pause, frame))
            last = frame

    def call(self, number):
        """The frames of a call of its own, with the pauses in front of them."""
        # Hosts of as many digits as those of the template.
        a, number_of_a = divmod(number, 90 * 10 * 4)
        b, number_of_b = divmod(number_of_a, 10 * 4)
        c, d = divmod(number_of_b, 4)
        hosts = [f"{11 + a % 89}.{10 + b}.{c}.{1 + 2 * d + more}" for more in (0, 1)]
        exchange = []
        for old, new in zip((self.CALLER, self.CALLEE), hosts):
            exchange += [(socket.inet_aton(old), socket.inet_aton(new)), (old.encode(), new.encode())]
        if self.guid:
            exchange.append((self.guid, struct.pack("!IQ", number, number) + self.guid[12:]))
        for pause, frame in self.frames:
            data = frame.data
            for old, new in exchange if frame.is_signalling else exchange[::2]:
                data = data.replace(old, new)
            at = frame.payload_at
            if frame.is_tcp and 1720 in (frame.port, frame.source[1]) and data[at + 4 : at + 6] == b"\x08\x02":
                reference = (data[at + 6] & 0x80) << 8 | 1 + number % 0x7FFE
                data = data[: at + 6] + struct.pack("!H", reference) + data[at + 8 :]
            yield pause, frame, data


def forwarded_checksum(kind, frame, data):
    """Of the frame that the recorder is to get."""
    payload = data[frame.payload_at :]
    ports = struct.pack("!H", frame.port), struct.pack("!H", frame.source[1])
    header = struct.pack("!HB", 15 + len(payload), kind) + data[30:34] + ports[0] + data[26:30] + ports[1]
    return zlib.crc32(payload, zlib.crc32(header))
