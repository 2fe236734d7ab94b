"""A recorder that follows calls, captured calls, and devices to replay them on."""

import re
import subprocess

import harness
from harness import H323, RTP, SIP, Namespace, Recorder, forwarded


def media_of_sip(frame):
    """Returns the RTP and RTCP destinations in a forwarded SIP message."""
    text = frame[15:].decode(errors="replace")
    address = re.search(r"^c=IN IP4 (\S+)", text, re.M)
    ports = re.findall(r"^m=audio (\d+)", text, re.M)
    return [(address[1], int(port) + more) for port in ports for more in (0, 1)] if address else []


def media_of_h323(frame):
    text = frame[15:-1].decode()
    return [(ip, int(port) + more) for ip, port in re.findall(r"rtp:([\d.]+) (\d+)", text) for more in (0, 1)]


def media_of(frame):
    return media_of_sip(frame) if frame[2] == SIP else media_of_h323(frame)


class CallRecorder(Recorder):
    """Requests the media of each call as soon as it receives the signalling, once for each destination."""

    def __init__(self, *arguments, **more):
        self.asked = []
        super().__init__(*arguments, **more)

    def _arrived(self, frame):
        if frame[2] in (SIP, H323):
            new = [destination for destination in media_of(frame) if destination not in self.asked]
            if new:
                self.asked += new
                self.add(*new)
        super()._arrived(frame)


class Tap:
    """Two namespaces with a veth pair: the program captures in `here`, frames are sent in `there`."""

    def __init__(self):
        self.here, self.there = Namespace(), Namespace()
        self.there.join("wire0", self.here, "tap0")

    def play(self, path, speed):
        """Sends the frames of a capture, `speed` times as fast as they were captured."""
        self.there.run("tcpreplay", "--quiet", "--intf1=wire0", f"--multiplier={speed}", str(path))

    def close(self):
        self.here.close()
        self.there.close()


def expected_media(frames, destinations):
    """Returns the forwarded frames when `destinations` are listed."""
    media = [frame for frame in frames if frame.is_udp and not frame.is_sip]
    return [forwarded(RTP, frame) for frame in media if frame.destination in destinations]


class Call:
    """A captured call and the frames that the recorder must receive. The call is split into pieces: each ends with a
    message after which the recorder must request media."""

    def __init__(self, name):
        frames = harness.read_capture(harness.sample(f"{name}.pcap"))
        vectors = harness.TEST_FILES / "h323" / f"{name}.expected"
        texts = iter(vectors.read_text().splitlines() if vectors.exists() else ())
        self.rtp = sum(frame.is_udp and not frame.is_sip for frame in frames)
        self.signalling, self.media, self.pieces, asked, piece = [], [], [], set(), []
        for frame in frames:
            piece.append(frame)
            description = self._description(frame, texts)
            if description is None:
                self.media += expected_media([frame], asked)
                continue
            self.signalling.append(description)
            if not asked.issuperset(media_of(description)):
                asked.update(media_of(description))
                self.pieces.append((piece, len(self.signalling) + len(self.media)))
                piece = []
        self.pieces.append((piece, len(self.signalling) + len(self.media)))

    @staticmethod
    def _description(frame, texts):
        if frame.is_sip:
            return forwarded(SIP, frame)
        if not frame.is_tcp or not frame.payload:
            return None
        wanted, text, _ = next(texts).split("\t")
        text = text.replace("\\n", "\n").encode()
        return forwarded(H323, frame, text[:-1] + b"\0") if wanted == "true" else None


class Dump:
    """All UDP frames on a device, captured with tcpdump."""

    def __init__(self, namespace, device, path):
        self.path = path
        command_line = ["tcpdump", "-i", device, "--immediate-mode", "-U", "-Z", "root", "-s0", "-w", path, "udp"]
        self.process = namespace.start(*command_line, stderr=subprocess.PIPE, text=True)
        line = self.process.stderr.readline()
        while "listening on" not in line and line:
            line = self.process.stderr.readline()

    def frames(self):
        self.process.terminate()
        self.process.wait()
        return harness.read_capture(self.path)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()
