package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import java.io.BufferedInputStream;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.function.Consumer;
import java.util.zip.CRC32;

/** A file with the messages that the broker had not confirmed when a front was stopped. */
final class Spool {
  private static final int VERSION = 1;
  private static final int MAX_RECORD = 1 << 20;
  private static final int WRITTEN_TOGETHER = 4 << 20;

  private final Path file;

  Spool(Path file) {
    this.file = file;
  }

  /**
   * Replaces the content of the file. It is on the disk afterwards.
   *
   * @return the number of messages that were written: fewer than all of them when the disk is full
   */
  int write(List<Message> messages) throws IOException {
    int[] written = {0};
    FileOperations.replace(file, channel -> {
      for (int count = 1; written[0] < messages.size() && count > 0; written[0] += count) {
        count = appendSome(channel, messages.subList(written[0], messages.size()));
      }
    });
    FileOperations.syncNames(file.getParent());
    return written[0];
  }

  /** Appends the first messages together: each write can wait for a slow disk. Returns their number, or 0. */
  private static int appendSome(FileChannel channel, List<Message> messages) throws IOException {
    ByteArrayOutputStream records = new ByteArrayOutputStream();
    int count = 0;
    while (count < messages.size() && records.size() < WRITTEN_TOGETHER) {
      records.writeBytes(record(messages.get(count++)));
    }
    if (append(channel, records.toByteArray())) {
      return count;
    }
    // The disk is full. The messages that still fit are written one by one.
    int fitting = 0;
    while (fitting < count && append(channel, record(messages.get(fitting)))) {
      fitting++;
    }
    return fitting;
  }

  /** Returns a record: length, checksum, content. */
  private static byte[] record(Message message) throws IOException {
    byte[] content = content(message);
    return ByteBuffer.allocate(2 * Integer.BYTES + content.length).putInt(content.length).putInt(checksum(content))
        .put(content).array();
  }

  /** Appends all bytes, or nothing. Returns false when there is no space. */
  private static boolean append(FileChannel channel, byte[] bytes) throws IOException {
    long end = channel.position();
    try {
      for (ByteBuffer rest = ByteBuffer.wrap(bytes); rest.hasRemaining();) {
        channel.write(rest);
      }
      return true;
    } catch (IOException e) {
      channel.truncate(end);
      return false;
    }
  }

  private static byte[] content(Message message) throws IOException {
    ByteArrayOutputStream bytes = new ByteArrayOutputStream();
    DataOutputStream out = new DataOutputStream(bytes);
    out.writeByte(VERSION);
    out.writeUTF(message.id().toString());
    out.writeInt(message.partition().generation());
    out.writeInt(message.partition().number());
    out.writeUTF(message.continued());
    out.writeUTF(Recap.text(message.recaps()));
    out.writeBoolean(message.media());
    out.writeInt(message.frames());
    out.write(message.body());
    return bytes.toByteArray();
  }

  private static int checksum(byte[] bytes) {
    CRC32 crc = new CRC32();
    crc.update(bytes);
    return (int) crc.getValue();
  }

  /** Reads the messages in the file, up to the first damaged one. Returns their number. */
  int read(Consumer<Message> out) throws IOException {
    if (!Files.exists(file)) {
      return 0;
    }
    int count = 0;
    try (DataInputStream in = new DataInputStream(new BufferedInputStream(Files.newInputStream(file)))) {
      for (Message message = next(in); message != null; message = next(in)) {
        out.accept(message);
        count++;
      }
    }
    return count;
  }

  private static Message next(DataInputStream in) throws IOException {
    byte[] header = in.readNBytes(2 * Integer.BYTES);
    int length = header.length < 2 * Integer.BYTES ? 0 : ByteBuffer.wrap(header).getInt();
    byte[] content = length > 0 && length <= MAX_RECORD ? in.readNBytes(length) : new byte[0];
    if (content.length == 0 || content.length < length || checksum(content) != ByteBuffer.wrap(header).getInt(4)) {
      return null;
    }
    return message(new DataInputStream(new ByteArrayInputStream(content)));
  }

  private static Message message(DataInputStream in) throws IOException {
    if (in.readByte() != VERSION) {
      return null;
    }
    MessageId id = MessageId.parse(in.readUTF());
    Partition partition = Partition.restored(in.readInt(), in.readInt());
    String continued = in.readUTF();
    String recaps = in.readUTF();
    boolean media = in.readBoolean();
    int frames = in.readInt();
    byte[] body = in.readAllBytes();
    return new Message(id, partition, continued, Recap.parse(recaps, body.length), media, frames, body);
  }

  /** Removes the file. */
  void remove() throws IOException {
    Files.deleteIfExists(file);
  }
}
