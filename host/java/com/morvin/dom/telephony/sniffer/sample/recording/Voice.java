package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.media.Codec;
import com.morvin.dom.telephony.sniffer.sample.media.RtpPacket;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Leg;
import com.morvin.dom.telephony.sniffer.sample.signalling.Sdp;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/**
 * One direction of a recording. Each packet of media enters here.
 *
 * <p>A call manager that relays media passes each voice on two legs, as two RTP sources. The voice is recorded once:
 * from the leg on which its first packet came, as long as packets come there.
 *
 * <p>Anyone can send RTP to the port of a telephone. A source is named when the signalling of the party that speaks has
 * described its address. A named source is recorded at once, and other sources only while no named one sends. With an
 * address translation (NAT) the signalling describes another address. No source is named, and the first is the voice.
 */
final class Voice {
  private static final long SILENCE_MILLIS = 500;
  /** By how much the packets of two sources come in another order than they were captured. */
  private static final long DISORDER_MILLIS = 200;
  private static final int FADING = 6;

  final Recording recording;
  Track track;
  /** The tracks of calls that have turned out to be legs of this one. Nothing is added to them. */
  final List<Track> earlier = new ArrayList<>();
  private final long skew;
  private boolean changed;
  private boolean shown;
  /** Whether the saved state has the file of the track. */
  private boolean known;
  private Leg leg;
  private int ssrc;
  /** The source of the voice; see {@link com.morvin.dom.telephony.sniffer.sample.transport.Endpoint#key}. */
  private long address;
  private long destination;
  private int trust;
  /** What identifies the source for the track: its first address, also after it has moved to another one. */
  private long identity;
  private long last;
  /** The time of the last recorded packet, in milliseconds since 1970; 0 when there was none. */
  private long heard;
  /** What it was at a restart; 0 when there was none, or the voice had stopped before it. */
  private long heardBefore;
  /** The longest of the last pauses between packets, in milliseconds: it fades in the course of 64 packets. */
  private long pause;
  /** The number of packets that were ignored because a source that the signalling knows better sent as well. */
  private long foreign;
  private Sdp.Media lastMedia;
  private int lastPayloadType;
  private Codec lastCodec;

  /**
   * Makes a direction without media.
   *
   * @param skew is added to all times
   */
  Voice(Recording recording, Track track, long skew) {
    this.recording = recording;
    this.track = track;
    this.skew = skew;
  }

  /** Returns all tracks, that of this call first. */
  Stream<Track> tracks() {
    return Stream.concat(Stream.of(track), earlier.stream());
  }

  /** Whether media was added since the last call of this method. */
  boolean takeChanged() {
    boolean was = changed;
    changed = false;
    return was;
  }

  /** Whether a file was begun that no saved state knows: a restart would not find it. */
  boolean hasUnknownFile() {
    return !known && track.hasBegun();
  }

  /** Whether this is the first call of this method. */
  boolean takeFirst() {
    boolean first = !shown;
    shown = true;
    return first;
  }

  /**
   * Adds a media datagram. Returns whether it is valid.
   *
   * @param packet shows the datagram afterwards
   */
  boolean media(FrameCursor frame, RtpPacket packet, Call.Use use, long time) {
    changed = true;
    Sdp.Media media = use.media();
    if (media.kind() == Sdp.Kind.FAX) {
      heard = Math.max(heard, time + skew);
      track.keep(frame.frame(), "T.38", time + skew);
      return true;
    }
    if (RtpPacket.isRtcp(frame) || RtpPacket.isSetup(frame)) {
      return true;
    }
    if (!packet.read(frame)) {
      return false;
    }
    Codec codec = codec(media, packet.payloadType());
    long from = frame.source();
    long to = frame.destination();
    if (!codec.isPlayed() || accepts(use, from, to, packet.ssrc(), time)) {
      hear(time + skew);
      packet.describe(codec, time + skew);
      track.accept(packet, identity(from, to, packet.ssrc()));
    }
    return true;
  }

  private void hear(long time) {
    if (time > heard) {
      pause = Math.max(pause - (pause >> FADING), heard == 0 ? 0 : time - heard);
      heard = time;
    }
  }

  /** Returns the codec of a payload type, mostly that of the packet before. */
  private Codec codec(Sdp.Media media, int payloadType) {
    if (media != lastMedia || payloadType != lastPayloadType) {
      lastMedia = media;
      lastPayloadType = payloadType;
      lastCodec = media.kind() == Sdp.Kind.SECURE_RTP ? Codec.SRTP
          : Codec.of(payloadType, media.codecs().get(payloadType));
    }
    return lastCodec;
  }

  /** Whether a packet is recorded. The source of the voice stays the voice when it sends to another destination. */
  private boolean accepts(Call.Use use, long from, long to, int source, long time) {
    // The leg of a stream changes when another leg turns out to have its destination.
    boolean isSame = address == from && ssrc == source && destination == to;
    if (!isSame && (leg != use.leg() || address != from)) {
      boolean silent = leg == null || time - last >= SILENCE_MILLIS;
      boolean equal = use.trust() == trust;
      if (!silent && use.trust() < trust) {
        countForeign(to, time);
        return false;
      }
      if (!silent && equal && (ssrc != source || destination == to)) {
        return leg == use.leg();  // on the same leg a second source, on another leg a copy of the voice
      }
      identity = leg != null && equal && ssrc == source ? identity : from;
      address = from;
    }
    leg = use.leg();
    destination = to;
    trust = use.trust();
    ssrc = source;
    last = time;
    return true;
  }

  /**
   * Counts an ignored packet. At another destination it may be a copy of the voice. One from before a restart, or from
   * before the last recorded packet, was counted when it came first: a sniffer sends again what may not have been read.
   */
  private void countForeign(long to, long time) {
    boolean isNew = time + skew > Math.max(heardBefore, heard - DISORDER_MILLIS);
    foreign += destination == to && isNew ? 1 : 0;
  }

  /** Returns what identifies a source for the track: for the voice its first address, for others their own. */
  private long identity(long from, long to, int source) {
    boolean isVoice = destination == to ? address == from : ssrc == source;
    return leg == null || isVoice ? identity : from;
  }

  /** Returns the time of the last recorded packet in milliseconds since 1970; 0 when there was none. */
  long heard() {
    return heard;
  }

  /** Whether nothing was recorded since a restart, for a time that is longer than the pauses of the voice before. */
  boolean isSilentSinceRestart(long millis) {
    return heardBefore > 0 && heard == heardBefore && millis > 2 * pause;
  }

  /** Returns the number of packets that were ignored because a better known source sent to the same destination. */
  long foreign() {
    return foreign;
  }

  void save(DataOutput out) throws IOException {
    track.flush();
    known = track.hasBegun();
    out.writeLong(heard);
    out.writeLong(pause);
    out.writeLong(foreign);
  }

  void restore(DataInput in) throws IOException {
    heard = in.readLong();
    heardBefore = heard;
    pause = in.readLong();
    foreign = in.readLong();
  }

  /** States that the restart has lost nothing: what was not saved is delivered again, or there was nothing. */
  void restartLostNothing() {
    heardBefore = 0;
  }

  /** Takes {@link #restore} back, and begins again with a track. */
  void reset(Track empty) {
    track = empty;
    earlier.clear();
    heard = 0;
    heardBefore = 0;
    pause = 0;
    foreign = 0;
    known = false;
  }

  /** Notes that a restart has opened the files of the saved state. */
  void resumed() {
    known = track.hasBegun();
  }

  /** Adds what is known of a direction of another call. */
  void add(Voice other) {
    heard = Math.max(heard, other.heard);
    foreign += other.foreign;
  }
}
