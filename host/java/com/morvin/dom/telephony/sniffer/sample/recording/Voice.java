package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.media.Codec;
import com.morvin.dom.telephony.sniffer.sample.media.RtpPacket;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Leg;
import com.morvin.dom.telephony.sniffer.sample.signalling.Sdp;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/**
 * One direction of a recording. Each packet of media enters here.
 *
 * <p>It recognises copies of a voice. When a call manager relays media, each voice passes on two legs, as two RTP
 * sources. It is recorded once: from the leg that it came on first, as long as it comes there.
 */
final class Voice {
  private static final long SILENCE_MILLIS = 500;

  final Recording recording;
  Track track;
  /** The tracks of calls that have turned out to be legs of this one. Nothing is added to them. */
  final List<Track> earlier = new ArrayList<>();
  private final long skew;
  private boolean changed;
  private boolean shown;
  private Leg leg;
  private int ssrc;
  private long last;
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
    if (!codec.isPlayed() || accepts(use.leg(), packet.ssrc(), time)) {
      packet.describe(codec, time + skew);
      track.accept(packet);
    }
    return true;
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

  /** Whether a packet is recorded. A source that moves to another leg goes on. */
  private boolean accepts(Leg from, int source, long time) {
    boolean accepted = leg == null || leg == from || ssrc == source || time - last >= SILENCE_MILLIS;
    if (accepted) {
      if (leg != from) {
        leg = from;
      }
      ssrc = source;
      last = time;
    }
    return accepted;
  }
}
