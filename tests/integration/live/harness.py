"""Shared by the integration tests: captures, a recorder, the program, network namespaces.

The environment has the paths SNIFFER_PROGRAM, SNIFFER_SAMPLES and SNIFFER_TEST_FILES. The tests use only the standard
library of Python and Debian's iproute2, util-linux, tcpreplay and sip-tester.
"""

import collections
import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

PROGRAM = os.environ["SNIFFER_PROGRAM"]
SAMPLES = pathlib.Path(os.environ["SNIFFER_SAMPLES"])
TEST_FILES = pathlib.Path(os.environ["SNIFFER_TEST_FILES"])
PATIENCE = 30  # seconds; on an idle machine every wait takes a moment

SIP, RTP, HEARTBEAT, H323 = 1, 2, 3, 4
ADD, REMOVE, ARE_YOU_THERE = 1, 2, 3

RECEIVE_BUFFER = 4 << 20
SO_RCVBUFFORCE = 33  # <asm/socket.h>; Python has no name for it


def wait_until(condition, what, patience=PATIENCE):
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"waited {patience} s in vain for: {what}")
        time.sleep(0.005)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


LOG_TO_FILE = (
    "log4j.rootLogger=INFO, file\n"
    "log4j.appender.file=org.apache.log4j.FileAppender\n"
    "log4j.appender.file.File=sniffer.log\n"
    "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.file.layout.ConversionPattern=%d{yyyy-MM-dd HH:mm:ss,SSS} %p %m%n\n"
)

# ---- captures ----


def sample(name):
    for folder in (SAMPLES, TEST_FILES / "captures"):
        if (folder / name).exists():
            return folder / name
    raise FileNotFoundError(name)


class Frame:
    """One Ethernet frame, untagged, of IPv4, or of IPv6 without extension headers."""

    def __init__(self, data, time=0.0):
        self.data, self.time = data, time
        if data[14] >> 4 == 6:
            header, protocol, family = 54, data[20], socket.AF_INET6
            ends = data[22:38], data[38:54]
        else:
            header, protocol, family = 14 + (data[14] & 15) * 4, data[23], socket.AF_INET
            ends = data[26:30], data[30:34]
        self.is_udp, self.is_tcp = protocol == 17, protocol == 6
        self.source = (socket.inet_ntop(family, ends[0]), *struct.unpack_from("!H", data, header))
        self.destination = (socket.inet_ntop(family, ends[1]), *struct.unpack_from("!H", data, header + 2))
        self.payload = data[header + 8 :] if self.is_udp else data[header + (data[header + 12] >> 4) * 4 :]

    @property
    def is_sip(self):
        return self.is_udp and 5060 in (self.source[1], self.destination[1])


def udp_frame(source, destination, payload, time=0.0):
    udp = struct.pack("!HHHH", source[1], destination[1], 8 + len(payload), 0)
    ip = struct.pack("!BBHHHBBH", 0x45, 0, 28 + len(payload), 0, 0, 64, 17, 0)
    addresses = socket.inet_aton(source[0]) + socket.inet_aton(destination[0])
    return Frame(b"\2" * 6 + b"\4" * 6 + b"\x08\x00" + ip + addresses + udp + payload, time)


def in_ipv6(end):
    """Returns the end with the IPv4 address as the last 32 bits of 2001:db8::."""
    return socket.inet_ntop(socket.AF_INET6, octets("2001:db8::")[:12] + octets(end[0])), end[1]


def over_ipv6(frame):
    """Returns the frame with an IPv6 header, and addresses as in_ipv6()."""
    start = 14 + (frame.data[14] & 15) * 4
    rest = frame.data[start : 14 + struct.unpack_from("!H", frame.data, 16)[0]]
    addresses = b"".join(octets(in_ipv6(end)[0]) for end in (frame.source, frame.destination))
    header = struct.pack("!IHBB", 6 << 28, len(rest), frame.data[23], 64)
    return Frame(frame.data[:12] + b"\x86\xdd" + header + addresses + rest, frame.time)


def read_capture(path):
    data = pathlib.Path(path).read_bytes()
    order = "<" if data[:4] == b"\xd4\xc3\xb2\xa1" else ">"
    frames, at = [], 24
    while at < len(data):
        seconds, microseconds, captured, _ = struct.unpack_from(order + "IIII", data, at)
        frames.append(Frame(data[at + 16 : at + 16 + captured], seconds + microseconds / 1e6))
        at += 16 + captured
    return frames


def capture_header(link_type=1):
    return struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, link_type)


def capture_record(data, time=0.0):
    return struct.pack("<IIII", int(time), round(time % 1 * 1e6) % 1000000, len(data), len(data)) + data


def write_capture(path, frames):
    records = b"".join(capture_record(frame.data, frame.time) for frame in frames)
    pathlib.Path(path).write_bytes(capture_header() + records)


def forwarded(protocol, frame, payload=None):
    """Returns the frame that the recorder must receive."""
    payload = frame.payload if payload is None else payload
    ends = b"".join(octets(ip) + struct.pack("!H", port) for ip, port in (frame.destination, frame.source))
    kind = protocol + 0x40 * (len(ends) == 36)
    return struct.pack("!HB", 3 + len(ends) + len(payload), kind) + ends + payload


def octets(address):
    return socket.inet_pton(socket.AF_INET6 if ":" in address else socket.AF_INET, address)


def command(code, destination=("0.0.0.0", 0)):
    """The codes for IPv6 addresses are those for IPv4 plus 3."""
    address = octets(destination[0])
    return bytes([code + 3 * (len(address) == 16)]) + address + struct.pack("!H", destination[1])


# ---- the recorder ----


class Recorder:
    """Listens on loopback, collects the frames it receives, sends commands. It serves one connection at a time."""

    def __init__(self, protocol="TCP", namespace=None, port=0, host="127.0.0.1"):
        self.protocol, self.frames, self.remains = protocol, [], []
        self.arrival = threading.Condition()
        self.reading = threading.Event()
        self.reading.set()
        kind = socket.SOCK_STREAM if protocol == "TCP" else socket.SOCK_DGRAM
        self.listener = make_socket(kind, namespace, socket.AF_INET6 if ":" in host else socket.AF_INET)
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        for option in (socket.SO_RCVBUF, SO_RCVBUFFORCE):  # only root may exceed net.core.rmem_max
            with contextlib.suppress(PermissionError):
                self.listener.setsockopt(socket.SOL_SOCKET, option, RECEIVE_BUFFER)
        self.listener.bind((host, port))
        self.address = self.listener.getsockname()
        self.connections, self.peer, self.accepted = [], None, 0
        if protocol == "TCP":
            self.listener.listen()
        threading.Thread(target=self._accept if protocol == "TCP" else self._datagrams, daemon=True).start()

    @property
    def port(self):
        return self.address[1]

    @property
    def takes_bursts(self):
        """True unless the kernel limits the receive buffer, so that datagrams of a burst are lost."""
        return self.listener.getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF) >= RECEIVE_BUFFER

    def _accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.connections.append(connection)
            self.accepted += 1
            self._read(connection)

    def _read(self, connection):
        pending = bytearray()
        try:
            while data := connection.recv(1 << 20):
                self.reading.wait()
                pending += data
                while len(pending) >= 2 and len(pending) >= int.from_bytes(pending[:2], "big"):
                    length = int.from_bytes(pending[:2], "big")
                    if length < 15:
                        # The send buffer was full for a moment, so the second part of a frame was sent twice.
                        raise ConnectionError("the stream is out of step")
                    self._arrived(bytes(pending[:length]))
                    del pending[:length]
        except OSError:
            connection.close()
        self.remains.append(bytes(pending))

    def _datagrams(self):
        while True:
            try:
                data, self.peer = self.listener.recvfrom(65536)
            except OSError:
                return
            if data:
                assert len(data) == int.from_bytes(data[:2], "big"), "a datagram is one frame"
                self._arrived(data)

    def _arrived(self, frame):
        with self.arrival:
            self.frames.append(frame)
            self.arrival.notify_all()

    def wait(self, condition, what, patience=PATIENCE):
        """Calls `condition` with the list of frames after each arrival, until it is true."""
        with self.arrival:
            if not self.arrival.wait_for(lambda: condition(self.frames), patience):
                raise AssertionError(f"waited {patience} s in vain for: {what}; have {len(self.frames)} frames")

    def of(self, *protocols):
        return [frame for frame in self.frames if frame[2] & ~0x40 in protocols]

    def send(self, data):
        if self.protocol == "UDP":
            self.listener.sendto(data, self.peer)
        else:
            wait_until(lambda: self.connections, "a connection of the program")
            self.connections[-1].sendall(data)

    def add(self, *destinations):
        self.send_all(ADD, destinations)

    def remove(self, *destinations):
        self.send_all(REMOVE, destinations)

    def send_all(self, code, destinations):
        commands = [command(code, destination) for destination in destinations]
        if self.protocol == "UDP":
            for one in commands:
                self.send(one)
        else:
            self.send(b"".join(commands))

    def settle(self):
        """Returns after all earlier commands were carried out. The program handles commands in order."""
        answers = len(self.of(HEARTBEAT))
        self.send(command(ARE_YOU_THERE))
        self.wait(lambda _: len(self.of(HEARTBEAT)) > answers, "the answer to a heartbeat")

    def remainder(self):
        """Returns the incomplete frame at the end of the last connection."""
        wait_until(lambda: len(self.remains) == self.accepted, "the end of the connection")
        return self.remains[-1]

    def drop_connection(self):
        connection = self.connections.pop()
        with contextlib.suppress(OSError):
            connection.shutdown(socket.SHUT_RDWR)
        connection.close()

    def close(self):
        self.reading.set()
        while self.connections:
            self.drop_connection()
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()


# ---- the program ----


class Program:
    """The program under test, started with options, or with settings that are written to a properties file."""

    def __init__(self, *options, settings=None, namespace=None, environment=None, prefix=()):
        self.folder = tempfile.TemporaryDirectory(prefix="sniffer-test-")
        folder = pathlib.Path(self.folder.name)
        (folder / "log4cxx.properties").write_text(
            "log4j.rootLogger=DEBUG, console\n"
            "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
            "log4j.appender.console.Target=System.err\n"
            "log4j.appender.console.layout=org.apache.log4j.PatternLayout\n"
            "log4j.appender.console.layout.ConversionPattern=%p %m%n\n"
        )
        if settings is not None:
            lines = [f"{key}={value}\n" for key, value in ({"LogLevel": "DEBUG"} | settings).items()]
            (folder / "sniffer.properties").write_text("".join(lines))
        command_line = [*prefix, PROGRAM, *options]
        self.process = subprocess.Popen(
            [*(namespace.enter if namespace else ()), *die_with_us(), *command_line],
            cwd=folder,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            env=os.environ | (environment or {}),
        )
        self.output, self.log = [], []
        self.readers = [
            threading.Thread(target=self._collect, args=pair, daemon=True)
            for pair in ((self.process.stdout, self.output), (self.process.stderr, self.log))
        ]
        for reader in self.readers:
            reader.start()

    @staticmethod
    def _collect(stream, lines):
        for line in stream:
            lines.append(line.rstrip("\n"))

    def logged(self, text):
        return sum(text in line for line in self.log)

    def wait_logged(self, text, times=1):
        wait_until(lambda: self.logged(text) >= times or self.process.poll() is not None, f"the log line {text!r}")
        if self.logged(text) < times:
            raise AssertionError(f"the program ended without the log line {text!r}:\n" + "\n".join(self.log))

    def status(self):
        """Waits for the end of the program and returns its exit status."""
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise AssertionError("the program does not end:\n" + "\n".join(self.log[-40:])) from None
        for reader in self.readers:
            reader.join()
        self.process.stdout.close()
        self.process.stderr.close()
        return status

    def end(self, signal_number=signal.SIGTERM):
        self.process.send_signal(signal_number)
        return self.status()

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.status()
        self.folder.cleanup()


class Wire:
    """A capture device that the test controls: a named pipe that the program replays at full speed."""

    def __init__(self, folder, name="wire"):
        self.path = pathlib.Path(folder) / name
        os.mkfifo(self.path)
        self.device = f"file:{self.path}"
        self.pipe = None

    def open(self):
        """Waits until the program has opened the pipe."""
        self.pipe = open(self.path, "wb", buffering=0)
        self.pipe.write(capture_header())

    def send(self, *frames):
        self.pipe.write(b"".join(capture_record(frame if isinstance(frame, bytes) else frame.data) for frame in frames))

    def close(self):
        if self.pipe:
            self.pipe.close()
            self.pipe = None


def die_with_us():
    """Prefix of a command that ends with the test, even if ctest kills the test."""
    return ["setpriv", "--pdeathsig", "KILL"]


# ---- network namespaces ----


class Namespace:
    """A network namespace without a name. It exists as long as its holder process, which ends with the test."""

    def __init__(self):
        self.holder = subprocess.Popen([*die_with_us(), "unshare", "--net", "sleep", "infinity"])
        self.path = f"/proc/{self.holder.pid}/ns/net"
        ours = os.readlink("/proc/self/ns/net")
        wait_until(lambda: os.readlink(self.path) != ours, "a network namespace")
        self.enter = ["nsenter", f"--net={self.path}"]
        if os.path.exists("/proc/sys/net/ipv6"):
            self.run("sysctl", "-qw", "net.ipv6.conf.default.disable_ipv6=1")
        self.run("ip", "link", "set", "lo", "up")

    def run(self, *command_line):
        subprocess.run([*self.enter, *command_line], check=True, capture_output=True, text=True)

    def start(self, *command_line, **options):
        return subprocess.Popen([*self.enter, *die_with_us(), *command_line], **options)

    def join(self, device, other, other_device):
        """Makes a veth pair with `device` here and `other_device` in the other namespace."""
        self.run(
            *("ip", "link", "add", device, "type", "veth"),
            *("peer", "name", other_device, "netns", str(other.holder.pid)),
        )
        self.run("ip", "link", "set", device, "up")
        other.run("ip", "link", "set", other_device, "up")

    def close(self):
        self.holder.kill()
        self.holder.wait()


def make_socket(kind, namespace=None, family=socket.AF_INET, protocol=0):
    """Returns a socket in the namespace. A socket stays in the namespace in which it was made."""
    if namespace is None:
        return socket.socket(family, kind, protocol)
    libc = ctypes.CDLL(None, use_errno=True)
    with open("/proc/thread-self/ns/net") as ours, open(namespace.path) as theirs:
        if libc.setns(theirs.fileno(), 0) != 0:
            raise OSError(ctypes.get_errno(), "setns")
        try:
            return socket.socket(family, kind, protocol)
        finally:
            if libc.setns(ours.fileno(), 0) != 0:
                os._exit(2)


# ---- tests ----


class TestCase(unittest.TestCase):
    def keep(self, resource):
        """Closes the resource when the test ends."""
        self.addCleanup(resource.close)
        return resource

    def folder(self):
        folder = tempfile.TemporaryDirectory(prefix="sniffer-test-")
        self.addCleanup(folder.cleanup)
        return folder.name

    def start(self, *options, **more):
        return self.keep(Program(*options, **more))

    def assert_frames(self, got, expected, what):
        if got == expected:
            return
        missing = collections.Counter(expected) - collections.Counter(got)
        extra = collections.Counter(got) - collections.Counter(expected)
        self.fail(
            f"{what}: {len(got)} frames, expected {len(expected)}; {missing.total()} missing, {extra.total()} too many"
            + ("" if missing or extra else ", and their order differs")
        )

    def assert_in_order(self, lines, texts):
        at = 0
        for text in texts:
            while at < len(lines) and text not in lines[at]:
                at += 1
            self.assertLess(at, len(lines), f"{text!r} is not there, or not in its order, in:\n" + "\n".join(lines))


def has_ipv6():
    with contextlib.suppress(OSError), socket.socket(socket.AF_INET6) as probe:
        probe.bind(("::1", 0))
        return True
    return False


def may_make_namespaces():
    """True for root, unless root is confined in a container."""
    probe = "unshare --net true"
    return os.geteuid() == 0 and subprocess.run(probe.split(), capture_output=True).returncode == 0


def need_root(*programs):
    """Ends the script with the status that ctest takes for "skipped"."""
    missing = [program for program in programs if shutil.which(program) is None]
    if not may_make_namespaces():
        missing.append("root with the right to make network namespaces")
    if missing:
        print("SKIPPED: live capture needs " + ", ".join(missing))
        sys.exit(77)


def main():
    unittest.main(verbosity=2)
