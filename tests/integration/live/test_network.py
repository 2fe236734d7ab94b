"""Calls as networks carry them: in tags and tunnels, in fragments, over TCP, mirrored twice. In every variant the
recorder must get the frames of the plain capture."""

import itertools
import os
import pathlib
import re
import socket
import struct
import subprocess

import harness
from calls import Call, expected_media, media_of
from harness import H323, RTP, SIP, Namespace, Recorder

ALL = ["Decapsulate", "ReassembleFragments", "ReassembleTcp", "DropDuplicates", "SipAnyUri", "IPv6"]
SITE_PORT = 8472
SIP_CALL, H323_CALL = "sip-g711a-call", "h323-h245-separate"
MACS, IPV4, IPV6 = b"\2" * 6 + b"\4" * 6, 0x0800, 0x86DD


def u16(*values):
    return struct.pack(f"!{len(values)}H", *values)


# ---- one packet: each function wraps an IPv4 packet into a frame ----

numbers = itertools.count(1)


def ethernet(payload, ether_type=IPV4):
    return MACS + u16(ether_type) + payload


def ipv4(payload, protocol, source="10.9.9.1", destination="10.9.9.2", number=None, fragment=0):
    number = next(numbers) % 65535 + 1 if number is None else number
    header = struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(payload), number, fragment, 64, protocol, 0)
    return header + socket.inet_aton(source) + socket.inet_aton(destination) + payload


def ipv6(payload, next_header):
    addresses = socket.inet_pton(socket.AF_INET6, "fd00::1") + socket.inet_pton(socket.AF_INET6, "fd00::2")
    return struct.pack("!IHBB", 6 << 28, len(payload), next_header, 64) + addresses + payload


def udp(payload, port, source=49152):
    return u16(source, port, 8 + len(payload), 0) + payload


def vxlan(ip, port=4789):
    # The source port depends on the stream (RFC 7348).
    return udp(b"\x08\0\0\0\0\0\x2a\0" + ethernet(ip), port, 49152 + sum(ip[12:24]))


def geneve(ip):
    return udp(b"\x02\0\x65\x58\0\0\x2a\0" + b"\1\2\3\1abcd" + ethernet(ip), 6081)


def gre(flags, protocol, fields, payload):
    return u16(flags, protocol) + fields + payload


def checked(ip):
    """Sets the checksum of the header: without it, nothing proves that GTP-U, L2TP or PPP has an IP packet."""
    header = ip[:10] + b"\0\0" + ip[12:20]
    total = sum(struct.unpack("!10H", header))
    return header[:10] + u16(~(total % 0xFFFF or 0xFFFF) & 0xFFFF) + ip[12:]


def pptp(ip):
    return gre(0x3081, 0x880B, u16(len(ip) + 4, 7) + b"\0" * 8, b"\xff\x03" + u16(0x21) + checked(ip))


def gtp(ip):
    return udp(b"\x34\xff" + u16(len(ip) + 8) + b"\0\0\0\x07\0\0\0\x85\1\x10\x01\0" + checked(ip), 2152)


def l2tp(ip):
    return udp(b"\0\2\0\7\0\x08\xff\3" + u16(0x21) + checked(ip), 1701)


def tzsp(ip):
    return udp(b"\1\0\0\1\x0a\1\xd8\1" + ethernet(ip), 37008)


def six_in_four(ip):
    return ipv6(ip, 4)


def tags(*types):
    """Returns a function that adds tags of these types, the outermost first."""
    return lambda ip: MACS + b"".join(u16(kind, 100 + i) for i, kind in enumerate(types)) + u16(IPV4) + ip


def over(wrap, protocol):
    return lambda ip: ethernet(ipv4(wrap(ip), protocol))


def over6(wrap, protocol):
    return lambda ip: ethernet(ipv6(wrap(ip), protocol), IPV6)


def deep(ip):
    for _ in range(4):  # VXLAN, and a tag in it: eight layers
        ip = ipv4(vxlan(ip)[:28] + u16(0x8100, 7, IPV4) + ip, 17)
        ip = ip[:2] + u16(len(ip)) + ip[4:24] + u16(len(ip) - 20) + ip[26:]
    return ethernet(ip)


def erspan_in_tag(ip):
    return tags(0x8100)(over(lambda inner: gre(0, 0x88BE, b"", ethernet(inner)), 47)(ip)[14:])


ERSPAN_II, ERSPAN_III = b"\x10\x64\0\x0c\0\0\0\1", b"\x20\x64\0\x0c\0\0\0\1\0\0"
WRAPPED = {  # name: (libpcap's link type, wrapping of an IPv4 packet)
    "plain": (1, ethernet),
    "Linux cooked": (113, lambda ip: u16(0, 1, 6) + MACS[:6] + u16(0, IPV4) + ip),
    "Linux cooked, version 2": (276, lambda ip: u16(IPV4, 0, 0, 1, 1) + b"\0\6" + MACS[:6] + b"\0\0" + ip),
    "raw IP": (101, lambda ip: ip),
    "BSD loopback": (0, lambda ip: struct.pack("<I", 2) + ip),
    "OpenBSD loopback": (108, lambda ip: struct.pack("!I", 2) + ip),
    "cooked, with a tag": (113, lambda ip: u16(0, 1, 6) + MACS[:6] + u16(0, 0x8100, 5, IPV4) + ip),
    "802.1Q": (1, tags(0x8100)),
    "802.1ad alone": (1, tags(0x88A8)),
    "802.1ad and 802.1Q": (1, tags(0x88A8, 0x8100)),
    "802.1Q twice": (1, tags(0x8100, 0x8100)),
    "old tags, three": (1, tags(0x9100, 0x9100, 0x8100)),
    "MPLS": (1, lambda ip: ethernet(struct.pack("!II", 16 << 12 | 64, 17 << 12 | 0x140) + ip, 0x8847)),
    "MPLS pseudowire": (1, lambda ip: ethernet(struct.pack("!II", 17 << 12 | 0x140, 0) + ethernet(ip), 0x8847)),
    "PPPoE": (1, lambda ip: ethernet(b"\x11\0\0\1" + u16(len(ip) + 2, 0x21) + ip, 0x8864)),
    "IP in IP": (1, over(lambda ip: ip, 4)),
    "IPv4 in IPv6": (1, over6(lambda ip: ip, 4)),
    "GRE": (1, over(lambda ip: gre(0, IPV4, b"", ip), 47)),
    "GRE with checksum, key and sequence": (1, over(lambda ip: gre(0xB000, IPV4, b"\0" * 12, ip), 47)),
    "GRE with Ethernet": (1, over(lambda ip: gre(0x2000, 0x6558, b"\0\0\0\1", ethernet(ip)), 47)),
    "GRE over IPv6": (1, over6(lambda ip: gre(0x2000, 0x6558, b"\0\0\0\1", ethernet(ip)), 47)),
    "ERSPAN type I": (1, over(lambda ip: gre(0, 0x88BE, b"", ethernet(ip)), 47)),
    "ERSPAN type II": (1, over(lambda ip: gre(0x1000, 0x88BE, b"\0\0\0\1" + ERSPAN_II, ethernet(ip)), 47)),
    "ERSPAN type III": (1, over(lambda ip: gre(0x1000, 0x22EB, b"\0\0\0\1" + ERSPAN_III + u16(0), ethernet(ip)), 47)),
    "ERSPAN type III, subheader": (
        1,
        over(lambda ip: gre(0x1000, 0x22EB, b"\0\0\0\1" + ERSPAN_III + u16(1) + b"\x18" + b"\0" * 7, ethernet(ip)), 47),
    ),
    "VXLAN": (1, over(vxlan, 17)),
    "VXLAN on the site's port": (1, over(lambda ip: vxlan(ip, SITE_PORT), 17)),
    "VXLAN over IPv6": (1, over6(vxlan, 17)),
    "GENEVE with options": (1, over(geneve, 17)),
    "GENEVE over IPv6": (1, over6(geneve, 17)),
    "IPv4 in IPv6 in IPv4": (1, over(six_in_four, 41)),
    "PPTP": (1, over(pptp, 47)),
    "PPTP over IPv6": (1, over6(pptp, 47)),
    "GTP-U": (1, over(gtp, 17)),
    "GTP-U over IPv6": (1, over6(gtp, 17)),
    "L2TP": (1, over(l2tp, 17)),
    "L2TP over IPv6": (1, over6(l2tp, 17)),
    "TZSP": (1, over(tzsp, 17)),
    "ERSPAN in a tag in VXLAN": (
        1,
        over(lambda ip: udp(b"\x08" + b"\0" * 7 + erspan_in_tag(ip), 4789), 17),
    ),
    "eight layers": (1, deep),
}

# ---- several frames for one packet ----


def pieces(ip, *cuts):
    """Yields fragments of the packet, cut at multiples of eight."""
    header, payload = ip[:20], ip[20:]
    ends = [cut for cut in cuts if cut < len(payload)] + [len(payload)]
    for start, end in zip([0, *ends], ends):
        field = start // 8 | (0x2000 if end < len(payload) else 0)
        yield header[:2] + u16(20 + end - start) + header[4:6] + u16(field) + header[8:] + payload[start:end]


def numbered(ip):
    """Sets a unique identification. Fragments with the same one would belong to the same packet."""
    return ip[:4] + u16(next(numbers) % 65535 + 1) + ip[6:]


def fragments(ip):
    return list(pieces(numbered(ip), 48, 136))


def of_tunnel(ip):
    return [ethernet(piece) for piece in pieces(ipv4(vxlan(ip), 17), 64)]


def behind_router(ip):
    routed = ip[:8] + bytes([ip[8] - 1, ip[9]]) + b"\xbe\xef" + ip[12:]
    return MACS[::-1] + u16(IPV4) + routed


MANY = {
    "fragments": lambda ip: map(ethernet, fragments(ip)),
    "fragments in VXLAN": lambda ip: [over(vxlan, 17)(piece) for piece in fragments(ip)],
    "fragmented VXLAN": of_tunnel,
    "two mirror ports": lambda ip: [ethernet(ip), ethernet(ip)],
    "both sides of a router": lambda ip: [ethernet(ip), behind_router(ip)],
    "a port and an ERSPAN mirror": lambda ip: [ethernet(ip), WRAPPED["ERSPAN type II"][1](ip)],
}

# ---- TCP: other segments and another order of the same streams ----


def segment(frame, sequence, payload, flags=0x18):
    tcp = u16(frame.source[1], frame.destination[1])
    tcp += struct.pack("!IIHHHH", sequence % 2**32, 0, 0x5000 | flags, 0xFFFF, 0, 0)
    return ethernet(ipv4(tcp + payload, 6, frame.source[0], frame.destination[0]))


def bytewise(data):
    return [data[i : i + 7] for i in range(0, len(data), 7)]


def web_socket(data):
    key, size = b"\x11\x22\x33\x44", len(data)
    return b"\x82\xfe" + u16(size) + key + bytes(octet ^ key[i % 4] for i, octet in enumerate(data))


HANDSHAKE = b"GET / HTTP/1.1\r\nUpgrade: websocket\r\nSec-WebSocket-Protocol: sip\r\n\r\n"
STREAMS = {  # name: (what opens a stream, a message on the stream, its segments, order of the segments)
    "TCP": (b"", lambda data: data, lambda data: [data], list),
    "TCP, cut": (b"\r\n\r\n", lambda data: data + b"\r\n\r\n", bytewise, list),
    "TCP, backwards and again": (b"", lambda data: data, bytewise, lambda all: all[:1] + all[::-1] + all),
    "TCP, header alone": (b"", lambda data: data, lambda data: [data[:4], data[4:]], list),
    "WebSocket": (HANDSHAKE, web_socket, bytewise, list),
}


def over_tcp(frames, stream, only_sip=False):
    """Yields the SIP messages and TCP payloads of the frames as TCP streams with a sequence number wrap-around."""
    opening, message, cut, order = STREAMS[stream]
    sequences = {}
    for frame in frames:
        if not (frame.is_sip or (frame.is_tcp and frame.payload and not only_sip)):
            if not frame.is_tcp:
                yield frame.data
            continue
        payload = message(frame.payload) if frame.is_sip else frame.payload
        if (frame.source, frame.destination) not in sequences:
            yield segment(frame, 2**32 - 101, b"", 2)
            sequences[frame.source, frame.destination] = 2**32 - 100
            payload = (opening if frame.is_sip else b"") + payload
        parts = []
        for part in cut(payload):
            parts.append(segment(frame, sequences[frame.source, frame.destination], part))
            sequences[frame.source, frame.destination] += len(part)
        yield from order(parts)


OPENER = harness.udp_frame(("10.9.9.9", 5060), ("10.9.9.8", 5999), b"OPTIONS sip:nobody@x SIP/2.0\r\n\r\n").data[14:]


def by_stream(frames):
    """Returns the forwarded frames of each pair of addresses and ports."""
    streams = {}
    for frame in frames:
        streams.setdefault(frame[3:15], []).append(frame)
    return streams


class Calls:
    """Two calls with the first 100 media packets of each, and the frames that the recorder must receive."""

    def __init__(self, h323=H323_CALL):
        calls = [Call(SIP_CALL), Call(h323)]
        self.signalling = [frame for call in calls for frame in call.signalling]
        self.destinations = [destination for frame in self.signalling for destination in media_of(frame)]
        self.frames = []
        for call in calls:
            media = itertools.count()
            frames = [frame for piece, _ in call.pieces for frame in piece]
            self.frames += [frame for frame in frames if not frame.is_udp or frame.is_sip or next(media) < 100]
        self.media = expected_media(self.frames, self.destinations)

    @staticmethod
    def packet(frame):
        return frame.data[14 : 14 + struct.unpack_from("!H", frame.data, 16)[0]]

    def variants(self):
        """Yields name, link type and frames of each variant."""
        for name, (link_type, wrap) in WRAPPED.items():
            yield name, link_type, [wrap(self.packet(frame)) for frame in self.frames]
        for name, wrap in MANY.items():
            yield name, 1, [data for frame in self.frames for data in wrap(self.packet(frame))]
        for name in STREAMS:
            yield name, 1, list(over_tcp(self.frames, name))
        for link in ("VXLAN", "ERSPAN type III"):
            wrap = WRAPPED[link][1]
            yield f"TCP in fragments in {link}", 1, [
                wrap(piece) for data in over_tcp(self.frames, "TCP") for piece in fragments(data[14:])
            ]


class Variants(harness.TestCase):
    def play(self, name, link_type, frames, settings):
        """Runs the program on the frames, one millisecond apart, after the recorder has requested all media."""
        recorder = self.keep(Recorder())
        path = os.path.join(self.folder(), "frames")
        os.mkfifo(path)
        server = {"ServerName": "127.0.0.1", "ServerPort": recorder.port}
        program = self.start(
            settings={"Device": f"file:{path}", "LogLevel": "INFO", "TunnelPorts": f"vxlan:{SITE_PORT}"}
            | server
            | dict.fromkeys(settings, "yes"),
            environment={"SNIFFER_REPLAY_PACE": "full"},
        )
        with open(path, "wb", buffering=0) as pipe:
            pipe.write(harness.capture_header(link_type))
            # The program connects with its first frames, which may be lost.
            wrap = next(wrap for kind, wrap in WRAPPED.values() if kind == link_type)
            openers = itertools.count()
            harness.wait_until(
                lambda: pipe.write(harness.capture_record(wrap(numbered(OPENER)), next(openers))) and recorder.frames,
                "a connection",
            )
            recorder.add(*self.calls.destinations)
            recorder.settle()
            # Duplicates must be close to the original in time.
            pipe.write(b"".join(harness.capture_record(data, 9000 + i / 1000) for i, data in enumerate(frames)))
        self.assertEqual(program.status(), 0)
        recorder.remainder()
        recorder.frames = [frame for frame in recorder.frames if b"nobody" not in frame]
        figures = dict(re.findall(r"(\w+)=(\d+)", [line for line in program.log if "Statistics: " in line][-1]))
        return recorder, {key: int(value) for key, value in figures.items()}, next(openers)

    def test_each_variant(self):
        self.calls = Calls()
        for name, link_type, frames in self.calls.variants():
            with self.subTest(name):
                recorder, figures, openers = self.play(name, link_type, frames, ALL)
                self.assert_frames(recorder.of(SIP, H323), self.calls.signalling, "signalling")
                self.assert_frames(recorder.of(RTP), self.calls.media, "media")
                ends = ["sipForwarded", "rtpForwarded", "h323Forwarded", "udpDropped", "tcpDropped", "otherDropped"]
                ends += ["ipv6TooLong", "notSent", "queueDiscarded"]
                ends += ["duplicatesDropped", "fragmentsHeld", "segmentsFollowed"]
                total = openers + len(frames) + figures["streamMessages"]
                self.assertEqual(sum(figures[key] for key in ends), total, figures)


    def test_calls_over_ipv6(self):
        """The recorder receives what it receives of the same calls over IPv4, in frames with IPv6 addresses."""
        # An H.245 connection would be looked for at the IPv4 address that the call announces.
        self.calls = Calls("h323-h245-tunnelled")
        expected = [frame[15:] for frame in self.calls.signalling], [frame[15:] for frame in self.calls.media]
        frames = [harness.over_ipv6(frame) for frame in self.calls.frames]
        self.calls.destinations = [harness.in_ipv6(end) for end in self.calls.destinations]
        recorder, figures, _ = self.play("IPv6", 1, [frame.data for frame in frames], ALL)
        self.assert_frames(recorder.of(RTP), expected_media(frames, self.calls.destinations), "media")
        received = [frame[39:] for frame in recorder.of(SIP, H323)], [frame[39:] for frame in recorder.of(RTP)]
        self.assertEqual(received, expected)
        self.assertEqual(figures["ipv6TooLong"], 0)

    def test_request_to_a_telephone_number(self):
        self.calls = Calls()
        request = harness.udp_frame(("10.1.1.1", 5060), ("10.1.1.2", 5060), b"INVITE tel:+1555 SIP/2.0\r\n\r\n")
        for settings, expected in ([], []), (["SipAnyUri"], [harness.forwarded(SIP, request)]):
            recorder, _, _ = self.play("tel:", 1, [request.data], settings)
            self.assert_frames(recorder.of(SIP), expected, f"with {settings}")


FRAGMENT = "(ip[6:2] & 0x1fff != 0)"
FILTERS = [  # variant, filter, settings, device: each variant needs exactly these
    ("802.1Q twice", "vlan and vlan and udp", "Decapsulate", "tap0"),
    ("802.1ad and 802.1Q", "udp or (vlan and (udp or (vlan and udp)))", "", "tap0"),
    ("MPLS", "mpls", "Decapsulate", "tap0"),
    ("PPPoE", "pppoes", "Decapsulate", "tap0"),
    ("IP in IP", "ip proto 4", "Decapsulate", "tap0"),
    ("GRE", "ip proto 47", "Decapsulate", "tap0"),
    ("GRE over IPv6", "ip6 proto 47", "Decapsulate", "tap0"),
    ("ERSPAN type III", "ip proto 47", "Decapsulate", "tap0"),
    ("VXLAN", "udp port 4789", "Decapsulate", "tap0"),
    ("GENEVE over IPv6", "udp port 6081", "Decapsulate", "tap0"),
    ("GTP-U over IPv6", "udp port 2152", "Decapsulate", "tap0"),
    ("IPv4 in IPv6 in IPv4", "ip proto 41", "Decapsulate", "tap0"),
    ("fragmented VXLAN", "udp port 4789 or " + FRAGMENT, "Decapsulate ReassembleFragments", "tap0"),
    ("fragments", "udp port 5060 or " + FRAGMENT, "ReassembleFragments", "tap0"),
    ("TCP, cut", "tcp", "ReassembleTcp", "tap0"),
    ("two mirror ports", "udp", "DropDuplicates", "tap0"),
    ("plain", "udp and not host 127.0.0.1", "", "any"),
]
SHARED = [  # variants whose frames several capture threads share
    *("plain", "802.1Q", "fragments", "fragments in VXLAN", "both sides of a router", "a port and an ERSPAN mirror"),
    *("TCP, backwards and again", "VXLAN on the site's port"),
]
TUNNELS = {  # kernel devices that encapsulate frames
    "vxlan": "id 42 dstport 4789 local 10.9.9.1 remote 10.9.9.2",
    "geneve": "id 42 remote 10.9.9.2",
    "gretap": "local 10.9.9.1 remote 10.9.9.2",
    "erspan": "seq key 5 local 10.9.9.1 remote 10.9.9.2 erspan_ver 1 erspan 12",
    "vlan": "link wire0 id 42",
}


class Live(harness.TestCase):
    def setUp(self):
        if not harness.may_make_namespaces():
            self.skipTest("capture needs root with the right to make network namespaces")
        self.calls = Calls()
        self.here, self.there = self.keep(Namespace()), self.keep(Namespace())
        self.there.join("wire0", self.here, "tap0")
        self.there.run("ip", "addr", "add", "10.9.9.1/24", "dev", "wire0")

    def sniff(self, filter, settings, device="tap0", protocol="UDP", **more):
        recorder = self.keep(Recorder(protocol, self.here))
        server = {"ServerName": "127.0.0.1", "ServerPort": recorder.port, "ServerProtocol": protocol}
        options = {"Device": device, "Filter": filter} | more
        options |= dict.fromkeys(["ImmediateCapture", *settings.split()], "yes")
        program = self.start(settings=server | options, namespace=self.here)
        program.wait_logged("PCAP thread created")
        return program, recorder

    def play(self, frames, device="wire0"):
        path = os.path.join(self.folder(), "frames.pcap")
        records = b"".join(harness.capture_record(data) for data in frames)
        with open(path, "wb") as file:
            file.write(harness.capture_header() + records)
        self.there.run("tcpreplay", "--quiet", "--topspeed", f"--intf1={device}", path)

    def check_signalling(self, recorder, program, what):
        expected = [frame for frame in self.calls.signalling if frame[2] == SIP]
        recorder.wait(lambda frames: len(frames) >= len(expected), what)
        self.assertEqual(program.end(), 0)
        self.assert_frames(recorder.of(SIP), expected, what)

    def test_filters(self):
        self.calls.frames = [frame for frame in self.calls.frames if frame.is_sip]
        variants = {name: frames for name, _, frames in self.calls.variants()}
        for name, filter, settings, device in FILTERS:
            with self.subTest(name):
                program, recorder = self.sniff(filter, settings, device)
                self.play(variants[name])
                self.check_signalling(recorder, program, name)

    def test_capture_threads(self):
        """The number of capture threads changes neither what is forwarded nor the order in a stream."""
        carried = {name: frames for name, _, frames in self.calls.variants() if name in SHARED}
        for (name, frames), threads in itertools.product(carried.items(), (1, 2, 4)):
            with self.subTest(name, threads=threads):
                options = {"CaptureThreads": threads, "TunnelPorts": f"vxlan:{SITE_PORT}"}
                program, recorder = self.sniff("not arp", " ".join(ALL), protocol="TCP", SendTimeout=5000, **options)
                openers = 0
                while not recorder.frames and openers < 100:
                    self.play([ethernet(numbered(OPENER))])
                    openers += 1
                recorder.add(*self.calls.destinations)
                recorder.settle()
                self.play(frames)
                recorder.wait(lambda _: len(recorder.of(RTP)) == len(self.calls.media), "the media")
                wanted = lambda: [frame for frame in recorder.of(SIP, H323) if b"nobody" not in frame]
                recorder.wait(lambda _: len(wanted()) == len(self.calls.signalling), "the signalling")
                last = len(recorder.of(SIP))
                self.play([ethernet(numbered(OPENER))])  # after the last frames that are not forwarded
                recorder.wait(lambda _: len(recorder.of(SIP)) > last, "the last frame")
                self.assertEqual(program.end(), 0)
                self.assert_frames(wanted(), self.calls.signalling, "signalling")
                self.assertEqual(by_stream(recorder.of(RTP)), by_stream(self.calls.media))
                received = re.findall(r"of device tap0.*: received=(\d+) ", "\n".join(program.log))
                self.assertEqual(len(received), threads)
                if name == "plain":
                    # Each frame is captured once, and not all by the same thread.
                    self.assertEqual(sum(map(int, received)), openers + len(frames) + 1)
                    self.assertLess(received.count("0"), max(threads - 1, 1), received)
                elif name.startswith("VXLAN"):
                    self.assertEqual(received.count("0"), threads - 1, received)

    def test_tunnels_of_the_kernel(self):
        """Skips the tunnels for which this kernel has no module."""
        neighbour = "ip neigh add 10.9.9.2 lladdr 02:00:00:00:00:02 dev wire0 nud permanent"
        self.there.run(*neighbour.split())
        sip = [frame.data for frame in self.calls.frames if frame.is_sip]
        missing = []
        for kind, options in TUNNELS.items():
            before, after = (options.split()[:2], options.split()[2:]) if kind == "vlan" else ([], options.split())
            try:
                self.there.run("ip", "link", "add", *before, "name", "tunnel0", "type", kind, *after)
            except subprocess.CalledProcessError:
                missing.append(kind)
                continue
            with self.subTest(kind):
                self.there.run("ip", "link", "set", "tunnel0", "up")
                program, recorder = self.sniff("not arp and not icmp", "Decapsulate")
                self.play(sip, "tunnel0")
                self.check_signalling(recorder, program, kind)
                self.there.run("ip", "link", "del", "tunnel0")
        if missing:
            self.skipTest("this kernel has no " + ", ".join(missing))

    def test_real_calls_in_fragments_and_segments(self):
        """SIPp on a device with a small MTU: fragments over UDP, segments over TCP. IPv6 needs 1280 bytes."""
        self.here.run("ip", "addr", "add", "10.9.9.2/24", "dev", "tap0")
        for namespace, device, address in ((self.there, "wire0", "2001:db8::1"), (self.here, "tap0", "2001:db8::2")):
            namespace.run("ip", "link", "set", device, "mtu", "1280")
            namespace.run("ethtool", "-K", device, "tso", "off", "gso", "off", "gro", "off")
            if harness.has_ipv6():
                for enabled in (device, "lo"):
                    namespace.run("sysctl", "-qw", f"net.ipv6.conf.{enabled}.disable_ipv6=0")
                namespace.run("ip", "addr", "add", f"{address}/64", "dev", device, "nodad")
        places = [("10.9.9.1", "10.9.9.2", "tap0")]
        if harness.has_ipv6():
            places += [("2001:db8::1", "2001:db8::2", "tap0"), ("::1", "::1", "lo")]
        scenario = (pathlib.Path(__file__).parent / "sip" / "caller.xml").read_text()
        subject = "Subject: " + "long " * 300
        scenario = re.sub(r"<(pause|nop).*", "", scenario).replace("SIP/2.0/UDP", "SIP/2.0/[transport]")
        path = pathlib.Path(self.folder(), "caller.xml")
        path.write_text(scenario.replace("Max-Forwards: 70", subject.strip() + "\n      Max-Forwards: 70"))
        quiet = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        transports = (("u1", "udp port 5060 or ip6 proto 44 or " + FRAGMENT), ("t1", "tcp"))
        for (caller, callee, device), (transport, filter) in itertools.product(places, transports):
            with self.subTest(transport, address=callee):
                program, recorder = self.sniff(filter, "ReassembleFragments ReassembleTcp IPv6", device)
                common = ["-t", transport, "-m", "3", "-nostdin", "-timeout", "25", "-timeout_error"]
                remote = f"[{callee}]:5060" if ":" in callee else callee
                answer = self.here.start("sipp", "-sn", "uas", "-i", callee, "-p", "5060", *common, **quiet)
                self.addCleanup(lambda process=answer: (process.kill(), process.wait()))
                harness.wait_until(lambda: self.listens(transport), "SIPp")
                where = self.here if device == "lo" else self.there
                ends = ["-i", caller, "-p", "5061", remote]
                call = where.start("sipp", *ends, "-sf", str(path), *common, **quiet)
                self.addCleanup(lambda process=call: (process.kill(), process.wait()))
                self.assertEqual(call.wait(30), 0)
                answer.wait(30)
                recorder.wait(lambda frames: len(frames) >= 18, "INVITE, 180, 200, ACK, BYE, 200 of three calls")
                self.assertEqual(program.end(), 0)
                header = 39 if ":" in callee else 15
                self.assertEqual({frame[2] for frame in recorder.of(SIP)}, {SIP + (0x40 if header == 39 else 0)})
                messages = [frame[header:].partition(b"\r\n\r\n") for frame in recorder.of(SIP)]
                self.assertEqual(len(messages), 18)
                for head, _, body in messages:
                    self.assertEqual(int(re.search(rb"Content-Length: *(\d+)", head)[1]), len(body), head)
                long = [head for head, _, _ in messages if subject.strip().encode() in head]
                self.assertEqual(len(long), 9, "INVITE, ACK and BYE in one piece")

    def listens(self, transport):
        command = ["ss", "-Hln", "-t" if transport == "t1" else "-u", "sport = :5060"]
        return subprocess.run([*self.here.enter, *command], capture_output=True, text=True).stdout


if __name__ == "__main__":
    harness.main()
