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
import java.util.HashSet;
import java.util.Set;
import java.util.function.Consumer;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Removes calls from the pages. Belongs to the thread that writes them. */
public final class PageEraser {
  private static final Pattern CALL =
      Pattern.compile("\\{\"was\":(\"\\S+ (\\d+) [^\"\\\\]*+(?:\\\\.[^\"\\\\]*+)*+\")([,}].{0,15}).*");

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
    boolean changed = false;
    Path days = directory.resolve(PageFile.DAYS);
    for (String name : PageFile.older(days)) {
      Lines lines = new Lines(days.resolve(name), selection);
      erased += lines.ended;
      if (lines.selected > 0 && lines.kept == 0) {
        Files.delete(days.resolve(name));
      } else if (lines.selected > 0) {
        rewrite(days.resolve(name), lines, days, now);
      }
      changed |= lines.selected > 0;
    }
    Path page = directory.resolve(PageFile.NAME);
    Lines lines = new Lines(page, selection);
    if (changed || lines.selected > 0) {
      rewrite(page, lines, days, now);  // also when only its list of pages has changed
    }
    return erased + lines.ended;
  }

  /** The lines of a page. A call has a line when it begins, and another one when it has ended or belongs to another. */
  private static final class Lines {
    private final StoredCalls.Selection selection;
    private final Set<String> running = new HashSet<>();
    private final Set<String> over = new HashSet<>();
    /** The number of lines that show a selected call, and of those that show its end. */
    private int selected;
    private int ended;
    /** The number of lines of calls that are needed after the selected calls are removed. */
    private int kept;

    Lines(Path page, StoredCalls.Selection selection) throws IOException {
      this.selection = selection;
      if (Files.exists(page)) {
        forEach(page, this::follow);
        forEach(page, this::count);
      }
    }

    private static void forEach(Path page, Consumer<String> action) throws IOException {
      try (BufferedReader lines = FileOperations.lines(page)) {
        for (String line = lines.readLine(); line != null; line = lines.readLine()) {
          action.accept(line);
        }
      }
    }

    private void follow(String line) {
      Matcher call = CALL.matcher(line);
      if (line.equals(PageFile.SETTLED.strip())) {
        over.addAll(running);
      } else if (call.matches() && isRunning(call)) {
        running.add(call.group(1));
        over.remove(call.group(1));
      } else if (call.matches()) {
        over.add(call.group(1));
      }
    }

    private void count(String line) {
      Matcher call = CALL.matcher(line);
      if (call.matches()) {
        selected += selects(call) ? 1 : 0;
        ended += selects(call) && call.group(3).startsWith(",\"peaks\"") ? 1 : 0;
        kept += keeps(line) ? 1 : 0;
      }
    }

    private static boolean isRunning(Matcher call) {
      return call.group(3).startsWith(",\"running\"");
    }

    private static boolean isMerged(Matcher call) {
      return call.group(3).startsWith("}");
    }

    /** Whether the line of a call shows a selected one. Calls that are running are not selected. */
    private boolean selects(Matcher call) {
      return over.contains(call.group(1))
          && selection.selects(Long.parseLong(call.group(2)), ((String) Json.read(call.group(1))).split(" ", 3)[2]);
    }

    /** Whether a line is needed after the selected calls are removed. */
    boolean keeps(String line) {
      Matcher call = CALL.matcher(line);
      return !call.matches() || !selects(call) && !isMerged(call) && !(isRunning(call) && over.contains(call.group(1)));
    }
  }

  private static void rewrite(Path page, Lines needed, Path days, long now) throws IOException {
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
          if (needed.keeps(line)) {
            out.write(PageFile.withPages(line, PageFile.older(days), now) + "\n");
          }
        }
        out.flush();
      });
    }
  }
}
