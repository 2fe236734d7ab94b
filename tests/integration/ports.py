"""Free ports for the programs that a test starts."""

import contextlib
import os
import socket


def free_ports(count):
    """Returns the first of `count` free ports in a row, below those that the kernel gives to clients.

    Processes that search at the same time begin at different ports.
    """
    for first in range(14000 + os.getpid() % 1700 * 10, 32000, count):
        with contextlib.ExitStack() as sockets, contextlib.suppress(OSError):
            for port in range(first, first + count):
                sockets.enter_context(socket.create_server(("127.0.0.1", port)))
            return first
    raise AssertionError("no ports are free")
