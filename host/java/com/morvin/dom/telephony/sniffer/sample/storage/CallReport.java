package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;

/**
 * The report of an ended call. It is saved as a JSON file with the names of these components. File names are relative
 * to the directory of the recordings. Texts from the network have no control characters and a limited length; they can
 * hold anything else.
 *
 * @param name the unique name of the report file, without its extension
 * @param protocol "SIP" or "H.323"
 * @param id the Call-ID or the H.323 call identifier
 * @param start milliseconds since 1970: when its first message was captured, or the first sound if that is older
 * @param end milliseconds since 1970
 * @param endReason why it ended: "hung up by caller"
 * @param fromCaller the media sent by the caller
 * @param fromCallee the media sent by the callee
 * @param stereo the file with both directions, caller left, which begins with the call; empty when there is none
 * @param moreStereo the files that continue it, when it is too long for one
 * @param ladder the signalling messages, in order
 * @param notes further remarks
 * @param legs the legs of a call that has more than one, in the order of their start
 */
public record CallReport(String name, String protocol, String id, String caller, String callee, long start, long end,
    String endReason, Voice fromCaller, Voice fromCallee, String stereo, List<Part> moreStereo, List<Step> ladder,
    List<String> notes, List<Leg> legs) {
  /** Returns the start in the table of calls. In a report of an earlier version sound can come before its start. */
  public long began() {
    double first = Stream.of(fromCaller, fromCallee).flatMap(voice -> voice.parts.stream()).mapToDouble(Part::offset)
        .min().orElse(0);
    return start + Math.round(1000 * Math.min(0, first));
  }

  /** The directory of the reports, inside the directory of the recordings. */
  public static final String FOLDER = "calls";

  /**
   * The media of one direction.
   *
   * @param packets the number of received RTP packets without duplicates
   * @param lost the number of lost packets
   * @param parts the files in the order of their start; usually one
   * @param digits pressed keys
   */
  public record Voice(long packets, long lost, List<Part> parts, List<Digit> digits) {}

  /**
   * One file of one direction: a WAV file or, for a codec that is not decoded, a pcap file.
   *
   * @param codec as SDP names it: "PCMA"
   * @param offset from the start of the call to the first sample, in seconds
   * @param duration in seconds
   * @param gaps where speech is missing
   */
  public record Part(String file, String codec, double offset, double duration, List<Gap> gaps) {}

  /** A part of a file with lost speech, in seconds from the start of the file. */
  public record Gap(double from, double to) {}

  /** A pressed key and its time in seconds from the start of the call. */
  public record Digit(double at, String digit) {}

  /**
   * A signalling message.
   *
   * @param at in seconds from the start of the call
   * @param from address and port
   * @param to address and port
   * @param label "INVITE", "180 Ringing", "Setup"
   */
  public record Step(double at, String from, String to, String label) {}

  /**
   * A part of the call with signalling of its own.
   *
   * @param at its start in seconds from the start of the call
   * @param id the Call-ID
   * @param endReason why it ended; empty when the call ended before
   */
  public record Leg(double at, String id, String caller, String callee, String endReason) {}

  /** Returns one line of JSON, which is safe inside a script element of a page. */
  public String json() {
    return Json.write(RecordMapper.write(this));
  }

  /**
   * Reads a report.
   *
   * @throws IOException when the file cannot be read or is not a report
   */
  public static CallReport read(Path file) throws IOException {
    try {
      return RecordMapper.read(Json.read(Files.readString(file)));
    } catch (RuntimeException e) {
      throw new IOException(file + " is no report of a call: " + e.getMessage(), e);
    }
  }
}
