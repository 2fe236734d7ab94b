package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredCalls;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.Writer;
import java.nio.ByteBuffer;
import java.nio.channels.Channels;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Removes calls from the pages. Belongs to the thread that writes them. */
public final class PageEraser {
  private static final Pattern CALL = Pattern.compile("\\{\"was\":(\"\\S+ (\\d+) (?:[^\"\\\\]|\\\\.)*\"),(.{0,15}).*");

  private PageEraser() {}

  /**
   * Removes the selected ended calls from all pages. Deletes pages of earlier days without any call. Each page is
   * replaced as a whole; browsers that show it load it again.
   *
   * @param now milliseconds since 1970
   * @return the number of the calls, counted on each page
   */
  public static int erase(Path directory, StoredCalls.Selection selection, long now) throws IOException {
    int erased = 0;
    Path days = directory.resolve(PageFile.DAYS);
    for (String name : PageFile.older(days)) {
      int[] counts = count(days.resolve(name), selection);
      erased += counts[0];
      if (counts[0] > 0 && counts[0] == counts[1]) {
        Files.delete(days.resolve(name));
      } else if (counts[0] > 0) {
        rewrite(days.resolve(name), selection, days, now);
      }
    }
    Path page = directory.resolve(PageFile.NAME);
    int[] counts = count(page, selection);
    if (erased + counts[0] > 0) {
      rewrite(page, selection, days, now);  // also when only its list of pages has changed
    }
    return erased + counts[0];
  }

  /** Returns the number of the selected calls, and of all calls. */
  private static int[] count(Path page, StoredCalls.Selection selection) throws IOException {
    int[] counts = new int[2];
    if (Files.exists(page)) {
      try (BufferedReader lines = FileOperations.lines(page)) {
        for (String line = lines.readLine(); line != null; line = lines.readLine()) {
          counts[0] += selects(selection, line) ? 1 : 0;
          counts[1] += line.startsWith("{\"was\":") ? 1 : 0;
        }
      }
    }
    return counts;
  }

  private static boolean selects(StoredCalls.Selection selection, String line) {
    Matcher call = CALL.matcher(line);
    if (!call.matches() || call.group(3).startsWith("\"running\":true")) {
      return false;
    }
    String key = (String) Json.read(call.group(1));
    return selection.selects(Long.parseLong(call.group(2)), key.split(" ", 3)[2]);
  }

  private static void rewrite(Path page, StoredCalls.Selection selection, Path days, long now) throws IOException {
    try (FileChannel old = FileChannel.open(page, StandardOpenOption.READ)) {
      byte[] head = PageFile.read(old, 0, PageTemplate.MAX_LENGTH);
      int start = PageFile.indexOfCalls(head);
      if (start < 0) {
        return;  // not written by this program
      }
      old.position(start);
      BufferedReader lines = new BufferedReader(new InputStreamReader(Channels.newInputStream(old),
          StandardCharsets.UTF_8));
      FileOperations.replace(page, channel -> {
        channel.write(ByteBuffer.wrap(head, 0, start));
        Writer out = Channels.newWriter(channel, StandardCharsets.UTF_8);
        for (String line = lines.readLine(); line != null; line = lines.readLine()) {
          if (!selects(selection, line)) {
            out.write(PageFile.withPages(line, PageFile.older(days), now) + "\n");
          }
        }
        out.flush();
      });
    }
  }
}
