"""SIP calls captured live on a veth pair between network namespaces. Needs root."""

import os
import shutil
import socket
import subprocess

import harness
from calls import Call, CallRecorder, Dump, Tap, expected_media
from harness import H323, RTP, SIP, Namespace, Recorder, TestCase, forwarded

SIP_CALL = harness.sample("sip-g711a-call.pcap")
H323_CALLS = [f"h323-{start}-{control}" for start in ("fast-start", "h245") for control in ("tunnelled", "separate")]
SCENARIOS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "sip")


class LiveCapture(TestCase):
    def sniff(self, namespace, recorder, **settings):
        settings = {
            **{"Device": "tap0", "Filter": "udp", "ServerName": "127.0.0.1", "ServerPort": recorder.port},
            **{"ServerProtocol": recorder.protocol, "ImmediateCapture": "yes"},
            **settings,
        }
        program = self.start(settings=settings, namespace=namespace)
        program.wait_logged("PCAP thread created")
        return program

    def check_replayed_call(self, name, protocol="TCP", immediate="yes", speed=8):
        call, folder = Call(name), self.folder()
        tap = self.keep(Tap())
        recorder = self.keep(CallRecorder(protocol, tap.here))
        filter = "udp" if name.startswith("sip") else "udp or tcp"
        program = self.sniff(tap.here, recorder, Filter=filter, ImmediateCapture=immediate)
        for number, (piece, arriving) in enumerate(call.pieces):
            path = os.path.join(folder, f"{number}.pcap")
            harness.write_capture(path, piece)
            tap.play(path, speed)
            recorder.wait(lambda _: len(recorder.of(SIP, RTP, H323)) >= arriving, f"piece {number} of the call")
            recorder.settle()
        self.assert_frames(recorder.of(SIP, H323), call.signalling, "signalling")
        self.assert_frames(recorder.of(RTP), call.media, "media")
        self.assertGreater(len(call.media), call.rtp * 0.95)
        self.assertEqual(program.end(), 0)
        if protocol == "TCP":
            self.assertEqual(recorder.remainder(), b"", "no frame is half sent")

    def test_calls(self):
        self.check_replayed_call("sip-g711a-call")
        self.check_replayed_call("sip-g711a-call", protocol="UDP", immediate="no")
        for name in H323_CALLS:
            with self.subTest(name):
                self.check_replayed_call(name)

    def test_real_call(self):
        """The recorder receives each frame that tcpdump captured on the same device."""
        folder = self.folder()
        shutil.copytree(SCENARIOS, folder, dirs_exist_ok=True)
        speech = [frame for frame in harness.read_capture(SIP_CALL) if frame.source == ("10.20.0.1", 30000)]
        harness.write_capture(os.path.join(folder, "speech.pcap"), speech[:100])
        caller, callee = self.keep(Namespace()), self.keep(Namespace())
        caller.join("phone0", callee, "tap0")
        caller.run("ip", "addr", "add", "10.20.0.1/24", "dev", "phone0")
        callee.run("ip", "addr", "add", "10.20.0.2/24", "dev", "tap0")
        recorder = self.keep(CallRecorder("TCP", callee))
        dump = self.keep(Dump(callee, "tap0", os.path.join(folder, "dump.pcap")))
        program = self.sniff(callee, recorder)

        quiet = {"cwd": folder, "stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        common = ["-p", "5060", "-m", "1", "-nostdin", "-timeout", "25", "-timeout_error"]
        answer = callee.start("sipp", "-sn", "uas", "-i", "10.20.0.2", "-mp", "6000", "-rtp_echo", *common, **quiet)
        self.addCleanup(lambda: (answer.kill(), answer.wait()))
        # The program connects with its first frames, which may be lost.
        opener = harness.make_socket(socket.SOCK_DGRAM, caller)
        self.addCleanup(opener.close)
        options = b"OPTIONS sip:nobody@10.20.0.2:5999 SIP/2.0\r\n\r\n"
        harness.wait_until(lambda: opener.sendto(options, ("10.20.0.2", 5999)) and recorder.frames, "a connection")
        common += ["-sf", "caller.xml", "-mp", "7000"]
        call = caller.start("sipp", "-i", "10.20.0.1", "10.20.0.2", *common, **quiet)
        self.addCleanup(lambda: (call.kill(), call.wait()))
        self.assertEqual(call.wait(30), 0)
        recorder.wait(lambda frames: b"200 OK" in frames[-1] and b"2 BYE" in frames[-1], "the end of the call")
        self.assertEqual(program.end(), 0)

        passed = dump.frames()
        media = expected_media(passed, recorder.asked)
        self.assertEqual(len(media), 200, "a hundred packets and their echo")
        self.assert_frames(recorder.of(RTP), media, "media")
        signalling = [forwarded(SIP, frame) for frame in passed if frame.is_sip]
        self.assert_frames([frame for frame in recorder.of(SIP) if b"nobody" not in frame], signalling, "signalling")

    def send_invite(self, namespace, device, recorder, number):
        """Sends an INVITE, which must be frame `number` at the recorder."""
        invite = harness.read_capture(SIP_CALL)[:1]
        path = os.path.join(self.folder(), "invite.pcap")
        harness.write_capture(path, invite)
        namespace.run("tcpreplay", "--quiet", f"--intf1={device}", path)
        recorder.wait(lambda frames: len(frames) == number, f"frame {number}, captured on {device}")
        self.assert_frames(recorder.frames, [forwarded(SIP, invite[0])] * number, "frames")

    def test_devices_that_come_and_go_are_reopened(self):
        here, there = self.keep(Namespace()), self.keep(Namespace())
        unwanted = os.path.join(self.folder(), "unwanted.pcap")
        harness.write_capture(unwanted, [harness.udp_frame(("10.1.1.1", 7), ("10.1.1.2", 7), b"not of the filter")])
        for threads, figures in ((1, "tap0: received=2 "), (3, "tap0, thread 0: received=2 ")):
            recorder = self.keep(Recorder("UDP", here))
            program = self.sniff(
                here,
                recorder,
                **{"Device": "tap0;nosuch0", "Filter": "udp port 5060", "ReopenDevices": "yes"},
                CaptureThreads=threads,
            )
            for times in (1, 2):
                there.join("wire0", here, "tap0")
                program.wait_logged("INFO Device tap0 is there and is captured", times)
                there.run("tcpreplay", "--quiet", "--intf1=wire0", unwanted)
                self.send_invite(there, "wire0", recorder, times)
                there.run("ip", "link", "del", "wire0")
                program.wait_logged("WARN Device tap0 is gone", times)
            self.assertEqual(program.end(), 0)
            self.assertEqual(program.logged(f"INFO Statistics of device {figures}"), 1)
            self.assertEqual(program.logged("Completed join with PCAP thread"), 2 * threads)

    def test_devices_that_are_missing_and_that_go_away(self):
        here, there = self.keep(Namespace()), self.keep(Namespace())
        for number in (0, 1):
            there.join(f"wire{number}", here, f"tap{number}")
        recorder = self.keep(Recorder("UDP", here))
        program = self.sniff(here, recorder, Device="tap0;nosuch0;tap1")
        program.wait_logged("PCAP thread created 2")
        self.assertEqual(program.logged("PCAP thread created 1"), 0)
        self.assertEqual(program.logged("ERROR Couldn't open device nosuch0:"), 1)
        program.wait_logged('there is no device "nosuch0"; the devices here are: lo, tap0, tap1')

        for number in (0, 1):
            self.send_invite(there, f"wire{number}", recorder, number + 1)
        there.run("ip", "link", "del", "wire0")
        program.wait_logged("PCAP thread 0 captures no more")
        self.send_invite(there, "wire1", recorder, 3)
        here.run("ip", "link", "set", "tap1", "down")
        self.assertEqual(self.start("-d", "tap1", namespace=here).status(), 1)
        there.run("ip", "link", "del", "wire1")
        self.assertEqual(program.status(), 1)
        program.wait_logged("there is no device left to capture on")
        self.assertEqual(program.logged("Completed join with PCAP thread"), 2)


if __name__ == "__main__":
    harness.need_root("ip", "tcpreplay", "tcpdump", "sipp")
    harness.main()
