#include <gtest/gtest.h>

#include "support/Conversation.h"

using namespace voip;

namespace {

constexpr std::uint32_t kFar = 0x50000000;
constexpr int kMessages = 12;  // of each side after the attack

std::string octets(std::size_t count) {
  return std::string(count, 'x');
}

/// A segment that is far ahead, and an acknowledgement that covers it.
void cover(Conversation& call, int side, std::uint32_t ahead) {
  call.forge(side, call.next(side) + ahead, "x");
  call.forgeAcknowledgement(side, call.next(side) + ahead + 1);
}

/// Two segments that continue each other.
void pair(Conversation& call, int side, std::uint32_t at, std::size_t size = 10) {
  call.forge(side, at, octets(size));
  call.forge(side, at + static_cast<std::uint32_t>(size), octets(size));
}

/// Begins a connection with other numbers, lets the real one go on, and continues the first. Returns the first number
/// of the stranger.
std::uint32_t returnToStranger(Conversation& call) {
  const std::uint32_t first = call.next(0) - 1'000'000;
  call.forge(0, first - 1, "", Conversation::kSyn);
  call.forge(0, first, octets(123));
  call.talk(2);
  pair(call, 0, first + 123, 20);
  return first;
}

struct Attack {
  const char* what;
  void (*happenTo)(Conversation& call);
  int lost = 0;  ///< messages, at most
};

const Attack kAttacks[] = {
    {"nothing", [](Conversation&) {}},
    // Senders that know addresses and ports.
    {"two far segments", [](Conversation& call) { pair(call, 0, kFar); }},
    {"many pairs of far segments",
     [](Conversation& call) {
       for (std::uint32_t i = 1; i <= 30; ++i) pair(call, 0, i * 0x4000000);
     }},
    {"a far stream that is acknowledged",
     [](Conversation& call) {
       call.forge(0, kFar, octets(1'400));
       call.acknowledge(0, kFar + 1'400, call.next(1));
       for (std::uint32_t i = 1; i < 900; ++i) call.forge(0, kFar + i * 1'400, octets(1'400));
     }},
    {"a SYN and a request of another protocol",
     [](Conversation& call) {
       call.forge(0, kFar, "", Conversation::kSyn);
       call.forge(0, kFar + 1, "GET / HTTP/1.1\r\n\r\n");
     }},
    {"segments and acknowledgements in all windows",
     [](Conversation& call) {
       for (std::uint32_t i = 0; i < 4'096; ++i) call.forge(0, i << 20, "x");
       for (std::uint32_t i = 0; i < 4'096; ++i) call.acknowledge(0, (i << 20) + 1, 1);
       call.pause(3'000'000);
     }},
    // Senders that know the numbers.
    {"an acknowledged segment at the end of the window",
     [](Conversation& call) {
       for (const int side : {0, 1}) cover(call, side, 900'000);
     }},
    {"an acknowledged segment within the plain window",
     [](Conversation& call) {
       for (const int side : {0, 1}) cover(call, side, 40'000);
     }},
    {"acknowledged segments again and again",
     [](Conversation& call) {
       for (std::uint32_t i = 1; i <= 100; ++i) cover(call, 0, i * 10'000);
     }},
    {"more early data than the memory takes",
     [](Conversation& call) {
       for (std::uint32_t i = 0; i < 400; ++i) call.forge(0, call.next(0) + 200'000 + i * 1'400, octets(1'400));
     }},
    {"an early segment, a pause, and a segment that continues it",
     [](Conversation& call) {
       call.forge(0, call.next(0) + 500'000, octets(400));
       call.pause(3'000'000);
       call.forge(0, call.next(0) + 500'400, octets(400));
     }},
    {"a SYN a little ahead, and a segment",
     [](Conversation& call) {
       call.forge(0, call.next(0) + 50'000, "", Conversation::kSyn);
       call.forge(0, call.next(0) + 50'001, "GET / HTTP/1.1\r\n\r\n");
     }},
    {"two far segments, and a SYN before the expected octet",
     [](Conversation& call) {
       pair(call, 0, kFar);
       call.forge(0, call.next(0) - 100, "", Conversation::kSyn);
     }},
    {"a SYN far before the expected octet, and a message of which 16 MB are missing",
     [](Conversation& call) {
       const std::uint32_t first = call.next(0) - 1'000'000;
       call.forge(0, first - 1, "", Conversation::kSyn);
       call.forge(0, first, "INFO sip:a@b SIP/2.0\r\nl: 16000000\r\n\r\n");
     }},
    {"more gaps than are remembered, and another protocol",
     [](Conversation& call) {
       for (std::uint32_t i = 1; i <= 20; ++i)
         call.forge(0, call.next(0) + i * 40'000, "GET / " + octets(800), 0, 10'000);
       call.pause(60'000'000);
     }},
    {"two far segments, and two after the expected octet",
     [](Conversation& call) {
       pair(call, 0, kFar);
       pair(call, 0, call.next(0) + 20'000);
     }},
    {"a return to the numbers of a stranger, and a message of which 16 MB are missing",
     [](Conversation& call) {
       const std::uint32_t first = returnToStranger(call);
       call.forge(0, first + 163, "INFO sip:a@b SIP/2.0\r\nl: 16000000\r\n\r\n");
     }},
    {"another protocol after a gap, a SYN, and a segment",
     [](Conversation& call) {
       const std::uint32_t first = call.next(0) + 40'000;
       call.forge(0, first, octets(300));
       call.pause(60'000'000);
       for (std::uint32_t i = 0; i < 40; ++i) call.forge(0, first + 300 + i, "x");
       call.forge(0, first - 20'001, "", Conversation::kSyn);
       call.forge(0, first - 20'000, "GET / HTTP/1.1\r\n\r\n");
     }},
    {"far segments while early ones wait",
     [](Conversation& call) {
       returnToStranger(call);
       call.talk(4);
       pair(call, 0, kFar);
     }},
    {"RST, and a message before the expected octet of which 16 MB are missing",
     [](Conversation& call) {
       call.forge(0, call.next(0), "", Conversation::kReset);
       call.forge(0, call.next(0) - 1'000'000, "INFO sip:a@b SIP/2.0\r\nl: 16000000\r\n\r\n");
     }},
    {"RST and FIN",
     [](Conversation& call) {
       call.forge(0, call.next(0), "", Conversation::kReset);
       call.forge(1, call.next(1), "x", Conversation::kFin);
     },
     1},
    {"the expected octets", [](Conversation& call) { call.forge(0, call.next(0), octets(1'400)); }, 1},
    {"the expected octets, most of them not captured",
     [](Conversation& call) { call.forge(0, call.next(0), "x", 0, 65'000); }, 1},
    {"a message of which 16 MB are missing",
     [](Conversation& call) { call.forge(0, call.next(0), "INFO sip:a@b SIP/2.0\r\nl: 16000000\r\n\r\n"); }, 1},
    {"a TPKT of which 65 kB are missing",
     [](Conversation& call) {
       call.forge(0, call.next(0), {"\3\0\xFF\xFF", 4});
     },
     1},
    {"another protocol in place of the expected octets",
     [](Conversation& call) {
       for (std::uint32_t i = 0; i < 10; ++i) call.forge(0, call.next(0) + i * 9, "\x17 another");
     },
     1},
    {"other octets in place of those before", [](Conversation& call) { pair(call, 0, call.next(0) - 20, 20); }, 1},
};

// What a stranger sends costs at most the messages whose octets it replaces, and nothing once it has stopped.
TEST(ForgedSegments, HideNoStream) {
  for (const Attack& attack : kAttacks) {
    for (const Conversation::Nature& nature : {Conversation::Nature{false, true}, {false, false}, {true, true, true}}) {
      Conversation call(nature);
      call.talk(2);
      attack.happenTo(call);
      call.talk(kMessages);
      call.pause(3'000'000);  // a gap may be waited for
      const auto what = [&] {
        return std::string(attack.what) + (nature.isTpkt ? ", TPKT" : "") +
               (nature.isAcknowledged ? "" : ", no acknowledgements");
      };
      EXPECT_LE(call.countLost(), attack.lost) << what();
      for (const int side : {0, 1}) {
        for (int i = 0; i < call.said(side); ++i)
          EXPECT_LE(call.found(side, i), 1) << what() << ": " << side << "-" << i;
      }
    }
  }
}

}  // namespace
