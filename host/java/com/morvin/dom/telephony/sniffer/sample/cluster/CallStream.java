package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.ArrayList;
import java.util.List;

/** A call that is published. Belongs to the thread of the front. */
final class CallStream {
  /** The most signalling that is repeated, in bytes; an ordinary call has a fifth of it. */
  private static final int MAX_RECAP = 32 << 10;

  final long number;
  final Batch batch;
  /** See {@link Recap}. */
  final long since;
  /** The saved signalling; null when nothing is saved. */
  final RunningCalls.Journal journal;
  private final Body signalled = new Body();
  private boolean over;

  CallStream(long number, Batch batch, long since, RunningCalls.Journal journal) {
    this.number = number;
    this.batch = batch;
    this.since = since;
    this.journal = journal;
  }

  /** Adds a signalling frame to those that are repeated; see {@link Body#add(FrameCursor, long, long)}. */
  void remember(FrameCursor frame, long captured, long heldUntil) {
    if (signalled.lengthWith(frame) <= MAX_RECAP) {
      signalled.add(frame, captured, heldUntil);
    }
  }

  /** Adds the signalling of another call. */
  void remember(CallStream leg) {
    if (signalled.length() + leg.signalled.length() <= MAX_RECAP) {
      signalled.add(leg.signalled);
    }
  }

  /** Returns the signalling so far. */
  Body signalled() {
    return signalled;
  }

  /** Returns the same as single messages. */
  List<RunningCalls.TimedFrame> messages() {
    List<RunningCalls.TimedFrame> messages = new ArrayList<>();
    FrameCursor frames = signalled.frames();
    while (frames.next()) {
      messages.add(new RunningCalls.TimedFrame(frames.captured(), frames.frame()));
    }
    return messages;
  }

  /** Records that the call has ended. */
  void end() {
    over = true;
  }

  /** Whether the call has ended. */
  boolean isOver() {
    return over;
  }
}
