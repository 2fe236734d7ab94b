"""The native library in a real Java virtual machine, with every JNI check that it has."""

import os
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "live"))
import harness
from harness import ADD, RTP, SIP, Namespace, command, forwarded, udp_frame

JAVA = [
    os.environ["SNIFFER_JAVA"],
    *("-Xcheck:jni", "-Xmx256m", "-Djava.library.path=" + os.environ["SNIFFER_LIBRARY"]),
    *("-cp", os.environ["SNIFFER_CLASSPATH"], "VmHost"),
]
MEDIA = [("10.20.0.1", 30000), ("10.20.0.2", 40000)]
CALL = harness.sample("sip-g711a-call.pcap")
CAN_CAPTURE = os.geteuid() == 0


def invite(number, time=0.0):
    text = f"INVITE sip:{number:06}@example.org SIP/2.0\r\n".encode()
    return udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), text, time)


def expected_of_call():
    frames = [frame for frame in harness.read_capture(CALL) if frame.is_udp]
    return [
        forwarded(SIP if frame.is_sip else RTP, frame) for frame in frames if frame.is_sip or frame.destination in MEDIA
    ]


class InTheVirtualMachine(harness.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.folder())
        self.set_logging("log4j.rootLogger=OFF\n")

    def set_logging(self, text):
        (self.directory / "log4cxx.properties").write_text(text)

    def run_host(self, *words, status=0, environment=None, namespace=None, meanwhile=None):
        process = subprocess.Popen(
            [*(namespace.enter if namespace else ()), *harness.die_with_us(), *JAVA, *map(str, words)],
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

    def record(self, devices, frames, count=-1, filter="udp", **more):
        file = self.directory / "frames"
        commands = [command(ADD, destination).hex() for destination in MEDIA]
        self.run_host("record", devices, filter, count, frames, file, *commands, **more)
        data, taken = file.read_bytes(), []
        while data:
            length = int.from_bytes(data[:2], "big")
            taken.append(data[:length])
            data = data[length:]
        return taken

    def test_call_from_a_file(self):
        expected = expected_of_call()
        taken = self.record(f"file:{CALL}", len(expected), environment={"SNIFFER_REPLAY_PACE": "full"})
        self.assert_frames(taken, expected, "frames")

    @unittest.skipUnless(CAN_CAPTURE, "capturing on a device needs root")
    def test_call_on_a_device(self):
        here, there = self.keep(Namespace()), self.keep(Namespace())
        there.join("wire0", here, "tap0")
        expected = expected_of_call()

        def replay():
            harness.time.sleep(2)
            there.run("tcpreplay", "--quiet", "--multiplier=4", "--intf1=wire0", str(CALL))

        taken = self.record("tap0", len(expected), namespace=here, meanwhile=replay)
        self.assert_frames(taken, expected, "frames")

    def test_two_devices_with_a_limit(self):
        file = self.directory / "many.pcap"
        harness.write_capture(file, [invite(number) for number in range(50)])
        expected = [forwarded(SIP, invite(number)) for number in range(10)]
        taken = self.record(f"file:{file};file:{file};file:/none", 20, count=10)
        self.assert_frames(sorted(taken), sorted(expected * 2), "frames")

    def test_starts_stops_and_misuse(self):
        idle, call = self.directory / "idle.pcap", self.directory / "call.pcap"
        harness.write_capture(idle, [invite(0), invite(1, 3600.0)])
        harness.write_capture(call, [invite(number, number / 50000) for number in range(20000)])
        output, errors = self.run_host("lifecycle", f"file:{idle}", f"file:{call}")
        self.assertIn("lived", output)
        self.assertEqual(errors.count("Errors in setup, terminating...\n"), 1)

    def test_missing_logging_configuration(self):
        (self.directory / "log4cxx.properties").unlink()
        file = self.directory / "one.pcap"
        harness.write_capture(file, [invite(0)])
        _, errors = self.run_host("record", f"file:{file}", "udp", -1, 1, self.directory / "frames")
        self.assertIn("WARN  Can't read the logging configuration ./log4cxx.properties", errors)

    def test_load(self):
        file, count = self.directory / "load.pcap", 200000
        harness.write_capture(file, [invite(number) for number in range(count)])
        output, _ = self.run_host("load", f"file:{file}", count, environment={"SNIFFER_REPLAY_PACE": "full"})
        print(output.strip(), end=" ")

    def test_exit_while_sniffing(self):
        file = self.directory / "busy.pcap"
        harness.write_capture(file, [invite(number % 1000000, number / 20000) for number in range(100000)])
        for _ in range(3):
            self.run_host("exit", f"file:{file}", status=7)


if __name__ == "__main__":
    harness.main()
