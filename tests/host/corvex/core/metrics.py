class Metrics:
    def __init__(self, report):
        self.report = report
