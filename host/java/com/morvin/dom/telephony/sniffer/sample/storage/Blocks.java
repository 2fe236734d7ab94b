package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import java.util.ArrayDeque;

/**
 * The arrays that hold sound until it is written. They are used again, because the garbage collector would have to copy
 * thousands of them while they wait. Those of all formats have one length, so a voice with a high sample rate takes no
 * more memory: it is written more often. Any thread may call any method.
 */
public final class Blocks {
  /** A second of G.711 and some more, so that a packet too many does not cost another write. */
  public static final int LENGTH = 8_000 * 5 / 4;
  /** All voices are written at the same time, so there is one array in use and one that waits for each. */
  private static final int MAX_SPARE = (int) Math.min(16_384, HeapShare.SPARE_BLOCKS / LENGTH);

  private final ArrayDeque<byte[]> spare = new ArrayDeque<>();

  /** Returns an array. */
  byte[] take() {
    byte[] block;
    synchronized (spare) {
      block = spare.pollLast();
    }
    return block == null ? new byte[LENGTH] : block;
  }

  /** Takes an array back. */
  void give(byte[] block) {
    synchronized (spare) {
      if (block.length == LENGTH && spare.size() < MAX_SPARE) {
        spare.addLast(block);
      }
    }
  }
}
