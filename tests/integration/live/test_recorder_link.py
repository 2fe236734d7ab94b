"""The link to the recorder: frames, commands, and a recorder that is late, is slow, dies or comes back.

The program reads its frames from a pipe as from a capture file, so each test controls when frames arrive. Needs no
privilege.
"""

import random
import socket
import struct
import threading
import time

import harness
from harness import ADD, HEARTBEAT, REMOVE, RTP, SIP, Recorder, TestCase, Wire, command, forwarded, udp_frame

ALICE, BOB = ("10.0.0.1", 4000), ("10.0.0.2", 5000)
EVERYTHING = ""  # this libpcap filter accepts every frame


def rtp(number, destination=BOB, source=ALICE, size=172):
    return udp_frame(source, destination, struct.pack("!BBHII", 0x80, 8, number, number * 160, 7) + bytes(size - 12))


def sip(number):
    text = f"OPTIONS sip:{number}@10.0.0.2 SIP/2.0\r\nCSeq: {number} OPTIONS\r\n\r\n"
    return udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), text.encode())


class RecorderLink(TestCase):
    def sniff(self, recorder, **settings):
        """Starts the program and the device it captures on."""
        self.recorder = recorder
        self.wire = self.keep(Wire(self.folder()))
        settings = {
            **{"Device": self.wire.device, "Filter": "udp", "ServerName": recorder.address[0]},
            **{"ServerPort": recorder.address[1], "ServerProtocol": recorder.protocol},
            **settings,
        }
        self.program = self.start(settings=settings)
        self.wire.open()
        self.program.wait_logged("PCAP thread created")

    def connect(self):
        """Sends SIP messages until one arrives. The first ones may be lost before there is a connection."""
        number = 0

        def arrived():
            nonlocal number
            number += 1
            self.wire.send(sip(1000000 + number))
            return self.recorder.of(SIP)

        harness.wait_until(arrived, "a connection to the recorder")
        self.quiesce()

    def quiesce(self):
        """Returns after all frames sent before have arrived."""
        marker = sip(random.randrange(2000000, 3000000))
        self.wire.send(marker)
        self.recorder.wait(lambda frames: forwarded(SIP, marker) in frames[-50:], "the last frame on the wire")

    def rtp_that_arrives(self, *frames):
        before = len(self.recorder.of(RTP))
        self.wire.send(*frames)
        self.quiesce()
        return self.recorder.of(RTP)[before:]

    def test_frames_and_commands_over_either_transport(self):
        for protocol in ("TCP", "UDP"):
            with self.subTest(protocol):
                self.sniff(self.keep(Recorder(protocol)), Filter=EVERYTHING)
                self.connect()
                plain = rtp(1)
                tagged = rtp(2).data[:12] + b"\x81\x00\x00\x05" + rtp(2).data[12:]
                double = rtp(3).data[:12] + b"\x88\xa8\x00\x05\x81\x00\x00\x06" + rtp(3).data[12:]
                options = rtp(4).data[:14] + b"\x46" + rtp(4).data[15:34] + b"\x94\x04\0\0" + rtp(4).data[34:]
                padded = rtp(5, size=13).data + bytes(5)
                unwanted = [rtp(6, ("10.0.0.2", 5001)), rtp(7, ("10.0.0.3", 5000)), rtp(8, ALICE, BOB)]
                icmp = plain.data[:23] + b"\1" + plain.data[24:]
                empty = plain.data[:42]
                wanted = [forwarded(RTP, rtp(n)) for n in (1, 2, 3, 4)]
                wanted.append(forwarded(RTP, rtp(5), rtp(5, size=13).payload + bytes(5)))
                runts = [plain.data[:30], plain.data[:14]]
                wire = [plain, *unwanted, tagged, double, icmp, options, empty, *runts, padded]

                self.assertEqual(self.rtp_that_arrives(*wire), [])
                self.recorder.add(BOB)
                self.recorder.send(command(9, BOB))
                self.recorder.settle()
                self.assert_frames(self.rtp_that_arrives(*wire), wanted, "listed")
                self.assertEqual(self.recorder.of(HEARTBEAT)[-1][:3], b"\0\x0f\3")
                self.assertEqual(len(self.recorder.of(HEARTBEAT)[-1]), 15)
                self.program.wait_logged("ERROR *** Dropping IP packet with unknown upper layer protocol", 2)
                self.program.wait_logged("DEBUG Added to list rtp (ip=0xa000002=10.0.0.2, port=0x1388=5000)")

                # A destination that is added twice is forwarded once, and one removal removes it.
                self.recorder.add(BOB, ALICE)
                self.recorder.settle()
                there, back = rtp(9), rtp(10, ALICE, BOB)
                both = [forwarded(RTP, there), forwarded(RTP, back)]
                self.assert_frames(self.rtp_that_arrives(there, back), both, "both directions")
                self.recorder.remove(BOB)
                self.recorder.settle()
                self.assert_frames(self.rtp_that_arrives(there, back), both[1:], "one direction")
                self.assertEqual(self.program.end(), 0)

    def test_ipv6_over_either_transport(self):
        """Frames, commands in any pieces, and the recorder's own address; the link carries IPv4 calls as well."""
        bob = harness.in_ipv6(BOB)
        there, unwanted = harness.over_ipv6(rtp(1)), harness.over_ipv6(rtp(2, ALICE, BOB))
        for protocol in ("TCP", "UDP"):
            with self.subTest(protocol):
                host = "::1" if harness.has_ipv6() else "127.0.0.1"
                self.sniff(self.keep(Recorder(protocol, host=host)), Filter=EVERYTHING, IPv6="yes")
                self.connect()
                self.assertEqual(self.rtp_that_arrives(there), [])
                adds = command(ADD, bob) + command(ADD, BOB)
                if protocol == "UDP":
                    self.recorder.add(bob, BOB)
                for size in (1, 18, 3, 4) if protocol == "TCP" else ():
                    self.recorder.send(adds[:size])
                    adds = adds[size:]
                    time.sleep(0.02)
                self.recorder.settle()
                expected = [forwarded(RTP, there), forwarded(RTP, rtp(3))]
                self.assertEqual(expected[0][:5], b"\0\xd3\x42\x20\x01")
                self.assert_frames(self.rtp_that_arrives(there, unwanted, rtp(3)), expected, "listed")
                self.program.wait_logged("DEBUG Added to list rtp (ip=2001:db8::a00:2, port=0x1388=5000)")
                self.recorder.remove(bob)
                self.recorder.settle()
                self.assert_frames(self.rtp_that_arrives(there, rtp(3)), expected[1:], "the other family")
                self.assertEqual(self.program.end(), 0)
                self.program.wait_logged("ipv6Items=4")

    def test_sip_is_forwarded_whole(self):
        recorder = self.keep(Recorder())
        self.sniff(recorder)
        self.connect()
        before = len(recorder.of(SIP))
        call = harness.read_capture(harness.sample("sip-g711a-call.pcap"))
        large = udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), b"INVITE sip:x SIP/2.0\r\n" + bytes(range(256)) * 30)
        self.wire.send(*call, large)
        expected = [forwarded(SIP, frame) for frame in [*call, large] if frame.is_sip]
        recorder.wait(lambda _: len(recorder.of(SIP)) >= before + len(expected), "the SIP messages")
        self.assert_frames(recorder.of(SIP)[before:], expected, "SIP")
        self.assertEqual(recorder.of(RTP), [], "the program adds no destination of its own")

    def test_commands_in_any_pieces(self):
        recorder = self.keep(Recorder())
        self.sniff(recorder)
        self.connect()
        # Byte by byte.
        for byte in command(ADD, BOB):
            recorder.send(bytes([byte]))
            time.sleep(0.02)
        recorder.settle()
        self.assertEqual(len(self.rtp_that_arrives(rtp(1))), 1)
        # The end of one command and the beginning of the next one, whose other bytes follow later.
        stream = command(REMOVE, BOB) + command(ADD, ALICE)
        recorder.send(stream[:10])
        time.sleep(0.1)
        recorder.send(stream[10:])
        recorder.settle()
        self.assertEqual(len(self.rtp_that_arrives(rtp(2), rtp(3, ALICE, BOB))), 1)
        # Far more than the program's buffers hold, in odd pieces.
        places = [(f"10.1.{i // 250}.{i % 250}", 10000 + i) for i in range(2000)]
        stream = b"".join(command(ADD, place) for place in places) + command(REMOVE, places[1000])
        at = 0
        while at < len(stream):
            size = random.choice((1, 6, 8, 1999, 2001, 4001))
            recorder.send(stream[at : at + size])
            at += size
        recorder.settle()
        frames = [rtp(i, place) for i, place in enumerate(places)]
        expected = [forwarded(RTP, frame) for i, frame in enumerate(frames) if i != 1000]
        self.assert_frames(self.rtp_that_arrives(*frames), expected, "2000 destinations")

    def test_garbage_for_commands(self):
        recorder = self.keep(Recorder())
        self.sniff(recorder)
        self.connect()
        random.seed(7)
        # No codes of commands: adds would change the list, heartbeats would cause thousands of replies.
        garbage = bytes(random.choice([*range(4, 256)]) for _ in range(70000))
        recorder.send(garbage)
        recorder.add(BOB)
        recorder.settle()
        self.assertEqual(len(self.rtp_that_arrives(rtp(1))), 1)
        self.assertEqual(self.program.end(), 0)

    def test_udp_follows_the_last_command(self):
        first, second = self.keep(Recorder("UDP")), self.keep(Recorder("UDP"))
        self.sniff(first)
        self.connect()
        second.peer = first.peer
        second.send(command(ADD, BOB) + b"more than a command")
        second.settle()
        self.recorder = second
        self.assertEqual(len(self.rtp_that_arrives(rtp(1))), 1)
        self.assertEqual(first.of(RTP), [])
        # Without a listener the program continues and keeps its list.
        second.close()
        self.wire.send(*[rtp(2)] * 20)
        first.settle()
        self.recorder = first
        self.assertEqual(self.rtp_that_arrives(rtp(3))[-1], forwarded(RTP, rtp(3)))
        self.assertEqual(self.program.end(), 0)

    def test_recorder_dies_and_comes_back_in_a_call(self):
        recorder = Recorder()
        self.sniff(recorder)
        self.connect()
        recorder.add(BOB)
        recorder.settle()
        self.assertEqual(len(self.rtp_that_arrives(rtp(1))), 1)
        recorder.close()
        self.program.wait_logged("INFO Connection to Recorder closed.")
        refused = "DEBUG TCP connect failed with errno="

        # The call continues. The program attempts to connect once a second.
        talking = threading.Event()
        talking.set()

        def talk():
            number = 2
            while talking.is_set():
                self.wire.send(rtp(number), sip(number))
                number += 1
                time.sleep(0.01)

        talker = threading.Thread(target=talk)
        talker.start()
        self.addCleanup(talking.clear)
        self.program.wait_logged(refused)
        attempts, started = self.program.logged(refused), time.monotonic()
        self.program.wait_logged(refused, attempts + 3)
        self.assertGreater(time.monotonic() - started, 2.5)
        # The line appears at construction, at set-up and once per outage, but not at each attempt.
        self.assertLessEqual(self.program.logged("INFO Connecting to recorder"), 3)

        self.recorder = self.keep(Recorder(port=recorder.port))
        self.recorder.wait(lambda frames: len(frames) > 50, "frames after the recorder came back")
        self.assertEqual(self.recorder.of(RTP), [], "the destinations of the old connection are forgotten")
        self.recorder.add(BOB)
        self.recorder.settle()
        self.recorder.wait(lambda _: len(self.recorder.of(RTP)) > 50, "RTP after its destination was added again")
        talking.clear()
        talker.join()
        numbers = [int.from_bytes(frame[17:19], "big") for frame in self.recorder.of(RTP)]
        self.assertEqual(numbers, [*range(numbers[0], numbers[0] + len(numbers))], "no hole, no stale frame")
        self.assertEqual(self.program.end(), 0)
        self.assertEqual(self.recorder.remainder(), b"", "no frame is half sent")

    def test_recorder_that_stops_reading(self):
        recorder = self.keep(Recorder())
        self.sniff(recorder)
        self.connect()
        recorder.add(BOB)
        recorder.settle()
        recorder.reading.clear()
        harness.wait_until(
            lambda: self.wire.send(*[rtp(n, size=1200) for n in range(200)])
            or self.program.logged("WARN Can not send. Connection to recorder lost."),
            "a full send buffer",
        )
        self.assertEqual(self.program.logged("WARN Send error=11"), 1)
        recorder.reading.set()
        # The recorder reads the rest of the old connection before it accepts the new one.
        harness.wait_until(
            lambda: self.wire.send(sip(1)) or (recorder.accepted == 2 and recorder.frames[-1][2] == SIP),
            "SIP on the second connection",
        )
        self.quiesce()
        self.assertEqual(self.rtp_that_arrives(rtp(1)), [])
        recorder.add(BOB)
        recorder.settle()
        self.assertEqual(self.rtp_that_arrives(rtp(2)), [forwarded(RTP, rtp(2))])

    def test_media_of_fifty_calls_asked_for_late(self):
        """All media since the first packet arrive once and in order. A late frame is preceded by its capture time."""
        for protocol in ("TCP", "UDP"):
            with self.subTest(protocol):
                recorder = self.keep(Recorder(protocol))
                if protocol == "UDP" and not recorder.takes_bursts:
                    self.skipTest("net.core.rmem_max is too small for a burst of 1,250 datagrams")
                self.sniff(recorder, LookBack=60000, CaptureTime="yes", SendTimeout=5000)
                self.connect()
                phones = [(f"10.0.1.{number}", 5000) for number in range(50)]
                media = [[rtp(number, phone) for phone in phones] for number in range(25)]
                self.wire.send(*[frame for moment in media[:15] for frame in moment])
                self.quiesce()
                self.assertEqual(recorder.of(RTP), [])
                recorder.add(*phones)
                self.wire.send(*[frame for moment in media[15:] for frame in moment])
                recorder.settle()
                recorder.wait(lambda _: len(recorder.of(RTP)) >= 50 * 25, "all media")
                self.quiesce()
                for phone in phones:
                    here = socket.inet_aton(phone[0])
                    numbers = [int.from_bytes(frame[17:19], "big") for frame in recorder.of(RTP) if frame[3:7] == here]
                    self.assertEqual(numbers, [*range(25)], phone)
                self.assertEqual(self.program.end(), 0)

    def test_recorder_that_is_absent_at_the_start(self):
        with socket.socket() as unused:
            unused.bind(("127.0.0.1", 0))
            port = unused.getsockname()[1]
            self.sniff(type("Absent", (), {"address": ("127.0.0.1", port), "protocol": "TCP"}))
            harness.wait_until(
                lambda: self.wire.send(sip(1)) or self.program.logged("TCP connect failed") >= 2, "attempts to connect"
            )
        self.recorder = self.keep(Recorder(port=port))
        self.connect()
        self.assertEqual(self.program.logged(f"INFO Connected to recorder 127.0.0.1:{port}"), 1)
        self.recorder.close()
        self.program.wait_logged("Connection to Recorder closed.")
        failures = self.program.logged("TCP connect failed")
        harness.wait_until(
            lambda: self.wire.send(sip(2)) or self.program.logged("TCP connect failed") > failures, "another attempt"
        )
        self.assertEqual(self.program.end(), 0, "it ends while it has no connection")

    def test_two_recorders_for_the_same_calls(self):
        """Either dies in mid-call: the other one has everything. When it is back, it gets what it missed.

        With ResendLast it gets all again, as if it had read nothing.
        """
        call = [[rtp(number), sip(number)] for number in range(300)]

        def number_of(frame):
            return int.from_bytes(frame[17:19], "big") if frame[2] == RTP else int(frame[27:].split(b"@")[0])

        def has(recorder, *last):
            # While the recall of a destination waits, its media comes after all signalling.
            recorder.wait(lambda frames: {*last} <= {*frames[-210:]}, "the last frames on the wire")

        for dies, again in ((0, 0), (1, 0), (0, 100), (1, 100)):
            with self.subTest(dies=dies, again=again):
                recorders = [self.keep(Recorder()) for _ in range(2)]
                further = f"127.0.0.1:{recorders[1].port}"
                resend = {"ResendLast": 60000} if again else {}
                self.sniff(recorders[0], MoreRecorders=further, LookBack=60000, SendTimeout=60000, **resend)
                for recorder in recorders:
                    recorder.add(BOB)
                    recorder.settle()
                dead, alive = recorders[dies], recorders[1 - dies]

                def send(part, *recorders):
                    self.wire.send(*[frame for moment in call[part] for frame in moment])
                    for recorder in recorders:
                        has(recorder, *(forwarded(kind, frame) for kind, frame in zip((RTP, SIP), call[part][-1])))

                send(slice(0, 100), *recorders)
                dead.close()
                self.program.wait_logged("Connection to Recorder closed.")
                send(slice(100, 200), alive)
                back = self.keep(Recorder(port=dead.port))
                back.wait(lambda _: len(back.of(SIP)) == 100 + again, "the signalling that it missed")
                back.add(BOB)
                back.wait(lambda _: len(back.of(RTP)) == 100 + again, "the media that it missed")
                send(slice(200, 300), alive, back)
                for what in (SIP, RTP):
                    for frames in (alive.of(what), dead.of(what)[again:] + back.of(what)):
                        self.assertEqual([number_of(frame) for frame in frames], [*range(300)])
                name = f"Recorder {further}: " if dies == 1 else ""
                self.program.wait_logged(f"INFO {name}Connected to recorder 127.0.0.1:{dead.port}")

                # One that does not read delays neither the other one nor the end.
                first, second = (back, alive) if dies == 0 else (alive, back)
                second.reading.clear()
                late = [rtp(number, size=1200) for number in range(1000, 3000)]
                self.wire.send(*late)
                has(first, forwarded(RTP, late[-1]))
                self.assertEqual(self.program.end(), 0)
                sent = 300 + (again if dies == 1 else 0)
                self.assertEqual(self.program.logged(f"INFO Statistics of recorder {further}: sipForwarded={sent}"), 1)

    def test_end_in_the_middle_of_traffic(self):
        recorder = self.keep(Recorder())
        self.sniff(recorder)
        self.connect()
        recorder.add(BOB)
        recorder.settle()
        ended = threading.Event()

        def talk():
            try:
                for number in range(1 << 20):
                    self.wire.send(rtp(number), rtp(number))
                    time.sleep(0.0005)
            except BrokenPipeError:
                ended.set()

        threading.Thread(target=talk, daemon=True).start()
        recorder.wait(lambda frames: len(frames) > 500, "traffic")
        self.assertEqual(self.program.end(), 0)
        harness.wait_until(ended.is_set, "the end of the wire")
        self.assertEqual(recorder.remainder(), b"", "no frame is half sent")


if __name__ == "__main__":
    harness.main()
