package com.morvin.dom.telephony.sniffer.sample;

import java.nio.file.Path;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;

/** A call while it is followed: who, since when, and what is recorded of it. The signalling protocols extend it. */
abstract class Call {
  private static final DateTimeFormatter FILE_TIME =
      DateTimeFormatter.ofPattern("yyyyMMdd-HHmmss").withZone(ZoneId.systemDefault());

  final int number;
  final String protocol;
  final String id;
  final String caller;
  final String callee;
  final long start;

  private final Map<Direction, Track> tracks = new LinkedHashMap<>();
  private final Set<String> notes = new TreeSet<>();
  private long answered = -1;
  private long lastActivity;
  private long deadline = Long.MAX_VALUE;
  private String deadlineReason;

  /** The names in the table of calls are given whole; those in file names are short. */
  Call(int number, String protocol, String id, String caller, String callee, String fileNames, long now,
      Path directory) {
    this.number = number;
    this.protocol = protocol;
    this.id = id;
    this.caller = caller;
    this.callee = callee;
    start = now;
    lastActivity = now;
    String prefix = FILE_TIME.format(Instant.ofEpochMilli(now)) + "-" + fileNames + "-";
    for (Direction direction : Direction.values()) {
      tracks.put(direction, new Track(directory, prefix + direction));
    }
  }

  /** Whether it carries the media of a destination that is used as described. */
  record Use(Call call, Direction direction, Sdp.Media media) {}

  /** Where media of this call is sent to, as far as its signalling told. */
  abstract Map<Endpoint, Use> destinations();

  /** The call has ended: its signalling forgets it. */
  abstract void ended(long now);

  Track track(Direction direction) {
    return tracks.get(direction);
  }

  long packets() {
    return tracks.values().stream().mapToLong(Track::received).sum();
  }

  long lost() {
    return tracks.values().stream().mapToLong(Track::lost).sum();
  }

  void active(long now) {
    lastActivity = now;
  }

  void answered(long now) {
    if (answered < 0) {
      answered = now;
    }
  }

  boolean isAnswered() {
    return answered >= 0;
  }

  void note(String text) {
    if (notes.size() < 16) {
      notes.add(text);
    }
  }

  Set<String> notes() {
    Set<String> all = new TreeSet<>(notes);
    tracks.forEach((direction, track) -> track.notes().forEach(note -> all.add(direction + ": " + note)));
    return all;
  }

  /** The call will end then, unless something speaks against it before. */
  void endAt(long time, String reason) {
    deadline = time;
    deadlineReason = reason;
  }

  void goOn() {
    deadline = Long.MAX_VALUE;
  }

  String deadlineReason() {
    return deadlineReason;
  }

  /** Why the call is over by now, or null while it is not. */
  String overdue(long now, long idleMillis, long unansweredMillis) {
    if (now >= deadline) {
      return deadlineReason;
    }
    long patience = isAnswered() || packets() > 0 ? idleMillis : Math.min(idleMillis, unansweredMillis);
    return now - lastActivity >= patience ? "timeout" : null;
  }

  void close() {
    tracks.values().forEach(Track::close);
  }

  @Override
  public String toString() {
    return "call " + number;
  }
}
