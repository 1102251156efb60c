"""From target weights to orders: how many shares to sell and to buy."""

from corvex.ordering.orders import ORDER_COLUMNS, orders

__all__ = ["ORDER_COLUMNS", "orders"]
