"""What has become of every order, from what was sent and what was heard.

Leaves are worked out: the total of the last accepted request less the sum of all executions, and nothing once the
order has ended. What executed comes in its own time, perhaps behind the answer to a later request.
"""

from __future__ import annotations

from dataclasses import dataclass

import meo
from beliefs import Beliefs

PENDING, WORKING, FILLED = "pending", "working", "filled"
CANCELLED, REJECTED, LOST = "cancelled", "rejected", "lost"


@dataclass
class Order:
    id: str
    product: int
    sell: bool
    price: int
    total: int
    connection: int  # that entered it, and alone can change it; 0 is an earlier life
    state: str = PENDING
    executed: int = 0
    cancelling: bool = False
    replacing: str = ""  # new id of a replace that is not answered
    too_late: bool = False  # a cancel found nothing to cancel: what filled it is on its way
    hopeless: bool = False  # and has not come, although the stream has been asked since

    @property
    def open(self) -> bool:
        return self.state in (PENDING, WORKING)

    @property
    def leaves(self) -> int:
        return max(self.total - self.executed, 0) if self.open else 0

    @property
    def busy(self) -> bool:
        return self.state == PENDING or self.cancelling or bool(self.replacing)


class Orders:
    def __init__(self, beliefs: Beliefs, fault: str = "") -> None:
        self.orders: list[Order] = []
        self._by_id: dict[str, Order] = {}  # every id that an order ever had
        self._beliefs = beliefs
        self._fault = fault
        self._number = 0  # of the last message applied

    def sent(self, order: Order) -> None:
        self.orders.append(order)
        self._by_id[order.id] = order
        self._tell(order)

    def sent_replace(self, order: Order, new_id: str) -> None:
        order.replacing = new_id
        self._by_id[new_id] = order

    def open(self, connection: int | None = None) -> list[Order]:
        return [o for o in self.orders if o.open and connection in (None, o.connection)]

    def earlier(self, connection: int) -> list[Order]:
        """Open orders that nobody can change any more."""
        return [o for o in self.orders if o.open and o.connection != connection]

    def waits_for_news(self, connection: int) -> bool:
        """Something is to be heard: of orders that only a login tells of, or in answer to a request."""
        unanswered = any(order.open and (order.busy or order.too_late and not order.hopeless) for order in self.orders)
        return unanswered or bool(self.earlier(connection))

    def ids(self) -> list[str]:
        return list(self._by_id)

    def caught_up(self, connection: int) -> None:
        """Requests of earlier connections that nothing has been heard of have not arrived."""
        for order in self.orders:
            order.hopeless = order.open and order.too_late
            if order.connection == connection:
                continue
            order.cancelling, order.replacing = False, ""
            if order.state == PENDING:
                self._end(order, LOST)

    def forget(self) -> None:
        """The venue that knew them is no more."""
        for order in self.open():
            self._end(order, LOST)
        self._by_id.clear()

    def tell_all(self) -> None:
        for order in self.orders:
            self._tell(order)

    def apply(self, number: int, message: bytes, replayed: bool) -> None:
        self._number = max(number, self._number)
        known = self._by_id
        match meo.read(message):
            case meo.NewOrderResponse() as response:
                self._take_new(response)
            case meo.OrderAccepted(id=id, sell=sell) if id in known:
                known[id].sell = sell
            case meo.Execution() as fill if fill.id in known:
                if not (replayed and self._fault == "forgets-fills-on-replay"):
                    self._take_fill(known[fill.id], fill)
                if replayed and self._fault == "counts-a-fill-twice":
                    self._take_fill(known[fill.id], fill)
            case meo.OrderCancelled(id=id) if id in known:
                self._end(known[id], CANCELLED)
            case meo.ReplaceResponse() as response if response.original in known:
                self._take_replace(known[response.original], response)
            case meo.ReplaceNotification(id=id, price=price, total=total) if id in known:
                known[id].price, known[id].total = price, total
                self._settle(known[id])
            case meo.CancelResponse() as answer if answer.original in known:
                known[answer.original].cancelling = False
                known[answer.original].too_late = not answer.accepted

    def _take_new(self, response: meo.NewOrderResponse) -> None:
        order = self._by_id.get(response.id)
        if order is None:  # of an earlier life of this user, heard of by replay alone
            order = Order(response.id, response.product, False, response.price, response.quantity, connection=0)
            self.orders.append(order)
            self._by_id[order.id] = order
        if order.state not in (PENDING, LOST):
            return  # an id of another order that is live already: the reject is not about this one
        if response.accepted:
            order.state = WORKING
            self._tell(order)
        else:
            self._end(order, REJECTED)

    def _take_fill(self, order: Order, fill: meo.Execution) -> None:
        order.executed += fill.quantity
        self._beliefs.fill(fill.id, fill.quantity, fill.price, fill.execution)
        self._settle(order)

    def _take_replace(self, order: Order, response: meo.ReplaceResponse) -> None:
        order.replacing = ""
        if response.accepted:
            self._beliefs.order(order.id, "replaced", 0, order.executed, self._number)
            self._by_id[response.id] = order
            order.id = response.id

    def _settle(self, order: Order) -> None:
        if order.state == WORKING and order.executed >= order.total:
            order.state = FILLED
        self._tell(order)

    def _end(self, order: Order, state: str) -> None:
        order.state = state
        order.cancelling, order.replacing = False, ""
        self._tell(order)

    def _tell(self, order: Order) -> None:
        self._beliefs.order(order.id, order.state, order.leaves, order.executed, self._number)
