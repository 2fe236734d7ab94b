"""Replayed calls: the recorder receives all signalling and, after its commands, all media. Needs no privilege."""

import harness
from calls import Call, CallRecorder
from harness import H323, RTP, SIP, TestCase, Wire

CALLS = ["sip-g711a-call"]
CALLS += [f"h323-{start}-{control}" for start in ("fast-start", "h245") for control in ("tunnelled", "separate")]


class ReplayedCalls(TestCase):
    def replay(self, path):
        recorder = self.keep(CallRecorder())
        settings = {"Device": f"file:{path}", "Filter": "udp or tcp", "ServerName": "127.0.0.1"}
        return self.start(settings=settings | {"ServerPort": recorder.port, "ServerProtocol": "TCP"}), recorder

    def test_each_call_to_the_last_packet(self):
        for name in CALLS:
            with self.subTest(name):
                call, wire = Call(name), self.keep(Wire(self.folder()))
                program, recorder = self.replay(wire.path)
                wire.open()
                for number, (piece, arriving) in enumerate(call.pieces):
                    wire.send(*piece)
                    recorder.wait(lambda frames: len(recorder.of(SIP, RTP, H323)) >= arriving, f"piece {number}")
                    recorder.settle()
                wire.close()
                self.assertEqual(program.status(), 0, "it ends by itself after the last frame")
                self.assertEqual(recorder.remainder(), b"", "no frame is half sent")
                self.assert_frames(recorder.of(SIP, H323), call.signalling, "signalling")
                self.assert_frames(recorder.of(RTP), call.media, "media")

    def test_call_at_its_own_pace(self):
        """Media is missing only at the start, before the commands arrived."""
        call = Call("sip-g711a-call")
        program, recorder = self.replay(harness.sample("sip-g711a-call.pcap"))
        self.assertEqual(program.status(), 0)
        recorder.remainder()
        self.assert_frames(recorder.of(SIP), call.signalling, "signalling")
        got = recorder.of(RTP)
        self.assertGreater(len(got), 0)
        self.assert_frames(got, call.media[-len(got) :], "media")


if __name__ == "__main__":
    harness.main()
