package com.morvin.dom.telephony.sniffer;

/** A host class of an older version, without the fields immediateCapture and settings. Takes one frame and ends. */
class EmbeddedPacketChannel {
  String nicDevice;
  String packetFilter = "udp";
  int packetCount = -1;
  boolean traceSignalling;

  native void mainLoop();

  native void breakMainLoop();

  native int getPacket(byte[] buffer);

  native int sendRequest(byte[] buffer);

  public static void main(String[] words) throws Exception {
    System.loadLibrary("sniffer");
    EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
    channel.nicDevice = words[0];
    Thread loop = new Thread(channel::mainLoop);
    loop.start();
    while (channel.getPacket(new byte[65535]) == 0) {
      Thread.sleep(1);
    }
    channel.breakMainLoop();
    loop.join();
    System.out.println("lived");
  }
}
