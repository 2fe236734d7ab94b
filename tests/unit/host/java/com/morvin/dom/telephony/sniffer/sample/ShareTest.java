package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Random;
import java.util.stream.IntStream;

/** Each call belongs to one of the shares, or in doubt to two. */
final class ShareTest {
  private static final Endpoint[] HOSTS = IntStream.range(0, 3).mapToObj(i -> new Endpoint(0x0a000001 + i, 5060))
      .toArray(Endpoint[]::new);

  void testSpread() {
    for (int count = 1; count <= 12; count++) {
      int[] calls = new int[count + 2];
      int moved = 0;
      for (int id = 0; id < 12_000; id++) {
        int share = Share.of(id + "@host", count);
        int grown = Share.of(id + "@host", count + 1);
        calls[share]++;
        that(grown == share || grown == count + 1, id + " moves from " + share + " to " + grown);
        moved += grown == share ? 0 : 1;
      }
      for (int share = 1; share <= count; share++) {
        that(Math.abs(calls[share] - 12_000 / count) < 600 / Math.sqrt(count), count + ": " + calls[share]);
      }
      that(Math.abs(moved - 12_000 / (count + 1)) < 300, moved + " of 12000 move");
    }
  }

  /** A message of a leg, and when a recorder receives it. */
  private record Event(long time, int leg) {}

  private static Frame invite(int trial, int leg) {
    String text = "INVITE sip:b@b SIP/2.0\r\nVia: SIP/2.0/UDP x;branch=" + leg + "\r\nFrom: <sip:a@a>;tag=" + leg
        + "\r\nTo: <sip:b@b>\r\nCall-ID: " + id(trial, leg) + "\r\nCSeq: 1 INVITE\r\n"
        + (leg > 0 ? "X-Leg: " + id(trial, leg - 1) + "\r\n" : "") + "\r\n";
    return new Frame(Frame.SIP, HOSTS[leg + 1], HOSTS[leg], text.getBytes(StandardCharsets.UTF_8));
  }

  private static String id(int trial, int leg) {
    return Integer.toHexString(31 * trial * trial + 7919 * leg) + "-" + trial;
  }

  /** Two legs begin at some distance. Each recorder has other delays, so that the order differs, too. */
  void testDelaysAndOrder() {
    Random random = new Random(20);
    for (int trial = 0; trial < 3000; trial++) {
      int distance = random.nextInt(6) * 800;
      int delay = random.nextInt(900);
      int count = 2 + trial % 4;
      int[] owners = new int[2];
      for (int number = 1; number <= count; number++) {
        List<Event> events = new ArrayList<>();
        events.add(new Event(random.nextInt(delay + 1), 0));
        events.add(new Event(distance + random.nextInt(delay + 1), 1));
        follow(trial, new Share(number, count), events, owners);
      }
      boolean doubtful = distance + delay > 1000 && distance - delay <= 3000;
      for (int owned : owners) {
        that(owned == 1 || owned > 1 && owned <= 2 && doubtful,
            trial + ": " + owned + " owners of a leg, distance " + distance + ", delay " + delay);
      }
    }
  }

  /** Counts the legs of the calls that a recorder takes. */
  private static void follow(int trial, Share share, List<Event> events, int[] owners) {
    CallFollower follower = new CallFollower((new CallFollower.Listener() {
      @Override
      public void began(Call call, Moment now) {}

      @Override
      public void ended(Call call, String how, Moment at) {}
    }), CallFollower.Limits.DEFAULT.withShare(share), command -> true);
    events.stream().sorted(Comparator.comparingLong(Event::time))
        .forEach(event -> follower.signalling(invite(trial, event.leg), new Moment(event.time, event.time)));
    follower.calls().stream().filter(Call::isOwned).flatMap(call -> call.legs().stream())
        .forEach(leg -> owners[leg.id().equals(id(trial, 0)) ? 0 : 1]++);
  }
}
