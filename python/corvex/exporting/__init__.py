"""Reports for papers, mails and spreadsheets: static pictures and workbooks."""

from corvex.exporting.pictures import save_figure
from corvex.exporting.spreadsheet import save_workbook

__all__ = ["save_figure", "save_workbook"]
