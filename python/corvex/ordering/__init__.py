"""From target weights to orders: how many shares to sell and to buy."""

from corvex.ordering.order_table import ORDER_COLUMNS, orders

__all__ = ["ORDER_COLUMNS", "orders"]
