#!/usr/bin/env python3
"""Runs the stand-alone program and a Java process with the sniffer in it for a long time, both on the same two devices,
on which generated SIP and H.323 calls with their media pass by. Meanwhile the recorder of the stand-alone program is
killed, stopped, continued and restarted, the devices' links go down and come up, and the program itself gets no
processor for longer than the kernel's buffers last, all at random.

At the end every frame that was sent while the link was up has to be accounted for, memory and descriptors have to be
flat, and both have to run still:

- Each device has received what was sent on it, and each frame received has had one of the fates that are counted.
- A frame whose destination was listed has reached the recorder, or nothing that was sent on its device after it has, on
  the connection that was lost then.
- The Java process has recorded all media.

Needs root, for network namespaces of its own, and nothing but Python's standard library and iproute2. Usage:
  tests/soak/soak.py --build build/release --seconds 3600 --seed 1
"""

import argparse
import bisect
import collections
import fcntl
import heapq
import os
import pathlib
import random
import re
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
import zlib

import recorder
from recorder import H323, RTP, SIP

HERE = pathlib.Path(__file__).resolve().parent
PORT = 6000
DRAIN = 16  # seconds after the last new call in which calls end and the recorder catches up
PATIENCE = 30  # seconds after its last frame in which all of a call reaches the recorder
ENOUGH_FOR_MEMORY = 300  # seconds that a run must have for its memory to say something
PROBE = 0x88B5  # the EtherType for experiments


def fail_without(*conditions):
    for met, what in conditions:
        if not met:
            print(f"SKIPPED: the soak needs {what}")
            sys.exit(77)


# ---- the network ----


class Namespace:
    def __init__(self):
        self.holder = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "unshare", "--net", "sleep", "infinity"])
        self.path = f"/proc/{self.holder.pid}/ns/net"
        while os.readlink(self.path) == os.readlink("/proc/self/ns/net"):
            time.sleep(0.01)
        self.run("sysctl", "-qw", "net.ipv6.conf.default.disable_ipv6=1")
        self.run("ip", "link", "set", "lo", "up")

    def run(self, *words):
        subprocess.run(["nsenter", f"--net={self.path}", *words], check=True)

    def start(self, *words, **more):
        return subprocess.Popen(["nsenter", f"--net={self.path}", "setpriv", "--pdeathsig", "KILL", *words], **more)

    def socket(self, *kind):
        """A socket stays in the namespace that its maker was in."""
        with open("/proc/self/ns/net") as ours, open(self.path) as theirs:
            setns(theirs.fileno())
            try:
                return socket.socket(*kind)
            finally:
                setns(ours.fileno())

    def close(self):
        self.holder.kill()
        self.holder.wait()


def setns(descriptor):
    import ctypes

    libc = ctypes.CDLL(None, use_errno=True)
    if libc.setns(descriptor, 0) != 0:
        raise OSError(ctypes.get_errno(), "setns")


class End:
    """One end of a link: may be put up and down."""

    def __init__(self, namespace, name):
        self.name = name
        self.control = namespace.socket(socket.AF_INET, socket.SOCK_DGRAM)

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
        peer = ["peer", "name", self.device, "netns", str(here.holder.pid)]
        there.run("ip", "link", "add", name, "type", "veth", *peer)
        self.ends = [End(there, name), End(here, self.device)]
        for end in self.ends:
            end.put(True)
        self.wire = there.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
        self.wire.bind((name, 0))
        self.probe = here.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(PROBE))
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


def read_capture(path):
    data, at = path.read_bytes(), 24
    order = "<" if data[:4] == b"\xd4\xc3\xb2\xa1" else ">"
    while at < len(data):
        seconds, microseconds, captured, _ = struct.unpack_from(order + "IIII", data, at)
        yield seconds + microseconds / 1e6, data[at + 16 : at + 16 + captured]
        at += 16 + captured


class Frame:
    """One of a recorded call; `kind` is what the recorder is to get, or None."""

    def __init__(self, data):
        self.data = data
        transport = 14 + (data[14] & 15) * 4
        self.source_port, self.port = struct.unpack_from("!HH", data, transport)
        self.is_tcp = data[23] == 6
        self.payload_at = transport + ((data[transport + 12] >> 4) * 4 if self.is_tcp else 8)
        self.has_payload = len(data) > self.payload_at and not (self.is_tcp and self.total_length() <= self.payload_at)
        self.is_signalling = self.is_tcp or 5060 in (self.source_port, self.port)
        self.kind = None if self.is_tcp else SIP if self.is_signalling else RTP

    def total_length(self):
        return 14 + int.from_bytes(self.data[16:18], "big")


class Template:
    """A captured call, whose copies have hosts and call identification of their own."""

    CALLER, CALLEE = "10.20.0.1", "10.20.0.2"

    def __init__(self, path, expected=None):
        self.frames, last, begin, ended = [], None, None, False
        described = iter(re.findall(r"^(true|false)\t", expected.read_text(), re.M)) if expected else None
        guid = re.search(r"c:([\da-f-]+)", expected.read_text())[1] if expected else ""
        self.guid = bytes.fromhex(guid.replace("-", ""))
        for at, data in read_capture(path):
            if data[12:14] != b"\x08\x00":
                continue
            frame = Frame(data)
            if frame.is_tcp and frame.has_payload and next(described) == "true":
                frame.kind = H323
            pause = at - last[0] if last else 0.0
            begin = begin or at
            if frame.is_signalling and frame.has_payload:
                ended = at - begin > 5
            elif not frame.is_signalling:
                # Media that is behind the signalling of the end would be nobody's.
                if ended:
                    continue
                # The recorder gets time to ask for the media.
                if last and last[1].is_signalling:
                    pause = max(pause, 1.0)
            self.frames.append((pause, frame))
            last = (at, frame)

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
            if frame.is_tcp and 1720 in (frame.port, frame.source_port) and data[at + 4 : at + 6] == b"\x08\x02":
                reference = (data[at + 6] & 0x80) << 8 | 1 + number % 0x7FFE
                data = data[: at + 6] + struct.pack("!H", reference) + data[at + 8 :]
            yield pause, frame, data


def forwarded_checksum(kind, frame, data):
    """Of the frame that the recorder is to get."""
    payload = data[frame.payload_at :]
    ports = struct.pack("!H", frame.port), struct.pack("!H", frame.source_port)
    header = struct.pack("!HB", 15 + len(payload), kind) + data[30:34] + ports[0] + data[26:30] + ports[1]
    return zlib.crc32(payload, zlib.crc32(header))


# ---- the account of the stand-alone program ----


class Connection:
    def __init__(self, since):
        self.since, self.answered, self.ended = since, None, None
        self.highest = [-1, -1]  # by device, the latest frame in the order of sending that has arrived


class Stream:
    """What was sent to one destination while the link was up, and when the recorder wanted it."""

    def __init__(self):
        self.sent, self.wanted, self.texts_sent, self.texts_received = {}, [], [], []


class Account:
    def __init__(self, journal):
        self.journal, self.pending = open(journal, "rb"), b""
        self.streams, self.connections, self.disturbances, self.faults = {}, [], [], []
        self.finished = collections.deque()  # calls to be balanced, by the time of their last frame
        self.received, self.sent_by_kind = collections.Counter(), collections.Counter()
        self.holes = self.cut = self.unlisted = self.media_received = self.garbled = 0

    def fault(self, text):
        self.faults.append(text)
        print("FAULT:", text, flush=True)

    def stream(self, ip, port):
        return self.streams.setdefault((ip, port), Stream())

    def sent(self, link_number, frame, data):
        self.sent_by_kind[frame.kind] += 1
        if frame.kind is None:
            return
        stream = self.stream(int.from_bytes(data[30:34], "big"), frame.port)
        if frame.kind == H323:
            stream.texts_sent.append(time.time())
            return
        sequence = int.from_bytes(data[frame.payload_at + 2 : frame.payload_at + 4], "big") if frame.kind == RTP else 0
        key = (sequence, forwarded_checksum(frame.kind, frame, data))
        # Link, position in its order, time, whether it has arrived.
        stream.sent[key] = [link_number, self.position[link_number], time.time(), False, frame.kind]

    def read(self):
        """Takes in what the recorder has noted."""
        data = self.pending + self.journal.read()
        size = recorder.RECORD.size
        whole = len(data) - len(data) % size
        self.pending = data[whole:]
        for kind, ip, port, sequence, checksum, at in recorder.RECORD.iter_unpack(data[:whole]):
            if kind == recorder.CONNECTED:
                if self.connections and self.connections[-1].ended is None:
                    self.end_connection(at)
                self.connections.append(Connection(at))
            elif kind == recorder.ANSWERED:
                if self.connections[-1].answered is None:
                    self.connections[-1].answered = at
            elif kind == recorder.LISTED:
                self.stream(ip, port).wanted.append([self.connections[-1], at, float("inf")])
            elif kind == recorder.UNLISTED:
                for interval in self.stream(ip, port).wanted[-1:]:
                    interval[2] = min(interval[2], at)
            elif kind == recorder.GARBLED:
                self.garbled += 1
            elif kind == recorder.ENDED:
                self.end_connection(at)
            else:
                self.arrived(kind, self.stream(ip, port), (sequence, checksum), at)

    def end_connection(self, at):
        self.connections[-1].ended = at

    def arrived(self, kind, stream, key, at):
        self.received[kind] += 1
        if kind == H323:
            stream.texts_received.append(at)
            return
        entry = stream.sent.get(key)
        if entry is None or entry[3]:
            self.fault(f"a frame of kind {kind} that was {'received twice' if entry else 'never sent'}")
            return
        entry[3] = True
        highest = self.connections[-1].highest
        highest[entry[0]] = max(highest[entry[0]], entry[1])

    def balance(self, until):
        """Balances the calls whose last frame was sent before."""
        while self.finished and self.finished[0][0] < until:
            for key in self.finished.popleft()[1]:
                stream = self.streams.pop(key, None)
                if stream:
                    self.balance_stream(key, stream)

    def balance_stream(self, key, stream):
        for link, position, at, arrived, kind in stream.sent.values():
            connection = self.wanting(stream, kind, at)
            if connection is None:
                self.unlisted += not arrived
            elif not arrived:
                self.missing(connection, link, position, at)
        # Texts are told by their number: of several to one destination it is not known which is missing.
        if stream.texts_sent and len(stream.texts_received) != len(stream.texts_sent):
            connections = {self.wanting(stream, H323, at) for at in stream.texts_sent}
            whole = len(connections) == 1 and None not in connections
            if whole and not self.near_disturbance(connections.pop(), stream.texts_sent[-1]):
                self.holes += len(stream.texts_sent) - len(stream.texts_received)

    def wanting(self, stream, kind, at):
        """The connection over which the recorder wanted what was sent at that time."""
        if kind == RTP:
            for connection, since, until in stream.wanted:
                if since <= at < min(until, connection.ended or until):
                    return connection
            return None
        number = bisect.bisect_right([one.answered or float("inf") for one in self.connections], at) - 1
        connection = self.connections[number] if number >= 0 else None
        return connection if connection and at < (connection.ended or float("inf")) else None

    def missing(self, connection, link, position, at):
        if position < connection.highest[link] or connection.ended is None:
            self.holes += 1
        elif self.near_disturbance(connection, at):
            self.cut += 1
        else:
            self.fault("the end of a connection lost more than what was under way")

    def near_disturbance(self, connection, at):
        return any(connection.since - 2 <= one <= at + 2 for one in self.disturbances)


# ---- the processes under test ----


class Watch:
    """Memory and descriptors of a process over time."""

    def __init__(self, name, pid, more_memory, more_descriptors):
        self.name, self.pid = name, pid
        self.tolerance = more_memory, more_descriptors
        self.samples = []

    def sample(self):
        pages = int(pathlib.Path(f"/proc/{self.pid}/statm").read_text().split()[1])
        self.samples.append((pages * 4, len(os.listdir(f"/proc/{self.pid}/fd"))))

    def report(self):
        quarter = max(1, len(self.samples) // 4)
        second, last = self.samples[quarter : 2 * quarter] or self.samples, self.samples[-quarter:]
        memory = [statistics.median(sample[0] for sample in part) for part in (second, last)]
        descriptors = [statistics.median(sample[1] for sample in part) for part in (second, last)]
        print(
            f"{self.name}: {memory[0]:.0f} KiB and {descriptors[0]:.0f} descriptors in the second quarter, "
            f"{memory[1]:.0f} KiB and {descriptors[1]:.0f} in the last"
        )
        return memory[1] - memory[0] <= self.tolerance[0] and descriptors[1] - descriptors[0] <= self.tolerance[1]


def write_log_settings(folder, level="INFO"):
    (folder / "log4cxx.properties").write_text(
        f"log4j.rootLogger={level}, file\n"
        "log4j.appender.file=org.apache.log4j.FileAppender\n"
        "log4j.appender.file.File=sniffer.log\n"
        "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
        "log4j.appender.file.layout.ConversionPattern=%d{yyyy-MM-dd HH:mm:ss,SSS} %p %m%n\n"
    )


def statistics_of(log):
    """The last statistics in a log: those of the devices, and the others."""
    text = log.read_text()
    numbers = lambda line: {name: int(value) for name, value in re.findall(r"(\w+)=(\d+)", line)}
    devices = {name: numbers(line) for name, line in re.findall(r"Statistics of device (\w+):(.*)", text)}
    return devices, numbers(re.findall(r"Statistics:(.*)", text)[-1])


class Soak:
    def __init__(self, options):
        self.options, self.random = options, random.Random(options.seed)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="sniffer-soak-"))
        self.here, self.there = Namespace(), Namespace()
        self.links = [Link(number, self.there, self.here) for number in (0, 1)]
        captures = options.samples
        expected = HERE.parent / "data" / "h323"
        names = ["h323-fast-start-tunnelled", "h323-h245-separate"]
        self.templates = [Template(captures / "sip-g711a-call.pcap")]
        self.templates += [Template(captures / f"{name}.pcap", expected / f"{name}.expected") for name in names]
        self.account = Account(self.make_journal())
        self.account.position = [0, 0]
        self.host_media = 0
        self.calls, self.started, self.clock = [], 0, 0.0
        self.counts = collections.Counter()
        self.recorder, self.mishaps = None, []

    def make_journal(self):
        journal = self.folder / "journal"
        journal.touch()
        return journal

    # -- processes --

    def start(self):
        self.start_recorder()
        devices = ";".join(link.device for link in self.links)
        program, host = self.folder / "program", self.folder / "host"
        for folder in (program, host):
            folder.mkdir()
            write_log_settings(folder)
        settings = {"ServerName": "127.0.0.1", "ServerPort": PORT, "ServerProtocol": "TCP", "Device": devices}
        settings |= {"Filter": "udp or tcp", "LogLevel": "INFO", "TraceSignalling": "yes", "ImmediateCapture": "yes"}
        (program / "sniffer.properties").write_text("".join(f"{key}={value}\n" for key, value in settings.items()))
        build = self.options.build
        output = open(self.folder / "output", "w")
        common = {"stdin": subprocess.DEVNULL, "stdout": output, "stderr": output}
        self.program = self.here.start(str(build / "standalone/sniffer"), cwd=program, **common)
        memory = ["-Xms96m", "-Xmx96m", "-XX:+AlwaysPreTouch", "-XX:+UseSerialGC"]
        library = f"-Djava.library.path={build / 'sniffer'}"
        command = ["java", *memory, library, "-jar", str(build / "host/voip-sniffer.jar"), "--out", "recordings"]
        self.host_output = open(self.folder / "host-output", "w+")
        common["stdout"] = self.host_output
        self.host = self.here.start(*command, "--embedded", devices, "--filter", "udp or tcp", cwd=host, **common)
        self.logs = [program / "sniffer.log", host / "sniffer.log"]
        (program / "sniffer.log").touch()
        self.program_log = open(program / "sniffer.log")
        self.watches = [Watch("stand-alone", self.program.pid, 4096, 2), Watch("in Java", self.host.pid, 24576, 40)]
        for log in self.logs:
            while not (log.exists() and log.read_text().count("PCAP thread created") == 2):
                if self.program.poll() is not None or self.host.poll() is not None:
                    raise SystemExit(f"a sniffer did not start, see {self.folder}")
                time.sleep(0.05)
        time.sleep(1)

    def start_recorder(self):
        command = [sys.executable, str(HERE / "recorder.py"), str(PORT), str(self.folder / "journal")]
        self.recorder = self.here.start(*command)

    # -- traffic --

    def start_call(self):
        template = self.templates[self.started % len(self.templates)]
        link = self.random.randrange(2)
        call = template.call(self.started)
        self.started += 1
        pause, frame, data = next(call)
        heapq.heappush(self.calls, (self.clock + pause, self.started, link, call, frame, data, set()))

    def send_due(self):
        while self.calls and self.calls[0][0] <= self.clock:
            due, number, link_number, call, frame, data, keys = heapq.heappop(self.calls)
            link = self.links[link_number]
            if frame.is_signalling and not link.up:
                # Telephones try again; here they wait, so that each call has a beginning and an end.
                heapq.heappush(self.calls, (due + 0.1, number, link_number, call, frame, data, keys))
                continue
            self.account.position[link_number] += 1
            if link.send(data):
                self.account.sent(link_number, frame, data)
            keys.add((int.from_bytes(data[30:34], "big"), frame.port))
            following = next(call, None)
            if following is None:
                self.account.finished.append((time.time(), keys))
            else:
                pause, frame, data = following
                heapq.heappush(self.calls, (due + pause, number, link_number, call, frame, data, keys))

    # -- disturbances --

    def disturb(self, now):
        """Does one of the things that happen in operation; returns when the next one is due."""
        self.account.disturbances.append(time.time())
        if not self.mishaps:
            self.mishaps = ["kill", "stop", "terminate", "link", "link", "kill while stopped", "freeze"]
            self.random.shuffle(self.mishaps)
        what = self.mishaps.pop()
        pause = self.random.uniform(0.3, 4)
        self.counts[what] += 1
        if what == "link":
            link = self.random.choice(self.links)
            if link.up:
                link.go_down(self.random.choice)
                self.later(now + pause, link.came_up)
        elif what == "freeze":
            # Long enough for the kernel's buffers to overflow.
            pause = 8
            self.program.send_signal(signal.SIGSTOP)
            self.later(now + pause, lambda: self.program.send_signal(signal.SIGCONT))
        elif self.recorder.poll() is None:
            if "stop" in what:
                self.recorder.send_signal(signal.SIGSTOP)
            if what == "stop":
                self.later(now + pause, lambda: self.recorder.send_signal(signal.SIGCONT))
            elif what == "kill while stopped":
                self.later(now + pause, self.recorder.kill)
                self.later(now + pause + 1, self.restart_recorder)
            else:
                self.recorder.send_signal(signal.SIGTERM if what == "terminate" else signal.SIGKILL)
                self.later(now + pause, self.restart_recorder)
        return now + pause + self.random.uniform(2, 5 if self.options.seconds < ENOUGH_FOR_MEMORY else 18)

    def restart_recorder(self):
        self.account.disturbances.append(time.time())
        self.recorder.wait()
        self.account.read()
        self.start_recorder()

    def later(self, when, action):
        heapq.heappush(self.actions, (when, id(action), action))

    # -- the run --

    def run(self):
        begin = last = time.monotonic()
        self.actions, next_call, next_disturbance = [], 0.0, begin + 5
        next_look = next_sample = begin
        end_of_calls = begin + self.options.seconds - DRAIN
        while True:
            now = time.monotonic()
            # What was missed while this process did not run is not made up for in a burst.
            self.clock += min(now - last, 0.02)
            last = now
            if now < end_of_calls:
                while self.clock >= next_call:
                    self.start_call()
                    next_call += self.options.call_interval
                if now >= next_disturbance:
                    next_disturbance = self.disturb(now)
                    last = time.monotonic()
            elif not self.calls and not self.actions:
                break
            if self.actions and self.actions[0][0] <= now:
                heapq.heappop(self.actions)[2]()
                last = time.monotonic()
            self.send_due()
            if now >= next_look:
                next_look = now + 0.5
                self.account.read()
                self.read_disturbances()
                self.account.balance(time.time() - PATIENCE)
                self.check_alive()
            if now >= next_sample:
                next_sample = now + max(1, self.options.seconds / 360)
                for watch in self.watches:
                    watch.sample()
                self.tidy()
                self.tell(now - begin)
            time.sleep(0.001)
        time.sleep(2)
        self.account.read()

    def check_alive(self):
        for process, name in ((self.program, "the stand-alone program"), (self.host, "the Java process")):
            if process.poll() is not None:
                raise SystemExit(f"FAULT: {name} ended with status {process.returncode}, see {self.folder}")

    def tidy(self):
        """An hour of speech would fill gigabytes."""
        for path in (self.folder / "host" / "recordings").glob("*.wav"):
            if path.stat().st_mtime < time.time() - 60:
                path.unlink()

    def tell(self, seconds):
        account, memory = self.account, " ".join(f"{watch.samples[-1]}" for watch in self.watches)
        sent, received = sum(link.passed for link in self.links), sum(account.received.values())
        print(
            f"{seconds:.0f} s: {self.started} calls, sent {sent}, received {received}, connections "
            f"{len(account.connections)}, cut {account.cut}, holes {account.holes}, faults {len(account.faults)}, "
            f"KiB and descriptors {memory}",
            flush=True,
        )

    # -- the balance --

    def check(self, met, text):
        print(("ok:    " if met else "FAULT: ") + text)
        if not met:
            self.account.faults.append(text)

    def finish(self):
        self.read_disturbances()
        self.account.balance(float("inf"))
        self.check_alive()
        self.program.send_signal(signal.SIGUSR2)
        time.sleep(2)
        self.balance_program()
        # The end closes its connections, so the figures before it are the ones that hold.
        self.program.send_signal(signal.SIGTERM)
        self.check(self.program.wait(30) == 0, "the stand-alone program ends with status 0 when asked to")
        self.host.send_signal(signal.SIGTERM)
        self.host.wait(60)
        self.balance_host()
        for watch in self.watches:
            flat = watch.report()
            if self.options.seconds >= ENOUGH_FOR_MEMORY:
                self.check(flat, f"memory and descriptors of {watch.name} are flat")
        strange = [line for log in self.logs for line in self.strange_lines(log)]
        self.check(not strange, f"no error in the logs {strange[:3] or ''}")
        print(f"disturbances: {dict(self.counts)}")
        return not self.account.faults

    def strange_lines(self, log):
        """While the recorder is away calls begin unseen, and then their H.245 messages belong to no call."""
        usual = "Dropping pkt as received OLC" if log == self.logs[0] else None
        lines = [line for line in log.read_text().splitlines() if re.search(" (ERROR|FATAL) ", line)]
        return [line for line in lines if not (usual and usual in line)]

    def read_disturbances(self):
        """The connection may also be lost because the recorder got no processor: the log tells."""
        for line in self.program_log:
            if "Send error" in line or "Connection to Recorder closed" in line:
                stamp = time.mktime(time.strptime(line[:19], "%Y-%m-%d %H:%M:%S"))
                self.account.disturbances.append(stamp)

    def balance_devices(self, devices):
        for link in self.links:
            counted = devices[link.device]
            self.check(
                counted["received"] == link.passed,
                f"{link.device} received {counted['received']} of the {link.passed} frames sent while it was up, of "
                f"which the kernel dropped {counted['droppedByKernel']} ({link.lost} were sent in {link.downs} downs)",
            )
        return sum(one["received"] - one["droppedByKernel"] for one in devices.values())

    @staticmethod
    def forwarded(counted):
        return sum(counted[kind] for kind in ("sipForwarded", "rtpForwarded", "h323Forwarded"))

    def check_fates(self, counted, captured):
        others = ["udpDropped", "tcpDropped", "otherDropped", "queueDiscarded", "queueLength", "notSent"]
        total = self.forwarded(counted) + sum(counted[fate] for fate in others)
        self.check(total == captured, f"{captured} frames captured, {total} counted by what became of them")

    def balance_program(self):
        print("-- the stand-alone program")
        devices, counted = statistics_of(self.logs[0])
        print(counted)
        captured = self.balance_devices(devices)
        self.check_fates(counted, captured)
        account, forwarded = self.account, self.forwarded(counted)
        received = sum(account.received.values())
        lost = forwarded - received
        self.check(
            lost >= 0 and (lost == 0 or counted["recorderLosses"] > 0),
            f"{forwarded} frames forwarded, {received} received by the recorder, {lost} were under way on "
            f"{counted['recorderLosses']} lost connections",
        )
        dropped = sum(one["droppedByKernel"] for one in devices.values())
        self.check(
            account.holes <= dropped,
            f"{account.holes} listed frames are missing in the middle of a connection, {dropped} were dropped by the "
            f"kernel; {account.cut} are missing at the end of one that was lost",
        )
        told = re.search(" WARN Statistics of device .* frames are lost since the last report", self.logs[0].read_text())
        self.check(bool(told) == (dropped > 0), "what the kernel dropped is told as a warning")
        short_sends = self.logs[0].read_text().count("Sent nSent=")
        self.check(account.garbled <= short_sends, f"{account.garbled} streams garbled after {short_sends} short sends")
        busy = account.received[RTP] > 0.2 * account.sent_by_kind[RTP] and account.received[H323] > 0
        self.check(busy, "there was traffic")

    def balance_host(self):
        print("-- the Java process")
        devices, counted = statistics_of(self.logs[1])
        print(counted)
        captured = self.balance_devices(devices)
        self.check_fates(counted, captured)
        media, dropped = self.account.sent_by_kind[RTP], sum(one["droppedByKernel"] for one in devices.values())
        self.host_output.seek(0)
        recorded = int(re.findall(r"([\d,]+) media packets", self.host_output.read())[-1].replace(",", ""))
        forwarded = counted["rtpForwarded"]
        self.check(recorded == forwarded, f"{recorded} media packets recorded of {forwarded} forwarded")
        self.check(
            media - dropped <= recorded + counted["udpDropped"] <= media,
            f"{media} media packets were sent, {counted['udpDropped']} before they were asked for",
        )
        self.check(counted["udpDropped"] <= 0.01 * media, "nearly all media was asked for in time")

    def close(self):
        for process in (self.recorder, getattr(self, "program", None), getattr(self, "host", None)):
            if process and process.poll() is None:
                process.kill()
                process.wait()
        self.here.close()
        self.there.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="where program, library and jar are built")
    parser.add_argument("--samples", type=pathlib.Path, default=HERE.parent.parent / "samples")
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--call-interval", type=float, default=0.5, help="seconds; 0.5 makes 2000 packets a second")
    parser.add_argument("--keep", action="store_true", help="keep logs and journal when all is well, too")
    options = parser.parse_args()
    options.build = options.build.resolve()
    may = os.geteuid() == 0 and subprocess.run(["unshare", "--net", "true"], capture_output=True).returncode == 0
    fail_without((may, "root, who may make network namespaces"))
    soak = Soak(options)
    good = False
    try:
        soak.start()
        soak.run()
        good = soak.finish()
    finally:
        soak.close()
        if good and not options.keep:
            subprocess.run(["rm", "-rf", str(soak.folder)], check=True)
        else:
            print(f"logs and journal are in {soak.folder}")
    print(f"seed {options.seed}: " + ("all is accounted for" if good else "there are faults, see above"))
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
