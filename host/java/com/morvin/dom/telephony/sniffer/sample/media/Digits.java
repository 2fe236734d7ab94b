package com.morvin.dom.telephony.sniffer.sample.media;

import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.List;

/** Collects pressed keys from telephone events (RFC 4733). All packets of one key have the same timestamp. */
final class Digits {
  private static final int MAX_DIGITS = 256;
  private static final String KEYS = "0123456789*#ABCD";

  /** A key and the time when it was pressed, in milliseconds since 1970. */
  record Pressed(char key, long time) {}

  private final SavedList<Pressed> pressed = new SavedList<>();
  private boolean any;
  private int lastTimestamp;

  void accept(RtpPacket packet) {
    if (packet.length() < 4 || any && packet.timestamp() == lastTimestamp) {
      return;
    }
    any = true;
    lastTimestamp = packet.timestamp();
    int event = packet.bytes()[packet.offset()] & 255;
    if (event < KEYS.length() && pressed.size() < MAX_DIGITS) {
      pressed.add(new Pressed(KEYS.charAt(event), packet.time()));
    }
  }

  List<Pressed> pressed() {
    return pressed.items();
  }

  void save(DataOutput out, boolean whole) throws IOException {
    out.writeBoolean(any);
    out.writeInt(lastTimestamp);
    pressed.save(out, whole, (digit, to) -> {
      to.writeChar(digit.key);
      to.writeLong(digit.time);
    });
  }

  void restore(DataInput in) throws IOException {
    any = in.readBoolean();
    lastTimestamp = in.readInt();
    pressed.restore(in, from -> new Pressed(from.readChar(), from.readLong()));
  }
}
