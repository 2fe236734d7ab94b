#!/usr/bin/env python3
"""Prints the RabbitMQ definitions for a broker between fronts and recorders: queues, exchanges, bindings.

    definitions.py 4 >definitions.json                    for load_definitions in rabbitmq.conf, or import_definitions
    definitions.py 4 --generation 2                       the next generation, over the same queues; see docs/scaling.md
    definitions.py 4 --queues east-1,east-2,west-1,west-2 with your own names
"""
import argparse
import base64
import hashlib
import json
import os
import re
import sys

EXCHANGE = "voip-calls"
QUEUE = "voip-recorder"
DEAD = "voip-dead"
# The partitions of the calls, which are the routing keys "0" to "63". A front publishes a call in one of them, so a
# call keeps its queue when the broker is restarted. An exchange of type x-consistent-hash would assign calls to other
# queues at each start.
PARTITIONS = 64
DEAD_BYTES = 64 << 20
ARGUMENTS = {"x-single-active-consumer": True, "x-dead-letter-exchange": DEAD,
             "x-dead-letter-strategy": "at-least-once", "x-overflow": "reject-publish"}


def quorum_queue(name, **arguments):
    return {"name": name, "vhost": "/", "durable": True, "auto_delete": False,
            "arguments": {"x-queue-type": "quorum", **arguments}}


def exchange(name, kind):
    return {"name": name, "vhost": "/", "type": kind, "durable": True, "auto_delete": False, "internal": False,
            "arguments": {}}


def binding(source, queue, key):
    return {"source": source, "vhost": "/", "destination": queue, "destination_type": "queue", "routing_key": key,
            "arguments": {}}


def account(name, password):
    salt = os.urandom(4)
    digest = base64.b64encode(salt + hashlib.sha256(salt + password.encode()).digest()).decode()
    return {"name": name, "password_hash": digest, "hashing_algorithm": "rabbit_password_hashing_sha256", "tags": ""}


def definitions(queues, generation, user=None, ready=True):
    """Fronts use a generation only when its exchange "ready" exists; `ready` is False until all queues are bound."""
    calls = f"{EXCHANGE}.{generation}"
    made = {
        "vhosts": [{"name": "/"}],
        # One recorder reads a queue at a time; a second one waits to take over. A rejected message leaves its queue
        # only when the queue voip-dead has it on disk.
        "queues": [quorum_queue(DEAD, **{"x-max-length-bytes": DEAD_BYTES, "x-overflow": "drop-head"})]
        + [quorum_queue(name, **ARGUMENTS) for name in queues],
        "exchanges": [exchange(DEAD, "fanout"), exchange(calls, "direct")]
        + ([exchange(calls + ".ready", "fanout")] if ready else []),
        "bindings": [binding(DEAD, DEAD, "")]
        + [binding(calls, queues[number % len(queues)], str(number)) for number in range(PARTITIONS)],
    }
    if user:
        name, _, password = user.partition(":")
        made["users"] = [account(name, password)]
        made["permissions"] = [{"user": name, "vhost": "/", "configure": "^$", "write": ".*", "read": ".*"}]
    return made


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("recorders", type=int, help="number of recorders; each has one queue")
    parser.add_argument("--queues", help=f"their names, separated by commas (default: {QUEUE}-1, {QUEUE}-2, ...)")
    parser.add_argument("--generation", type=int, default=1, help="1 for the first generation, 2 for the next, ...")
    parser.add_argument("--user", metavar="NAME:PASSWORD", help="also create an account for fronts and recorders")
    parser.add_argument("--without-ready", action="store_true", help="leave out the mark of a ready generation")
    options = parser.parse_args()
    queues = options.queues.split(",") if options.queues else [f"{QUEUE}-{i + 1}" for i in range(options.recorders)]
    if not 1 <= options.recorders <= PARTITIONS or options.generation < 1:
        sys.exit(f"definitions.py: there are 1 to {PARTITIONS} recorders, and generations count from 1")
    if len(set(queues)) != options.recorders or not all(re.fullmatch(r"[\w.-]{1,200}", name) for name in queues):
        sys.exit(f"definitions.py: {options.recorders} recorders need as many queues with names of their own, made of "
                 "letters, digits, dots, dashes and underscores")
    json.dump(definitions(queues, options.generation, options.user, not options.without_ready), sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()
