package com.morvin.dom.telephony.sniffer;

import java.io.File;
import java.nio.ByteBuffer;

/**
 * The sniffer inside this Java process. It captures the traffic of telephones and call servers, and forwards SIP
 * messages, descriptions of H.323 messages, and the requested RTP.
 *
 * <p>Usually three threads use an object of this class:
 *
 * <ol>
 *   <li>One calls {@link #mainLoop}, which captures and returns when capture has ended.
 *   <li>One takes frames with {@link #getPacket} and sends commands with {@link #sendRequest}, both <em>while it holds
 *       the monitor of this object</em>. {@link #getPackets} takes many frames in one call.
 *   <li>One, any but the first, calls {@link #breakMainLoop} to end the capture.
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
 * The monitor of this object guards two queues, one of frames and one of commands. The thread inside {@code mainLoop}
 * enters the monitor when it queues a frame or looks for a command. {@code getPacket} and {@code sendRequest} require
 * that the caller holds it. Hold it only for the call: while it is held, capture continues but no frame is forwarded.
 * Do not hold it when you call {@code mainLoop}, or no other thread can take a frame.
 *
 * <h2>One main loop at a time</h2>
 *
 * A process has one capture engine and one pair of queues, for all objects of this class. While one {@code mainLoop}
 * runs, a second one returns at once. After the first one has ended, another may start, on this object or on another
 * one.
 *
 * <h2>Logging</h2>
 *
 * The native code logs through log4cxx and reads its configuration from {@code ./log4cxx.properties}, in the working
 * directory of the process.
 */
public class EmbeddedPacketChannel {
  /** The length of the longest frame in bytes: an array of this size is long enough for each {@link #getPacket}. */
  public static final int MAX_FRAME = 65535;

  /** The length of a command without an IPv6 address in bytes; see {@link #sendRequest}. */
  public static final int REQUEST_LENGTH = 7;

  static {
    load();
  }

  /**
   * The devices to capture on, at most ten names separated by {@code ';'}, each at most 49 characters long. A name
   * {@code file:PATH} replays a capture file at the pace of its time stamps. A device that cannot be opened is logged
   * and left out. The field must be set before {@link #mainLoop} is called. Later changes of this and the other fields
   * have no effect.
   */
  public String nicDevice;

  /**
   * The capture filter, a libpcap expression, applied to every device. {@code "udp"} is enough for SIP and its media;
   * H.323 signalling needs TCP as well: {@code "udp or tcp"}. A filter for traffic with VLAN tags must name them:
   * {@code "udp or tcp or (vlan and (udp or tcp))"}.
   */
  public String packetFilter = "udp";

  /**
   * The number of packets to capture on each device, or -1 for no limit. After they are captured, {@link #mainLoop}
   * still waits for {@link #breakMainLoop}.
   */
  public int packetCount = -1;

  /** Whether each decoded H.323 message is logged completely, at level INFO. */
  public boolean traceSignalling;

  /**
   * Whether packets are captured without delay, through a buffer of 128 MiB for each device. Without it the kernel
   * collects packets for up to a second: signalling is forwarded late, and the media that passes before the resulting
   * command is not recorded.
   */
  public boolean immediateCapture = true;

  /**
   * Further settings, one {@code Key=value} on each line: the keys of the properties file that the other fields do not
   * cover, such as {@code "LookBack=2000\nCaptureTime=yes"}. A setting that is not given here is off. An unknown key is
   * logged as a warning and ignored. Null and an empty text mean no settings.
   */
  public String settings;

  /** Makes a channel that does not capture yet. Set {@link #nicDevice}, then call {@link #mainLoop}. */
  public EmbeddedPacketChannel() {}

  /**
   * Captures and forwards on the calling thread until {@link #breakMainLoop} is called. Returns at once when the set-up
   * fails: an invalid filter is logged and printed to the standard error stream, a null field is not reported. It can
   * be called again after it has returned. The caller must not hold the monitor of this object.
   */
  public native void mainLoop();

  /**
   * Ends {@link #mainLoop}, and drops frames that are captured but not forwarded. Call it from a thread other than the
   * one inside {@code mainLoop}. It returns after capture has stopped; join the other thread to wait until
   * {@code mainLoop} has returned. Before {@code mainLoop} is called and after it has returned, it does nothing.
   */
  public native void breakMainLoop();

  /**
   * Takes the oldest waiting frame without blocking. The caller holds the monitor of this object.
   *
   * <p>A frame is a header of 15 bytes and a payload. Numbers are in network byte order: length of the whole frame (2
   * bytes), protocol (1 byte: 1 SIP, 2 RTP or RTCP, 3 heartbeat reply, 4 H.323 description, 5 capture time),
   * destination address (4) and port (2), source address (4) and port (2). With the setting {@code IPv6=yes} there are
   * also frames of IPv6 packets: the protocol is higher by 64, both addresses have 16 bytes, and the header has 39.
   *
   * @param buffer receives the frame from index 0; {@link #MAX_FRAME} bytes are always enough
   * @return the length of the frame in bytes; 0 when no frame waits, and when the buffer is null or shorter than the
   *     frame, which then stays in the queue
   */
  public native int getPacket(byte[] buffer);

  /**
   * Takes the oldest waiting frames without blocking, many in one call. Each frame is as {@link #getPacket} delivers
   * it, the order is the same, and the frames follow each other without a gap: the first two bytes of a frame are its
   * length, and so the distance to the next frame. The method never writes a part of a frame. The caller need not hold
   * the monitor of this object.
   *
   * <p>Both methods may be used in one process. Each frame is delivered once, by whichever is called first.
   *
   * <pre>{@code
   * ByteBuffer frames = ByteBuffer.allocateDirect(256 << 10);
   * int end = channel.getPackets(frames);
   * for (int at = 0; at < end; at += frames.getShort(at) & 0xffff) {
   *   use(frames, at);
   * }
   * }</pre>
   *
   * @param buffer a direct buffer, which receives the frames from index 0; its position and limit are neither used nor
   *     changed, its byte order does not matter. With {@link #MAX_FRAME} bytes every frame fits; 256 KiB hold about
   *     1,400 frames of G.711
   * @return the number of bytes that were written; 0 when no frame waits
   * @throws IllegalArgumentException when the buffer is null, not direct or read-only, and when the oldest frame does
   *     not fit. The frames then stay in the queue
   */
  public native int getPackets(ByteBuffer buffer);

  /**
   * Queues a command without blocking. The caller holds the monitor of this object.
   *
   * <p>A command has {@value #REQUEST_LENGTH} bytes. Numbers are in network byte order: code (1 byte: 1 forward the RTP
   * sent to this address and port, 2 stop forwarding it, 3 send a heartbeat reply), IPv4 address (4), UDP port (2). The
   * thread inside {@link #mainLoop} carries it out after the next captured packet, so there is no heartbeat reply
   * without traffic.
   *
   * <p>With the setting {@code IPv6=yes} there are two more commands, of 19 bytes: code (1 byte: 4 forward, 5 stop),
   * IPv6 address (16), UDP port (2).
   *
   * @param buffer the command; further bytes are ignored
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
