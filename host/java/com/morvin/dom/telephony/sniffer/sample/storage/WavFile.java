package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.Path;
import javax.sound.sampled.AudioFileFormat;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;

/**
 * A WAV file that grows while a call goes on. Its header is made right again every second, so what has been
 * recorded can be played even after the recorder was killed.
 */
public final class WavFile {
  public static final int RATE = 8000;
  public static final AudioFormat FORMAT = new AudioFormat(RATE, 16, 1, true, false);

  /** A WAV file cannot exceed 4 GiB, and many programs stop at 2; this is 18 hours. */
  private static final long MAX_SAMPLES = 512L << 20;

  private final Path path;
  private final RandomAccessFile file;
  private final int headerLength;
  private final byte[] buffer = new byte[2 * RATE];
  private int buffered;
  private long samples;
  private boolean closed;

  /** Creates DIRECTORY/NAME.wav, or NAME-2.wav and so on when there is one already. */
  public WavFile(Path directory, String name) throws IOException {
    Files.createDirectories(directory);
    byte[] header = emptyWav();
    headerLength = header.length;
    path = create(directory, name);
    file = new RandomAccessFile(path.toFile(), "rw");
    try {
      file.write(header);
    } catch (IOException e) {
      file.close();
      throw e;
    }
  }

  private static Path create(Path directory, String name) throws IOException {
    for (int i = 1;; i++) {
      try {
        return Files.createFile(directory.resolve(i == 1 ? name + ".wav" : name + "-" + i + ".wav"));
      } catch (FileAlreadyExistsException e) {
        // The next number, then.
      }
    }
  }

  private static byte[] emptyWav() throws IOException {
    ByteArrayOutputStream out = new ByteArrayOutputStream();
    AudioInputStream nothing = new AudioInputStream(new ByteArrayInputStream(new byte[0]), FORMAT, 0);
    AudioSystem.write(nothing, AudioFileFormat.Type.WAVE, out);
    return out.toByteArray();
  }

  public Path path() {
    return path;
  }

  public long samples() {
    return samples;
  }

  public boolean full() {
    return samples >= MAX_SAMPLES;
  }

  public void write(short[] decoded) throws IOException {
    for (short sample : decoded) {
      write(sample);
    }
  }

  public void silence(long length) throws IOException {
    for (long i = 0; i < length; i++) {
      write((short) 0);
    }
  }

  private void write(short sample) throws IOException {
    if (buffered == buffer.length) {
      flush();
    }
    buffer[buffered++] = (byte) sample;
    buffer[buffered++] = (byte) (sample >> 8);
    samples++;
  }

  private void flush() throws IOException {
    file.seek(file.length());
    file.write(buffer, 0, buffered);
    buffered = 0;
    int data = (int) (file.length() - headerLength);
    patch(4, headerLength - 8 + data);
    patch(headerLength - 4, data);
  }

  /** The two lengths in the header are little-endian. */
  private void patch(int position, int length) throws IOException {
    file.seek(position);
    file.writeInt(Integer.reverseBytes(length));
  }

  public void close() throws IOException {
    if (!closed) {
      closed = true;
      try (file) {
        flush();
      }
    }
  }
}
