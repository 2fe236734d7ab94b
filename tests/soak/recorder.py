"""A recorder to be killed: asks for the media of the calls it is told of, and writes down what it gets.

Its journal is a file of records of the struct RECORD, which outlives it: frames by their protocol, destination, RTP
sequence number and checksum, and what happened to the connection. A second file has the media it wants, so that it can
ask again after a restart.
"""

import collections
import json
import os
import re
import socket
import struct
import sys
import time
import zlib

RECORD = struct.Struct("<BIHHId")
SIP, RTP, HEARTBEAT, H323 = 1, 2, 3, 4  # the protocols of frames
CONNECTED, ANSWERED, LISTED, UNLISTED, ENDED, GARBLED = 10, 11, 12, 13, 14, 15
ADD, REMOVE, ARE_YOU_THERE = 1, 2, 3
MOST_WANTED = 200  # the end of some calls is never heard of


def number(ip):
    return int.from_bytes(socket.inet_aton(ip), "big")


def media_of(protocol, payload):
    """The RTP and RTCP destinations that a SIP message or an H.323 description names."""
    if protocol == SIP:
        address = re.search(rb"^c=IN IP4 (\S+)", payload, re.M)
        ports = re.findall(rb"^m=audio (\d+)", payload, re.M)
        media = [(address[1], port) for port in ports] if address else []
    else:
        media = re.findall(rb"rtp:([\d.]+) (\d+)", payload)
    return [(number(ip.decode()), int(port) + more) for ip, port in media for more in (0, 1)]


def is_end(protocol, payload):
    return payload.startswith(b"BYE ") if protocol == SIP else payload.startswith(b"t:90\n")


class Recorder:
    def __init__(self, port, journal):
        self.journal = open(journal, "ab", buffering=0)
        self.memory = journal + ".wanted"
        self.wanted = []
        if os.path.exists(self.memory):
            with open(self.memory) as file:
                self.wanted = [tuple(destination) for destination in json.load(file)]
        self.listener = socket.create_server(("127.0.0.1", port))

    def note(self, kind, ip=0, port=0, sequence=0, checksum=0):
        return RECORD.pack(kind, ip, port, sequence, checksum, self.now)

    def serve(self):
        while True:
            self.connection, _ = self.listener.accept()
            self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.now = time.time()
            self.journal.write(self.note(CONNECTED))
            self.unanswered = collections.deque()
            try:
                # A sniffer that lost its connection has forgotten what it was asked for.
                self.ask(self.wanted)
                self.read()
            except OSError:
                pass
            self.now = time.time()
            self.journal.write(self.note(ENDED))
            self.connection.close()

    def remember(self):
        with open(self.memory + ".new", "w") as file:
            json.dump(self.wanted, file)
        os.replace(self.memory + ".new", self.memory)

    def ask(self, destinations):
        """Asks for them, and for an answer, which comes when all of them are listed."""
        commands = [struct.pack("!BIH", ADD, *destination) for destination in destinations]
        commands.append(struct.pack("!BIH", ARE_YOU_THERE, 0, 0))
        self.unanswered.append(destinations)
        self.connection.sendall(b"".join(commands))

    def dismiss(self, hosts):
        gone = [destination for destination in self.wanted if destination[0] in hosts]
        self.wanted = [destination for destination in self.wanted if destination[0] not in hosts]
        self.remember()
        self.journal.write(b"".join(self.note(UNLISTED, *destination) for destination in gone))
        self.connection.sendall(b"".join(struct.pack("!BIH", REMOVE, *destination) for destination in gone))

    def read(self):
        pending = bytearray()
        while data := self.connection.recv(1 << 18):
            self.now = time.time()
            pending += data
            records, at = [], 0
            while len(pending) - at >= 15:
                length, protocol, ip, port = struct.unpack_from("!HBIH", pending, at)
                if length < 15 or not SIP <= protocol <= H323:
                    self.journal.write(b"".join(records) + self.note(GARBLED))
                    return
                if len(pending) - at < length:
                    break
                frame = bytes(pending[at : at + length])
                at += length
                sequence = int.from_bytes(frame[17:19], "big") if protocol == RTP else 0
                if protocol == HEARTBEAT:
                    records += [self.note(ANSWERED)]
                    records += [self.note(LISTED, *one) for one in self.unanswered.popleft() if one in self.wanted]
                else:
                    records.append(self.note(protocol, ip, port, sequence, zlib.crc32(frame)))
                if protocol in (SIP, H323):
                    self.follow(protocol, frame, ip)
            self.journal.write(b"".join(records))
            del pending[:at]

    def follow(self, protocol, frame, ip):
        payload = frame[15:]
        if is_end(protocol, payload):
            self.dismiss({ip, int.from_bytes(frame[9:13], "big")})
            return
        new = [destination for destination in media_of(protocol, payload) if destination not in self.wanted]
        if new:
            self.wanted = (self.wanted + new)[-MOST_WANTED:]
            self.remember()
            self.ask(new)


if __name__ == "__main__":
    Recorder(int(sys.argv[1]), sys.argv[2]).serve()
