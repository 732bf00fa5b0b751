# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Wired before modem before wireless, by DHCP or with fixed addresses, in whatever order they come and go. Without
more, a few of the 48 orders; CORVI_ORDERS=all for every one, CORVI_ORDERS=2/4 for the second of four parts."""

import itertools
import os
import time

from carriers import ModemCarrier, RadioCarrier, WiredCarrier, dhcp_clients, end_standins, install_standins
from harness import SystemTest, addresses, default_routes, holds_for, main, wait_for, write_store

# The better ones first.
RANKING = ["wired", "modem", "radio"]
KINDS = {"wired": WiredCarrier, "modem": ModemCarrier, "radio": RadioCarrier}

ORDERS = [(order, methods) for order in itertools.permutations(RANKING)
          for methods in itertools.product(["dhcp", "static"], repeat=3)]
# Each takes over from all that are worse, and then gives way to them.
SHORT = [(("radio", "modem", "wired"), ("static", "dhcp", "dhcp")),
         (("wired", "modem", "radio"), ("static", "dhcp", "static"))]

# Longer than two ticks, in which the daemon would undo what it has just done.
SETTLED = 2.2


def chosen_orders():
    choice = os.environ.get("CORVI_ORDERS", "")
    if choice == "all":
        return ORDERS
    if "/" in choice:
        part, parts = map(int, choice.split("/"))
        return ORDERS[part - 1::parts]
    return SHORT


class CarrierOrders(SystemTest):
    """Each test is one order in which the three come; they go in the same order."""

    def follow(self, order, methods):
        install_standins()
        self.addCleanup(end_standins)
        self.carriers = {}
        for kind, method in zip(order, methods):
            self.carriers[kind] = KINDS[kind](method == "dhcp")
            self.addCleanup(self.carriers[kind].end)
        write_store(*(carrier.stored() for carrier in self.carriers.values()))
        self.start_daemon()
        present = []
        for kind in order:
            self.carriers[kind].come()
            present.append(kind)
            self.check(f"{kind} came", present)
        for kind in order:
            self.carriers[kind].go()
            present.remove(kind)
            self.check(f"{kind} went", present)

    def check(self, change, present):
        """The best one that is there is used, soon, and stays so; nothing that is gone is left behind."""
        start = time.monotonic()
        best = next((kind for kind in RANKING if kind in present), None)
        wait_for(f"{change}, {best} used; routes {default_routes()}",
                 lambda: self.is_right(best, present), timeout=180, interval=0.1)
        print(f"    {change}: {best} after {time.monotonic() - start:.1f} s", flush=True)
        holds_for(f"{change}, {best} used", lambda: self.is_right(best, present), SETTLED)

    def is_right(self, best, present):
        if best and not self.carriers[best].is_used():
            return False
        return not self.left_behind(present)

    def left_behind(self, present):
        """What no longer belongs there, as texts."""
        there = {carrier.interface for kind, carrier in self.carriers.items() if kind in present}
        clients = dhcp_clients()
        left = [f"default route by {route['dev']}" for route in default_routes()
                if route["dev"] not in there and "linkdown" not in route["flags"]]
        left += [f"address on {name}" for name in ("eth0", "wwan0") if name not in there and addresses(name)]
        left += [f"client of {name}" for name in clients if name not in there and name != "wlan0"]
        left += [f"{clients.count(name)} clients of {name}" for name in set(clients) if clients.count(name) > 1]
        metrics = [route.get("metric", 0) for route in default_routes()]
        left += [f"default routes with one metric: {metrics}" for _ in range(len(metrics) - len(set(metrics)))]
        return left


def name_of(order, methods):
    return "test_" + "_".join(f"{kind}_{method}" for kind, method in zip(order, methods))


for chosen_order, chosen_methods in chosen_orders():
    setattr(CarrierOrders, name_of(chosen_order, chosen_methods),
            lambda self, order=chosen_order, methods=chosen_methods: self.follow(order, methods))


if __name__ == "__main__":
    main()
