"""The stunnel configuration of docs/operation.md for an encrypted link to the recorder, with stunnel4 at both ends."""

import contextlib
import pathlib
import re
import shutil
import socket
import struct
import subprocess
import sys
import unittest

import harness
from harness import SIP, RTP, Recorder, TestCase, Wire, forwarded, free_port, udp_frame

MANUAL = pathlib.Path(__file__).parents[3] / "docs" / "operation.md"
BOB = ("10.0.0.2", 5000)


class Tunnel(TestCase):
    def certify(self, name):
        request = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj".split()
        request += [f"/CN={name}", "-keyout", f"{name}.pem", "-out", f"{name}.crt"]
        subprocess.run(request, cwd=self.place, check=True, capture_output=True)
        with open(self.place / f"{name}.pem", "a") as key:
            key.write((self.place / f"{name}.crt").read_text())

    def end(self, text):
        """Starts one end of the tunnel with the configuration of the manual."""
        for manual, here in self.here.items():
            text = text.replace(manual, here)
        text = re.sub(r"(?m)^ *(set[ug]id.*\n|;.*\n)?", "", text)
        file = self.place / f"{len(list(self.place.iterdir()))}.conf"
        file.write_text(text)
        process = subprocess.Popen([*harness.die_with_us(), "stunnel4", file], stderr=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (process.kill(), process.communicate()))
        self.assertTrue(any("Configuration successful" in line for line in process.stderr))

    def test_every_frame_and_command_goes_through_and_no_stranger(self):
        self.place = pathlib.Path(self.folder())
        for name in ("sniffer", "recorder", "stranger"):
            self.certify(name)
        recorder = self.keep(Recorder())
        near, between = free_port(), free_port()
        self.here = {"accept = 6443": f"accept = 127.0.0.1:{between}", "recorder.example:6443": f"127.0.0.1:{between}"}
        self.here |= {"accept = 127.0.0.1:6000": f"accept = 127.0.0.1:{near}", "/etc/stunnel": str(self.place)}
        self.here |= {"connect = 127.0.0.1:6000": f"connect = 127.0.0.1:{recorder.port}"}
        ends = re.findall(r"(?m)^    ; /etc/stunnel/\w+\.conf\n(?:    .*\n)+", MANUAL.read_text())
        self.assertEqual(len(ends), 2)
        for end in ends:
            self.end(end)
        wire = self.keep(Wire(self.folder()))
        settings = {"Device": wire.device, "ServerName": "127.0.0.1", "ServerPort": near, "SendTimeout": 5000}
        self.start(settings=settings)
        wire.open()
        sip = udp_frame(("10.0.0.1", 5060), ("10.0.0.2", 5060), b"OPTIONS sip:a SIP/2.0\r\n\r\n")
        harness.wait_until(lambda: wire.send(sip) or recorder.of(SIP), "a connection through the tunnel")
        recorder.add(BOB)
        recorder.settle()
        media = [udp_frame(("10.0.0.1", 4000), BOB, struct.pack("!I", i) + bytes(168)) for i in range(5000)]
        wire.send(*media)
        recorder.wait(lambda _: len(recorder.of(RTP)) == len(media), "the media")
        self.assert_frames(recorder.of(RTP), [forwarded(RTP, frame) for frame in media], "media through the tunnel")

        # A peer with another certificate gets no connection to the recorder.
        accepted, strange = recorder.accepted, free_port()
        self.here |= {f"127.0.0.1:{near}": f"127.0.0.1:{strange}", "/sniffer.pem": "/stranger.pem"}
        self.end(ends[0])
        with socket.create_connection(("127.0.0.1", strange)) as stranger, contextlib.suppress(ConnectionResetError):
            self.assertEqual(stranger.recv(1), b"")
        self.assertEqual(recorder.accepted, accepted)


if __name__ == "__main__":
    if not all(map(shutil.which, ("stunnel4", "openssl"))):
        print("SKIPPED: the tunnel needs stunnel4 and openssl")
        sys.exit(77)
    unittest.main()
