/** Loads the sniffer's library from where the package has put it. */
class LoadLibrary {
  public static void main(String[] arguments) {
    new com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel();
  }
}
