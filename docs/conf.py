"""The documentation site: `make docs` builds it into build/docs."""

import os
import sys
from pathlib import Path

import corvex

HERE = Path(__file__).parent
sys.path.insert(0, str(HERE / "_ext"))
# Kernels that run the tutorials show plotly's figures with the site's own copy of the script.
os.environ["IPYTHONDIR"] = str(HERE / "_ext" / "ipython")

project = "corvex"
copyright = "the corvex developers"
version = release = corvex.__version__

extensions = [
    "myst_nb",
    "numpydoc",
    "sphinx.ext.autodoc",
    "sphinx.ext.autosummary",
    "sphinx.ext.napoleon",
    "sphinx_copybutton",
    "sphinx_design",
    "cpp_headers",
    "site_files",
]
# A language that the highlighter lacks is shown plain.
suppress_warnings = ["misc.highlighting_failure"]
exclude_patterns = ["_*", "images"]

myst_enable_extensions = ["colon_fence", "deflist"]
myst_heading_anchors = 4
nb_execution_mode = "force"
nb_execution_in_temp = True
nb_execution_raise_on_error = True
nb_execution_timeout = 300
nb_execution_show_tb = True
nb_merge_streams = True

# Docstrings are numpydoc's; those of the report module's methods are Google's.
numpydoc_show_class_members = False
napoleon_numpy_docstring = False
autosummary_generate = True
autodoc_typehints = "none"
toc_object_entries_show_parents = "hide"
autodoc_member_order = "groupwise"
copybutton_exclude = ".linenos, .gp, .go"

templates_path = ["_templates"]
html_static_path = ["_static"]
html_css_files = ["site.css"]
html_theme = "pydata_sphinx_theme"
html_title = f"corvex {version}"
html_show_sourcelink = False
html_sidebars = {"index": [], "start/**": [], "coming-from/[!i]*": [], "help/conventions": []}
html_context = {"default_mode": "auto"}
html_theme_options = {
    "logo": {"text": "corvex"},
    "navbar_align": "left",
    "navbar_persistent": [],
    "navbar_end": ["search-button-field", "theme-switcher"],
    "header_links_before_dropdown": 7,
    "show_toc_level": 2,
    "footer_start": ["copyright"],
    "footer_end": [],
    "pygments_light_style": "tango",
    "pygments_dark_style": "monokai",
}
