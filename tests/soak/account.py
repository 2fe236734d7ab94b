"""What was sent, what the recorder got, and what became of the difference."""

import bisect
import collections
import time

import recorder
from recorder import H323, RTP
from traffic import forwarded_checksum


class Connection:
    def __init__(self, since):
        self.since, self.answered, self.ended = since, None, None
        self.highest = [-1, -1]  # by device, the latest frame in the order of sending that has arrived


class Stream:
    """What was sent to one destination while the link was up, and when the recorder wanted it."""

    def __init__(self):
        self.sent, self.wanted, self.texts_sent, self.texts_received = {}, [], [], []


class Account:
    def __init__(self, journal):
        self.journal, self.pending = open(journal, "rb"), b""
        self.streams, self.connections, self.disturbances, self.faults = {}, [], [], []
        self.finished = collections.deque()  # calls to be balanced, by the time of their last frame
        self.received, self.sent_by_kind = collections.Counter(), collections.Counter()
        self.position = [0, 0]  # by device, how many frames have been sent
        self.holes = self.cut = self.unlisted = self.garbled = 0

    def fault(self, text):
        self.faults.append(text)
        print("FAULT:", text, flush=True)

    def stream(self, ip, port):
        return self.streams.setdefault((ip, port), Stream())

    def sent(self, link_number, frame, data):
        self.sent_by_kind[frame.kind] += 1
        if frame.kind is None:
            return
        stream = self.stream(int.from_bytes(data[30:34], "big"), frame.port)
        if frame.kind == H323:
            stream.texts_sent.append(time.time())
            return
        sequence = int.from_bytes(data[frame.payload_at + 2 : frame.payload_at + 4], "big") if frame.kind == RTP else 0
        key = (sequence, forwarded_checksum(frame.kind, frame, data))
        # Link, position in its order, time, whether it has arrived.
        stream.sent[key] = [link_number, self.position[link_number], time.time(), False, frame.kind]

    def read(self):
        """Takes in what the recorder has noted."""
        data = self.pending + self.journal.read()
        size = recorder.RECORD.size
        whole = len(data) - len(data) % size
        self.pending = data[whole:]
        for kind, ip, port, sequence, checksum, at in recorder.RECORD.iter_unpack(data[:whole]):
            if kind == recorder.CONNECTED:
                if self.connections and self.connections[-1].ended is None:
                    self.end_connection(at)
                self.connections.append(Connection(at))
            elif kind == recorder.ANSWERED:
                if self.connections[-1].answered is None:
                    self.connections[-1].answered = at
            elif kind == recorder.LISTED:
                self.stream(ip, port).wanted.append([self.connections[-1], at, float("inf")])
            elif kind == recorder.UNLISTED:
                for interval in self.stream(ip, port).wanted[-1:]:
                    interval[2] = min(interval[2], at)
            elif kind == recorder.GARBLED:
                self.garbled += 1
            elif kind == recorder.ENDED:
                self.end_connection(at)
            else:
                self.arrived(kind, self.stream(ip, port), (sequence, checksum), at)

    def end_connection(self, at):
        self.connections[-1].ended = at

    def arrived(self, kind, stream, key, at):
        self.received[kind] += 1
        if kind == H323:
            stream.texts_received.append(at)
            return
        entry = stream.sent.get(key)
        if entry is None or entry[3]:
            self.fault(f"a frame of kind {kind} that was {'received twice' if entry else 'never sent'}")
            return
        entry[3] = True
        highest = self.connections[-1].highest
        highest[entry[0]] = max(highest[entry[0]], entry[1])

    def balance(self, until):
        """Balances the calls whose last frame was sent before."""
        while self.finished and self.finished[0][0] < until:
            for key in self.finished.popleft()[1]:
                stream = self.streams.pop(key, None)
                if stream:
                    self.balance_stream(key, stream)

    def balance_stream(self, key, stream):
        for link, position, at, arrived, kind in stream.sent.values():
            connection = self.wanting(stream, kind, at)
            if connection is None:
                self.unlisted += not arrived
            elif not arrived:
                self.missing(connection, link, position, at)
        # Texts are told by their number: of several to one destination it is not known which is missing.
        if stream.texts_sent and len(stream.texts_received) != len(stream.texts_sent):
            connections = {self.wanting(stream, H323, at) for at in stream.texts_sent}
            whole = len(connections) == 1 and None not in connections
            if whole and not self.near_disturbance(connections.pop(), stream.texts_sent[-1]):
                self.holes += len(stream.texts_sent) - len(stream.texts_received)

    def wanting(self, stream, kind, at):
        """The connection over which the recorder wanted what was sent at that time."""
        if kind == RTP:
            for connection, since, until in stream.wanted:
                if since <= at < min(until, connection.ended or until):
                    return connection
            return None
        number = bisect.bisect_right([one.answered or float("inf") for one in self.connections], at) - 1
        connection = self.connections[number] if number >= 0 else None
        return connection if connection and at < (connection.ended or float("inf")) else None

    def missing(self, connection, link, position, at):
        if position < connection.highest[link] or connection.ended is None:
            self.holes += 1
        elif self.near_disturbance(connection, at):
            self.cut += 1
        else:
            self.fault("the end of a connection lost more than what was under way")

    def near_disturbance(self, connection, at):
        return any(connection.since - 2 <= one <= at + 2 for one in self.disturbances)
