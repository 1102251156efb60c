from corvex.analysis.drawdownAnalysis import DrawdownAnalysis


class MaeMfeAnalysis(DrawdownAnalysis):
    shown = 0
