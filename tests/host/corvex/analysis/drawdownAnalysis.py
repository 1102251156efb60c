class DrawdownAnalysis:
    shown = 0

    def __init__(self, **settings):
        self.settings = settings

    def calculate_trade_info(self, report):
        return self.settings.get("info", ())

    def analyze(self, report):
        return {"strategy": {"largest_drawdown": [self.settings]}}

    def display(self):
        type(self).shown += 1
