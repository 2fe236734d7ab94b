"""Options, exit statuses, messages, and the order of start and stop. Needs no privilege."""

import os
import signal
import time

import harness
from harness import Recorder, TestCase, Wire

UNPRIVILEGED = ["setpriv", "--bounding-set=-net_raw,-net_admin"] if os.geteuid() == 0 else []
SIP_CALL = f"file:{harness.sample('sip-g711a-call.pcap')}"
AT_ONCE = {"SNIFFER_REPLAY_PACE": "full"}


class CommandLine(TestCase):
    def run_to_end(self, *options, **more):
        program = self.start(*options, **more)
        return program.status(), "\n".join(program.output), "\n".join(program.log)

    def test_help_and_version(self):
        status, output, errors = self.run_to_end("--help")
        self.assertEqual((status, errors), (0, ""))
        for text in ("-c FILE", "-l FILE", "-d DEVICES", "-f FILTER", "-h HOST", "-p PORT", "CAP_NET_RAW", "H.323"):
            self.assertIn(text, output)
        status, output, errors = self.run_to_end("--version")
        self.assertEqual((status, errors), (0, ""))
        self.assertRegex(output, r"^sniffer \d+\.\d+\.\d+$")

    def test_bad_arguments_are_refused_before_anything_happens(self):
        cases = {
            ("-x",): "-x",
            ("--frob",): "--frob",
            ("-d", "lo", "stray"): "stray",
            ("-d",): "-d",
            ("-c",): "-c",
            ("-c", "some.properties", "-d", "lo"): "mixed",
            ("-l", "some.properties", "-p", "6000"): "mixed",
            ("-h", "recorder.example"): "recorder.example",
            ("-h", "10.0.0"): "10.0.0",
            ("-h", ""): "-h",
            ("-p", "0"): "0",
            ("-p", "65536"): "65536",
            ("-p", "6000x"): "6000x",
            ("-p", "-6"): "-6",
            ("-p", ""): "-p",
        }
        for options, named in cases.items():
            with self.subTest(options=options):
                status, output, errors = self.run_to_end(*options)
                self.assertEqual((status, output), (1, ""))
                self.assertRegex(errors, "^sniffer: ")
                self.assertIn(named, errors)
                self.assertIn("sniffer --help", errors)

    def test_settings_file_that_cannot_be_read(self):
        for options, name in (((), "sniffer.properties"), (("-c", "/nowhere/x.properties"), "/nowhere/x.properties")):
            status, output, errors = self.run_to_end(*options)
            self.assertEqual((status, output), (1, ""))
            self.assertIn(f"cannot read the settings file {name}", errors)
            self.assertIn(f"ERROR Can't open configuration file {name}", errors)

    def test_devices_that_do_not_exist(self):
        status, _, errors = self.run_to_end("-d", "nosuch0;nosuch1", prefix=UNPRIVILEGED)
        self.assertEqual(status, 1)
        for name in ("nosuch0", "nosuch1"):
            self.assertIn(f"ERROR Couldn't open device {name}:", errors)
            self.assertIn(f'there is no device "{name}"; the devices here are: ', errors)
        self.assertRegex(errors, r"the devices here are: .*\blo\b")
        self.assertIn("no device could be opened", errors)

    def test_missing_privilege(self):
        status, _, errors = self.run_to_end("-d", "lo", prefix=UNPRIVILEGED)
        self.assertEqual(status, 1)
        self.assertIn("CAP_NET_RAW", errors)
        self.assertIn("setcap", errors)
        self.assertIn(harness.PROGRAM, errors)

    def test_files_that_are_no_captures_of_ethernet(self):
        folder = self.folder()
        files = {
            "absent.pcap": (None, "No such file"),
            "empty.pcap": (b"", "truncated"),
            "garbage.pcap": (b"this is not a capture file at all", "unknown file format"),
            "wlan.pcap": (harness.capture_header(link_type=105), "link layer IEEE802_11, which is not understood"),
        }
        for name, (content, reason) in files.items():
            path = os.path.join(folder, name)
            if content is not None:
                with open(path, "wb") as file:
                    file.write(content)
            with self.subTest(name):
                status, _, errors = self.run_to_end("-d", f"file:{path}")
                self.assertEqual(status, 1)
                self.assertIn(f"ERROR Couldn't open device file:{path}:", errors)
                self.assertIn(reason, errors)

    def test_capture_that_ends_in_the_middle_of_a_frame(self):
        path = os.path.join(self.folder(), "cut.pcap")
        content = harness.sample("sip-g711a-call.pcap").read_bytes()
        recorder = self.keep(Recorder())
        for length in (24, 30, 3000):
            with open(path, "wb") as file:
                file.write(content[:length])
            status, _, errors = self.run_to_end("-d", f"file:{path}", "-p", str(recorder.port), environment=AT_ONCE)
            self.assertEqual(status, 0)
            self.assertEqual("captures no more: " in errors, length != 24)
        self.assertGreater(len(recorder.of(harness.SIP)), 0)

    def test_bad_filter(self):
        program = self.start("-d", f"{SIP_CALL};{SIP_CALL}", "-f", "udp prot 5060")
        self.assertEqual(program.status(), 3)
        self.assertEqual(program.logged("ERROR Couldn't parse filter udp prot 5060:"), 1)
        self.assertEqual(program.logged("opened"), 1, "the device behind a bad filter is not touched")
        self.assertEqual(program.logged("connection created"), 0)

    def test_check_opens_devices_and_filter_and_no_connection(self):
        cases = {
            (SIP_CALL,): 0,
            (SIP_CALL, "-f", "udp port 5060"): 0,
            (f"{SIP_CALL};nosuch0",): 1,
            ("nosuch0",): 1,
            (SIP_CALL, "-f", "udp prot"): 3,
        }
        for (devices, *more), expected in cases.items():
            with self.subTest(devices=devices, more=more):
                status, output, errors = self.run_to_end("--check", "-d", devices, *more)
                self.assertEqual(status, expected)
                self.assertIn("good" if expected == 0 else "will not do", output)
                self.assertNotIn("connection created", errors)
        status, output, _ = self.run_to_end("--list-devices")
        self.assertEqual(status, 0)
        self.assertRegex(output, r"(?m)^lo\b.* 127\.0\.0\.1")

    def test_statistics_on_request_and_at_the_end(self):
        recorder, wire = self.keep(Recorder()), self.keep(Wire(self.folder()))
        program = self.start("-d", wire.device, "-p", str(recorder.port))
        wire.open()
        call = harness.read_capture(harness.sample("sip-g711a-call.pcap"))
        wire.send(*call)
        recorder.wait(lambda frames: len(frames) == 6, "the SIP messages of the call")
        time.sleep(1)  # what is counted after it was sent, or dropped, nobody can wait for
        udp = sum(frame.is_udp for frame in call)
        asked = 0
        # A frame is at the recorder a moment before it is counted.
        while not program.logged("INFO Statistics: sipForwarded=6 rtpForwarded=0 h323Forwarded=0"):
            asked += 1
            self.assertLess(asked, 50, "six SIP messages are never counted")
            program.process.send_signal(signal.SIGUSR2)
            program.wait_logged("INFO Statistics: ", asked)
        self.assertEqual(program.end(), 0)
        self.assertEqual(program.logged("INFO Statistics: "), asked + 1)
        self.assertEqual(program.logged(f"INFO Statistics of device {wire.device}: replayed={udp}"), asked + 1)
        self.assertGreaterEqual(program.logged(f"udpDropped={udp - 6} "), 2)

    def test_one_of_two_devices_is_enough(self):
        recorder = self.keep(Recorder())
        for missing in ("nosuch0", "lo", ""):
            before = len(recorder.of(harness.SIP))
            options = ("-d", f"{missing};{SIP_CALL}", "-p", str(recorder.port))
            program = self.start(*options, environment=AT_ONCE, prefix=UNPRIVILEGED)
            program.wait_logged("PCAP thread created 1")
            recorder.wait(lambda _: len(recorder.of(harness.SIP)) == before + 6, "the SIP messages of the call")
            self.assertEqual(program.end(), 0)
            self.assertEqual(program.logged(f"Couldn't open device {missing}:"), 1)
            self.assertEqual(program.logged("PCAP thread created 0"), 0)
            self.assertEqual(program.logged("Completed join with PCAP thread"), 1)

    def test_start_and_stop_in_order(self):
        recorder = self.keep(Recorder())
        for number, by_file in ((signal.SIGTERM, True), (signal.SIGINT, False)):
            wires = [self.keep(Wire(self.folder())) for _ in range(2)]
            devices = ";".join(wire.device for wire in wires)
            if by_file:
                settings = {"Device": devices, "Filter": "udp port 5060", "ServerName": "127.0.0.1"}
                settings |= {"ServerPort": recorder.port, "ServerProtocol": "tcp", "TraceSignalling": "yes"}
                program = self.start(settings=settings)
            else:
                program = self.start("-d", devices, "-f", "udp port 5060", "-p", str(recorder.port))
            for wire in wires:
                wire.open()
            program.wait_logged("PCAP thread created 1")
            # Neither ends the program: the one only interrupts reads, the other tells of a recorder that went away.
            program.process.send_signal(signal.SIGUSR1)
            program.process.send_signal(signal.SIGPIPE)
            self.assertEqual(program.end(number), 0)

            self.assertIn(wires[0].device, program.output[0])
            self.assertIn(wires[1].device, program.output[0])
            self.assertIn("udp port 5060", program.output[0])
            self.assertIn(f"127.0.0.1:{recorder.port}", program.output[0])
            opened = []
            for wire in wires:
                opened += [f"INFO Device: {wire.device} opened"]
                opened += ["INFO Filter compilation ok: udp port 5060", "INFO Filter instalation ok: udp port 5060"]
            self.assert_in_order(
                program.log,
                [
                    f"INFO device[0]={wires[0].device}",
                    f"device[1]={wires[1].device}",
                    "Filter=udp port 5060",
                    "ServerNameMedia=127.0.0.1",
                    f"ServerPortMedia={recorder.port}",
                    "ServerProtocol=" + ("tcp" if by_file else "TCP"),
                    "DeviceCount=2",
                    "LogLevel=" + ("DEBUG" if by_file else "INFO"),
                    "TraceSignalling=0",
                    *opened,
                    f"INFO Connecting to recorder 127.0.0.1:{recorder.port}",
                    "INFO TCP connection created",
                    "INFO Tcp socket send buffer size=60000",
                    "to recorder 127.0.0.1:",
                    "INFO Command reader thread created cmdReaderThread",
                    "INFO Sniffing started.",
                    "INFO PCAP thread created 0",
                    "INFO PCAP thread created 1",
                    "INFO Ending Sniffing ...",
                    "INFO Completed join with PCAP thread 0 status=0",
                    "INFO Completed join with PCAP thread 1 status=0",
                    "INFO Completed join with Command reader thread, status=0",
                ],
            )
            self.assert_in_order(program.log, ["INFO Completed join with PCAP thread 1", "INFO Sniffing ended."])

    def test_without_logging_configuration_it_logs_to_the_console(self):
        recorder = self.keep(Recorder())
        settings = {"Device": SIP_CALL, "ServerName": "127.0.0.1", "ServerPort": recorder.port}
        settings["ServerProtocol"] = "SCTP"
        program = self.start("-l", "/nowhere/log4cxx.properties", settings=settings, environment=AT_ONCE)
        self.assertEqual(program.status(), 0)
        self.assertEqual(program.logged("Can't read the logging configuration /nowhere/log4cxx.properties"), 1)
        self.assertEqual(program.logged("ERROR Invalid ServerProtocol assuming TCP"), 1)
        self.assertEqual(program.logged("Sniffing ended."), 1)
        recorder.wait(lambda frames: len(frames) == 6, "the SIP messages of the call")


if __name__ == "__main__":
    harness.main()
