"""RTP at a high rate, captured live: every frame must arrive, in order. Needs root.

As a test it is short and moderate. SNIFFER_LOAD="50000 10" makes it the measurement: frames a second and seconds, over
both transports, captured both ways, with the counts and the processor time; its output shows with `ctest -V -R load`.
All run with a priority above what else the machine does; what they cannot get all the same shows as loss.
"""

import os
import re
import subprocess

import harness
from harness import Namespace, Program, TestCase, udp_frame

RATE, SECONDS = (int(word) for word in os.environ.get("SNIFFER_LOAD", "10000 2").split())
MEASURING = "SNIFFER_LOAD" in os.environ
OPENER = udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), b"OPTIONS sip:bob@10.0.0.2 SIP/2.0\r\n\r\n")
# The sender stands for a network and the recorder for a machine of its own: neither waits for the work of this one.
AHEAD = ["chrt", "--rr", "1"]
if subprocess.run([*AHEAD, "true"], capture_output=True).returncode != 0:
    AHEAD = []
TICKS = os.sysconf("SC_CLK_TCK")


def processor_seconds(process):
    """Of a process that still runs."""
    with open(f"/proc/{process.pid}/stat") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


class Load(TestCase):
    def test_every_frame_arrives(self):
        combinations = [("TCP", "yes"), ("UDP", "no")]
        if MEASURING:
            combinations = [(protocol, immediate) for protocol in ("TCP", "UDP") for immediate in ("yes", "no")]
        for protocol, immediate in combinations:
            with self.subTest(protocol=protocol, immediate=immediate):
                self.check(protocol, immediate)

    def check(self, protocol, immediate):
        here, there = Namespace(), Namespace()
        try:
            there.join("wire0", here, "tap0")
            # As on a mirror port that is set up well: with offloads on, libpcap reserves room for much larger frames,
            # so that far fewer find a place in the same buffer.
            there.run("ethtool", "-K", "wire0", "gro", "off", "gso", "off", "tso", "off")
            here.run("ethtool", "-K", "tap0", "gro", "off", "gso", "off", "tso", "off")
            self.send_and_count(here, there, protocol, immediate)
        finally:
            here.close()
            there.close()

    def send_and_count(self, here, there, protocol, immediate):
        command_line = [*AHEAD, os.environ["SNIFFER_LOAD_RECORDER"], protocol, str(RATE * SECONDS)]
        recorder = here.start(*command_line, stdout=subprocess.PIPE, text=True)
        self.addCleanup(recorder.stdout.close)
        self.addCleanup(recorder.kill)
        port = recorder.stdout.readline().strip()
        settings = {"Device": "tap0", "Filter": "udp", "ServerName": "127.0.0.1", "ServerPort": port}
        settings |= {"ServerProtocol": protocol, "ImmediateCapture": immediate, "LogLevel": "INFO"}
        program = self.keep(Program(settings=settings, namespace=here, prefix=["nice", "-n", "-20"]))
        program.wait_logged("PCAP thread created")
        opener = os.path.join(self.folder(), "opener.pcap")
        harness.write_capture(opener, [OPENER])
        there.run("tcpreplay", "--quiet", "--intf1=wire0", opener)
        self.assertEqual(recorder.stdout.readline(), "ready\n")

        idle = processor_seconds(program.process)
        sender = [*there.enter, *AHEAD, os.environ["SNIFFER_LOAD_SENDER"], "wire0", str(RATE), str(SECONDS)]
        sent, seconds = subprocess.run(sender, check=True, capture_output=True, text=True).stdout.split()
        arrived, gaps = recorder.stdout.readline().split()
        busy = processor_seconds(program.process) - idle
        recorder.wait()
        # Whatever the program counts, it tells at the end.
        self.assertEqual(program.end(), 0)
        if MEASURING:
            result = f"{sent} sent in {seconds} s, {arrived} arrived, {gaps} gaps"
            print(f"\n{protocol}, ImmediateCapture={immediate}: {result}")
            print(f"  {busy:.2f} s of processor time in the program, {busy / int(sent) * 1e6:.2f} us a frame")
            print("\n".join(f"  {line}" for line in program.log if re.search("(?i)statistics|WARN|ERROR|drop", line)))
        self.assertEqual((int(arrived), int(gaps)), (RATE * SECONDS, 0))


if __name__ == "__main__":
    harness.need_root("ip", "tcpreplay", "ethtool")
    harness.main()
