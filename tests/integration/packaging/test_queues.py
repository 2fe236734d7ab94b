"""voip-queues on a bare RabbitMQ broker: errors, an interrupted run, accounts with their rights, queues made anew."""

import collections
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).parents[3]
sys.path[:0] = [str(ROOT / "packaging/rabbitmq"), str(pathlib.Path(__file__).parent.parent)]
import definitions
from ports import free_ports


class Queues(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="queues-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.port = free_ports(4)
        for role in "front", "recorder":
            (self.folder / role).write_text(f"{role} a:b@/%é\n")

    def broker(self, action, *words, text=None):
        command = [ROOT / "tools/private-broker", action, self.folder / "broker", str(self.port), *words]
        return subprocess.run(command, input=text, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def evaluate(self, expression):
        """Evaluates an expression in the broker. Returns the term as text."""
        done = self.broker("eval", text=expression + ".\n")
        self.assertTrue(done.stdout.startswith("{ok, "), done.stdout)
        return done.stdout[5:-1]

    def queues(self, *words, status=0):
        done = self.broker("run", "env", "VOIP_VHOST=voip", ROOT / "packaging/rabbitmq/voip-queues", *words)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout

    def program(self, account, *options):
        """Runs a front or a recorder. Returns its output."""
        broker = f"amqp://voip-{account}@127.0.0.1:{self.port}/voip"
        words = [word if word != "BROKER" else broker for word in options]
        out = self.folder / f"{account}{len(list(self.folder.iterdir()))}"
        command = [os.environ["SNIFFER_JAVA"], "-Xmx100m", "-XX:TieredStopAtLevel=1", "-jar", os.environ["SNIFFER_JAR"]]
        with out.open("w") as log:
            options = [*words, "--password-file", self.folder / account, "--out", out.with_suffix(".recordings")]
            process = subprocess.Popen([*command, *options], stdout=log, stderr=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return out

    def hears(self, log, pattern):
        deadline = time.monotonic() + 90
        while not re.search(pattern, log.read_text()):
            self.assertLess(time.monotonic(), deadline, f"waited in vain for {pattern}: {log.read_text()}")
            time.sleep(0.1)

    def keys(self, generation):
        """Returns how many keys have how many queues."""
        exchange = f'rabbit_misc:r(<<"voip">>, exchange, <<"voip-calls.{generation}">>)'
        keys = f"[binary_to_list(element(3, Binding)) ++ [32] || Binding <- rabbit_binding:list_for_source({exchange})]"
        counts = collections.Counter(self.evaluate(f"lists:append({keys})").strip('"').split())
        return collections.Counter(counts.values())

    def test_set_up(self):
        self.assertIn("does the broker run", self.queues("2", status=1))
        self.addCleanup(self.broker, "stop")
        self.assertEqual(self.broker("start", "0").returncode, 0)
        self.assertIn("password", self.queues("2", "--user", "a:b", status=2))

        interrupted = definitions.definitions(["other-1", "other-2"], 1, ready=False)
        moved = self.folder / "definitions"
        moved.write_text(json.dumps(interrupted).replace('"/"', '"voip"'))
        self.evaluate(f'{{ok, Json}} = file:read_file("{moved}"), ok = rabbit_definitions:import_raw(Json)')
        passwords = [word for role in ("front", "recorder") for word in (f"--{role}-password", self.folder / role)]
        self.assertIn("voip-calls.1 is completed", self.queues("2", *passwords))
        self.assertEqual(self.keys(1), {1: definitions.PARTITIONS})
        queue = '{ok, Queue} = rabbit_amqqueue:lookup(rabbit_misc:r(<<"voip">>, queue, <<"voip-recorder-2">>))'
        self.evaluate(f'{queue}, {{ok, _}} = rabbit_amqqueue:delete(Queue, false, false, <<"test">>)')
        self.queues("2")
        self.assertEqual(self.keys(1), {1: definitions.PARTITIONS})
        self.assertIn("already (voip-calls.1)", self.queues("2"))

        front = self.program("front", "--tcp", str(self.port + 3), "--publish", "BROKER")
        recorder = self.program("recorder", "--consume", "BROKER", "--queue", "voip-recorder-2")
        self.hears(front, "publishing to")
        self.hears(recorder, "consuming voip-recorder-2")
        for account, queue in ("front", "voip-recorder-1"), ("recorder", "voip-dead"):
            refused = self.program(account, "--consume", "BROKER", "--queue", queue)
            self.hears(refused, "cannot consume .*ACCESS_REFUSED")

        self.queues("3")
        self.hears(front, r"queues of voip-calls\.2")
        self.evaluate('rabbit_vhost:delete(<<"voip">>, <<"test">>)')
        self.hears(front, "cannot publish to")
        self.queues("2", *passwords)
        self.hears(front, r"made anew\n.*queues of voip-calls\.1\n.* is back after")


if __name__ == "__main__":
    if not pathlib.Path("/usr/lib/rabbitmq/bin/rabbitmq-server").exists():
        print("SKIPPED: needs RabbitMQ (Debian package rabbitmq-server)")
        sys.exit(77)
    unittest.main(verbosity=2, warnings="ignore")
