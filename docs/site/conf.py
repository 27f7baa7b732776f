"""How Sphinx makes the site of what pages.py has laid out."""
import re
from pathlib import Path

root = Path(__file__).resolve().parent.parent.parent
build = root / "build/docs"

project = "Sodrel"
release = re.search(r"project\(Sodrel VERSION ([\d.]+)", (root / "CMakeLists.txt").read_text())[1]
extensions = ["myst_parser", "breathe"]
source_suffix = {".md": "markdown", ".rst": "restructuredtext"}

myst_heading_anchors = 4  # as GitHub makes them

breathe_projects = {"sodrel": str(build / "xml")}
breathe_default_project = "sodrel"
breathe_default_members = ("members",)
breathe_show_include = False
primary_domain = "cpp"
highlight_language = "none"

html_theme = "furo"
html_title = f"Sodrel {release}"
html_static_path = [str(root / "docs/site/static"), str(build / "static")]
html_css_files = ["site.css"]
html_copy_source = False
html_show_sphinx = False


def add_diagrams(app, page, template, context, doctree):
    # Mermaid is large, so only pages with diagrams load it.
    if 'class="mermaid"' in context.get("body", ""):
        app.add_js_file("scripts/mermaid.min.js")
        app.add_js_file("diagrams.js")


def setup(app):
    app.connect("html-page-context", add_diagrams)
