package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.storage.CallLog;
import java.nio.file.Path;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.EnumMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;
import java.util.stream.Collectors;

/** What is recorded of one call. */
final class Recording {
  private static final DateTimeFormatter FILE_TIME =
      DateTimeFormatter.ofPattern("yyyyMMdd-HHmmss").withZone(ZoneId.systemDefault());

  final Call call;
  private final Map<Direction, Track> tracks = new EnumMap<>(Direction.class);

  Recording(Call call, Path directory) {
    this.call = call;
    String prefix = FILE_TIME.format(Instant.ofEpochMilli(call.start())) + "-" + call.fileNames() + "-";
    for (Direction direction : Direction.values()) {
      tracks.put(direction, new Track(directory, prefix + direction));
    }
  }

  Track track(Direction direction) {
    return tracks.get(direction);
  }

  long lost() {
    return tracks.values().stream().mapToLong(Track::lost).sum();
  }

  Set<String> notes() {
    Set<String> all = new TreeSet<>(call.notes());
    tracks.forEach((direction, track) -> track.notes().forEach(note -> all.add(direction + ": " + note)));
    return all;
  }

  void close() {
    tracks.values().forEach(Track::close);
  }

  List<String> row(long end, String how) {
    List<String> fields = new ArrayList<>(List.of(CallLog.time(call.start()), CallLog.time(end),
        Text.seconds(end - call.start()), call.protocol(), call.caller(), call.callee(), call.id(), how));
    for (Direction direction : Direction.values()) {
      Track track = track(direction);
      fields.add(Long.toString(track.received()));
      fields.add(Long.toString(track.lost()));
      fields.add(track.firstArrival() < 0 ? "" : CallLog.time(track.firstArrival()));
      fields.add(track.recordings().keySet().stream().map(path -> path.getFileName().toString())
          .collect(Collectors.joining(" ")));
    }
    fields.add(String.join("; ", notes()));
    return fields;
  }
}
