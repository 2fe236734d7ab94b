"""Calls by way of capture files: what the recorder is told and, after its commands, every packet of the media. Needs no
privilege."""

import os

import harness
from calls import Call, CallRecorder
from harness import H323, RTP, SIP, Frame, TestCase

PAUSE = 1.5  # seconds for the recorder's commands to arrive in
CALLS = ["sip-g711a-call"]
CALLS += [f"h323-{start}-{control}" for start in ("fast-start", "h245") for control in ("tunnelled", "separate")]


def retimed(call, speed=6):
    """The frames with a pause after each piece of the call, faster otherwise."""
    start, pauses = call.pieces[0][0][0].time, 0
    for piece, _ in call.pieces:
        for frame in piece:
            yield Frame(frame.data, (frame.time - start) / speed + pauses)
        pauses += PAUSE


class ReplayedCalls(TestCase):
    def replay(self, path):
        recorder = self.keep(CallRecorder())
        settings = {"Device": f"file:{path}", "Filter": "udp or tcp", "ServerName": "127.0.0.1"}
        return self.start(settings=settings | {"ServerPort": recorder.port, "ServerProtocol": "TCP"}), recorder

    def test_each_call_to_the_last_packet(self):
        calls = {name: Call(name) for name in CALLS}
        running = {}
        for name, call in calls.items():
            path = os.path.join(self.folder(), name)
            harness.write_capture(path, retimed(call))
            running[name] = self.replay(path)
        for name, (program, recorder) in running.items():
            with self.subTest(name):
                self.assertEqual(program.status(), 0, "it ends by itself behind the last frame")
                self.assertEqual(recorder.remainder(), b"", "no frame is half sent")
                self.assert_frames(recorder.of(SIP, H323), calls[name].signalling, "signalling")
                self.assert_frames(recorder.of(RTP), calls[name].media, "media")

    def test_call_at_its_own_pace(self):
        """What is missing is at the start, while the commands were on their way."""
        call = Call("sip-g711a-call")
        program, recorder = self.replay(harness.sample("sip-g711a-call.pcap"))
        self.assertEqual(program.status(), 0)
        recorder.remainder()
        self.assert_frames(recorder.of(SIP), call.signalling, "signalling")
        got = recorder.of(RTP)
        self.assertGreater(len(got), len(call.media) - 100)
        self.assert_frames(got, call.media[-len(got) :], "media")


if __name__ == "__main__":
    harness.main()
