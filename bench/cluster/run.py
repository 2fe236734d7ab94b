#!/usr/bin/env python3
"""Measures calls through a broker on this machine: frames per second until they are on the recorders' disks, with 1, 2
and 4 queues and with a recorder without a broker; the delay; the bytes on the broker's disk.

    bench/cluster/run.py [BUILD]      BUILD: default build/release

Environment: CALLS (60), and the SECONDS (10) of speech in each call. The frames are sent as fast as possible.
"""
import os
import pathlib
import struct
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else HERE.parents[1] / "build/release").resolve()
java_home = os.environ.get("JAVA_HOME", "/usr/lib/jvm/java-17-openjdk-amd64")
os.environ.setdefault("SNIFFER_JAVA", java_home + "/bin/java")
os.environ["SNIFFER_JAR"] = str(BUILD / "host/voip-sniffer.jar")
sys.path.insert(0, str(HERE.parents[1] / "tests/integration/cluster"))
sys.dont_write_bytecode = True
import test_cluster as cluster  # noqa: E402

CALLS = int(os.environ.get("CALLS", "60"))
PACKETS = int(os.environ.get("SECONDS", "10")) * 50
AMQP = "/usr/share/java/amqp-client.jar:/usr/share/java/slf4j-api.jar:/usr/share/java/slf4j-nop.jar"


class Bench(cluster.ClusterTest):
    def runTest(self):
        """Gives folder, broker and processes."""

    def media(self, call, packets, first=0):
        """All packets of a call in one piece."""
        frames = []
        for k in range(first, first + packets):
            for side in (0, 1):
                ends = call.ends[1 - side] + call.ends[side]
                rtp = struct.pack("!BBHII", 0x80, 8, k & 0xFFFF, 160 * k, call.number * 2 + side) + bytes(160)
                told = struct.pack("!HB", 23, cluster.CAPTURED) + ends
                told += struct.pack("!Q", (call.start + 20 * k) * 1000)
                frames.append(told + struct.pack("!HB", 15 + len(rtp), cluster.RTP) + ends + rtp)
        return b"".join(frames)

    def stop_all(self):
        for name in list(self.processes):
            self.end(name)

    def rate(self, names, sniffer):
        """Frames a second, from the first that is sent to the last that is on a disk."""
        calls = self.begin(range(1, CALLS + 1), sniffer, sniffer)
        pieces = [[self.media(call, 50, k) for k in range(0, PACKETS, 50)] for call in calls]
        audio = CALLS * PACKETS * 2 * 320
        began = time.monotonic()
        for second in zip(*pieces):
            for piece in second:
                sniffer.link.sendall(piece)
        for call in calls:
            call.sent = PACKETS
            call.end(sniffer)
        cluster.wait_for("audio on disk", lambda: sum(map(self.recorded, names)) >= audio, 300)
        return CALLS * PACKETS * 2 / (time.monotonic() - began)

    @staticmethod
    def busy(pids):
        """Seconds of processor time."""
        stats = [pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split() for pid in pids]
        return sum(int(stat[11]) + int(stat[12]) for stat in stats) / os.sysconf("SC_CLK_TCK")

    def directly(self):
        self.start("direct", "--tcp", str(cluster.PORT + 3))
        rate = self.rate(["direct"], cluster.Sniffer(cluster.PORT + 3))
        self.stop_all()
        return rate

    def through(self, queues):
        self.broker("start", queues)
        names = [f"r{number}" for number in range(1, queues + 1)]
        for number in range(1, queues + 1):
            self.recorder(number)
            self.hears(f"r{number}", "consuming")
        sniffer = self.front("front")
        self.hears("front", "publishing to")
        parts = {"front": [self.processes["front"].pid], "recorders": [self.processes[name].pid for name in names],
                 "broker": [int((self.folder / "broker/pid").read_text())]}
        before = {part: self.busy(pids) for part, pids in parts.items()}
        rate = self.rate(names, sniffer)
        frames = CALLS * PACKETS * 2
        costs = {part: (self.busy(pids) - before[part]) / frames * 1e6 for part, pids in parts.items()}
        cost = ", ".join(f"{part} {microseconds:.0f}" for part, microseconds in costs.items())
        self.stop_all()
        self.broker("stop")
        return rate, cost

    def on_disk(self):
        size = lambda: int(subprocess.check_output(["du", "-sk", str(self.folder / "broker/data")]).split()[0])
        self.broker("start", 1)
        sniffer = self.front("disk")
        self.hears("disk", "publishing to")
        before = size()
        calls = self.begin(range(1, CALLS + 1), sniffer, sniffer)
        for k in range(0, 500, 5):  # ten seconds, at a tenth of a second a message
            for call in calls:
                sniffer.link.sendall(self.media(call, 5, k))
            time.sleep(0.1)
        self.end("disk")
        kilobytes = (size() - before) / CALLS / 10
        self.broker("stop")
        return kilobytes

    def delay(self):
        self.broker("start", 1)
        sniffer = self.front("slow")
        self.hears("slow", "publishing to")
        calls = self.begin(range(1, 51), sniffer, sniffer)
        command = [os.environ["SNIFFER_JAVA"], "-cp", f"{BUILD}/bench/cluster:{AMQP}", "Delay", cluster.BROKER]
        consumer = subprocess.Popen([*command, "voip-recorder-1", str(50 * 250 * 2)], stdout=subprocess.PIPE, text=True)
        consumer.stdout.readline()
        pids = {"front": [self.processes["slow"].pid], "broker": [int((self.folder / "broker/pid").read_text())]}
        before = {part: self.busy(pids[part]) for part in pids}
        zero = time.time()
        for k in range(250):
            time.sleep(max(0, zero + 0.02 * k - time.time()))
            for call in calls:
                call.start = int(time.time() * 1000) - 20 * k
                sniffer.link.sendall(self.media(call, 1, k))
        told = consumer.communicate(timeout=60)[0].strip()
        for part, busy in before.items():
            told += f"; {part} {(self.busy(pids[part]) - busy) / (50 * 250 * 2) * 1e6:.0f} us of processor a frame"
        self.stop_all()
        self.broker("stop")
        return told


def run(work):
    bench = Bench()
    bench.setUp()
    try:
        return work(bench)
    finally:
        bench.doCleanups()


os.makedirs(BUILD / "bench/cluster", exist_ok=True)
subprocess.run([java_home + "/bin/javac", "--release", "17", "-cp", AMQP.split(":")[0], "-d", BUILD / "bench/cluster",
                HERE / "Delay.java"], check=True)
print(f"{CALLS} calls, {CALLS * PACKETS * 2} frames of G.711, until they are safe on the recorders' disks")
direct = run(Bench.directly)
print(f"no broker            {direct:8.0f} frames/s")
for queues in (1, 2, 4):
    rate, cost = run(lambda bench: bench.through(queues))
    print(f"{queues} queue{'s' if queues > 1 else ' '}, recorder{'s' if queues > 1 else ' '} {rate:8.0f} frames/s   "
          f"{rate / direct:.2f} of that without a broker; us of processor a frame: {cost}",
          flush=True)
print(run(Bench.delay) + " (50 calls at their own pace)", flush=True)
print(f"{run(Bench.on_disk):.1f} KB on the broker's disk for a second of a call, while nothing consumes it")
