package com.morvin.dom.telephony.sniffer.sample.memory;

/**
 * How the heap is divided among those who hold what traffic brings, in bytes. Each share is a limit of its own. What
 * exceeds it is dropped and counted. They are hardly used up all at once, and leave some of the heap free.
 */
public final class HeapShare {
  private static final long HEAP = Runtime.getRuntime().maxMemory();

  /** Frames that were received and not handled. */
  public static final long INTAKE = Math.min(64 << 20, HEAP / 8);
  /** Recordings and states that wait for the disk. */
  public static final long DISK = Math.min(256 << 20, HEAP / 8);
  /** The states of the calls from before a restart, when there is nothing else yet. */
  public static final long LOADED_STATES = HEAP / 4;

  /** In a recorder: the running calls with the usual memory of their media, a part of it in unused blocks. */
  public static final long CALLS = HEAP * 3 / 8;
  /** In a recorder: unused blocks of sound. */
  public static final long SPARE_BLOCKS = HEAP / 8;
  /** In a recorder: what the media takes in addition for lost packets, packets that wait, and forged sources. */
  public static final long MEDIA = HEAP / 8;
  /** In a recorder: messages of a front whose recordings are not safe on the disk yet. */
  public static final long DELIVERIES = HEAP * 3 / 16;

  /** In a front: the running calls. */
  public static final long FRONT_CALLS = HEAP * 5 / 16;
  /** In a front: messages that wait for the broker, unless an option says otherwise. */
  public static final long MESSAGES = HEAP / 4;
  /** In a front: what is kept of its frames on their way to the disk. */
  public static final long KEPT_FRAMES = Math.min(32 << 20, HEAP / 16);

  private HeapShare() {}
}
