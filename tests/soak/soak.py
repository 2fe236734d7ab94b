#!/usr/bin/env python3
"""Runs the stand-alone program and a Java process with the sniffer on the same two devices with SIP calls and their
media. Meanwhile it stops, kills and restarts the recorder of the stand-alone program, and takes the links of the
devices down and up, all at random.

At the end it accounts for every frame that was sent while its link was up: each sniffer has counted it once, the Java
process has recorded it, and the recorder has recorded it once unless it was in a socket when the recorder was killed.
Memory does not grow in a run of five minutes or more. Needs root for network namespaces. Usage:
  tests/soak/soak.py --build build/release --seconds 3600 --seed 1
"""

import argparse
import collections
import contextlib
import heapq
import json
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

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "integration" / "live"))
for name in ("SNIFFER_PROGRAM", "SNIFFER_SAMPLES", "SNIFFER_TEST_FILES"):
    os.environ.setdefault(name, ".")  # the harness reads them, this script does not
import harness  # noqa: E402
from calls import media_of_sip  # noqa: E402
from harness import ADD, REMOVE, RTP, SIP, command, make_socket, udp_frame  # noqa: E402

PORT, RECEIVE_BUFFER = 6000, 128 << 10
IN_SOCKETS = 900 << 10  # bytes: the send buffer, twice the receive buffer, and frames read but not noted
NOTE = struct.Struct("!BIHH")  # protocol, destination, RTP sequence number
LOOK_BACK = {"SendTimeout": 10000, "LookBack": 20000, "QueueLimit": 256, "ImmediateCapture": "yes"}


# ---- the recorder, in a process that is killed ----


def record(journal_path):
    """Requests the media of all calls and notes each frame. Notes and requests are kept in files when it is killed."""
    journal, memory = open(journal_path, "ab", buffering=0), pathlib.Path(journal_path + ".wanted")
    wanted = [tuple(one) for one in json.loads(memory.read_text())] if memory.exists() else []
    listener = socket.create_server(("127.0.0.1", PORT), reuse_port=False)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
    while True:
        connection, _ = listener.accept()
        # A sniffer that lost its connection has forgotten the requests.
        connection.sendall(b"".join(command(ADD, one) for one in wanted))
        pending = bytearray()
        with contextlib.suppress(OSError):
            while data := connection.recv(1 << 17):
                pending += data
                notes, at = [], 0
                while len(pending) - at >= 2 and len(pending) - at >= int.from_bytes(pending[at : at + 2], "big"):
                    frame = bytes(pending[at : at + int.from_bytes(pending[at : at + 2], "big")])
                    at += len(frame)
                    (sequence,) = struct.unpack_from("!H", frame, 17)
                    notes.append(NOTE.pack(frame[2], *struct.unpack_from("!IH", frame, 3), sequence))
                    if frame[2] == SIP:
                        follow(frame, wanted, memory, connection)
                journal.write(b"".join(notes))
                del pending[:at]


def follow(frame, wanted, memory, connection):
    new = [one for one in media_of_sip(frame) if one not in wanted]
    gone = []
    if frame[15:].startswith(b"BYE "):
        hosts = {socket.inet_ntoa(frame[3:7]), socket.inet_ntoa(frame[9:13])}
        gone = [one for one in wanted if one[0] in hosts]
    wanted[:] = [one for one in wanted if one not in gone][-400:] + new
    memory.with_suffix(".new").write_text(json.dumps(wanted))
    os.replace(memory.with_suffix(".new"), memory)
    connection.sendall(b"".join([command(ADD, one) for one in new] + [command(REMOVE, one) for one in gone]))


# ---- traffic ----


class Call:
    """A call between two telephones, with the time of each frame."""

    def __init__(self, number, length):
        place = f"10.{64 + number % 150}.{number // 150 % 250}."
        self.ends, self.number, self.length = [(place + "1", 30000), (place + "2", 40000)], number, length

    def sip(self, first_line, sender, media):
        addresses = [(ip, 5060) for ip, _ in self.ends]
        caller, callee = addresses[0][0], addresses[1][0]
        ip, port = self.ends[sender]
        sdp = f"v=0\r\no=- 1 1 IN IP4 {ip}\r\ns=-\r\nc=IN IP4 {ip}\r\nt=0 0\r\nm=audio {port} RTP/AVP 8\r\n"
        body = sdp if media else ""
        method = "BYE" if first_line.startswith("BYE") or media is None else "INVITE"
        text = (
            f"{first_line} SIP/2.0\r\n" if not first_line[0].isdigit() else f"SIP/2.0 {first_line}\r\n"
        ) + (
            f"Via: SIP/2.0/UDP {caller};branch=z9hG4bK{self.number}{method}\r\nCall-ID: {self.number}@soak\r\n"
            f"From: <sip:a@{caller}>;tag=1\r\nTo: <sip:b@{callee}>;tag=2\r\nCSeq: {1 + (method == 'BYE')} {method}\r\n"
            f"Contact: <sip:x@{ip}>\r\n"
            + ("Content-Type: application/sdp\r\n" if body else "")
            + f"Content-Length: {len(body)}\r\n\r\n{body}"
        )
        return udp_frame(addresses[sender], addresses[1 - sender], text.encode())

    def frames(self):
        """Yields the pause before each frame, its kind, and the frame."""
        uri = f"sip:b@{self.ends[1][0]}"
        yield 0, SIP, self.sip(f"INVITE {uri}", 0, True)
        yield 0.1, SIP, self.sip("200 OK", 1, True)
        for number in range(int(self.length * 50)):
            for sender in (0, 1):
                header = struct.pack("!BBHII", 0x80, 8, number, number * 160, self.number * 2 + sender)
                frame = udp_frame(self.ends[sender], self.ends[1 - sender], header + b"\xd5" * 160)
                yield (0.0 if sender else 0.02), RTP, frame
        yield 0.5, SIP, self.sip(f"BYE {uri}", 0, False)
        yield 0.05, SIP, self.sip("200 OK", 1, None)


class Link:
    """A veth pair from the telephones to a device of the sniffers."""

    def __init__(self, number, there, here):
        self.device, self.name, self.there, self.up, self.sent = f"tap{number}", f"wire{number}", there, True, 0
        there.join(self.name, here, self.device)
        self.socket = make_socket(socket.SOCK_RAW, there, socket.AF_PACKET)
        self.socket.bind((self.name, 0))
        devices = pathlib.Path(f"/proc/{here.holder.pid}/net/dev")
        harness.wait_until(lambda: devices.read_text().count("tap") > number, "the device")

    def put(self, up):
        self.there.run("ip", "link", "set", self.name, "up" if up else "down")
        self.up = up

    def send(self, frame):
        self.socket.send(frame.data)
        self.sent += 1


class Soak:
    def __init__(self, options):
        self.options, self.random = options, random.Random(options.seed)
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="sniffer-soak-"))
        self.here, self.there = harness.Namespace(), harness.Namespace()
        self.links = [Link(number, self.there, self.here) for number in (0, 1)]
        self.journal, self.faults = self.folder / "journal", []
        self.events, self.calls, self.kills, self.counts = [], 0, 0, collections.Counter()
        self.sent = {}  # by destination: the sequence numbers, and the number of kills before each was sent
        self.memory = {"program": [], "host": []}

    def check(self, good, text):
        print(("ok: " if good else "FAULT: ") + text, flush=True)
        if not good:
            self.faults.append(text)

    # -- processes --

    def start_recorder(self):
        self.recorder = self.here.start(sys.executable, __file__, "--record", str(self.journal))

    def start(self):
        self.start_recorder()
        devices = ";".join(link.device for link in self.links)
        for name in self.memory:
            (self.folder / name).mkdir()
            (self.folder / name / "log4cxx.properties").write_text(harness.LOG_TO_FILE)
        settings = {"ServerName": "127.0.0.1", "ServerPort": PORT, "ServerProtocol": "TCP", "Device": devices}
        settings |= {"Filter": "udp", "LogLevel": "INFO", "TraceSignalling": "yes"} | LOOK_BACK
        text = "".join(f"{key}={value}\n" for key, value in settings.items())
        (self.folder / "program" / "sniffer.properties").write_text(text)
        self.output = open(self.folder / "output", "w+")
        common = {"stdin": subprocess.DEVNULL, "stdout": self.output, "stderr": self.output}
        build = self.options.build
        self.program = self.here.start(str(build / "standalone/sniffer"), cwd=self.folder / "program", **common)
        java = ["java", "-Xms96m", "-Xmx96m", "-XX:+AlwaysPreTouch", "-XX:+UseSerialGC"]
        java += [f"-Djava.library.path={build / 'sniffer'}", "-jar", str(build / "host/voip-sniffer.jar")]
        java += ["--out", "recordings", "--embedded", devices, "--filter", "udp"]
        self.host = self.here.start(*java, cwd=self.folder / "host", **common)
        for name in self.memory:
            harness.wait_until(lambda: self.log(name).count("PCAP thread created") == 2, f"the start of the {name}")

    def log(self, name):
        path = self.folder / name / "sniffer.log"
        return path.read_text() if path.exists() else ""

    # -- the run --

    def later(self, pause, action, *arguments):
        heapq.heappush(self.events, (self.now + pause, len(self.events) + self.random.random(), action, arguments))

    def new_call(self):
        self.calls += 1
        call = Call(self.calls, self.random.uniform(2, 8))
        self.step(self.links[self.calls % 2], call.frames(), None)
        if self.now < self.end:
            self.later(self.options.call_interval, self.new_call)

    def step(self, link, frames, ready):
        """Sends a frame and schedules the next one."""
        kind, frame = ready or (None, None)
        if kind == SIP and not link.up:
            self.later(0.1, self.step, link, frames, ready)  # telephones retransmit
            return
        if kind is not None and link.up:
            link.send(frame)
            destination = frame.destination
            if kind == RTP:
                (sequence,) = struct.unpack_from("!H", frame.payload, 2)
                self.sent.setdefault(destination, []).append((sequence, self.kills))
        following = next(frames, None)
        if following is not None:
            self.later(following[0], self.step, link, frames, following[1:])

    def disturb(self):
        if self.now >= self.end:
            return
        what = self.random.choice(["kill", "stop", "link", "kill while stopped"])
        pause = self.random.uniform(0.3, 2)
        self.counts[what] += 1
        if what == "link":
            link = self.random.choice(self.links)
            link.put(False)
            self.later(pause, link.put, True)
        elif "stop" in what:
            self.recorder.send_signal(signal.SIGSTOP)
            self.later(pause, self.kill if "kill" in what else lambda: self.recorder.send_signal(signal.SIGCONT))
        else:
            self.kill()
        self.later(self.random.uniform(4, 9), self.disturb)

    def kill(self):
        self.recorder.kill()
        self.recorder.wait()
        self.kills += 1
        self.later(self.random.uniform(0.1, 1), self.start_recorder)

    def look(self):
        for name, process in (("program", self.program), ("host", self.host)):
            if process.poll() is not None:
                raise SystemExit(f"FAULT: the {name} ended with status {process.returncode}, see {self.folder}")
            pages = int(pathlib.Path(f"/proc/{process.pid}/statm").read_text().split()[1])
            self.memory[name].append(pages * 4)
        if self.now < self.end:
            self.later(2, self.look)

    def run(self):
        # The clock stops while this process does not run, so that no burst follows.
        self.now, last = 0.0, time.monotonic()
        self.end = self.options.seconds - 20
        for action in (self.new_call, self.look):
            action()
        self.later(4, self.disturb)
        while self.events:
            passed = time.monotonic() - last
            last += passed
            self.now += min(passed, 0.02)
            while self.events and self.events[0][0] <= self.now:
                _, _, action, arguments = heapq.heappop(self.events)
                action(*arguments)
            time.sleep(0.001)

    # -- the balance --

    def finish(self):
        total = sum(link.sent for link in self.links)
        media = sum(len(stream) for stream in self.sent.values())
        harness.wait_until(lambda: self.counted("program")["lookBackWaiting"] == 0, "the end of what is kept", 60)
        self.host.send_signal(signal.SIGTERM)  # it prints its figures when it ends
        self.host.wait(60)
        figures = {name: self.counted(name) for name in self.memory}
        for name, figure in figures.items():
            print(name, dict(figure))
            fates = ["Forwarded", "Dropped", "queueDiscarded", "notSent", "queueLength", "lookBackWaiting", "Overflow"]
            fates = sum(value for key, value in figure.items() if any(key.endswith(fate) for fate in fates))
            captured = figure["received"] - figure["droppedByKernel"]
            self.check(fates == captured, f"{name}: each of {captured} frames has one fate, {fates} are counted")
            self.check(figure["received"] == total, f"{name}: {figure['received']} frames captured of {total} sent")
        self.balance(figures["program"]["droppedByKernel"])
        self.output.seek(0)
        recorded = int(re.findall(r"([\d,]+) media packets", self.output.read())[-1].replace(",", ""))
        dropped = figures["host"]["droppedByKernel"]
        self.check(media - dropped <= recorded <= media, f"in Java {recorded} of {media} media packets are recorded")
        self.program.send_signal(signal.SIGTERM)
        self.check(self.program.wait(30) == 0, "the program ends with status 0 when asked to")
        for name, samples in self.memory.items():
            quarter = max(1, len(samples) // 4)
            before, after = statistics.median(samples[quarter : 2 * quarter]), statistics.median(samples[-quarter:])
            flat = after - before < 24576 or self.options.seconds < 300
            self.check(flat, f"{name}: {before:.0f} KiB in the second quarter, {after:.0f} KiB in the last")
        print(f"disturbances: {dict(self.counts)}")
        return not self.faults

    def counted(self, name):
        """Returns the current statistics, summed over the two devices."""
        if name == "program":
            before = self.log(name).count(" Statistics:")
            self.program.send_signal(signal.SIGUSR2)
            harness.wait_until(lambda: self.log(name).count(" Statistics:") > before, "the statistics")
        figures = collections.Counter()
        for line in re.findall(r"Statistics(?: of device \S+)?: (.*)", self.log(name))[-3:]:
            figures.update({key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", line)})
        return figures

    def balance(self, dropped):
        data = self.journal.read_bytes()
        got, told = collections.defaultdict(collections.Counter), set()
        for protocol, ip, port, sequence in NOTE.iter_unpack(data[: len(data) - len(data) % NOTE.size]):
            host = socket.inet_ntoa(struct.pack("!I", ip))
            if protocol == RTP:
                got[host, port][sequence] += 1
            elif protocol == SIP:
                told.add(host)
        # The recorder knows no call whose signalling was lost in a socket.
        known = {end for end in got if end[0].rsplit(".", 1)[0] + ".1" in told}
        heard = {end: stream for end, stream in self.sent.items() if end in known}
        missing, arrived = collections.Counter(), 0
        for end, stream in heard.items():
            for sequence, kills in stream:
                arrived += got[end][sequence]
                if got[end][sequence] == 0:
                    missing[kills] += 1
        twice = sum(count - 1 for stream in got.values() for count in stream.values())
        self.check(twice == 0, f"no frame is recorded twice ({twice})")
        lost = sum(missing.values())
        largest = max(missing.values(), default=0) * 187
        self.check(
            lost <= dropped or (largest <= IN_SOCKETS and len(missing) <= self.kills + 1),
            f"{arrived} media frames arrived, {lost} were in the sockets of {self.kills} killed recorders, "
            f"at most {largest} bytes at once",
        )
        print(f"{len(self.sent) - len(heard)} of {len(self.sent)} streams were never heard of")

    def close(self):
        for process in (self.recorder, getattr(self, "program", None), getattr(self, "host", None)):
            if process and process.poll() is None:
                process.kill()
                process.wait()
        self.here.close()
        self.there.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, help="where program, library and jar are built")
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--call-interval", type=float, default=0.25, help="seconds; 0.25 makes 2000 packets a second")
    parser.add_argument("--keep", action="store_true", help="keep logs and journal when all is well, too")
    parser.add_argument("--record", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.record:
        record(options.record)
    options.build = options.build.resolve()
    harness.need_root("ip", "java")
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
