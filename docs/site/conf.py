# SPDX-License-Identifier: BSD-3-Clause
"""The site that ./dev docs builds: guide, benchmarks, and the reference from the public headers.

The source folder is a copy of the tree as far as pages link to each other, so that a link works
in a checkout and on the site alike.
"""
import os

project = "Velmora"
author = "the Velmora maintainers"
copyright = author
release = version = os.environ["VELMORA_VERSION"]

extensions = [
    "breathe",
    "myst_parser",
    "sphinx.ext.graphviz",
    "sphinx_copybutton",
    "sphinx_inline_tabs",
]
root_doc = "index"
source_suffix = {".md": "markdown"}
exclude_patterns = ["docs/README.md"]  # its table is the site's own first page
myst_enable_extensions = ["colon_fence"]
myst_heading_anchors = 3
breathe_projects = {"velmora": os.environ["VELMORA_XML"]}
breathe_default_project = "velmora"
breathe_domain_by_extension = {"h": "c"}
primary_domain = None
highlight_language = "text"
graphviz_output_format = "svg"

html_theme = "furo"
html_title = f"Velmora {version}"
html_static_path = []
html_show_sphinx = False
