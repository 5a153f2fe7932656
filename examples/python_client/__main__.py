"""A trading client in plain Python. It reads where to connect from the environment:

    KAVO_ORDERS      order entry, 127.0.0.1:PORT
    KAVO_FEED        the feed, GROUP:PORT
    KAVO_IFACE       address of the interface on which the group is joined
    KAVO_RECOVERY    the retransmission service, 127.0.0.1:PORT
    KAVO_SYMBOLS     names of what to trade, separated by commas; all if it is not set
    KAVO_CLIENT_LOG  where to write what it believes; nowhere if it is not set

    kavo test -- python3 examples/python_client --seconds 3
"""

from __future__ import annotations

import argparse
import os
import sys

from client import Address, Client, Settings
from faults import FAULTS


def address(variable: str, default: str) -> Address:
    host, _, port = os.environ.get(variable, default).rpartition(":")
    return host, int(port)


def settings(arguments: argparse.Namespace) -> Settings:
    return Settings(
        user=arguments.user,
        orders=address("KAVO_ORDERS", "127.0.0.1:28700"),
        feed=address("KAVO_FEED", "233.54.28.111:25377"),
        interface=os.environ.get("KAVO_IFACE", "127.0.0.1"),
        recovery=address("KAVO_RECOVERY", "127.0.0.1:25379"),
        log=os.environ.get("KAVO_CLIENT_LOG") or None,
        symbols=[name for name in os.environ.get("KAVO_SYMBOLS", "").split(",") if name],
        seconds=arguments.seconds,
        limit=arguments.orders,
        fault=arguments.fault,
    )


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--user", default="p01", help="at most five characters (default: %(default)s)")
    parser.add_argument("--seconds", type=float, default=3.0, help="how long to trade (default: %(default)s)")
    parser.add_argument("--orders", type=int, default=60, help="how many orders at most (default: %(default)s)")
    parser.add_argument("--fault", default="", choices=["", *FAULTS], metavar="NAME", help="a mistake to make")
    parser.add_argument("--faults", action="store_true", help="list the mistakes, and end")
    arguments = parser.parse_args()
    if arguments.faults:
        for name, sentence in FAULTS.items():
            print(f"{name:32}{sentence}")
        return 0
    return Client(settings(arguments)).run()


if __name__ == "__main__":
    sys.exit(main())
