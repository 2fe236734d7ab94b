/** Loads the library of the sniffer from the directory that the package installs it in. */
class LoadLibrary {
  public static void main(String[] arguments) {
    new com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel();
  }
}
