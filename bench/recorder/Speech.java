import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;

/** The speech of the load: octets that are different in each packet, so that each place in a recording is known. */
final class Speech {
  /** Samples in a packet. */
  static final int SIZE = 160;
  /** The packets of a whole call in each direction: 20 s. */
  static final int PACKETS = 1000;
  private static final VarHandle LONG = MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.BIG_ENDIAN);

  private Speech() {}

  /**
   * Writes the payload of a packet.
   *
   * @param sender the address of the telephone
   * @param call counts the calls of the telephone
   */
  static void write(int sender, int call, int packet, byte[] bytes, int offset) {
    long value = (long) sender << 32 ^ (long) call << 16 ^ packet;
    for (int i = 0; i < SIZE; i += Long.BYTES) {
      value = value * 0x5851f42d4c957f2dL + 0x14057b7ef767814fL;
      LONG.set(bytes, offset + i, value ^ value >>> 32);
    }
  }
}
