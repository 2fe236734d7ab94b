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
import collections
import heapq
import os
import pathlib
import random
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from account import Account
from recorder import H323, RTP
from traffic import Link, Template, harness

HERE = pathlib.Path(__file__).resolve().parent
PORT = 6000
DRAIN = 16  # seconds after the last new call in which calls end and the recorder catches up
PATIENCE = 30  # seconds after its last frame in which all of a call reaches the recorder
ENOUGH_FOR_MEMORY = 300  # seconds that a run must have for its memory to say something


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


def write_log_settings(folder):
    (folder / "log4cxx.properties").write_text(
        "log4j.rootLogger=INFO, file\n"
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
        self.here, self.there = harness.Namespace(), harness.Namespace()
        self.links = [Link(number, self.there, self.here) for number in (0, 1)]
        captures = options.samples
        expected = HERE.parent / "data" / "h323"
        names = ["h323-fast-start-tunnelled", "h323-h245-separate"]
        self.templates = [Template(captures / "sip-g711a-call.pcap")]
        self.templates += [Template(captures / f"{name}.pcap", expected / f"{name}.expected") for name in names]
        self.account = Account(self.make_journal())
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
        self.watches = [Watch("stand-alone", self.program.pid, 16384, 2), Watch("in Java", self.host.pid, 24576, 40)]
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
