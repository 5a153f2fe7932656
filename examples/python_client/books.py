"""The books of all products, kept from the feed's messages order by order."""

from __future__ import annotations

from dataclasses import dataclass

import dom

Level = tuple[int, int]


@dataclass
class Resting:
    product: int
    buy: bool
    price: int
    quantity: int


class Books:
    def __init__(self) -> None:
        self.names: dict[int, str] = {}
        self.orders: dict[int, Resting] = {}

    def clear(self) -> None:
        self.orders.clear()

    def apply(self, message: bytes) -> None:
        match dom.read(message):
            case dom.Definition(product, name):
                self.names[product] = name
            case dom.Add(product, order_id, buy, price, quantity):
                self.orders[order_id] = Resting(product, buy, price, quantity)
            case dom.Modify(order_id, price, quantity):
                if order := self.orders.get(order_id):
                    order.price, order.quantity = price, quantity
            case dom.Delete(order_id):
                self.orders.pop(order_id, None)
            case dom.Executed(order_id, quantity):
                if order := self.orders.get(order_id):
                    order.quantity -= quantity
                    if order.quantity <= 0:
                        del self.orders[order_id]

    def side(self, product: int, buy: bool) -> list[Level]:
        """The levels of a side, best first."""
        levels: dict[int, int] = {}
        for order in self.orders.values():
            if order.product == product and order.buy == buy:
                levels[order.price] = levels.get(order.price, 0) + order.quantity
        return sorted(levels.items(), reverse=buy)
