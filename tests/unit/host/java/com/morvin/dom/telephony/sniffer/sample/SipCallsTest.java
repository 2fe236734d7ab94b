package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;

/** SIP calls, seen by what the recorder asks of the sniffer and what it writes about them. */
final class SipCallsTest {
  private static final String ALICE = "10.0.0.1:5060";
  private static final String BOB = "10.0.0.2:5060";
  private static final String CAROL = "10.0.0.3:5060";
  private static final String PROXY = "10.0.0.9:5060";

  private FakeSniffer sniffer;

  private static String sdp(String address, int port, String... attributes) {
    return "v=0\no=- 1 1 IN IP4 0.0.0.0\ns=-\nc=IN IP4 " + address + "\nt=0 0\nm=audio " + port + " RTP/AVP 8 0\n"
        + (attributes.length == 0 ? "" : String.join("\n", attributes) + "\n");
  }

  private static String message(String start, String fromTag, String toTag, String cseq, String branch, String body) {
    return start + "\nVia: SIP/2.0/UDP x:5060;branch=" + branch + "\nVia: SIP/2.0/UDP y;branch=other\n"
        + "From: \"Alice; <tag=no>\" <sip:alice@a.example>;tag=" + fromTag + "\nTo: <sip:bob@b.example>"
        + (toTag.isEmpty() ? "" : ";tag=" + toTag) + "\nCall-ID: call-1\nCSeq: " + cseq + "\n"
        + (body.isEmpty() ? "" : "Content-Type: application/sdp\n")
        + "Content-Length: " + body.replace("\n", "\r\n").length() + "\n\n" + body;
  }

  private void request(
      String method, int cseq, String source, String destination, String fromTag, String toTag, String body) {
    sniffer.sip(source, destination,
        message(method + " sip:x@y SIP/2.0", fromTag, toTag, cseq + " " + method, source + cseq, body));
  }

  /** The response to a request that was sent from the destination. */
  private void response(
      String status, String cseq, String source, String destination, String fromTag, String toTag, String body) {
    sniffer.sip(source, destination,
        message("SIP/2.0 " + status, fromTag, toTag, cseq, destination + cseq.split(" ")[0], body));
  }

  private void list(String... endpoints) {
    equal(sniffer.listed(), String.join(" ", new TreeSet<>(Set.of(endpoints))));
  }

  private void in(Testing.Body body) throws Exception {
    FakeSniffer.with(fake -> {
      sniffer = fake;
      body.run();
    });
  }

  private void establish() {
    request("INVITE", 1, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000));
    response("200 OK", "1 INVITE", BOB, ALICE, "a", "b", sdp("10.0.0.2", 6000));
    request("ACK", 1, ALICE, BOB, "a", "b", "");
    list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.2:6000", "10.0.0.2:6001");
  }

  void testACallFromEarlyMediaToItsEndWithEverythingSentTwice() throws Exception {
    in(() -> {
      for (int i = 0; i < 2; i++) {
        request("INVITE", 1, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000, "a=rtcp:4007"));
        list("10.0.0.1:4000", "10.0.0.1:4007");
      }
      for (int i = 0; i < 2; i++) {
        response("183 Session Progress", "1 INVITE", BOB, ALICE, "a", "b",
            sdp("10.0.0.2", 6000, "a=rtcp:7 IN IP4 10.0.0.5"));
        list("10.0.0.1:4000", "10.0.0.1:4007", "10.0.0.2:6000", "10.0.0.5:7");
      }
      // The answer moves Bob's media; a late copy of the early one moves it back no more.
      for (int i = 0; i < 2; i++) {
        response("200 OK", "1 INVITE", BOB, ALICE, "a", "b", sdp("10.0.0.2", 6100));
        response("183 Session Progress", "1 INVITE", BOB, ALICE, "a", "b", sdp("10.0.0.2", 6000));
        request("ACK", 1, ALICE, BOB, "a", "b", "");
        list("10.0.0.1:4000", "10.0.0.1:4007", "10.0.0.2:6100", "10.0.0.2:6101");
      }
      sniffer.pass(2000);
      for (int i = 0; i < 2; i++) {
        request("BYE", 1, BOB, ALICE, "b", "a", "");
        response("200 OK", "1 BYE", ALICE, BOB, "b", "a", "");
        list();
      }
      equal(sniffer.table().size(), 1);
      String line = sniffer.table().get(0);
      that(line.contains(",2.0,SIP,sip:alice@a.example,sip:bob@b.example,call-1,hung up by callee,"), line);
      equal(sniffer.commands.stream().filter(command -> command.code() == Command.ADD).count(), 6L);
    });
  }

  void testReInvitesMoveHoldAndFail() throws Exception {
    in(() -> {
      establish();
      // While an offer is open both addresses are wanted, after it was refused only the old one.
      request("INVITE", 2, ALICE, BOB, "a", "b", sdp("10.0.0.1", 4400));
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.1:4400", "10.0.0.1:4401", "10.0.0.2:6000", "10.0.0.2:6001");
      response("491 Request Pending", "2 INVITE", BOB, ALICE, "a", "b", "");
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.2:6000", "10.0.0.2:6001");
      // Bob holds in the old manner, then in the new one, from another address.
      request("INVITE", 7, BOB, ALICE, "b", "a", sdp("0.0.0.0", 6000));
      response("200 OK", "7 INVITE", ALICE, BOB, "b", "a", sdp("10.0.0.1", 4000));
      list("10.0.0.1:4000", "10.0.0.1:4001");
      request("UPDATE", 8, BOB, ALICE, "b", "a", sdp("10.0.0.8", 6800, "a=inactive"));
      response("200 OK", "8 UPDATE", ALICE, BOB, "b", "a", sdp("10.0.0.1", 4000, "a=inactive"));
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.8:6800", "10.0.0.8:6801");
      // Copies of what is long past change nothing.
      response("200 OK", "1 INVITE", BOB, ALICE, "a", "b", sdp("10.0.0.2", 6000));
      request("INVITE", 2, ALICE, BOB, "a", "b", sdp("10.0.0.1", 4400));
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.8:6800", "10.0.0.8:6801");
      // An offer in the 200, answered in the ACK.
      request("INVITE", 9, ALICE, BOB, "a", "b", "");
      response("200 OK", "9 INVITE", BOB, ALICE, "a", "b", sdp("10.0.0.2", 6002));
      request("ACK", 9, ALICE, BOB, "a", "b", sdp("10.0.0.1", 4002));
      list("10.0.0.1:4002", "10.0.0.1:4003", "10.0.0.2:6002", "10.0.0.2:6003");
      // A BYE that must show credentials first does not end the call.
      request("BYE", 10, ALICE, BOB, "a", "b", "");
      response("401 Unauthorized", "10 BYE", BOB, ALICE, "a", "b", "");
      sniffer.pass(60_000);
      equal(sniffer.list.size(), 4);
      // One that nobody answers does.
      request("BYE", 11, ALICE, BOB, "a", "b", "");
      sniffer.pass(33_000);
      list();
    });
  }

  void testAttemptsThatFail() throws Exception {
    in(() -> {
      request("INVITE", 1, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000));
      response("401 Unauthorized", "1 INVITE", BOB, ALICE, "a", "x", "");
      request("ACK", 1, ALICE, BOB, "a", "x", "");
      request("INVITE", 2, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000));
      sniffer.pass(10_000);
      equal(sniffer.list.size(), 2);
      response("486 Busy Here", "2 INVITE", BOB, ALICE, "a", "x", "");
      list();
      request("INVITE", 2, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000)); // sent again before the 486 arrived
      list();
      request("INVITE", 3, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000));
      request("CANCEL", 3, ALICE, BOB, "a", "", "");
      response("487 Request Terminated", "3 INVITE", BOB, ALICE, "a", "x", "");
      list();
      request("INVITE", 4, ALICE, BOB, "a", "", sdp("10.0.0.1", 4000));
      response("180 Ringing", "4 INVITE", BOB, ALICE, "a", "x", "");
      sniffer.pass(301_000);
      list();
      equal(sniffer.table().stream().map(line -> line.split(",")[7]).toList(),
          List.of("failed: 486 Busy Here", "cancelled", "timeout"));
    });
  }

  void testForkingProxyThatRelaysMedia() throws Exception {
    in(() -> {
      request("INVITE", 1, ALICE, PROXY, "a", "", sdp("10.0.0.1", 4000));
      request("INVITE", 1, PROXY, BOB, "a", "", sdp("10.0.0.9", 9000));
      sniffer.sip(
          PROXY, CAROL, message("INVITE sip:carol@c SIP/2.0", "a", "", "1 INVITE", "carol", sdp("10.0.0.9", 9000)));
      response("183 Early", "1 INVITE", BOB, PROXY, "a", "b", sdp("10.0.0.2", 6000));
      sniffer.sip(CAROL, PROXY, message("SIP/2.0 183 Early", "a", "c", "1 INVITE", "carol", sdp("10.0.0.3", 8000)));
      equal(sniffer.list.size(), 8);
      sniffer.sip(CAROL, PROXY, message("SIP/2.0 486 Busy", "a", "c", "1 INVITE", "carol", ""));
      equal(sniffer.list.size(), 8);
      response("200 OK", "1 INVITE", BOB, PROXY, "a", "b", sdp("10.0.0.2", 6000));
      response("200 OK", "1 INVITE", PROXY, ALICE, "a", "b", sdp("10.0.0.9", 9100));
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.9:9000", "10.0.0.9:9001", "10.0.0.2:6000", "10.0.0.2:6001",
          "10.0.0.9:9100", "10.0.0.9:9101");
      // Relayed, each voice passes twice; it is recorded once.
      for (int i = 0; i < 50; i++) {
        byte[] packet = FakeSniffer.rtp(8, i, 160 * i, 7, new byte[160]);
        sniffer.udp(FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.at("10.0.0.9:9100"), packet);
        sniffer.udp(FakeSniffer.at("10.0.0.9:9000"), FakeSniffer.at("10.0.0.2:6000"), packet);
        sniffer.pass(20);
      }
      request("BYE", 2, ALICE, PROXY, "a", "b", "");
      response("200 OK", "2 BYE", PROXY, ALICE, "a", "b", "");
      list();
      equal(sniffer.samples("from-caller.wav").length, 50 * 160);
      equal(sniffer.wavFiles().size(), 1);
    });
  }

  void testCompactFormsPartsAndSeveralMedia() throws Exception {
    in(() -> {
      String body = "--part\nContent-Type: text/plain\n\nm=audio 1 RTP/AVP 0\n--part\nContent-Type: application/sdp\n\n"
          + "v=0\nc=IN IP4 10.0.0.1\nm=audio 4000/2 RTP/AVP 8\nm=video 4100 RTP/AVP 31\nm=audio 4200 RTP/SAVP 0\n"
          + "m=audio 0 RTP/AVP 0\nm=audio 4300 RTP/AVP 0\nc=IN IP4 10.0.0.7/127\nm=audio 4400 RTP/AVP 0\nc=IN IP6 ::1\n"
          + "m=audio 4500 RTP/AVP 0\nc=IN IP4 media.example\nm=audio 99999 RTP/AVP 0\n--part--\nc=IN IP4 10.0.0.6\n";
      sniffer.sip(ALICE, BOB,
          "INVITE sip:bob@b SIP/2.0\nv: SIP/2.0/UDP x;branch=z\nf: sip:alice@a;tag=a\nt: sip:bob@b\n"
              + "m: <sip:alice@10.0.0.1>\ni: call-1\nCSeq:\n 1\n\tINVITE\nc: multipart/mixed;boundary=part\n\n" + body);
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.1:4200", "10.0.0.1:4201", "10.0.0.7:4300", "10.0.0.7:4301");
      sniffer.sip(BOB, ALICE,
          "SIP/2.0 200 OK\nv: SIP/2.0/UDP x;branch=z\nf: sip:alice@a;tag=a\nt: sip:bob@b;tag=b\n"
              + "i: call-1\ncseq: 1 INVITE\nc: application/sdp\nl: 61\n\n"
              + "v=0\nc=IN IP4 10.0.0.2\nm=audio 6000 RTP/AVP 8\na=x:1234567\n" // 61 bytes: what follows is padding
              + "m=audio 6100 RTP/AVP 8\n");
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.1:4200", "10.0.0.1:4201", "10.0.0.7:4300", "10.0.0.7:4301",
          "10.0.0.2:6000", "10.0.0.2:6001");
    });
  }

  void testCallsThatShareAnAddress() throws Exception {
    in(() -> {
      String second = message("INVITE sip:x@y SIP/2.0", "c", "", "1 INVITE", "z", sdp("10.0.0.3", 8000))
                          .replace("call-1", "call-2");
      establish();
      sniffer.sip(CAROL, BOB, second);
      sniffer.sip(BOB, CAROL,
          message("SIP/2.0 200 OK", "c", "d", "1 INVITE", "z", sdp("10.0.0.2", 6000)).replace("call-1", "call-2"));
      equal(sniffer.list.size(), 6);
      // Of the calls that use Bob's port each gets the packets of its own other party.
      byte[] packet = FakeSniffer.rtp(8, 1, 1, 1, new byte[160]);
      sniffer.udp(FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.at("10.0.0.2:6000"), packet);
      sniffer.udp(FakeSniffer.at("10.0.0.3:8000"), FakeSniffer.at("10.0.0.2:6000"), packet);
      request("BYE", 2, ALICE, BOB, "a", "b", "");
      response("200 OK", "2 BYE", BOB, ALICE, "a", "b", "");
      list("10.0.0.2:6000", "10.0.0.2:6001", "10.0.0.3:8000", "10.0.0.3:8001");
      sniffer.sip(CAROL, BOB, message("BYE sip:x@y SIP/2.0", "c", "d", "2 BYE", "z", "").replace("call-1", "call-2"));
      sniffer.pass(33_000);
      list();
      equal(sniffer.table().stream().map(line -> line.split(",")[8]).toList(), List.of("1", "1"));
    });
  }

  void testTheListIsKeptInStepWithTheSniffer() throws Exception {
    in(() -> {
      establish();
      sniffer.list.clear();
      sniffer.sessions++; // it connected anew, with an empty list
      sniffer.pass(100);
      list("10.0.0.1:4000", "10.0.0.1:4001", "10.0.0.2:6000", "10.0.0.2:6001");
      // It missed a command; commands are repeated where that can happen, as long as nothing comes.
      sniffer.losesCommands = true;
      sniffer.list.remove(FakeSniffer.at("10.0.0.2:6000"));
      sniffer.pass(1500);
      that(sniffer.udp(FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.at("10.0.0.2:6000"), new byte[12]),
          "asked for again");
      sniffer.pass(60_000);
      that(sniffer.list.size() <= 4 + 3 * 4, "repeated without end");
      that(sniffer.printed().contains("the sniffer has been silent"), sniffer.printed());
      that(sniffer.commands.stream().filter(command -> command.code() == Command.HEARTBEAT).count() >= 12, "heartbeats");
      // It forwards what no call wants.
      Endpoint stray = FakeSniffer.at("10.0.0.77:7000");
      sniffer.list.add(stray);
      sniffer.udp(FakeSniffer.at("10.0.0.1:4000"), stray, new byte[12]);
      that(!sniffer.list.contains(stray), "dismissed");
      that(sniffer.printed().contains("the sniffer is back"), sniffer.printed());
    });
  }
}
