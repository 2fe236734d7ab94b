"""Options, exit statuses, messages, and the order of start and stop. Needs no privilege."""

import os
import pty
import signal
import subprocess

import harness
from harness import Recorder, TestCase, Wire

UNPRIVILEGED = ["setpriv", "--bounding-set=-net_raw,-net_admin"] if os.geteuid() == 0 else []
SIP_CALL = f"file:{harness.sample('sip-g711a-call.pcap')}"
AT_ONCE = {"SNIFFER_REPLAY_PACE": "full"}
GOOD = {"Device": SIP_CALL, "Filter": "udp", "ServerName": "127.0.0.1", "ServerPort": 6000, "ServerProtocol": "TCP"}


class CommandLine(TestCase):
    def run_to_end(self, *options, **more):
        program = self.start(*options, **more)
        return program.status(), "\n".join(program.output), "\n".join(program.log)

    def test_help_and_version(self):
        cases = {
            "--help": "-c FILE.*-l FILE.*-d DEVICES.*-f FILTER.*-h HOST.*-p PORT",
            "--version": r"^sniffer \d+\.\d+\.\d+$",
            "--settings": "LookBackMemory .*default 64",
        }
        for option, expected in cases.items():
            status, output, errors = self.run_to_end(option)
            self.assertEqual((status, errors), (0, ""))
            self.assertRegex(output, f"(?s){expected}")

    def test_bad_arguments_are_refused_before_anything_happens(self):
        cases = {
            ("-xd", "lo"): "option -x\n",
            ("--frob",): "--frob",
            ("-d", "lo", "stray"): "stray",
            ("-d",): "-d",
            ("-c", "some.properties", "-d", "lo"): "mixed",
            ("-l", "some.properties", "-p", "6000"): "mixed",
            ("-h", "recorder.example"): "recorder.example",
            ("-p", "65536"): "65536",
            ("-p", "6000x"): "6000x",
            ("-p", ""): "-p",
        }
        for options, named in cases.items():
            with self.subTest(options=options):
                status, output, errors = self.run_to_end(*options)
                self.assertEqual((status, output), (1, ""))
                self.assertRegex(errors, "^sniffer: ")
                self.assertIn(named, errors)
                self.assertIn("sniffer --help", errors)

    def test_files_of_settings_that_cannot_be_read(self):
        for options, name in (((), "sniffer.properties"), (("-c", "/nowhere/x.properties"), "/nowhere/x.properties")):
            status, output, errors = self.run_to_end(*options)
            self.assertEqual((status, output), (1, ""))
            self.assertIn(f"cannot read the settings file {name}", errors)
            self.assertIn(f"ERROR Can't open configuration file {name}", errors)
        status, _, errors = self.run_to_end("--check", "-l", "/nowhere/log4cxx.properties", settings=GOOD)
        self.assertEqual(status, 0)
        self.assertIn("Can't read the logging configuration /nowhere/log4cxx.properties", errors)

    def test_devices_that_do_not_exist_or_may_not_be_captured(self):
        status, _, errors = self.run_to_end("-d", "nosuch0;nosuch1;lo", prefix=UNPRIVILEGED)
        self.assertEqual(status, 1)
        for name in ("nosuch0", "nosuch1"):
            self.assertIn(f"ERROR Couldn't open device {name}:", errors)
            self.assertIn(f'there is no device "{name}"; the devices here are: ', errors)
        for text in ("no device could be opened", "CAP_NET_RAW", "setcap", harness.PROGRAM):
            self.assertIn(text, errors)

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
            settings = os.path.join(folder, "sniffer.properties")
            with open(settings, "w") as file:
                file.write(f"Device=file:{path}\nReopenDevices=yes\nServerName=127.0.0.1\n")
            for options in ("-d", f"file:{path}"), ("-c", settings):
                with self.subTest(name, options=options):
                    status, _, errors = self.run_to_end(*options)
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

    def test_check_tells_the_truth(self):
        # The log goes to a file; the errors are still printed on standard error.
        folder = self.folder()
        log, logging = os.path.join(folder, "log"), os.path.join(folder, "log4cxx.properties")
        with open(logging, "w") as file:
            file.write(harness.LOG_TO_FILE.replace("sniffer.log", log))
        pipe = os.path.join(folder, "pipe")
        os.mkfifo(pipe)
        fragments, streams = {"ReassembleFragments": "yes"}, {"ReassembleTcp": "yes"}
        cases = [
            ({}, 0, ""),
            ({"Device": f"{SIP_CALL};nosuch0"}, 1, '"nosuch0"'),
            ({"Device": "nosuch0;file:/none;", "ServerName": "recorder"}, 1, "/none: No such file"),
            ({"Device": ""}, 1, "no device is set"),
            ({"Filter": "udp prot"}, 3, '"udp prot" does not compile: can'),
            ({"ServerName": "recorder"}, 1, '"recorder"'),
            ({"ServerPort": 0}, 1, "port is 0"),
            ({"ServerPort": "6000x"}, 1, 'port is "6000x", of which 6000 is used'),
            ({"ServerPort": (1 << 32) + 6000}, 1, 'port is "4294973296", of which 6000 is used'),
            ({"ServerProtocol": "SCTP"}, 1, '"SCTP"'),
            ({"Filter": "udp port 5062 and net 10.1.0.0/16"} | fragments, 0, "warning: ReassembleFragments"),
            ({"Filter": "udp port 5062 or (ip[6:2] & 0x1fff != 0)"} | fragments, 0, ""),
            ({"Filter": "udp or tcp port 5062"} | fragments | streams, 0, ""),
            ({"Filter": "udp"} | streams, 0, "warning: ReassembleTcp"),
            ({"Filter": "udp port 5062", "Decapsulate": "yes"}, 0, "warning: Decapsulate"),
            ({"Filter": "tcp port 5062"} | fragments, 0, "warning: ReassembleFragments"),
            ({"Filter": "tcp"} | fragments | streams, 0, ""),
            ({"Filter": "ip6 and tcp"} | fragments | streams, 0, ""),
            ({"Filter": "vlan 7 and udp"} | streams, 0, "warning: ReassembleTcp"),
            ({"Filter": "vlan 7 and (udp or tcp)"} | streams, 0, ""),
            ({"Filter": "udp", "ServerPort": 0} | streams, 1, "warning: ReassembleTcp"),
            ({"Filter": "mpls or udp"}, 0, 'warning: the filter after "mpls" applies to the bytes after that header'),
            ({"Filter": "(vlan and udp) or udp"}, 0, 'warning: the filter after "vlan"'),
            ({"Filter": "udp or (vlan and (udp or (vlan and udp)))"}, 0, ""),
            ({"Filter": "(vlan 7 and udp) and (port 5060 or port 5062)"}, 0, ""),
            ({"LookBak": 2000}, 0, 'warning: Line '),
            ({"Filter": "udp or host " + 30 * "10.9.10.1 or host " + "10.0.0.1"}, 1, "so Filter is not set"),
            ({"#Filter": 600 * "x"}, 0, ""),
            ({"LookBack": "2000 ms", "ReopenDevices": "YES"}, 1, "LookBack=2000 ms, not a number"),
            ({"MoreRecorders": "10.0.0.12:6000;10.0.0.13:6001"}, 0, ""),
            ({"MoreRecorders": "10.0.0.12"}, 1, '"10.0.0.12" is left out: write an address and a port'),
            ({"MoreRecorders": "10.0.0.12:6000;10.0.0.12:6000"}, 0, "warning: MoreRecorders has 10.0.0.12:6000 twice"),
            ({"MoreRecorders": "[fe80::1]:6000"}, 1, "fe80::1 is link-local: write its device, too, as in fe80::1%"),
            ({"ServerName": "ff02::1"}, 0, "warning: the recorder's address ff02::1 is that of a group of machines"),
            ({"ServerName": "::ffff:224.0.0.1"}, 0, "warning: the recorder's address ::ffff:224.0.0.1 is that of"),
            ({"ServerName": "0.0.0.0"}, 0, "warning: the recorder's address 0.0.0.0 is where a recorder can listen"),
            ({"ServerProtocol": "UDP", "LookBack": 9, "ResendLast": 9}, 0, "warning: ResendLast does nothing for"),
            ({"StatisticsFile": "/nowhere/x.prom"}, 1, "/nowhere/x.prom cannot be written: No such file"),
            ({"StatisticsFile": folder}, 1, "cannot be written: Is a directory"),
            ({"StatisticsFile": pipe}, 1, "cannot be written: Not a regular file"),
            ({"StatisticsFile": "/proc/x"}, 1, "/proc/x cannot be written: "),
            ({"StatisticsFile": f"{folder}/{252 * 'x'}"}, 1, "cannot be written: File name too long"),
            ({"StatisticsFile": f"{folder}/x.prom"}, 0, ""),
            ({"Device": f"file:{pipe}"}, 0, f'warning: "file:{pipe}" is a pipe'),
            ({"Filter": "udp port 5062 or proto gre", "Decapsulate": "yes"}, 0, ""),
            ({"Filter": "udp port 5062 or port 8472", "Decapsulate": "yes", "TunnelPorts": "vxlan:8472"}, 0, ""),
            ({"TunnelPorts": "vxlam:8472"}, 1, '"vxlam:8472" is ignored: a tunnel is vxlan, geneve, gtp, l2tp or tzsp'),
            ({"Filter": "udp", "IPv6": "yes"}, 0, ""),
            ({"Filter": "ip and udp", "IPv6": "yes"}, 0, "warning: IPv6"),
            ({"Filter": "udp and (net 10.0.0.0/8 or net 2a00:1450::/32)", "IPv6": "yes"}, 0, ""),
        ]
        if os.geteuid() == 0:
            ports = "port " + "||".join(map(str, range(1, 100)))  # more than the 4096 instructions of a socket filter
            cases.append(({"Device": "lo", "Filter": ports}, 0, "warning: the kernel does not take the filter on lo"))
            cases.append(({"Device": "lo", "Filter": "udp"}, 0, ""))
        for settings, expected, told in cases:
            with self.subTest(settings):
                status, output, errors = self.run_to_end("--check", "-l", logging, settings=GOOD | settings)
                self.assertEqual(status, expected)
                count = errors.count("sniffer: ") - errors.count("sniffer: warning: ")
                self.assertEqual(count > 0, expected > 0)
                ready = "Ready: devices, filter and the recorder's address are good"
                self.assertEqual(output, f"Not ready: {count} error{'s' * (count > 1)}" if count else ready)
                self.assertIn(told, errors)
                self.assertEqual("warning:" in errors, told.startswith("warning"))
        self.assertEqual(sorted(os.listdir(folder)), ["log", "log4cxx.properties", "pipe"])
        with open(log) as file:
            self.assertNotIn("connection created", file.read())
        status, output, _ = self.run_to_end("--list-devices")
        self.assertEqual(status, 0)
        self.assertRegex(output, r"(?m)^lo\b.* 127\.0\.0\.1")

    def test_signals_end_the_set_up(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            program = self.start("-d", self.keep(Wire(self.folder())).device)  # it stays empty
            program.wait_logged("DeviceCount=1")
            self.assertEqual(program.end(number), 0)

    def test_a_capture_thread_that_cannot_be_created(self):
        # The address space holds the stacks of three threads: for signals, for commands, and for one device.
        limits = ["prlimit", f"--stack={4 << 30}", f"--as={14 << 30}"]
        if subprocess.run([*limits, harness.PROGRAM, "--version"], capture_output=True).returncode != 0:
            self.skipTest("the sanitizers take more address space")
        program = self.start("-d", f"{SIP_CALL};{SIP_CALL}", prefix=limits)
        self.assertEqual(program.status(), 255)
        expected = ["INFO PCAP thread created 0", "ERROR Error - return code from pthread_create() is 11"]
        expected += ["INFO Completed join with PCAP thread 0 status=0", "INFO Completed join with Command"]
        self.assert_in_order(program.log, expected)

    def test_live_line_on_a_terminal(self):
        recorder, wire, (screen, terminal) = self.keep(Recorder()), self.keep(Wire(self.folder())), pty.openpty()
        command_line = [harness.PROGRAM, "-d", wire.device, "-p", str(recorder.port)]
        program = subprocess.Popen([*harness.die_with_us(), *command_line], stdout=terminal, stderr=terminal)
        self.addCleanup(lambda: (program.kill(), program.wait(), os.close(screen), os.close(terminal)))
        wire.open()
        wire.send(*harness.read_capture(harness.sample("sip-g711a-call.pcap"))[:3])
        shown = b""
        while b", recorder connected" not in shown:
            shown += os.read(screen, 4096)
        self.assertRegex(shown, rb"\r\x1b\[Kin \d+/s, out \d+/s, drops 0, queue \d+, listed 0, recorder ")
        wire.close()
        self.assertEqual(program.wait(harness.PATIENCE), 0)

    def test_statistics_on_request_and_at_the_end(self):
        recorder, wire = self.keep(Recorder()), self.keep(Wire(self.folder()))
        program = self.start("-d", wire.device, "-p", str(recorder.port))
        wire.open()
        call = harness.read_capture(harness.sample("sip-g711a-call.pcap"))
        wire.send(*call)
        udp, asked = sum(frame.is_udp for frame in call), 0
        counted = f"INFO Statistics: sipForwarded=6 rtpForwarded=0 h323Forwarded=0 udpDropped={udp - 6} "
        # The program counts a frame after it has sent it.
        while not program.logged(counted):
            asked += 1
            program.process.send_signal(signal.SIGUSR2)
            program.wait_logged("INFO Statistics: ", asked)
        self.assertEqual(program.end(signal.SIGINT), 0)
        self.assertEqual(program.logged("INFO Statistics: "), asked + 1)
        self.assertGreaterEqual(program.logged(f"INFO Statistics of device {wire.device}: replayed={udp}"), 2)

    def test_one_of_two_devices_is_enough_unless_its_filter_is_wrong(self):
        program = self.start("-d", f"nosuch0;{SIP_CALL};{SIP_CALL}", "-f", "udp prot 5060")
        self.assertEqual(program.status(), 3)
        self.assertEqual(program.logged("ERROR Couldn't parse filter udp prot 5060:"), 1)
        self.assertEqual((program.logged("opened"), program.logged("connection created")), (1, 0))
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
        recorder, wires = self.keep(Recorder()), [self.keep(Wire(self.folder())) for _ in range(2)]
        first, second = (wire.device for wire in wires)
        settings = {"Device": f"{first};{second}", "Filter": "udp port 5060", "ServerName": "127.0.0.1"}
        settings |= {"ServerPort": recorder.port, "ServerProtocol": "tcp", "TraceSignalling": "yes"}
        program = self.start(settings=settings)
        for wire in wires:
            wire.open()
        program.wait_logged("PCAP thread created 1")
        # Neither signal ends the program: SIGUSR1 interrupts reads, SIGPIPE reports a lost recorder.
        program.process.send_signal(signal.SIGUSR1)
        program.process.send_signal(signal.SIGPIPE)
        self.assertEqual(program.end(), 0)

        (told,) = program.output
        for text in (first, second, "udp port 5060", f"127.0.0.1:{recorder.port}"):
            self.assertIn(text, told)
        expected = [f"INFO device[0]={first}", f"device[1]={second}", "Filter=udp port 5060"]
        expected += ["ServerNameMedia=127.0.0.1", f"ServerPortMedia={recorder.port}", "ServerProtocol=tcp"]
        expected += ["DeviceCount=2", "LogLevel=DEBUG", "TraceSignalling=0"]
        for device in (first, second):
            expected += [f"INFO Device: {device} opened", "INFO Filter compilation ok: udp port 5060"]
            expected += ["INFO Filter instalation ok: udp port 5060"]
        expected += [f"INFO Connecting to recorder 127.0.0.1:{recorder.port}", "INFO TCP connection created"]
        expected += ["INFO Tcp socket send buffer size=60000", "to recorder 127.0.0.1:"]
        expected += ["INFO Command reader thread created cmdReaderThread", "INFO Sniffing started."]
        expected += ["INFO PCAP thread created 0", "INFO PCAP thread created 1", "INFO Ending Sniffing ..."]
        expected += [f"INFO Completed join with PCAP thread {number} status=0" for number in (0, 1)]
        self.assert_in_order(program.log, [*expected, "INFO Completed join with Command reader thread, status=0"])
        self.assert_in_order(program.log, [*expected, "INFO Sniffing ended."])


if __name__ == "__main__":
    harness.main()
