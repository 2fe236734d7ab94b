"""The page of the sample recorder in a browser. The calls reach the recorder over TCP; the page is opened from disk."""

import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "live"))
import harness
from browser import Browser
from harness import H323, RTP, SIP, forwarded, udp_frame

CALL = [frame for frame in harness.read_capture(harness.sample("sip-g711a-call.pcap")) if frame.is_udp]
HOSTILE = "</script><script>document.title='owned'</script>"
IMAGE = "<img src=x onerror=\"document.title='owned'\">\u202e\u2028&amp;"
ESCAPE, DOWN = "\ue00c", "\ue015"


class Recorder:
    """Runs the sample recorder and sends it the frames of a sniffer."""

    def __init__(self, folder, *options):
        port = harness.free_port()
        options = ["--tcp", str(port), "--out", folder, *options]
        self.process = subprocess.Popen(
            [*harness.die_with_us(), os.environ["SNIFFER_JAVA"], "-jar", os.environ["SNIFFER_JAR"], *options],
            stdout=subprocess.PIPE,
            text=True,
        )
        self.wait_said("waiting for the sniffer")
        self.sniffer = socket.create_connection(("127.0.0.1", port))

    def wait_said(self, text):
        if not any(text in line for line in self.process.stdout):
            raise AssertionError(f"the recorder ended without saying {text!r}")

    def tell(self, *frames):
        for protocol, frame in frames:
            self.sniffer.sendall(forwarded(protocol, frame))

    def close(self):
        self.sniffer.close()
        self.process.terminate()
        self.process.communicate(timeout=harness.PATIENCE)


def sip_call(call_id, callee, until=len(CALL), missing=()):
    """Yields the sample call under another name. Without its last frames it stays active."""
    for i, frame in enumerate(CALL[:until]):
        if frame.is_sip:
            text = frame.payload.replace(b"1-24765", call_id).replace(b"sip:bob@", b"sip:" + callee + b"@")
            yield SIP, udp_frame(frame.source, frame.destination, text)
        elif i not in missing:
            yield RTP, frame


def h323_call(caller, callee):
    setup = f"t:5\nr:7\nc:77\ns:{caller}\nd:{callee}\nm:1:rcodec:g711Alaw64k 20,rtp:10.9.0.1 6000\n"
    for message in setup, "t:90\nr:7\n":
        yield H323, udp_frame(("10.9.0.1", 40000), ("10.9.0.2", 1720), message.encode())


def sip(source, destination, start, call_id, cseq, port=0, header=""):
    """A message between alice, whose tag is the Call-ID, and her callee; and media to that port of the sender."""
    body = f"v=0\nc=IN IP4 {source}\nm=audio {port} RTP/AVP 8\n" if port else ""
    text = (
        f"{start}\nVia: SIP/2.0/UDP x;branch={call_id}{cseq}\nFrom: <sip:alice@a>;tag={call_id}\nTo: <sip:bob@b>"
        f"{'' if start.startswith('INVITE') else ';tag=b'}\nCall-ID: {call_id}\nCSeq: {cseq}\n{header}"
        f"Content-Type: application/sdp\n\n{body}"
    )
    return SIP, udp_frame((source, 5060), (destination, 5060), text.encode())


def running_call(call_id, callee, port):
    yield sip("10.8.0.1", callee, "INVITE sip:bob@b SIP/2.0", call_id, "1 INVITE", port)
    yield sip(callee, "10.8.0.1", "SIP/2.0 200 OK", call_id, "1 INVITE", port)
    for number in range(20):
        packet = bytes([0x80, 8, 0, number]) + (160 * number).to_bytes(4, "big") + bytes([0, 0, 0, 1]) + b"\x55" * 160
        yield RTP, udp_frame(("10.8.0.1", port), (callee, port), packet)


class ThePage(harness.TestCase):
    def test_calls_with_legs_and_calls_that_cannot_be_played(self):
        folder = pathlib.Path(self.folder())
        recorder = self.keep(Recorder(folder))
        recorder.tell(*running_call("one", "10.8.0.2", 4000), *running_call("two", "10.8.0.3", 4002))
        page = folder / "index.html"
        harness.wait_until(lambda: page.exists() and page.read_text().count('"running":true') == 2, "two running calls")
        browser = self.keep(Browser())
        browser.open(page.as_uri())
        self.assertEqual(browser.all("#summary"), ["2 calls, 2 running"])
        transfer = "Refer-To: <sip:bob@c?Replaces=two%3Bto-tag%3Db%3Bfrom-tag%3Dtwo>\n"
        recorder.tell(
            sip("10.8.0.1", "10.8.0.2", "REFER sip:bob@b SIP/2.0", "one", "2 REFER", header=transfer),
            sip("10.8.0.2", "10.8.0.1", "SIP/2.0 202 Accepted", "one", "2 REFER"),
        )
        browser.wait("document.getElementById('summary').textContent === '1 call, 1 running'")
        for call_id, callee in ("two", "10.8.0.3"), ("one", "10.8.0.2"):
            recorder.tell(
                sip("10.8.0.1", callee, "BYE sip:bob@b SIP/2.0", call_id, "3 BYE"),
                sip(callee, "10.8.0.1", "SIP/2.0 200 OK", call_id, "3 BYE"),
            )
        recorder.wait_said("hung up")
        for frame in harness.read_capture(harness.TEST_FILES / "captures/telephones-osrtp.pcap"):
            if frame.is_udp:
                recorder.tell((SIP if frame.is_sip else RTP, frame))
        recorder.wait_said("hung up")
        browser.wait("document.querySelectorAll('.row').length === 2 && !document.querySelector('.row .live')")
        self.assertEqual(browser.all(".row .mute"), ["Recorded: SRTP"])
        browser.click(".row:has(.sketch)")
        self.assertEqual(browser.all("#call td code"), ["one", "two"])
        self.assertEqual(browser.complaints(), [])

    def test_one_page_shows_the_calls_of_several_recorders(self):
        folder = pathlib.Path(self.folder())
        places = [folder / "east 1", folder / "west#%2"]
        east, west = (self.keep(Recorder(place)) for place in places)
        east.tell(*sip_call(b"first", b"carol"))
        east.wait_said("hung up")
        west.tell(*running_call("one", "10.8.0.2", 4000))
        harness.wait_until(lambda: '"running":true' in (places[1] / "index.html").read_text(), "a running call")
        index = [os.environ["SNIFFER_JAVA"], "-jar", os.environ["SNIFFER_JAR"], "--index", *places, "--out"]
        self.assertEqual(subprocess.run([*index, folder]).returncode, 0)
        self.assertEqual(subprocess.run([*index, places[0]]).returncode, 1, "the page of a recorder stays")
        browser = self.keep(Browser())
        browser.open((folder / "index.html").as_uri())
        browser.wait("document.getElementById('summary').textContent === '2 calls, 1 running'")
        browser.click("#older summary")
        self.assertEqual(browser.all("#older a"), [place.name for place in places])
        west.tell(
            sip("10.8.0.1", "10.8.0.2", "BYE sip:bob@b SIP/2.0", "one", "3 BYE"),
            sip("10.8.0.2", "10.8.0.1", "SIP/2.0 200 OK", "one", "3 BYE"),
        )
        browser.wait("document.getElementById('summary').textContent === '2 calls'")
        browser.click("a.row[href*=east]")
        browser.wait("/east%201/.test(location.href) && document.querySelector('#call h2')")
        self.assertEqual(browser.complaints(), [])

    def test_calls_are_found_heard_and_harmless(self):
        folder = pathlib.Path(self.folder())
        page = folder / "index.html"
        recorder = self.keep(Recorder(folder, "--mono"))
        bye = next(i for i, frame in enumerate(CALL) if frame.payload.startswith(b"BYE"))
        recorder.tell(*sip_call(b"first", b"+493012345", missing=range(100, 120)))
        recorder.wait_said("hung up")
        recorder.tell(*h323_call(HOSTILE, IMAGE))
        recorder.wait_said("released")
        recorder.tell(*sip_call(b"second", b"carol", until=bye))
        harness.wait_until(lambda: page.exists() and "carol" in page.read_text(), "the running call on the page")

        browser = self.keep(Browser())
        browser.open(page.as_uri())
        self.assertEqual(browser.all("#summary"), ["3 calls, 1 running"])
        self.assertEqual(browser.all(".row .who"), ["alice", HOSTILE, "alice"])
        self.assertEqual(browser.all(".row .live"), ["Running"])

        with self.subTest("hostile names are text"):
            browser.click("section:last-of-type .row")
            self.assertEqual(browser.all("#call h2 .caller"), [HOSTILE])
            self.assertTrue(browser.all("#call h2 .callee")[0].startswith('<img src=x onerror="'))
            found = "return [document.images.length, document.scripts.length, document.title === 'owned']"
            self.assertEqual(browser.script(found), [0, 2, False])

        with self.subTest("keys search, choose and play"):
            browser.keys("/" + "(030) 12345")
            self.assertEqual(browser.all("#summary"), ["1 of 3 calls"])
            browser.keys(DOWN + " ")
            self.assertEqual(browser.all("#call h2 .callee bdi"), ["+493012345", "10.20.0.2"])
            browser.wait("document.querySelector('audio').currentTime > 0.3")
            browser.click(".choice label:last-child input")  # while it plays: the callee alone, who speaks later
            browser.wait("document.querySelector('audio').currentTime > 0.3")
            self.assertIn("from-callee", browser.script("return document.querySelector('audio').src"))
            browser.keys(" ")
            browser.wait("document.querySelector('audio').paused")
            self.assertEqual(len(browser.all(".gaps li")), 1)
            self.assertEqual(browser.all(".row .flaw"), ["20 lost"])
            drawn = "return Array.from(document.querySelectorAll('.sketch path'), p => p.getAttribute('d').length > 90)"
            self.assertEqual(browser.script(drawn), [True, True])
            self.assertIn("INVITE", browser.all(".arrow b"))
            browser.keys("/" + ESCAPE)
            self.assertEqual(browser.all("#summary"), ["3 calls, 1 running"])

        with self.subTest("what happens meanwhile appears by itself"):
            recorder.tell(*list(sip_call(b"second", b"carol"))[bye:])
            browser.wait("!document.querySelector('.row .live')")
            self.assertEqual(browser.all("#summary"), ["3 calls"])
        self.assertEqual(browser.complaints(), [])
        recorder.close()

        with self.subTest("many calls of a day that is over get a page of their own"):
            data = page.read_text().splitlines(keepends=True)
            call = next(line for line in data if "+493012345" in line and '"peaks"' in line)
            copies = "".join(call.replace('"name":"', f'"name":"{i}-') for i in range((2 << 20) // len(call) + 1))
            with page.open("a") as file:
                file.write(copies + call[: len(call) // 2])  # the last one is cut off
            os.utime(page, times=(time.time() - 86400,) * 2)
            recorder = self.keep(Recorder(folder))
            recorder.tell(*sip_call(b"third", b"dora"))
            recorder.wait_said("hung up")
            browser.open(page.as_uri())
            browser.wait("document.getElementById('summary').textContent === '1 call'")
            self.assertEqual(len(list(folder.glob("*-dora-from-*.wav"))), 0)
            browser.keys(DOWN + " ")
            browser.wait("document.querySelector('audio').currentTime > 0.3")  # A-law, both voices in one file
            self.assertEqual(browser.script(drawn), [True, True])
            browser.keys(" ")
            browser.click("#older a")
            total = copies.count("\n") + 3
            browser.wait(f"document.getElementById('summary').textContent === '{total:,} calls'")

        with self.subTest("all days are searched from the newest page"):
            browser.open(page.as_uri())
            browser.keys("/carol")
            self.assertEqual(browser.all("#summary"), ["0 of 1 call"])
            browser.click(".empty .toggle")
            browser.wait(f"document.getElementById('summary').textContent === '1 of {total + 1:,} calls'")
            browser.click("#heard")
            browser.wait("document.querySelector('.row .whom bdi').textContent === 'carol'")
            self.assertIn("/days/", browser.script("return document.querySelector('.row').href"))
            browser.keys("/" + ESCAPE)
            self.assertEqual(browser.all("#summary"), [f"{total + 1:,} calls"])
            browser.click("#heard")
            self.assertEqual(browser.all("#summary"), [f"{total:,} of {total + 1:,} calls"])
            self.assertEqual(browser.complaints(), [])


if __name__ == "__main__":
    if missing := [program for program in ("chromium", "chromedriver") if shutil.which(program) is None]:
        print("SKIPPED: looking at the page needs " + " and ".join(missing))
        sys.exit(77)
    harness.main()
