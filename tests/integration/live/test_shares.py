"""Three recorders share the calls on one line: each call is recorded once, by whichever of them. Needs no privilege."""

import csv
import os
import pathlib
import socket
import struct
import subprocess
import time

import harness
from harness import TestCase, Wire, capture_record, udp_frame

SHARES = 3
PACKETS = 50
A, P, B, C = (f"10.5.0.{host}" for host in (1, 9, 2, 3))
SETTINGS = {"LookBack": 10000, "LookBackMemory": 64, "CaptureTime": "yes", "ReassembleTcp": "yes"}


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class Share:
    """A recorder with a share of the calls, and the sniffer that sends to it."""

    def __init__(self, test, number):
        self.folder = pathlib.Path(test.folder())
        self.log = self.folder / "log"
        port = free_port()
        command = [os.environ["SNIFFER_JAVA"], "-Xmx256m", "-XX:TieredStopAtLevel=1", "-jar", os.environ["SNIFFER_JAR"]]
        command += ["--tcp", str(port), "--share", f"{number}/{SHARES}", "--out", str(self.folder / "calls")]
        with open(self.log, "wb") as log:
            command = [*harness.die_with_us(), *command, "--until-disconnect"]
            self.process = subprocess.Popen(command, stdout=log, stderr=log)
        test.addCleanup(self.process.wait)
        test.addCleanup(self.process.kill)
        self.wire = test.keep(Wire(test.folder()))
        address = {"ServerName": "127.0.0.1", "ServerPort": port, "ServerProtocol": "TCP"}
        self.sniffer = test.start(settings=SETTINGS | address | {"Device": self.wire.device, "Filter": "udp or tcp"})
        self.wire.open()
        harness.wait_until(lambda: self.said("sniffer connected"), "a connection")

    def said(self, text):
        return text in self.log.read_text()

    def end(self):
        self.wire.close()
        self.sniffer.status()
        self.process.wait(harness.PATIENCE)

    def rows(self):
        with open(self.folder / "calls" / "calls.csv", newline="") as table:
            return list(csv.reader(table))[1:]


class Shares(TestCase):
    def send(self, *frames):
        for share in self.shares:
            share.wire.pipe.write(b"".join(capture_record(frame.data, time.time()) for frame in frames))

    def sip(self, source, destination, call, line, tags, cseq, media=None, header=""):
        body = f"v=0\r\nc=IN IP4 {media[0]}\r\nm=audio {media[1]} RTP/AVP 8\r\n" if media else ""
        first, to = tags
        text = (
            f"{line}\r\nVia: SIP/2.0/UDP x;branch=z{call}{cseq}\r\nFrom: <sip:a@x>;tag={first}\r\n"
            f"To: <sip:{call}@x>{';tag=' + to if to else ''}\r\nCall-ID: {call}\r\nCSeq: {cseq}\r\n{header}"
            f"Content-Type: application/sdp\r\n\r\n{body}"
        )
        self.send(udp_frame((source, 5060), (destination, 5060), text.encode()))

    def invite(self, source, destination, call, media=None, header=""):
        self.sip(source, destination, call, "INVITE sip:x SIP/2.0", ("f", ""), "1 INVITE", media, header)

    def answer(self, source, destination, call, media):
        self.sip(source, destination, call, "SIP/2.0 200 OK", ("f", "t"), "1 INVITE", media)

    def hang_up(self, source, destination, call):
        self.sip(source, destination, call, "BYE sip:b@x SIP/2.0", ("f", "t"), "2 BYE")
        self.sip(destination, source, call, "SIP/2.0 200 OK", ("f", "t"), "2 BYE")

    def talk(self, one, other):
        for source, destination, ssrc in ((one, other, 7), (other, one, 8)):
            for k in range(PACKETS):
                header = struct.pack("!BBHII", 0x80, 8, k, 160 * k, ssrc)
                self.send(udp_frame(source, destination, header + bytes([0x55]) * 160))

    def direct(self, number):
        """A call manager connects two telephones, whose media flows between them."""
        early = number % 2 == 0  # otherwise both offers are in the answers
        into, out = f"in-{number}", f"out-{number}"
        one, other = (A, 20000 + 2 * number), (B, 20000 + 2 * number)
        self.invite(A, P, into, one if early else None)
        self.invite(P, B, out, one if early else None)
        self.answer(B, P, out, other)
        self.answer(P, A, into, other)
        if not early:
            for source, destination, call in ((A, P, into), (P, B, out)):
                self.sip(source, destination, call, "ACK sip:b@x SIP/2.0", ("f", "t"), "1 ACK", one)
        self.talk(one, other)
        self.hang_up(P, B, out)
        self.hang_up(A, P, into)
        return {into, out}

    def plain(self, number):
        call, one, other = f"plain-{number}", (A, 30000 + 2 * number), (C, 30000 + 2 * number)
        self.invite(A, C, call, one)
        self.answer(C, A, call, other)
        self.talk(one, other)
        self.hang_up(A, C, call)
        return {call}

    def transferred(self, number):
        """B asks C, and then asks A to call C instead."""
        first, second, third = (f"{name}-{number}" for name in ("first", "second", "third"))
        a, b, c = ((host, 40000 + 2 * number) for host in (A, B, C))
        self.invite(A, B, first, a)
        self.answer(B, A, first, b)
        self.invite(B, C, second, (B, 45000 + 2 * number))
        self.answer(C, B, second, c)
        replaces = f"{second}%3Bto-tag%3Dt%3Bfrom-tag%3Df"
        refer = f"Refer-To: <sip:{third}@c?Replaces={replaces}>\r\n"
        self.sip(B, A, first, "REFER sip:a@x SIP/2.0", ("t", "f"), "5 REFER", header=refer)
        self.sip(A, B, first, "SIP/2.0 202 Accepted", ("t", "f"), "5 REFER")
        end = (C, 48000 + 2 * number)
        self.invite(A, C, third, a, f"Replaces: {second};to-tag=t;from-tag=f\r\n")
        self.answer(C, A, third, end)
        self.talk(a, end)
        self.hang_up(B, C, second)
        self.hang_up(A, B, first)
        self.hang_up(A, C, third)
        return {first, second, third}

    def rows(self):
        return [row for share in self.shares for row in share.rows() if "another share" not in row[7]]

    def test_each_call_is_recorded_once(self):
        self.shares = [Share(self, number) for number in range(1, SHARES + 1)]
        calls = [kind(number) for number in range(6) for kind in (self.plain, self.direct, self.transferred)]
        for name in ("h323-fast-start-tunnelled", "h323-h245-separate"):
            self.send(*harness.read_capture(harness.sample(f"{name}.pcap")))
        harness.wait_until(lambda: len(self.rows()) >= len(calls) + 2, "the end of the calls")
        for share in self.shares:
            share.end()
        rows = self.rows()
        # A recorder that was not scheduled for a second says so, and takes a call in doubt.
        most = 2 if any(share.said("interrupted for") for share in self.shares) else 1
        for call in calls:
            packets = [(int(row[8]), int(row[12])) for row in rows if row[6] in call]
            self.assertTrue(1 <= len(packets) <= most, f"{call}: {packets}")
            self.assertGreaterEqual(max(packets), (PACKETS, PACKETS), call)
        self.assertTrue(2 <= sum(row[3] == "H.323" for row in rows) <= 2 * most)
        for number, share in enumerate(self.shares, 1):
            self.assertTrue(share.said(f"share {number} of {SHARES}") and share.rows(), number)


if __name__ == "__main__":
    harness.main()
