"""Why a report is as it is: holdings by day, contributions, and its live part."""
