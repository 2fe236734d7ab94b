import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;

/** Compares all stereo files of a load run, octet by octet, with the speech that was sent. See run.sh. */
public final class CompareRecordings {
  private static final int HEADER = 58;
  private static final byte SILENCE = (byte) 0xd5;

  private CompareRecordings() {}

  /** Argument: the directory of the recorder. Ends with status 1 when a file differs. */
  public static void main(String[] words) throws IOException {
    Path folder = Path.of(words[0]);
    List<String> rows = Files.readAllLines(folder.resolve("calls.csv"));
    long calls = 0;
    long packets = 0;
    long faults = 0;
    for (String row : rows.subList(1, rows.size())) {
      String[] cells = row.split(",", -1);
      String[] id = cells[6].split("-");
      int caller = Integer.parseInt(id[0]);
      int call = Integer.parseInt(id[1]);
      Path file = folder.resolve(cells[cells.length - 1]);
      byte[] wav = Files.isRegularFile(file) ? Files.readAllBytes(file) : new byte[HEADER];
      for (int channel = 0; channel < 2; channel++) {
        int count = Integer.parseInt(cells[channel == 0 ? 8 : 12]);
        String fault = fault(channel(wav, channel), spoken(caller + channel, call, count));
        if (!fault.isEmpty() && ++faults <= 10) {
          System.out.println(file + ", " + (channel == 0 ? "caller" : "callee") + ": " + fault);
        }
        packets += count;
      }
      calls++;
    }
    System.out.println(calls + " calls with " + packets + " packets compared, " + faults + " voices differ");
    System.exit(faults == 0 && calls > 0 ? 0 : 1);
  }

  private static byte[] channel(byte[] wav, int channel) {
    byte[] octets = new byte[(wav.length - HEADER) / 2];
    for (int i = 0; i < octets.length; i++) {
      octets[i] = wav[HEADER + 2 * i + channel];
    }
    return octets;
  }

  private static byte[] spoken(int sender, int call, int count) {
    byte[] octets = new byte[count * Speech.SIZE];
    for (int i = 0; i < count; i++) {
      Speech.write(sender, call, i, octets, i * Speech.SIZE);
    }
    return octets;
  }

  /** Returns what is wrong: between silence there is exactly what was spoken. An empty text means nothing. */
  private static String fault(byte[] recorded, byte[] spoken) {
    int start = 0;
    while (start + Speech.SIZE < recorded.length
        && !Arrays.equals(recorded, start, start + Speech.SIZE, spoken, 0, Math.min(spoken.length, Speech.SIZE))) {
      start++;
    }
    int end = Math.min(recorded.length, start + spoken.length);
    int differs = Arrays.mismatch(recorded, start, end, spoken, 0, spoken.length);
    for (int i = 0; i < recorded.length; i++) {
      if ((i < start || i >= end) && recorded[i] != SILENCE) {
        return "no silence at sample " + i + " of " + recorded.length;
      }
    }
    return differs < 0 ? "" : "differs after " + differs + " of " + spoken.length + " samples";
  }
}
