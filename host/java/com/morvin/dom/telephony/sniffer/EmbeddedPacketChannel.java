package com.morvin.dom.telephony.sniffer;

import java.io.File;

/**
 * The sniffer inside this Java process: captures the traffic of telephones and call servers and hands over SIP
 * messages, descriptions of H.323 calls, and the RTP that was asked for.
 *
 * <p>An object of this class has three users, which are usually three threads:
 *
 * <ol>
 *   <li>One calls {@link #mainLoop}, which captures and does not return until sniffing ends.
 *   <li>One drains frames with {@link #getPacket} and answers with commands through {@link #sendRequest}, both
 *       <em>while it holds the monitor of this object</em>.
 *   <li>One, any but the first, calls {@link #breakMainLoop} when it is time to end.
 * </ol>
 *
 * <pre>{@code
 * EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
 * channel.nicDevice = "eth0";
 * channel.packetFilter = "udp or tcp";
 * Thread sniffing = new Thread(channel::mainLoop, "sniffer");
 * sniffing.start();
 *
 * byte[] frame = new byte[EmbeddedPacketChannel.MAX_FRAME];
 * while (running) {
 *   int length;
 *   synchronized (channel) {
 *     length = channel.getPacket(frame);
 *   }
 *   if (length > 0) {
 *     use(frame, length);
 *   } else {
 *     Thread.sleep(1);
 *   }
 * }
 * channel.breakMainLoop();
 * sniffing.join();
 * }</pre>
 *
 * <h2>The monitor</h2>
 *
 * Frames and commands wait in two queues that this object's monitor guards. The native code enters the monitor on the
 * thread inside {@code mainLoop} whenever it queues a frame or looks for a command; {@code getPacket} and
 * {@code sendRequest} rely on their caller to hold it. So hold it for the call and no longer: while it is held, capture
 * goes on but no frame is forwarded. {@code mainLoop} itself must not be called with the monitor held, or no other
 * thread could ever take a frame.
 *
 * <h2>One at a time</h2>
 *
 * There is one capture engine and one pair of queues in a process, whatever the number of channel objects. A
 * {@code mainLoop} that is called while another one runs returns at once. After one has ended, the next may start, on
 * this object or on another.
 *
 * <h2>Logging</h2>
 *
 * The native code logs through log4cxx and reads its configuration from {@code ./log4cxx.properties}, in the working
 * directory of the process.
 */
public class EmbeddedPacketChannel {
  /** The length of the longest frame in bytes: an array of this size is always long enough for {@link #getPacket}. */
  public static final int MAX_FRAME = 65535;

  /** The length of a command in bytes; see {@link #sendRequest}. */
  public static final int REQUEST_LENGTH = 7;

  static {
    load();
  }

  /**
   * The devices to capture on, at most ten names separated by {@code ';'}, each at most 49 characters long. A name
   * {@code file:PATH} replays a capture file at the pace of its time stamps. A device that cannot be opened is logged
   * and left out. Must be set, and not null, when {@link #mainLoop} is called; later changes have no effect, as with
   * the other fields.
   */
  public String nicDevice;

  /**
   * The capture filter, a libpcap expression, applied to every device. {@code "udp"} is enough for SIP and its media;
   * H.323 signalling needs TCP as well: {@code "udp or tcp"}. Behind VLAN tags a filter must say so:
   * {@code "udp or tcp or (vlan and (udp or tcp))"}.
   */
  public String packetFilter = "udp";

  /**
   * The number of packets to capture on each device, or -1 for no end. When they have been captured {@link #mainLoop}
   * still waits for {@link #breakMainLoop}.
   */
  public int packetCount = -1;

  /** Whether decoded H.323 messages are written to the log, whole, at level INFO. */
  public boolean traceSignalling;

  /**
   * Whether frames are handed over within a few milliseconds, through a buffer of 128 MiB for each device. Without it
   * the kernel collects them for up to a second: signalling comes late, and the media that passes before the answer to
   * it is not recorded.
   */
  public boolean immediateCapture = true;

  /**
   * Further settings, one {@code Key=value} on each line: the keys of the properties file that the other fields do not
   * cover, such as {@code "LookBack=2000\nCaptureTime=yes"}. Each is off unless it is given here. A key that the
   * native side does not know costs a warning in the log and nothing else. Null and empty mean none.
   */
  public String settings;

  /** Makes a channel that captures nothing yet: set {@link #nicDevice}, then call {@link #mainLoop}. */
  public EmbeddedPacketChannel() {}

  /**
   * Captures and forwards until {@link #breakMainLoop} is called; the calling thread does the work. Returns at once
   * when the set-up fails: an invalid filter is logged and reported on the standard error stream, a null field ends
   * the call silently. It can be called again after it returned. Call it without holding this object's monitor.
   */
  public native void mainLoop();

  /**
   * Ends {@link #mainLoop}; frames that were captured but not forwarded yet are dropped. To be called from a thread
   * other than the one inside {@code mainLoop}. It returns when capture has stopped; join the other thread to know that
   * {@code mainLoop} has returned. It is safe at any time: before {@code mainLoop} was called or after it returned, it
   * does nothing.
   */
  public native void breakMainLoop();

  /**
   * Takes the oldest waiting frame. Never blocks. The caller holds this object's monitor.
   *
   * <p>A frame is a header of 15 bytes and a payload, numbers in network byte order: length of the whole frame (2
   * bytes), protocol (1: 1 SIP, 2 RTP or RTCP, 3 heartbeat reply, 4 H.323 description), destination address (4) and
   * port (2), source address (4) and port (2).
   *
   * @param buffer receives the frame from index 0 on; {@link #MAX_FRAME} bytes are always enough
   * @return the length of the frame in bytes; 0 when no frame waits, and also when the buffer is null or shorter than
   *     the frame, which then goes on waiting
   */
  public native int getPacket(byte[] buffer);

  /**
   * Queues a command. Never blocks. The caller holds this object's monitor.
   *
   * <p>A command has {@value #REQUEST_LENGTH} bytes, numbers in network byte order: code (1 byte: 1 forward the RTP
   * sent to this address and port, 2 stop doing so, 3 send a heartbeat reply), IPv4 address (4), UDP port (2). It is
   * carried out by the thread inside {@link #mainLoop} after the packet that it captures next; so on a silent network
   * nothing answers a heartbeat.
   *
   * @param buffer the command; bytes after the seventh are ignored
   * @return the length of {@code buffer} when the command was queued; 0 when the buffer is null or shorter than a
   *     command
   */
  public native int sendRequest(byte[] buffer);

  private static void load() {
    try {
      System.loadLibrary("sniffer");
    } catch (UnsatisfiedLinkError cause) {
      throw (UnsatisfiedLinkError) new UnsatisfiedLinkError(explain(cause)).initCause(cause);
    }
  }

  private static String explain(UnsatisfiedLinkError cause) {
    String file = System.mapLibraryName("sniffer");
    StringBuilder text = new StringBuilder("cannot load " + file + ": " + cause.getMessage() + "\nlooked for:");
    for (String directory : System.getProperty("java.library.path", "").split(File.pathSeparator)) {
      File candidate = new File(directory.isEmpty() ? "." : directory, file);
      text.append("\n  ").append(candidate).append(candidate.exists() ? " (exists)" : "");
    }
    return text + "\nStart Java with -Djava.library.path=DIRECTORY, naming the directory that holds " + file + ".";
  }
}
