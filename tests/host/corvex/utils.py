import logging
import tempfile
from types import SimpleNamespace

logger = logging.getLogger("corvex.host")
requests = SimpleNamespace(post=None, get=None)


def get_tmp_dir():
    return tempfile.gettempdir()
