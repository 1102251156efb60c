from contextlib import contextmanager


class Context:
    def __init__(self):
        self._loaded_datasets = ["price"]

    @contextmanager
    def override(self, **changes):
        before = {name: getattr(self, name) for name in changes}
        vars(self).update(changes)
        try:
            yield self
        finally:
            vars(self).update(before)


_default_context = Context()
