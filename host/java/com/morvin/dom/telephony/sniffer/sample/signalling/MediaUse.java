package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;

/**
 * A destination that has received media of a call. It is saved with a running call: the messages alone do not show
 * which of them were followed by media.
 *
 * @param leg the identifier of the leg
 * @param direction on that leg
 * @param source of the last stream; see {@link Endpoint#key}
 * @param ssrc of the last stream
 * @param last the time of the last packet, by {@link Moment#stamp}
 */
public record MediaUse(Endpoint destination, String leg, Direction direction, long source, int ssrc, long last) {
  /** Returns the same use with another time of the last packet. */
  public MediaUse at(long time) {
    return new MediaUse(destination, leg, direction, source, ssrc, time);
  }

  /** Writes everything but the time. */
  public void write(DataOutput out) throws IOException {
    out.writeUTF(destination.address().toString());
    out.writeShort(destination.port());
    out.writeUTF(leg);
    out.writeByte(direction.ordinal());
    out.writeLong(source);
    out.writeInt(ssrc);
  }

  /** Reads what {@link #write} has written. The time is 0. */
  public static MediaUse read(DataInput in) throws IOException {
    String address = in.readUTF();
    int port = in.readUnsignedShort();
    return new MediaUse(Endpoint.ofMedia(address, port).orElseThrow(() -> new IOException(address)), in.readUTF(),
        Direction.values()[in.readUnsignedByte()], in.readLong(), in.readInt(), 0);
  }
}
