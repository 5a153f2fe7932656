"""What to send next: an order a step, each treated as its place in the round says, so that everything is tried."""

from __future__ import annotations

import meo
from books import Books
from orders import Order, Orders, WORKING
from session import Session

CENT = 10_000
STEP_S = 0.02
MOST_RESTING = 6  # the oldest is cancelled when there are more
REST, REPLACE, TAKE, JOIN, TAKE_BACK = range(5)


class Trader:
    def __init__(
        self, user: str, symbols: list[str], limit: int, books: Books, orders: Orders, session: Session
    ) -> None:
        self._user = user
        self._symbols = symbols
        self._limit = limit
        self._books = books
        self._orders = orders
        self._session = session
        self._life = 0  # of this user, known when the first replay has been heard
        self._ids = 0
        self.entered = 0
        self._plans: dict[str, int] = {}
        self._next_step = 0.0

    @property
    def done(self) -> bool:
        return self.entered >= self._limit

    def due(self) -> float:
        return self._next_step

    def caught_up(self) -> None:
        if self._life:
            return
        mine = [id.split("-") for id in self._orders.ids() if id.startswith(self._user + "-")]
        self._life = 1 + max((int(part[1]) for part in mine if len(part) == 3 and part[1].isdigit()), default=0)

    def act(self, now: float) -> None:
        """At most one request, and none while an answer is outstanding."""
        if now < self._next_step or not self._session.ready:
            return
        self._next_step = now + STEP_S
        mine = self._orders.open(self._session.connection)
        if any(order.busy for order in mine):
            return
        if not self._tend(mine, now) and not self.done:
            self._enter(now)

    def wind_down(self, now: float) -> bool:
        """Cancels what is open; true when nothing is left that could be heard of."""
        if not self._session.ready:
            return False
        mine = self._orders.open(self._session.connection)
        for order in mine:
            if not order.busy and not order.too_late:
                self._cancel(order, now)
        return all(order.hopeless for order in mine)

    def _tend(self, mine: list[Order], now: float) -> bool:
        for order in mine:
            plan = self._plans.pop(order.id, None)
            if plan == REST:
                self._cancel(order, now)
                return True
            if plan == REPLACE:
                self._replace(order, now)
                return True
        resting = [order for order in mine if order.state == WORKING and not order.too_late]
        if len(resting) > MOST_RESTING:
            self._cancel(resting[0], now)
            return True
        return False

    def _enter(self, now: float) -> None:
        named = [p for p, name in sorted(self._books.names.items()) if not self._symbols or name in self._symbols]
        if not named:
            return
        product = named[self.entered % len(named)]
        bids, asks = self._books.side(product, True), self._books.side(product, False)
        if not bids or not asks:
            self.entered += 1  # nothing to go by in an empty book: the next product may have one
            return
        bid, ask = bids[0][0], asks[0][0]
        plan = self.entered % 5
        sell, quantity, price, tif = {
            REST: (False, 300, bid - 2 * CENT, meo.DAY),
            REPLACE: (True, 200, ask + 2 * CENT, meo.DAY),
            TAKE: (False, 100, ask, meo.IMMEDIATE),
            JOIN: (False, 100, bid, meo.DAY),
            TAKE_BACK: (True, 100, bid, meo.IMMEDIATE),
        }[plan]
        order = Order(self._fresh_id(), product, sell, price, quantity, self._session.connection)
        self._session.request(meo.new_order(order.id, product, sell, quantity, price, tif), now)
        self._orders.sent(order)
        self._plans[order.id] = plan
        self.entered += 1

    def _cancel(self, order: Order, now: float) -> None:
        order.cancelling = True
        self._session.request(meo.cancel(self._fresh_id(), order.id, order.product), now)

    def _replace(self, order: Order, now: float) -> None:
        """One cent nearer to the touch, and a hundred more."""
        new_id = self._fresh_id()
        price, total = order.price + (-CENT if order.sell else CENT), order.total + 100
        self._session.request(meo.replace(order.id, new_id, order.product, price, total), now)
        self._orders.sent_replace(order, new_id)

    def _fresh_id(self) -> str:
        self._ids += 1
        return f"{self._user}-{self._life}-{self._ids}"
