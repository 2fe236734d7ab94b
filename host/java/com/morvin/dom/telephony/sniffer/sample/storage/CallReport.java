package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;

/**
 * What is known of a call that has ended, as people want to see it. It is kept as a JSON file for each call, whose
 * names are those of the components here. File names are relative to the folder of the recordings. All texts come from
 * the network: they are free of control characters and not overlong, and otherwise anything.
 *
 * @param name that the names of its files begin with; one call's alone
 * @param protocol "SIP" or "H.323"
 * @param id the Call-ID or the H.323 call identifier
 * @param start milliseconds since 1970
 * @param end milliseconds since 1970
 * @param endReason how it ended: "hung up by caller"
 * @param fromCaller what the caller said
 * @param fromCallee what the callee said
 * @param stereo the file with both, caller left, which begins when the call does; empty when there is none
 * @param ladder the messages of its signalling, in order
 * @param notes what else there is to say
 */
public record CallReport(String name, String protocol, String id, String caller, String callee, long start, long end,
    String endReason, Voice fromCaller, Voice fromCallee, String stereo, List<Step> ladder, List<String> notes) {
  /** The folder of the reports, in that of the recordings. */
  public static final String FOLDER = "calls";

  /**
   * One direction.
   *
   * @param packets of RTP that came, each counted once
   * @param lost that never came
   * @param parts the files, in the order in which they begin; mostly one
   * @param digits pressed keys
   */
  public record Voice(long packets, long lost, List<Part> parts, List<Digit> digits) {}

  /**
   * One file of one direction: a WAV file or, of a codec that is not decoded, a pcap file.
   *
   * @param codec as SDP names it: "PCMA"
   * @param offset from the start of the call to the first sample, in seconds
   * @param duration in seconds
   * @param gaps where speech is missing
   */
  public record Part(String file, String codec, double offset, double duration, List<Gap> gaps) {}

  /** In seconds from the start of the file. */
  public record Gap(double from, double to) {}

  /** A pressed key, in seconds from the start of the call. */
  public record Digit(double at, String digit) {}

  /**
   * A message of the signalling.
   *
   * @param at in seconds from the start of the call
   * @param from address and port
   * @param to address and port
   * @param label "INVITE", "180 Ringing", "Setup"
   */
  public record Step(double at, String from, String to, String label) {}

  /** As one line of JSON, which can stand in a script element of a page. */
  public String json() {
    return Json.write(CallReportForm.write(this));
  }

  /**
   * Reads a report.
   *
   * @throws IOException also when the file holds something else
   */
  public static CallReport read(Path file) throws IOException {
    try {
      return CallReportForm.read(Json.read(Files.readString(file)));
    } catch (RuntimeException e) {
      throw new IOException(file + " is no report of a call: " + e.getMessage(), e);
    }
  }
}
