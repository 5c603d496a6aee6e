#!/usr/bin/env python3
"""Looks for links of a site that lead nowhere: check_links.py SITE. Prints each, exits with 1.
So do traces of text that Doxygen misread: a tick (`) outside of code, a cell of a table within code.

Checked are the files and anchors that pages, pictures, style sheets and the tree at the left name
relative to the site. Links to other places are left alone.
"""
import json
import os
import re
import sys
from html.parser import HTMLParser
from urllib.parse import unquote

CODE = ("code", "pre", "script", "style")


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = [], set()
        self.code = 0  # open elements whose text is code
        self.misread = []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.code += tag in CODE
        for name, value in attrs:
            if name in ("href", "src") and value:
                self.links.append(value)
            if name in ("id", "name") and value:
                self.anchors.add(value)

    def handle_endtag(self, tag):
        self.code -= self.code > 0 and tag in CODE

    def handle_data(self, data):
        if ("`" in data and not self.code) or "\\ilinebr" in data:
            self.misread.append(data.strip()[:60])


def tree_links(text):
    """The targets in Doxygen's navtreedata.js: every entry is [text, target, children]."""
    data = re.search(r"var NAVTREE =\s*(\[.*?\n\]);", text, re.S).group(1)
    return re.findall(r'\[ "(?:[^"\\]|\\.)*", ("(?:[^"\\]|\\.)*"),', data)


def main(site):
    pages = {}
    for folder, _, names in os.walk(site):
        for name in names:
            if name.endswith(".html"):
                path = os.path.join(folder, name)
                with open(path, encoding="utf-8") as file:
                    pages[os.path.normpath(path)] = Page(file.read())
    with open(os.path.join(site, "navtreedata.js"), encoding="utf-8") as file:
        tree = [json.loads(link) for link in tree_links(file.read())]

    broken = set()
    sources = [(path, page.links) for path, page in pages.items()]
    sources.append((os.path.join(site, "navtreedata.js"), tree))
    for source, links in sources:
        for link in links:
            if re.match(r"\w+:|//", link):
                continue
            path, _, anchor = unquote(link).partition("#")
            path = os.path.normpath(os.path.join(os.path.dirname(source), path)) if path else source
            if not os.path.exists(path):
                broken.add(f"{os.path.relpath(source, site)}: no file for {link}")
            elif anchor and path in pages and anchor not in pages[path].anchors:
                broken.add(f"{os.path.relpath(source, site)}: no anchor for {link}")
    for path, page in pages.items():
        if not path.endswith("_source.html"):
            broken.update(f"{os.path.relpath(path, site)}: misread: {text}" for text in page.misread)
    for line in sorted(broken):
        print(line)
    print(f"{len(pages)} pages, {sum(len(links) for _, links in sources)} links, "
          f"{len(broken)} broken")
    return 1 if broken or not pages else 0


sys.exit(main(sys.argv[1]))
