package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import java.util.ArrayDeque;

/**
 * The arrays that hold a second of sound each until it is written. They are used again, because the garbage collector
 * would have to copy thousands of them while they wait. Any thread may call any method.
 */
final class Blocks {
  /** A second of G.711 and some more, so that a packet too many does not cost another write. */
  private static final int USUAL = 8_000 * 5 / 4;
  /** All voices are written at the same time, so there is one array in use and one that waits for each. */
  private static final int MAX_SPARE = (int) Math.min(16_384, HeapShare.SPARE_BLOCKS / USUAL);

  private final ArrayDeque<byte[]> spare = new ArrayDeque<>();

  /** Returns an array for a second of sound with a length in bytes. */
  byte[] take(int second) {
    int size = second * 5 / 4;
    byte[] block = null;
    if (size == USUAL) {
      synchronized (spare) {
        block = spare.pollLast();
      }
    }
    return block == null ? new byte[size] : block;
  }

  /** Takes an array back. */
  void give(byte[] block) {
    synchronized (spare) {
      if (block.length == USUAL && spare.size() < MAX_SPARE) {
        spare.addLast(block);
      }
    }
  }
}
