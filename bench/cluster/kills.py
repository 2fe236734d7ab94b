#!/usr/bin/env python3
"""Calls through a broker of three nodes, while a random part is killed each minute: a front, a recorder, a node of the
broker, a sniffer. Two sniffers see the same line. Each packet is numbered, and each recording is compared with what was
sent. Prints a table: what was killed when, and the packets lost and doubled since.

    bench/cluster/kills.py [BUILD] [--minutes 30] [--calls 500] [--seed N]

It needs no root: the line is a pipe to each sniffer. It waits for a slow machine, so that only what is killed can lose
packets.
"""
import argparse
import collections
import contextlib
import fcntl
import os
import pathlib
import random
import re
import signal
import struct
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
PARTS = {"front": 1, "recorder": 2, "node": 3, "sniffer": 2}
options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
options.add_argument("build", nargs="?", type=pathlib.Path, default=ROOT / "build/release")
options.add_argument("--minutes", type=int, default=30)
options.add_argument("--calls", type=int, default=500, help="at a time")
options.add_argument("--interval", type=int, default=20, help="milliseconds of speech in a packet")
options.add_argument("--seed", type=int, default=time.time_ns() % 1_000_000)
options.add_argument("--parts", nargs="+", default=[*PARTS], choices=PARTS, help="what is killed")
options.add_argument("--set", action="append", default=[], help="a further setting of the sniffers: KEY=VALUE")
options = options.parse_args()
build = options.build.resolve()
os.environ["VOIP_BROKER_MEMORY"] = "2GB"  # of each node
os.environ.setdefault("SNIFFER_JAVA", os.environ.get("JAVA_HOME", "/usr/lib/jvm/java-17-openjdk-amd64") + "/bin/java")
os.environ.setdefault("SNIFFER_JAR", str(build / "host/voip-sniffer.jar"))
for name in ("SNIFFER_PROGRAM", "SNIFFER_SAMPLES", "SNIFFER_TEST_FILES"):
    os.environ.setdefault(name, str(build / "standalone/sniffer"))
for folder in ("cluster", "live"):
    sys.path.insert(0, str(ROOT / "tests/integration" / folder))
sys.dont_write_bytecode = True
import harness  # noqa: E402
import test_cluster as cluster  # noqa: E402

TICK = 0.01
TICKS = options.interval // 10  # between two packets of a call
OCTETS = 8 * options.interval
RTP_AT = 16 + 14 + 20 + 8  # after the headers of a record, Ethernet, IP and UDP
PORT = cluster.PORT
HOLD = 65, 100  # seconds; a tenth of the calls are on hold for such a time
MOST_WAITING = 32 << 20  # bytes for a sniffer
RESTART = 1  # second, as a service
SETTLE = 3  # seconds before a kill whose packets it can cost: they wait in a part


class Line(threading.Thread):
    """What a sniffer captures. Frames that pass while there is no sniffer are gone."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path, self.waiting, self.bytes = path, collections.deque(), 0
        self.is_open = threading.Event()
        os.mkfifo(path)
        self.start()

    def run(self):
        while True:
            pipe = os.open(self.path, os.O_WRONLY)  # returns when the sniffer reads
            fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 1 << 20)
            with contextlib.suppress(BrokenPipeError), open(pipe, "wb", buffering=0) as sniffer:
                sniffer.write(harness.capture_header())
                self.is_open.set()
                while True:
                    if not self.waiting:
                        time.sleep(TICK / 4)
                        continue
                    frames = memoryview(self.waiting.popleft())
                    while frames:
                        written = sniffer.write(frames)
                        self.bytes -= written
                        frames = frames[written:]
            self.is_open.clear()
            self.waiting.clear()
            self.bytes = 0

    def put(self, frames):
        if self.is_open.is_set():
            self.bytes += len(frames)
            self.waiting.append(frames)


class Call:
    """A call from its INVITE to its BYE. Its packets are TICKS apart, except while it is on hold."""

    def __init__(self, number, begin, choice):
        self.number, self.begin, self.sent = number, begin, 0
        self.packets = choice.randint(10, 180) * 1000 // options.interval
        self.hold_at = choice.randrange(1, self.packets) if choice.random() < 0.1 else self.packets
        self.held = choice.randint(*HOLD) * 1000 // options.interval  # packets that it would have sent
        octets = f"{number >> 14 & 255}.{number >> 7 & 127}.{(number & 127) + 1}"
        self.ends = [(f"{first}.{octets}", 4000) for first in (10, 11)]
        self.records = []
        for side in (0, 1):
            rtp = struct.pack("!BBHII", 0x80, 8, 0, 0, 2 * number + side)
            frame = harness.udp_frame(*self.ends[:: 1 - 2 * side], rtp + cluster.payload(number, side, 0, OCTETS))
            self.records.append(bytearray(harness.capture_record(frame.data)))

    def due(self, packet):
        """Returns the time of a packet, in packets since the beginning of the call."""
        return packet + (self.held if packet >= self.hold_at else 0)

    def end(self, tick):
        """Lets the call end at a tick, at the latest."""
        left = (tick - self.begin) // TICKS
        self.packets = min(self.packets, left if left <= self.hold_at else max(self.hold_at, left - self.held))

    def sip(self, moment, line, cseq, side, state=None):
        body = f"v=0\r\nc=IN IP4 {self.ends[side][0]}\r\nm=audio 4000 RTP/AVP 8\r\na={state}\r\n" if state else ""
        tag = ";tag=2" if side or cseq != "1 INVITE" else ""
        text = (
            f"{line}\r\nVia: SIP/2.0/UDP {self.ends[0][0]};branch=z{self.number}-{cseq[0]}\r\n"
            f"From: <sip:a{self.number}@x>;tag=1\r\nTo: <sip:b{self.number}@x>{tag}\r\n"
            f"Call-ID: call-{self.number}\r\nCSeq: {cseq}\r\nContent-Type: application/sdp\r\n\r\n{body}"
        )
        ends = [(address, 5060) for address, _ in self.ends]
        return harness.capture_record(harness.udp_frame(*ends[:: 1 - 2 * side], text.encode()).data, moment)

    def exchange(self, moment, cseq, state=None):
        """Returns a request of the caller and its answer."""
        return [self.sip(moment, f"{cseq[2:]} sip:b@x SIP/2.0", cseq, 0, state),
                self.sip(moment, "SIP/2.0 200 OK", cseq, 1, state)]

    def frames(self, tick, moment):
        """Returns what the call sends at one of its ticks, and whether it goes on."""
        now = (tick - self.begin) // TICKS
        frames = self.exchange(moment, "1 INVITE", "sendrecv") if now == 0 else []
        if self.sent == self.packets:
            return frames + self.exchange(moment, "9 BYE"), False
        if now == self.hold_at:
            frames += self.exchange(moment, "3 INVITE", "inactive")
        if now == self.hold_at + self.held:
            frames += self.exchange(moment, "4 INVITE", "sendrecv")
        if now == self.due(self.sent):
            for record in self.records:
                struct.pack_into("<II", record, 0, int(moment), int(moment % 1 * 1e6))
                struct.pack_into("!HI", record, RTP_AT + 2, self.sent & 0xFFFF, OCTETS * now)
                struct.pack_into("!I", record, RTP_AT + 12 + 5, self.sent)
                frames.append(bytes(record))
            self.sent += 1
        return frames, True


class Kill:
    def __init__(self, tick, part):
        self.tick, self.part, self.minute = tick, part, tick * TICK / 60
        self.lost, self.doubled, self.calls, self.ticks = 0, 0, set(), []

    def row(self):
        ends = (min(self.ticks), max(self.ticks)) if self.ticks else ()
        span = " to ".join(f"{(tick - self.tick) * TICK:+.2f} s" for tick in ends)
        return f"{self.minute:6.2f}  {self.part:12}  {self.lost:8}  {self.doubled:7}  {len(self.calls):5}  {span}"


class Run(cluster.Cluster):
    java = ("-Xmx1g",)

    def runTest(self):
        """Gives folder, broker and processes."""

    # -- the parts --

    def begin_part(self, part):
        kind, number = part[:-1], int(part[-1])
        if kind == "front":
            memory, self.java = self.java, ("-Xmx3g", *self.java[1:])
            self.start(part, "--tcp", str(PORT + 3), "--publish", self.address, *self.spool)
            self.java = memory
        elif kind == "recorder":
            queue = "--queue", f"voip-recorder-{number}"
            self.start(part, "--consume", self.address, *queue, "--mono", "--call-timeout", "3")
        elif kind == "node":
            self.broker("start", 0, node=number - 1)
        else:
            self.begin_sniffer(part)

    def begin_sniffer(self, part):
        folder = self.folder / part
        if not folder.exists():
            folder.mkdir()
            settings = {"ServerName": "127.0.0.1", "ServerPort": PORT + 3, "ServerProtocol": "TCP", "Filter": "udp"}
            settings |= {"Device": f"file:{folder / 'line'}", "LookBack": 15000, "LookBackMemory": 512}
            settings |= {"SendTimeout": 15000, "QueueLimit": 512, "CaptureTime": "yes", "LogLevel": "INFO"}
            settings |= dict(one.split("=") for one in options.set)
            (folder / "sniffer.properties").write_text("".join(f"{key}={value}\n" for key, value in settings.items()))
            (folder / "log4cxx.properties").write_text(harness.LOG_TO_FILE)
            self.lines[part] = Line(folder / "line")
        with open(folder / "output", "ab") as output:
            self.processes[part] = subprocess.Popen(
                [build / "standalone/sniffer"], cwd=folder, stdout=output, stderr=output,
                env=os.environ | {"SNIFFER_REPLAY_PACE": "full"})

    def kill(self, part, tick):
        self.kills.append(Kill(tick, part))
        before = [self.none, *self.kills][-2]
        print(f"          {before.row()}") if before.lost + before.doubled else None
        print(f"{time.strftime('%X')}  minute {tick * TICK / 60:.2f}: {part} is killed; {self.packets} packets sent, "
              f"{self.checked} compared, {sum(kill.lost for kill in [self.none, *self.kills])} lost; "
              f"{self.clean} calls without a fault; the line was late by {self.late:.1f} s\n"
              f"          seconds of processor: {self.busy()}", flush=True)
        if part.startswith("node"):
            os.kill(self.pid(int(part[-1]) - 1), signal.SIGKILL)
        else:
            self.end(part, signal.SIGKILL)
        threading.Thread(target=self.restart, args=[part]).start()

    def restart(self, part):
        time.sleep(RESTART)
        if part in self.lines:
            cluster.wait_for("the end of the line", lambda: not self.lines[part].is_open.is_set())
        self.begin_part(part)

    def busy(self):
        """Returns the processor seconds of the parts since they were started."""
        seconds = {}
        for part in self.parts:
            node = part.startswith("node")
            with contextlib.suppress(FileNotFoundError, KeyError):
                pid = self.pid(int(part[-1]) - 1) if node else self.processes[part].pid
                stat = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
                seconds[part] = (int(stat[11]) + int(stat[12])) // os.sysconf("SC_CLK_TCK")
        return seconds

    # -- the run --

    def go(self):
        self.lines, self.over, self.kills, self.rows = {}, {}, [], collections.Counter()
        self.packets, self.checked, self.none = 0, 0, Kill(0, "none")
        self.clean, self.begun = 0, 0
        self.random, self.ended = random.Random(options.seed), threading.Event()
        self.parts = [f"{kind}{n + 1}" for kind, count in PARTS.items() for n in range(count)]
        print(f"seed {options.seed}, {options.calls} calls; {self.folder}", flush=True)
        self.three_nodes()
        print(self.make_queues(PARTS["recorder"]).splitlines()[0])
        for part in self.parts:
            if not part.startswith("node"):
                self.begin_part(part)
        self.hears("front1", "publishing to")
        for name in ("recorder1", "recorder2"):
            self.hears(name, "consuming")
        for line in self.lines.values():
            line.is_open.wait()
        checker = threading.Thread(target=self.check_all, daemon=True)
        checker.start()
        self.talk(int(options.minutes * 60 / TICK))
        self.ended.set()
        checker.join()

    def talk(self, ticks):
        """Keeps the calls going. None begins, and nothing is killed, in the last half minute."""
        last, tick, next_kill = ticks - int(30 / TICK), 0, self.minute(0)
        groups = [[] for _ in range(TICKS)]
        started, began, self.late = time.time(), time.monotonic(), 0.0
        while tick < ticks or any(groups):
            pause = began + tick * TICK - time.monotonic()
            if pause > 0:
                time.sleep(pause)
            self.late = max(self.late, -pause)
            while max(line.bytes for line in self.lines.values()) > MOST_WAITING:
                time.sleep(TICK)
            group, moment = groups[tick % TICKS], started + tick * TICK
            begins = self.begun >= options.calls or tick % 10 == 0  # first ten a second: Java has to compile its code
            if begins and tick < last and sum(map(len, groups)) < options.calls:
                self.begun += 1
                group.append(Call(self.begun, tick, self.random))
                group[-1].end(ticks)
            self.send(group, tick, moment)
            if tick >= next_kill and tick < last:
                next_kill = self.minute(tick)
                kind = self.random.choice(options.parts)
                self.kill(f"{kind}{self.random.randint(1, PARTS[kind])}", tick)
            tick += 1

    def send(self, group, tick, moment):
        frames, before = [], {call: call.sent for call in group}
        for call in list(group):
            sent, goes_on = call.frames(tick, moment)
            frames += sent
            self.packets += 2 * (call.sent > before[call])
            if not goes_on:
                group.remove(call)
                self.over[call.number] = call
        if frames:
            for line in self.lines.values():
                line.put(b"".join(frames))

    def minute(self, tick):
        """A moment in the next minute."""
        minute = int(60 / TICK)
        return (tick // minute + 1) * minute + self.random.randrange(minute // 6, minute * 5 // 6)

    # -- the comparison --

    def check_all(self):
        """Compares each call that has ended, and deletes its files."""
        patience = None
        while True:
            time.sleep(1)
            self.read_tables()
            done = [number for number in list(self.over) if self.rows[number]]
            files = self.files() if done else {}
            for number in done:
                self.check_call(self.over.pop(number), files)
            if self.ended.is_set():
                patience = patience or time.monotonic() + 240
                if not self.over or time.monotonic() > patience:
                    break
        self.unreported = sorted(self.over)
        files = self.files()
        for number in self.unreported:
            self.check_call(self.over.pop(number), files)

    def read_tables(self):
        """Counts the rows of each call. The table can end in a part of a row, and a killed recorder writes it again."""
        self.rows = collections.Counter()
        for table in self.folder.glob("recorder?/calls.csv"):
            self.rows.update(map(int, re.findall(r",call-(\d+),.*\n", table.read_text(errors="replace"))))

    def files(self):
        found = collections.defaultdict(list)
        for file in self.folder.glob("recorder?/*.wav"):
            if match := re.search(r"-a(\d+)-b\d+-(?:from-(caller|callee))?", file.name):
                found[int(match[1]), match[2]].append(file)
        return found

    def check_call(self, call, files):
        faultless = self.rows[call.number] == 1
        for side, name in enumerate(("caller", "callee")):
            of = sorted(files.get((call.number, name), []))
            found, _ = cluster.compare(of, call.number, side, call.due, OCTETS)
            self.checked += call.packets
            for packet in range(call.packets):
                if found[packet] != 1:
                    faultless = False
                    self.blame(call, packet, found[packet])
        self.clean += faultless
        keep = not faultless and sum(len(kill.calls) for kill in [self.none, *self.kills]) <= 20
        for kind in ("caller", "callee", None):
            for file in files.get((call.number, kind), []):
                if not keep:
                    file.unlink(missing_ok=True)

    def blame(self, call, packet, times):
        tick = call.begin + TICKS * call.due(packet)
        kill = next((kill for kill in reversed(self.kills) if kill.tick - SETTLE / TICK <= tick), self.none)
        kill.lost += times == 0
        kill.doubled += max(0, times - 1)
        kill.calls.add(call.number)
        kill.ticks.append(tick)

    # -- the table --

    def told(self):
        """Prints what the parts themselves say of losses."""
        loss = re.compile(r"(?<!\d)[1-9]\d* (frame|message|packet)s? .*(lost|dropped|missing)|too slow|is full|ERROR")
        for log in sorted([*self.folder.glob("*.log"), *self.folder.glob("*/sniffer.log")]):
            for line in log.read_text(errors="replace").splitlines():
                if loss.search(line) and "hung up" not in line:
                    print(f"{log.relative_to(self.folder)}: {line[:200]}")

    def print_table(self):
        kills = [self.none, *self.kills]
        print("\nminute  killed        lost      doubled  calls  sent, from the kill")
        for kill in kills:
            print(kill.row())
        lost, doubled = (sum(getattr(kill, what) for kill in kills) for what in ("lost", "doubled"))
        twice = sum(count > 1 for count in self.rows.values())
        print(f"\n{self.begun} calls, {self.packets} packets, {self.checked} compared: {lost} lost, {doubled} doubled, "
              f"{len(self.unreported)} calls without a row, {twice} with two")
        return lost == doubled == twice == len(self.unreported) == 0


def main():
    run = Run()
    run.setUp()
    good = False
    try:
        run.go()
        for name in ("front1", "recorder1", "recorder2"):
            run.end(name)
        run.told()
        good = run.print_table()
    finally:
        if not good:
            run._cleanups = [one for one in run._cleanups if one[0] is not cluster.shutil.rmtree]
            print(f"logs and recordings are in {run.folder}")
        run.doCleanups()
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
