package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.nio.ByteBuffer;

/** A received RTP packet, its codec, its time of capture in milliseconds since 1970, and the frame that carried it. */
record Arrival(RtpPacket packet, Codec codec, long time, Frame frame) {
  void save(DataOutput out) throws IOException {
    byte[] bytes = frame.bytes();
    out.writeInt(bytes.length);
    out.write(bytes);
    out.writeUTF(codec.name());
    out.writeUTF(codec.kind().name());
    out.writeLong(time);
  }

  static Arrival restore(DataInput in) throws IOException {
    byte[] bytes = new byte[in.readInt()];
    in.readFully(bytes);
    Frame frame = Frame.of(ByteBuffer.wrap(bytes));
    Codec codec = new Codec(in.readUTF(), Codec.Kind.valueOf(in.readUTF()));
    return new Arrival(RtpPacket.parse(frame.payload()), codec, in.readLong(), frame);
  }
}
