#!/usr/bin/env python3
"""Measures calls through a broker on this machine, at their own pace. Prints a table: for each number of calls the
processor time of front and broker for a frame, from /proc, the frames that the front dropped, and the delay from the
wire to a consumer that only reads, all in one run; the processor time of recorders that write all files, in another
one, because they belong on other machines. At last, what a second of a call takes on the broker's disk. All parts have
handled calls for WARM seconds before they are measured, as those of a site have.

    bench/cluster/run.py [BUILD]      BUILD: default build/release

Environment: CALLS (500,1000,2000), of 100 frames/s each, QUEUES (4), each with a recorder, SECONDS (20), WARM (10), and
RECORDERS (yes; no leaves them out). With these it takes less than eight minutes. What the front says of losses and of
the broker is printed, too.
"""
import os
import pathlib
import re
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else HERE.parents[1] / "build/release").resolve()
java_home = os.environ.get("JAVA_HOME", "/usr/lib/jvm/java-17-openjdk-amd64")
os.environ.setdefault("SNIFFER_JAVA", java_home + "/bin/java")
os.environ["SNIFFER_JAR"] = str(BUILD / "host/voip-sniffer.jar")
for name in ("SNIFFER_PROGRAM", "SNIFFER_SAMPLES", "SNIFFER_TEST_FILES"):
    os.environ.setdefault(name, ".")  # the module below reads them, this script does not
sys.path.insert(0, str(HERE.parents[1] / "tests/integration/cluster"))
sys.dont_write_bytecode = True
import test_cluster as cluster  # noqa: E402

CALLS = [int(calls) for calls in os.environ.get("CALLS", "500,1000,2000").split(",")]
QUEUES = int(os.environ.get("QUEUES", "4"))
SECONDS = int(os.environ.get("SECONDS", "20"))
WARM = int(os.environ.get("WARM", "10"))
RECORDERS = os.environ.get("RECORDERS", "yes") == "yes"
AMQP = "/usr/share/java/amqp-client.jar:/usr/share/java/slf4j-api.jar:/usr/share/java/slf4j-nop.jar"
CLASSES = BUILD / "bench/cluster"


class Bench(cluster.Cluster):
    java = ("-Xmx1g",)

    def runTest(self):
        """Gives folder, broker and processes."""

    def program(self, *words):
        command = [os.environ["SNIFFER_JAVA"], "-cp", f"{CLASSES}:{AMQP}", *map(str, words)]
        started = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.addCleanup(started.kill)
        started.stdout.readline()  # it is ready
        return started

    def begin_front(self, queues):
        self.addCleanup(self.broker, "stop")
        self.broker("start", queues)
        self.start("front", "--tcp", str(cluster.PORT + 3), "--publish", cluster.BROKER,
                   "--metrics", self.folder / "front.prom")
        self.hears("front", "publishing to")

    def pids(self):
        """The processes of each part."""
        recorders = [process.pid for name, process in self.processes.items() if name.startswith("r")]
        return {"front": [self.processes["front"].pid], "broker": [self.pid()], "recorders": recorders}

    @staticmethod
    def busy(pids):
        """Seconds of processor time."""
        stats = [pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split() for pid in pids]
        return sum(int(stat[11]) + int(stat[12]) for stat in stats) / os.sysconf("SC_CLK_TCK")

    def talk(self, calls, seconds):
        """Sends calls. Returns what sends them, and the seconds that it took."""
        load = self.program("Load", cluster.PORT + 3, calls, seconds)
        began = time.monotonic()
        load.stdin.write("\n")
        load.stdin.flush()
        load.stdout.readline()
        return load, time.monotonic() - began

    def end_all(self):
        for name in list(self.processes):
            self.end(name)
        self.broker("stop")

    def delay(self, calls):
        """With a consumer that records nothing."""
        self.begin_front(QUEUES)
        names = [f"voip-recorder-{number}" for number in range(1, QUEUES + 1)]
        return self.measure(calls, self.program("Delay", cluster.BROKER, calls * 100 * SECONDS, *names))

    def recording(self, calls):
        """With recorders that write all files."""
        self.begin_front(QUEUES)
        for number in range(1, QUEUES + 1):
            self.recorder(number, files=[])
            self.hears(f"r{number}", "consuming")
        return self.measure(calls)

    def measure(self, calls, consumer=None):
        """Returns frames per second, lost frames, the microseconds of each part for a frame, what the consumer says."""
        self.talk(calls, WARM)[0].communicate("\n")
        lost = self.settle()
        parts = self.pids()
        before = {part: self.busy(pids) for part, pids in parts.items()}
        if consumer:
            consumer.stdin.write("\n")  # it counts from now on
            consumer.stdin.flush()
        load, took = self.talk(calls, SECONDS)
        time.sleep(3)
        frames = calls * 100 * SECONDS
        costs = {part: (self.busy(pids) - before[part]) / frames * 1e6 for part, pids in parts.items()}
        lost = self.settle() - lost
        told = consumer.communicate("\n")[0] if consumer else ""
        load.communicate("\n")
        for line in self.said("front", r".*(?:too slow|caught up|full|takes|confirmed|back after).*"):
            print(f"       {line}")
        self.end_all()
        return frames / took, lost, costs, told

    def settle(self):
        """Waits until all is consumed. Returns the frames that the front has dropped, which it tells every 10 s."""
        time.sleep(11)
        cluster.wait_for("empty queues", lambda: sum(self.waiting().values()) == 0, 120)
        figures = (self.folder / "front.prom").read_text()
        return sum(int(count) for count in re.findall(r"(?m)^voip_front_\w+_dropped_frames_total (\d+)", figures))

    def on_disk(self, calls):
        size = lambda: int(subprocess.check_output(["du", "-sk", str(self.folder / "broker0/data")]).split()[0])
        self.begin_front(1)
        before = size()
        self.talk(calls, SECONDS)[0].communicate("\n")
        self.end("front")
        kilobytes = (size() - before) / calls / SECONDS
        self.broker("stop")
        return kilobytes


def run(work):
    bench = Bench()
    bench.setUp()
    try:
        return work(bench)
    finally:
        bench.doCleanups()


os.makedirs(CLASSES, exist_ok=True)
subprocess.run([java_home + "/bin/javac", "--release", "17", "-cp", AMQP.split(":")[0], "-d", CLASSES,
                HERE / "Delay.java", HERE / "Load.java"], check=True)
print("          wire     lost  us of processor for a frame      delay of a frame\n"
      " calls  frames/s         front  broker  recorders         middle      99 %", flush=True)
for calls in CALLS:
    rate, lost, costs, told = run(lambda bench: bench.delay(calls))
    recorders = run(lambda bench: bench.recording(calls))[2]["recorders"] if RECORDERS else 0
    middle, most = re.search(r"recorder (\d+) ms in the middle, (\d+) ms", told).groups()
    print(f"{calls:6} {rate:9.0f} {lost:8} {costs['front']:6.2f} {costs['broker']:7.2f} "
          f"{recorders:10.2f} {middle:>11} ms {most:>6} ms", flush=True)
print(f"{run(lambda bench: bench.on_disk(100)):.1f} KB on the broker's disk for a second of a call, while nothing "
      "consumes it")
