package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import java.io.IOException;
import java.net.URLEncoder;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.StreamSupport;

/** Writes a page with the calls of several directories of recordings. The page reads theirs, again and again. */
public final class PageIndex {
  private static final String FOLDERS = "{\"folders\":";

  private PageIndex() {}

  /**
   * Writes index.html into a directory, and replaces an earlier one that this method wrote. Returns the file.
   *
   * @param folders directories of recordings; their paths from the directory must be the same in the browser
   * @throws IOException when one of them has no page, or the directory has a page of its own
   */
  public static Path write(Path directory, List<Path> folders) throws IOException {
    for (Path folder : folders) {
      if (!Files.exists(folder.resolve(PageFile.NAME))) {
        throw new IOException(folder + " has no " + PageFile.NAME + ": it is no directory of recordings");
      }
    }
    Path page = directory.resolve(PageFile.NAME);
    if (Files.exists(page) && !Files.readString(page, StandardCharsets.ISO_8859_1).contains("\n" + FOLDERS)) {
      throw new IOException(page + " is the page of a recorder: choose another directory with --out");
    }
    FileOperations.createDirectories(directory);
    Path from = directory.toAbsolutePath().normalize();
    List<String> names =
        folders.stream().map(folder -> address(from.relativize(folder.toAbsolutePath().normalize()))).toList();
    byte[] line = (FOLDERS + Json.write(names) + "}\n").getBytes(StandardCharsets.UTF_8);
    FileOperations.replace(page, channel -> {
      for (byte[] part : List.of(PageTemplate.bytes(), line)) {
        channel.write(ByteBuffer.wrap(part));
      }
    });
    return page;
  }

  /** Returns a relative address for a browser. */
  private static String address(Path relative) {
    return StreamSupport.stream(relative.spliterator(), false)
        .map(name -> URLEncoder.encode(name.toString(), StandardCharsets.UTF_8).replace("+", "%20") + "/")
        .collect(Collectors.joining());
  }
}
