package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/** Collects pressed keys from telephone events (RFC 4733). All packets of one key have the same timestamp. */
final class Digits {
  private static final int MAX_DIGITS = 256;
  private static final String KEYS = "0123456789*#ABCD";

  /** A key and the time when it was pressed, in milliseconds since 1970. */
  record Pressed(char key, long time) {}

  private final List<Pressed> pressed = new ArrayList<>();
  private boolean any;
  private int lastTimestamp;

  void accept(Arrival arrival) {
    RtpPacket packet = arrival.packet();
    if (packet.length() < 4 || any && packet.timestamp() == lastTimestamp) {
      return;
    }
    any = true;
    lastTimestamp = packet.timestamp();
    int event = packet.bytes()[packet.offset()] & 255;
    if (event < KEYS.length() && pressed.size() < MAX_DIGITS) {
      pressed.add(new Pressed(KEYS.charAt(event), arrival.time()));
    }
  }

  List<Pressed> pressed() {
    return pressed;
  }

  void save(DataOutput out) throws IOException {
    out.writeBoolean(any);
    out.writeInt(lastTimestamp);
    out.writeInt(pressed.size());
    for (Pressed digit : pressed) {
      out.writeChar(digit.key);
      out.writeLong(digit.time);
    }
  }

  void restore(DataInput in) throws IOException {
    any = in.readBoolean();
    lastTimestamp = in.readInt();
    for (int count = in.readInt(); count > 0; count--) {
      pressed.add(new Pressed(in.readChar(), in.readLong()));
    }
  }
}
