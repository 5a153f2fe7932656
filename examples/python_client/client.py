"""The client: one thread, one loop over its sockets and its timers. Each turn reads all there is before it acts."""

from __future__ import annotations

import contextlib
import selectors
import socket
import struct
import sys
import time
from dataclasses import dataclass, field

import session as events
from beliefs import Beliefs
from market import Market
from orders import Orders
from recovery import Recovery
from session import Session
from trader import Trader

Address = tuple[str, int]

LONGEST_WAIT_S = 0.25
FIRST_PAUSE_S = 0.1  # before connecting again; doubled each time, unless the connection was a good one
LONGEST_PAUSE_S = 1.0
GOOD_CONNECTION_S = 1.0
SYNC_S = 1.0  # then a login asks for what is to be heard and does not come
BOOK_LINE_S = 0.05  # how often to tell a book
WIND_DOWN_S = 6.0  # to cancel and be answered, longer than silence and a new login take
DEPTH = 10


@dataclass
class Settings:
    user: str
    orders: Address
    feed: Address
    interface: str
    recovery: Address
    log: str | None
    symbols: list[str] = field(default_factory=list)
    seconds: float = 3.0
    limit: int = 60
    fault: str = ""


def feed_socket(feed: Address, interface: str) -> socket.socket:
    """Bound to the group, so that other groups on the same port are not heard."""
    receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    receiver.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
    receiver.bind(feed)
    if 224 <= int(feed[0].split(".")[0]) < 240:
        membership = struct.pack("4s4s", socket.inet_aton(feed[0]), socket.inet_aton(interface))
        receiver.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
    receiver.setblocking(False)
    return receiver


class Client:
    def __init__(self, settings: Settings) -> None:
        self._settings = settings
        self._beliefs = Beliefs(settings.log, settings.user)
        self._session = Session(settings.user, settings.fault)
        self._orders = Orders(self._beliefs, settings.fault)
        self._market = Market(settings.fault)
        self._trader = Trader(
            settings.user, settings.symbols, settings.limit, self._market.books, self._orders, self._session
        )
        self._feed = feed_socket(settings.feed, settings.interface)
        self._recovery: Recovery | None = None
        self._line: socket.socket | None = None  # to order entry
        self._connected_at = 0.0
        self._connect_at = 0.0
        self._pause = FIRST_PAUSE_S
        self._asked_at = 0.0
        self._asked_to_sync = False
        self._told: dict[int, float] = {}  # when each book was told last
        self._told_number: dict[int, tuple[int, bool]] = {}
        self._refused = ""

    def run(self) -> int:
        """0 when everything ended in good order."""
        begun = time.monotonic()
        self._market.begin(begun)
        while (now := time.monotonic()) < begun + self._settings.seconds and not self._refused:
            self._turn(now)
            self._trader.act(now)
            if self._trader.done and not self._orders.open(self._session.connection):
                break
            self._send()
        return self._finish(time.monotonic() + WIND_DOWN_S)

    def _finish(self, deadline: float) -> int:
        clean = False
        while not clean and not self._refused and (now := time.monotonic()) < deadline:
            self._turn(now)
            clean = self._trader.wind_down(now) and self._market.complete and self._synced(now)
            self._send()
        self._orders.tell_all()
        self._tell_books(time.monotonic(), everything=True)
        if clean and self._line is not None:
            self._session.log_out(time.monotonic())
            self._send()
            self._await_close(time.monotonic() + 1)
        if not clean:
            print(f"python_client: not everything was answered in time {self._refused}", file=sys.stderr)
        return 0 if clean else 1

    def _synced(self, now: float) -> bool:
        """Orders of earlier connections are asked for once more at the very end."""
        if not self._asked_to_sync and self._orders.earlier(self._session.connection):
            self._asked_to_sync = True
            self._session.log_in(now)
            return False
        return self._session.ready

    # One turn: wait, read everything, then look at the clock.

    def _turn(self, now: float) -> None:
        self._connect_if_due(now)
        self._recover_if_wanted(now)
        with selectors.DefaultSelector() as selector:
            selector.register(self._feed, selectors.EVENT_READ)
            if self._line is not None:
                writing = selectors.EVENT_WRITE if self._session.out else 0
                selector.register(self._line, selectors.EVENT_READ | writing)
            if self._recovery is not None:
                writing = selectors.EVENT_WRITE if self._recovery.out else 0
                selector.register(self._recovery.socket, selectors.EVENT_READ | writing)
            selector.select(self._wait(now))
        now = time.monotonic()
        self._read_feed(now)
        self._exchange_orders(now)
        self._exchange_recovery(now)
        self._keep_alive(now)
        self._tell_books(now)

    def _wait(self, now: float) -> float:
        due = [now + LONGEST_WAIT_S, self._market.due(), self._trader.due() if self._session.ready else None]
        due.append(self._session.due() if self._line is not None else self._connect_at)
        return max(0.0, min(at for at in due if at is not None) - now)

    # Order entry.

    def _connect_if_due(self, now: float) -> None:
        if self._line is not None or now < self._connect_at:
            return
        self._line = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._line.setblocking(False)
        self._line.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._connected_at = now
        self._line.connect_ex(self._settings.orders)  # how it ends shows when it is used
        self._session.connected(now)

    def _exchange_orders(self, now: float) -> None:
        if self._line is None:
            return
        data = b"begun"
        while data and self._line is not None:
            try:
                data = self._line.recv(65536)
            except BlockingIOError:
                break
            except OSError:
                data = b""
            if not data:
                self._drop_line(now)
                return
            for event in self._session.receive(data, now):
                self._handle(event, now)
        if self._session.wants_close:
            self._drop_line(now)
        self._send()

    def _handle(self, event: events.Event, now: float) -> None:
        match event:
            case events.Message(number, message, replayed):
                self._orders.apply(number, message, replayed)
            case events.CaughtUp():
                self._orders.caught_up(self._session.connection)
                self._trader.caught_up()
                self._asked_at = now
            case events.NewVenue():
                self._orders.forget()
            case events.Refused(status) if status != "L":
                self._refused = f"(login refused: {status})"

    def _keep_alive(self, now: float) -> None:
        if self._line is None:
            return
        since = max(self._asked_at, self._session.request_sent_at)
        # Only when the venue is heard: one that is silent is left.
        heard = self._session.heard_at >= since + SYNC_S
        if heard and self._session.ready and self._orders.waits_for_news(self._session.connection):
            self._session.log_in(now)
        self._session.keep_alive(now)
        if self._session.wants_close:
            self._drop_line(now)

    def _send(self) -> None:
        if self._line is None or not self._session.out:
            return
        try:
            del self._session.out[: self._line.send(self._session.out)]
        except BlockingIOError:
            pass
        except OSError:
            self._drop_line(time.monotonic())

    def _drop_line(self, now: float) -> None:
        assert self._line is not None
        self._line.close()
        self._line = None
        self._session.disconnected()
        if now - self._connected_at >= GOOD_CONNECTION_S:
            self._pause = FIRST_PAUSE_S
        self._connect_at = now + self._pause
        self._pause = min(self._pause * 2, LONGEST_PAUSE_S)

    def _await_close(self, deadline: float) -> None:
        """The venue closes behind a logout, without a reply."""
        while self._line is not None and (now := time.monotonic()) < deadline:
            self._line.settimeout(deadline - now)
            with contextlib.suppress(TimeoutError, OSError):
                if self._line.recv(65536):
                    continue
            self._line.close()
            self._line = None

    # Market data.

    def _read_feed(self, now: float) -> None:
        while True:
            try:
                datagram = self._feed.recv(65536)
            except OSError:
                return
            self._market.take_datagram(datagram, now)

    def _recover_if_wanted(self, now: float) -> None:
        if self._recovery is None and (request := self._market.wanted(now)):
            self._recovery = Recovery(self._settings.recovery, self._settings.user, request, self._market, now)

    def _exchange_recovery(self, now: float) -> None:
        if self._recovery is None:
            return
        self._recovery.writable(now)
        self._recovery.readable(now)
        self._recovery.check_silence(now)
        if self._recovery.finished:
            self._recovery = None

    def _tell_books(self, now: float, everything: bool = False) -> None:
        number, stale = self._market.expected - 1, self._market.stale(now)
        books = self._market.books
        for product, name in sorted(books.names.items()):
            if self._settings.symbols and name not in self._settings.symbols:
                continue
            news = self._told_number.get(product) != (number, stale)
            due = news and now >= self._told.get(product, 0.0) + BOOK_LINE_S
            if not everything and not due:
                continue
            bids, asks = books.side(product, True)[:DEPTH], books.side(product, False)[:DEPTH]
            self._beliefs.book(name, number, bids, asks, stale)
            self._told[product], self._told_number[product] = now, (number, stale)
