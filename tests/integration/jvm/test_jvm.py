"""The native library in a Java virtual machine with all JNI checks. Also for the program: log and statistics files that
cannot be written."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "live"))
import harness
from harness import ADD, RTP, SIP, Namespace, Recorder, Wire, command, forwarded, udp_frame

JAVA = [
    os.environ["SNIFFER_JAVA"],
    *("-Xcheck:jni", "-Xmx256m", "-Djava.library.path=" + os.environ["SNIFFER_LIBRARY"]),
    *("-cp", os.environ["SNIFFER_CLASSPATH"]),
]
OLDER = str(pathlib.Path(__file__).parent / "OlderHost.java")
MEDIA = [("10.20.0.1", 30000), ("10.20.0.2", 40000)]
CALL = harness.sample("sip-g711a-call.pcap")
CAPTURED = [frame for frame in harness.read_capture(CALL) if frame.is_udp]
EXPECTED = [forwarded(SIP if one.is_sip else RTP, one) for one in CAPTURED if one.is_sip or one.destination in MEDIA]


def invite(number, time=0.0):
    text = f"INVITE sip:{number:06}@example.org SIP/2.0\r\n".encode()
    return udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), text, time)


def logging_to(*files):
    lines = ["log4j.rootLogger=DEBUG, " + ", ".join(f"a{i}" for i in range(len(files)))]
    for i, file in enumerate(files):
        lines.append(f"log4j.appender.a{i}=org.apache.log4j.FileAppender")
        lines.append(f"log4j.appender.a{i}.File={file}")
        lines.append(f"log4j.appender.a{i}.layout=org.apache.log4j.PatternLayout")
        lines.append(f"log4j.appender.a{i}.layout.ConversionPattern=%p %m%n")
    return "\n".join(lines)


class Test(harness.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.folder())

    def check_metrics(self, file, **figures):
        text = file.read_text()
        if shutil.which("promtool"):
            check = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True)
            self.assertEqual((check.returncode, check.stdout, check.stderr), (0, "", ""))
        else:
            print("SKIPPED: the check of the statistics file needs promtool (Debian package prometheus)")
        for name, count in figures.items():
            self.assertIn(f'sniffer_forwarded_frames_total{{protocol="{name}"}} {count}\n', text)
        self.assertEqual(list(file.parent.glob("*.new")), [])


class InTheVirtualMachine(Test):
    def set_logging(self, text):
        (self.directory / "log4cxx.properties").write_text(text)

    def run_host(self, *words, program="VmHost", status=0, environment=None, namespace=None, meanwhile=None):
        process = subprocess.Popen(
            [*(namespace.enter if namespace else ()), *harness.die_with_us(), *JAVA, program, *map(str, words)],
            cwd=self.directory,
            env=os.environ | (environment or {}),
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        head = ""
        if meanwhile:
            head = process.stdout.readline()
            meanwhile()
        output, errors = process.communicate(timeout=120)
        said = head + output + errors
        self.assertEqual(process.returncode, status, said)
        for complaint in ("WARNING in native method", "FATAL ERROR", "SIGSEGV", "hs_err"):
            self.assertNotIn(complaint, said)
        return output, errors

    def record(self, devices, frames, count=-1, settings="", **more):
        file = self.directory / "frames"
        commands = [command(ADD, destination).hex() for destination in MEDIA]
        _, errors = self.run_host("record", devices, count, settings, frames, file, *commands, **more)
        data, taken = file.read_bytes(), []
        while data:
            length = int.from_bytes(data[:2], "big")
            taken.append(data[:length])
            data = data[length:]
        return taken, errors

    def test_call_from_a_file_with_a_full_log_disk(self):
        self.set_logging(logging_to("/dev/full", "/proc/none"))
        metrics = self.directory / "sniffer.prom"
        pace = {"SNIFFER_REPLAY_PACE": "full"}
        settings = f"StatisticsFile={metrics} Device=eth0"
        taken, errors = self.record(f"file:{CALL}", len(EXPECTED), settings=settings, environment=pace)
        self.assert_frames(taken, EXPECTED, "frames")
        self.assertEqual([errors.count(f"the log {file} cannot") for file in ("/dev/full", "/proc/none")], [1, 1])
        self.check_metrics(metrics, sip=len([frame for frame in EXPECTED if frame[2] == SIP]))

    @unittest.skipUnless(harness.may_make_namespaces(), "capture needs root with the right to make network namespaces")
    def test_call_on_a_device(self):
        here, there = self.keep(Namespace()), self.keep(Namespace())
        there.join("wire0", here, "tap0")
        self.set_logging(logging_to(self.directory / "log"))

        def replay():
            log = self.directory / "log"
            harness.wait_until(lambda: log.exists() and "Statistics of device tap0" in log.read_text(), "a report")
            there.run("tcpreplay", "--quiet", "--multiplier=4", "--intf1=wire0", str(CALL))

        # The host gets the same with a further recorder, which asks for nothing.
        further = self.keep(Recorder(namespace=here))
        for settings in ("", f" MoreRecorders=127.0.0.1:{further.port}"):
            (self.directory / "log").unlink(missing_ok=True)
            settings = "StatisticsInterval=1" + settings
            taken, _ = self.record("tap0", len(EXPECTED), settings=settings, namespace=here, meanwhile=replay)
            self.assert_frames(taken, EXPECTED, "frames")
        self.assertGreater(len(further.frames), 0)
        signalling = [frame for frame in EXPECTED if frame[2] == SIP]
        self.assertEqual(further.frames, signalling[: len(further.frames)])

    def test_two_devices_with_a_limit_and_no_logging_configuration(self):
        file = self.directory / "many.pcap"
        harness.write_capture(file, [invite(number) for number in range(50)])
        expected = [forwarded(SIP, invite(number)) for number in range(10)]
        taken, errors = self.record(f"file:{file};file:{file};file:/none", 20, count=10, settings="LookBack=x")
        self.assert_frames(sorted(taken), sorted(expected * 2), "frames")
        self.assertIn("WARN  Can't read the logging configuration ./log4cxx.properties", errors)
        self.assertIn("WARN  Line 1 of the settings: LookBack=x", errors)

    def test_starts_stops_and_misuse(self):
        self.set_logging("log4j.rootLogger=OFF\n")
        idle, busy = self.directory / "idle.pcap", self.directory / "busy.pcap"
        harness.write_capture(idle, [invite(0), invite(1, 3600.0)])
        harness.write_capture(busy, [invite(number % 1000000, number / 20000) for number in range(100000)])
        output, errors = self.run_host("lifecycle", f"file:{idle}", f"file:{busy}")
        self.assertIn("lived", output)
        self.assertEqual(errors.count("Errors in setup, terminating...\n"), 1)
        output, _ = self.run_host("buffers", f"file:{idle}")
        self.assertIn("lived", output)
        self.set_logging(logging_to(self.directory / "log"))
        output, _ = self.run_host(f"file:{idle}", program=OLDER)
        self.assertIn("lived", output)
        self.assertNotIn("WARN", (self.directory / "log").read_text())
        for _ in range(3):
            self.run_host("exit", f"file:{busy}", status=7)

    def test_the_sample_recorder_on_one_list_of_devices_after_the_other(self):
        words = ["com.morvin.dom.telephony.sniffer.sample.RecorderMain", "--out", ".", "--filter", "udp or tcp"]
        for call in ("h323-fast-start-tunnelled", "h323-h245-separate"):  # between the same ports
            words += ["--embedded", f"file:{harness.sample(call + '.pcap')}"]
        environment = os.environ | {"SNIFFER_REPLAY_PACE": "full"}
        how = {"env": environment, "cwd": self.directory, "timeout": 60}
        printed = subprocess.check_output(JAVA + words + ["--idle-exit", "2"], text=True, **how)
        self.assertIn("2 calls, 1785 media packets (0 lost), 2 recordings", printed)


class InTheProgram(Test):
    def test_log_and_statistics_whose_files_cannot_be_written(self):
        folder = self.directory / "log"
        log, metrics = folder / "sniffer.log", folder / "sniffer.prom"

        def put(make):
            """Replaces the folder atomically."""
            make(self.directory / "next")
            os.replace(self.directory / "next", folder)

        def forward():
            """Sends a frame. The heartbeat of the recorder causes log lines."""
            sent.append(invite(len(sent)))
            wire.send(sent[-1])
            recorder.wait(lambda _: len(recorder.of(SIP)) == len(sent), "a frame, whatever becomes of the log")
            recorder.settle()

        put(lambda link: link.symlink_to(self.folder()))
        (self.directory / "log4cxx.properties").write_text(logging_to(log, "/dev/full", "/dev/stderr"))
        recorder, wire, sent = self.keep(Recorder("UDP")), self.keep(Wire(self.directory)), []
        settings = {
            **{"ServerName": "127.0.0.1", "ServerPort": recorder.port, "ServerProtocol": "UDP", "Device": wire.device},
            **{"StatisticsFile": metrics, "StatisticsInterval": 1},
        }
        program = self.start("-l", self.directory / "log4cxx.properties", settings=settings)
        wire.open()
        for change, told in (
            (lambda file: file.write_text("no directory"), [f"the log {log} cannot", "Can't write the statistics"]),
            (lambda link: link.symlink_to(self.folder()), [f"The statistics file {metrics} is written again"]),
        ):
            forward()
            put(change)
            harness.wait_until(lambda told=told: forward() or all(map(program.logged, told)), told[0])
        lost = "log lines are lost: Not a directory"
        harness.wait_until(lambda: forward() or (log.exists() and lost in log.read_text()), lost)
        self.assertEqual(program.end(), 0)
        self.assertEqual(program.logged("the log /dev/full cannot be written (IO Exception"), 1)
        self.assertIn("Sniffing ended.", log.read_text())
        self.check_metrics(metrics, sip=len(sent))


if __name__ == "__main__":
    harness.main()
