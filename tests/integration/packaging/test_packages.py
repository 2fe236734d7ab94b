"""Installs, starts, upgrades, removes and purges the Debian packages on this machine.

The test does not need a running systemd: setpriv starts the program with the user and the capabilities of the unit, and
strace shows whether the system calls stay within the limits of the unit. Needs root. Restores the machine.
"""

import os
import pathlib
import pwd
import re
import shlex
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "live"))
import harness
from harness import SIP, Namespace, Recorder, forwarded

NAMES = ["voip-sniffer", "libvoip-sniffer-java", "voip-recorder"]
USERS = ["voip-sniffer", "voip-recorder"]
SETTINGS = pathlib.Path("/etc/voip-sniffer/sniffer.properties")
RECORDINGS = pathlib.Path("/var/lib/voip-recorder")
# The packages are tested on machines that have Java from elsewhere, too.
DEPENDS = ["--force-depends"]
SAMPLE = harness.sample("sip-g711a-call.pcap")


def run(*command_line, **more):
    """Returns the output of the command, standard error included. A failure shows it."""
    done = subprocess.run(command_line, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **more)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command_line))} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def dpkg(*arguments):
    return run("dpkg", *arguments)


def installed(name):
    query = ["dpkg-query", "-W", "-f=${Version}", name]
    return subprocess.run(query, capture_output=True, text=True).stdout


def users():
    return [entry.pw_name for entry in pwd.getpwall() if entry.pw_name in USERS]


def make_packages(version, folder):
    config = os.environ["SNIFFER_CPACK_CONFIG"]
    fast = ["-D", "CPACK_DEBIAN_COMPRESSION_TYPE=gzip"]
    run("cpack", "--config", config, "-B", folder, "-D", f"CPACK_PACKAGE_VERSION={version}", *fast, cwd=folder)
    return [str(path) for path in pathlib.Path(folder).glob(f"*_{version}-1_*.deb")]


class Unit:
    def __init__(self, name="voip-sniffer"):
        self.path = pathlib.Path(f"/usr/lib/systemd/system/{name}.service")
        self.lines = re.findall(r"^(\w+)=(.*)$", self.path.read_text(), re.M)

    def all(self, key):
        return " ".join(value for name, value in self.lines if name == key)

    def command(self):
        """Returns a command that runs the program with the user and exactly the capabilities of the unit."""
        names = self.all("AmbientCapabilities")
        assert names == self.all("CapabilityBoundingSet")
        capabilities = ",".join(["-all", *("+" + name.removeprefix("CAP_").lower() for name in names.split())])
        limits = [f"--{of}={capabilities}" for of in ("bounding-set", "inh-caps", "ambient-caps")]
        return [*self.user(), *limits, *shlex.split(self.all("ExecStart"))]

    def user(self):
        user, group = self.all("User"), self.all("Group")
        return ["setpriv", f"--reuid={user}", f"--regid={group}", "--clear-groups", "--no-new-privs"]

    def allowed_calls(self):
        listed = {}
        for line in run("systemd-analyze", "syscall-filter", "--no-pager").splitlines():
            if line.startswith("@"):
                group = listed.setdefault(line.strip(), set())
            elif line.strip() and not line.strip().startswith("#"):
                group.add(line.strip())

        def members(name):
            return set().union(*map(members, listed[name])) if name.startswith("@") else {name}

        allowed = set()
        for value in (value for name, value in self.lines if name == "SystemCallFilter"):
            names = set().union(*map(members, value.removeprefix("~").split()))
            allowed = allowed - names if value.startswith("~") else allowed | names
        return allowed


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = harness.tempfile.TemporaryDirectory(prefix="sniffer-test-")
        cls.addClassCleanup(cls.folder.cleanup)
        cls.addClassCleanup(lambda: subprocess.run(["userdel", "voip-recorder"], capture_output=True))
        cls.addClassCleanup(shutil.rmtree, RECORDINGS, ignore_errors=True)
        cls.addClassCleanup(lambda: dpkg("--purge", *filter(installed, NAMES)) if any(map(installed, NAMES)) else None)
        cls.first, cls.second = (make_packages(version, cls.folder.name) for version in ("1.0.1", "1.0.2"))

    def test_life_of_the_packages(self):
        self.assertEqual(len(self.first), 3)
        said = dpkg("--install", *DEPENDS, *self.first)
        for name in USERS:
            self.assertIn(f"systemctl enable --now {name}", said)
        self.check_what_is_there()
        self.check_that_it_records()
        settings = SETTINGS.read_text()
        for key, value in {"Device": "tap0", "ServerPort": "6543"}.items():
            settings = re.sub(f"^{key}=.*$", f"{key}={value}", settings, flags=re.M)
        settings += "MoreRecorders=[::1]:6543\n"
        SETTINGS.write_text(settings)
        self.check_that_it_sniffs()
        self.check_that_it_keeps_to_its_limits()

        dpkg("--install", *self.second)
        self.assertEqual([installed(name) for name in NAMES], ["1.0.2-1"] * 3)
        self.assertEqual(SETTINGS.read_text(), settings, "an upgrade keeps the operator's settings")
        self.check_that_it_sniffs()

        dpkg("--remove", *NAMES)
        self.assertFalse(pathlib.Path("/usr/sbin/sniffer").exists())
        self.assertEqual(SETTINGS.read_text(), settings, "removal keeps the settings")
        dpkg("--purge", *NAMES)
        self.assertFalse(SETTINGS.parent.exists())
        self.assertEqual(users(), ["voip-recorder"], "its recordings stay")
        self.assertEqual(list(RECORDINGS.glob("*-stereo.wav")), self.recorded)
        self.assertEqual([installed(name) for name in NAMES], [""] * 3)

    def check_what_is_there(self):
        conffiles = run("dpkg-query", "-W", "-f=${Conffiles}", *NAMES)
        for name, program in zip(USERS, ("sniffer", "voip-recorder")):
            user = pwd.getpwnam(name)
            self.assertLess(user.pw_uid, 1000)
            self.assertIn("nologin", user.pw_shell)
            self.assertEqual(conffiles.count(f"/etc/{name}/"), 2)
            enabled = list(pathlib.Path("/etc/systemd/system").rglob(f"{name}*"))
            self.assertEqual(enabled, [], "not before it is configured")
            self.assertIn(f"/usr/share/man/man8/{program}.8.gz\n", run("dpkg-query", "--listfiles", name))
        for name in "voip-sniffer", "voip-recorder", "voip-front":
            path = Unit(name).path
            run("systemd-analyze", "verify", "--man=no", str(path))
            exposure = run("systemd-analyze", "security", "--offline=true", "--no-pager", str(path))
            self.assertLessEqual(float(re.search(r"exposure level.*: ([\d.]+)", exposure)[1]), 2.0)
        # Java finds the library on its default path.
        source = pathlib.Path(__file__).parent / "LoadLibrary.java"
        run("java", "-cp", "/usr/share/java/voip-sniffer.jar", str(source))
        self.assertIn("--vhost", run("voip-queues", "--help"))

    def check_that_it_records(self):
        """Runs the service with the user of its unit, within the system calls of the unit."""
        unit = Unit("voip-recorder")
        # systemd does this for StateDirectory=.
        shutil.chown(RECORDINGS.mkdir(mode=0o750) or RECORDINGS, "voip-recorder", "voip-recorder")
        port, trace = harness.free_port(), os.path.join(self.folder.name, "trace.recorder")
        metrics = RECORDINGS / "voip-recorder.prom"
        command = [*unit.user(), *shlex.split(unit.all("ExecStart")), "--tcp", str(port), "--metrics", metrics]
        limits = ["strace", "--follow-forks", f"--output={trace}", "--quiet=all"]
        recorder = subprocess.Popen([*limits, *command], stdout=subprocess.PIPE, text=True, umask=0o027)
        self.addCleanup(recorder.kill)
        self.assertTrue(any("waiting for the sniffer" in line for line in recorder.stdout))
        with harness.socket.create_connection(("127.0.0.1", port)) as sniffer:
            for frame in filter(lambda frame: frame.is_udp, harness.read_capture(SAMPLE)):
                sniffer.sendall(forwarded(SIP if frame.is_sip else harness.RTP, frame))
            self.assertTrue(any("hung up" in line for line in recorder.stdout))
        java = int(re.search(r"^(\d+) ", pathlib.Path(trace).read_text())[1])
        os.kill(java, harness.signal.SIGTERM)
        self.assertIn("1 recording", recorder.communicate(timeout=60)[0])
        self.assertEqual(recorder.returncode, int(unit.all("SuccessExitStatus")))
        self.recorded = list(RECORDINGS.glob("*-stereo.wav"))
        self.assertEqual(len(self.recorded), 1)
        self.assertEqual(self.recorded[0].stat().st_mode & 0o777, 0o640)
        self.assertEqual(metrics.stat().st_mode & 0o777, 0o644)
        self.assertIn("\nvoip_recorder_calls_total 1\n", metrics.read_text())
        self.assertEqual(subprocess.run(["promtool", "check", "metrics"], stdin=metrics.open()).returncode, 0)
        lines = pathlib.Path(trace).read_text()
        own = lines[lines.index(' execve("/usr/sbin/voip-recorder"') :]
        self.assertEqual(set(re.findall(r"^\d+ +(\w+)\(", own, re.M)) - unit.allowed_calls(), set())
        families = set(re.findall(r"\bsocket\((\w+)", own))
        self.assertEqual(families - set(unit.all("RestrictAddressFamilies").split()), set())

    def sniff(self, *prefix):
        here, there = Namespace(), Namespace()
        self.addCleanup(here.close)
        self.addCleanup(there.close)
        there.join("wire0", here, "tap0")
        recorder = Recorder("TCP", here, port=6543)
        self.addCleanup(recorder.close)
        log = open(os.path.join(self.folder.name, "log"), "w+")
        self.addCleanup(log.close)
        program = here.start(*prefix, *Unit().command(), cwd="/", stdout=log, stderr=log)
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)

        def logged():
            log.seek(0)
            return log.read()

        def wait_logged(text):
            harness.wait_until(lambda: text in logged() or program.poll() is not None, text)
            self.assertIn(text, logged())

        wait_logged("PCAP thread created 0")
        invite = ["tcpreplay", "--quiet", "--intf1=wire0", "--limit=1", str(SAMPLE)]
        # The first frame may be lost while the program connects.
        harness.wait_until(lambda: recorder.frames or there.run(*invite), "a frame")
        self.assertEqual(recorder.frames[0], forwarded(SIP, harness.read_capture(SAMPLE)[0]))
        process = int(run("pgrep", "--exact", "--nslist", "net", "--ns", str(here.holder.pid), "sniffer"))
        status = pathlib.Path(f"/proc/{process}/status").read_text()
        os.kill(process, harness.signal.SIGUSR2)
        wait_logged("Statistics of device tap0: received=")
        wait_logged("Statistics: sipForwarded=")
        os.kill(process, harness.signal.SIGTERM)
        self.assertEqual(program.wait(30), 0, logged())
        return status

    def check_that_it_sniffs(self):
        status = self.sniff()
        self.assertIn(f"Uid:\t{pwd.getpwnam('voip-sniffer').pw_uid}\t", status)
        self.assertEqual(set(re.findall(r"^Cap\w+:\t(\w+)$", status, re.M)), {"0000000000003000"})
        # Without the capabilities it reports what is missing.
        powerless = [*Unit().user(), "--bounding-set=-all", "sniffer", "--check", "-d", "lo"]
        check = subprocess.run(powerless, capture_output=True, text=True)
        self.assertEqual(check.returncode, 1)
        self.assertIn("cap_net_raw", check.stderr)

    def check_that_it_keeps_to_its_limits(self):
        trace = os.path.join(self.folder.name, "trace")
        self.sniff("strace", "--follow-forks", f"--output={trace}", "--quiet=all")
        lines = pathlib.Path(trace).read_text()
        # The lines before the execve of the program belong to setpriv.
        own = lines[lines.rindex(' execve("/usr/sbin/sniffer"') :]
        calls = set(re.findall(r"^\d+ +(\w+)\(", own, re.M))
        self.assertIn("bind", calls)
        unit = Unit()
        self.assertEqual(calls - unit.allowed_calls(), set())
        families = set(re.findall(r"\bsocket\((\w+)", own))
        self.assertIn("AF_PACKET", families)
        self.assertEqual(families - set(unit.all("RestrictAddressFamilies").split()), set())
        self.assertNotRegex(own, r"\b(mmap|mprotect)\(.*PROT_WRITE\|PROT_EXEC")


if __name__ == "__main__":
    packaging = ["dpkg", "dpkg-shlibdeps", "systemd-analyze", "adduser", "java", "promtool"]
    harness.need_root(*packaging, "setpriv", "tcpreplay", "strace", "pgrep")
    if any(map(installed, NAMES)) or users() or RECORDINGS.exists():
        print("SKIPPED: the packages or their user are on this machine already, not this test's to remove")
        sys.exit(77)
    harness.main()
