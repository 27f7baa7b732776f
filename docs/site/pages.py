#!/usr/bin/env python3
"""Lays out what Sphinx reads: the project's pages, the reference, the examples and the man pages.

pages.py XML SOURCE: XML is what Doxygen has written, SOURCE the folder to fill. Pages keep their
places below it; links to other files lead to where the site shows them. Fails if a page has a code
sample that is not part of a file of examples/.
"""
import html
import os
import re
import shutil
import subprocess
import sys
import textwrap
from pathlib import Path
from xml.etree import ElementTree

ROOT = Path(__file__).resolve().parent.parent.parent
XML, SOURCE = map(Path, sys.argv[1:])
NO_SAMPLES = ("mermaid", "text")  # what fenced blocks may be besides pieces of examples

# Where the site shows a file of the tree, as paths below both.
shown_at = {}
faults = []


def write(path, text):
    path = SOURCE / path
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def title(text, mark="="):
    return f"{text}\n{mark * len(text)}\n\n"


def introduction(file):
    """The comment that a file starts with, without the marks; what is indented is code."""
    lines = re.match(r"(?://.*\n)*", file.read_text())[0].splitlines()
    paragraphs = "\n".join(line[3:] for line in lines).split("\n\n")
    return "\n\n".join(f"::\n\n{text}" if text.startswith(" ") else text for text in paragraphs)


def reference():
    """A page for each public header, with a section for each of its names, in their order."""
    compounds = [item for file in XML.glob("*.xml")
                 for item in ElementTree.parse(file).iter("compounddef")]
    classes = {item.findtext("compoundname"): item for item in compounds
               if item.get("kind") in ("class", "struct")}
    names = {Path("src", item.find("location").get("file")): [] for item in compounds
             if item.get("kind") == "file"}
    members = [member for item in compounds if item.get("kind") in ("file", "namespace")
               for member in item.iter("memberdef")]
    for item in [*classes.values(), *members]:
        name = next(filter(None, map(item.findtext, ("compoundname", "qualifiedname", "name"))))
        if name.rpartition("::")[0] not in classes:
            names[Path("src", item.find("location").get("file"))].append(
                (int(item.find("location").get("line")), item.get("kind"), name,
                 re.sub(r"\).*", ")", item.findtext("argsstring") or "")))
    for header, listed in sorted(names.items()):
        path = header.relative_to("src")
        shown_at[header] = Path("reference", path).with_suffix(".rst")
        text = title(f"<{path}>") + introduction(ROOT / header) + "\n"
        last = ""
        for _, kind, name, arguments in sorted(listed):
            if name != last:  # not an overload
                text += "\n" + title(name.rpartition("::")[2], "-")
            last = name
            text += f".. doxygen{kind}:: {name}{arguments if kind == 'function' else ''}\n\n"
        write(shown_at[header], text)


def examples():
    for program in sorted(ROOT.glob("examples/*.c*")):
        if program.suffix in (".c", ".cpp"):
            path = program.relative_to(ROOT)
            shown_at[path] = Path(f"{path}.rst")
            write(shown_at[path], title(program.name) + f".. code-block:: {program.suffix[1:]}\n\n"
                  + textwrap.indent(program.read_text(), "   "))


def man_pages():
    for page in sorted(ROOT.glob("tools/*.[1-8]")):
        path = page.relative_to(ROOT)
        shown_at[path] = Path("man", page.name + ".rst")
        body = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", page], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        body = (body.replace("\n<br/>", "").replace("<pre>", '<div class="highlight"><pre>')
                .replace("</pre>", "</pre></div>"))
        text = title(f"{page.stem}({page.suffix[1:]})")
        # Real sections, so that they are listed and searched.
        for heading, section in re.findall(
                r'<h1 class="Sh".*?>.*?>(.*?)</a></h1>\n(.*?)</section>', body, flags=re.S):
            text += title(" ".join(html.unescape(heading).capitalize().split()), "-")
            text += ".. raw:: html\n\n" + textwrap.indent(section, "   ") + "\n"
        write(shown_at[path], text)


def pages():
    folders = [ROOT.glob(f"{name}*.md") for name in ("", "docs/**/", "src/**/", "tests/**/")]
    for page in sorted(path.relative_to(ROOT) for folder in folders for path in folder):
        shown_at[page] = page
    # The navigation replaces the list of the pages.
    shown_at[Path("README.md")] = shown_at[Path("docs/README.md")] = Path("index.md")
    held = [file.read_text() for file in ROOT.glob("examples/**/*") if file.is_file()]
    samples = 0
    for path, shown in list(shown_at.items()):
        if path.suffix != ".md" or path.as_posix() == "docs/README.md":
            continue
        text = (ROOT / path).read_text()
        for language, sample in re.findall(r"^```(\w+)\n(.*?)^```$", text, flags=re.M | re.S):
            if language in NO_SAMPLES:
                continue
            samples += 1
            if not any(f"\n{sample}" in f"\n{code}" for code in held):
                faults.append(f"{path}: no example holds the sample '{sample.splitlines()[0]}'")
        text = re.sub(r"(!?)\[([^\]]*)\]\(([^)#:\s]+)(#[^)\s]*)?\)",
                      lambda link: linked(path, shown, link), text)
        # Sphinx would show the text of a diagram.
        text = re.sub(r"^```mermaid\n(.*?)^```$", lambda diagram:
                      f'<pre class="mermaid">\n{html.escape(diagram[1])}</pre>', text,
                      flags=re.M | re.S)
        write(shown, text + navigation() if shown.name == "index.md" else text)
    if samples == 0:
        faults.append("no page has a sample")


def linked(path, shown, link):
    """Returns a link of a page as it has to be on the site."""
    mark, text, target, anchor = link.groups(default="")
    file = Path(os.path.normpath(path.parent / target))
    if (ROOT / file).is_dir():
        if file / "README.md" not in shown_at:
            return text  # the site has no folders
        file /= "README.md"
    if (ROOT / file).is_file() and file not in shown_at:
        shown_at[file] = file
        (SOURCE / file).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / file, SOURCE / file)
    place = os.path.relpath(shown_at.get(file, file), shown.parent)
    return f"{mark}[{text}]({place}{anchor})"


def navigation():
    """The navigation of the site: first the pages in the order of docs/README.md."""
    def tree(caption, entries):
        lines = ["", "```{toctree}", ":hidden:", f":caption: {caption}", *entries, "```", ""]
        return "\n".join(lines)

    text = ""
    for caption, listed in re.findall(r"^## (.*)\n((?:(?!## ).*\n)*)",
                                      (ROOT / "docs/README.md").read_text(), flags=re.M):
        targets = [Path(os.path.normpath(Path("docs", target)))
                   for target in re.findall(r"\]\(([^)#]*)\)", listed)]
        faults.extend(f"docs/README.md: nothing is at {target}" for target in targets
                      if target not in shown_at)
        text += tree(caption, [str(shown_at.get(target, target)) for target in targets
                               if target.suffix == ".md"])
    for caption, folder in (("Examples", "examples"), ("Reference", "reference"), ("Tools", "man")):
        text += tree(caption, [str(shown) for shown in shown_at.values()
                               if shown.parts[0] == folder and shown.suffix == ".rst"])
    return text


shutil.rmtree(SOURCE, ignore_errors=True)
reference()
examples()
man_pages()
pages()
for fault in faults:
    print(fault, file=sys.stderr)
sys.exit(bool(faults))
