#!/usr/bin/env python3
"""Doxygen's input filter for the pages: page_filter.py FILE.

The pages are written for whoever reads them in the repository. Here their links and headings
become what Doxygen understands:

    [text](page.md), [text](#heading)   the page or heading of the site
    [text](../include/hybase/hlog.h)    the room of that header
    [text](man/hyrpc.1)                 the manual page, as a page of the site
    [text](../LICENSE), any other file  a copy of it, see copy_files.py
    `it's code`                         ``it's code``, for a quote ends the shorter form
    `%m`                                `%%m`, for Doxygen drops the sign before a word

A manual page becomes a page of HTML.
"""
import collections
import os
import re
import subprocess
import sys

LINK = re.compile(r"(?<!!)\[((?:[^\[\]]|\[[^\]]*\])*)\]\(([^()\s]+)\)")
HEADING = re.compile(r"#{2,6} (.*)$")
FENCE = re.compile(r"\s*(```|~~~)")
CODE = re.compile(r"`[^`]*`")
ROOM = re.compile(r"^\W*[@\\]ingroup (\w+)", re.M)
TOC_FROM = 4  # headings that make a table of contents worth its place


def label(path):
    """Doxygen's name of the page made from a file."""
    if path == "docs/index.md":
        return "index"
    if path.startswith("docs/man/"):
        return "man_" + re.sub(r"\W", "_", os.path.basename(path))
    return "md_" + re.sub(r"\W", "_", path.removesuffix(".md"))


def slug(heading):
    """The anchor of a heading, as a git web view makes it."""
    text = re.sub(r"[^\w\s-]", "", heading.strip().lower())
    return re.sub(r"\s", "-", text)


def heading_id(path, anchor):
    return re.sub(r"[^\w-]", "_", label(path) + "_" + anchor)


def room(header):
    with open(header, encoding="utf-8") as file:
        found = ROOM.search(file.read())
    return found.group(1) if found else os.path.basename(header)


def target(page, link):
    if re.match(r"\w+:|@", link):
        return link
    path, _, anchor = link.partition("#")
    path = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
    if not os.path.exists(path):
        return link  # check_links.py reports it
    if path.endswith(".md"):
        return "@ref " + (heading_id(path, anchor) if anchor else label(path))
    if path.startswith("docs/man/"):
        return "@ref " + label(path)
    if path.endswith(".h") and "include/" in path:
        return "@ref " + room(path)
    return "files/" + path + ("/index.html" if os.path.isdir(path) else ".txt")


def plain(heading):
    """Doxygen shows the tags of code in a heading, so it gets none."""
    return re.sub(r"`([^`]*)`", lambda m: m.group(1).replace("<", "&lt;").replace(">", "&gt;"),
                  heading)


def link_text(text, target):
    """The text of a link; in one to a page or a room Doxygen shows the ticks of code."""
    return plain(text) if target.startswith("@ref") else text


def converted(page, match):
    to = target(page, match.group(2))
    return f"[{link_text(match.group(1), to)}]({to})"


def quotes(line):
    """Apostrophes for which Doxygen, within a table mostly, would end or begin code."""
    text, ended = "", 0
    for code in CODE.finditer(line):
        text += line[ended:code.start()].replace("'", "&rsquo;")
        text += f"`{code[0]}`" if "'" in code[0] else code[0]
        ended = code.end()
    return text + line[ended:].replace("'", "&rsquo;") if ended else line


def filtered(page, lines):
    fenced = False
    ids = collections.Counter()
    contents = page != "docs/index.md" and sum(map(bool, map(HEADING.match, lines))) >= TOC_FROM
    for line in lines:
        if FENCE.match(line):
            fenced = not fenced
        if fenced:
            yield line
            continue
        heading = HEADING.match(line)
        line = re.sub(r"`%(?=\w)", "`%%", LINK.sub(lambda m: converted(page, m), line))
        line = quotes(line)
        if heading:
            anchor = slug(heading.group(1))
            again = f"-{ids[anchor]}" if ids[anchor] else ""
            ids[anchor] += 1
            line = f"{plain(line)} {{#{heading_id(page, anchor + again)}}}"
        elif line.startswith("# "):
            line = plain(line) + ("\n\n[TOC]" if contents else "")
        yield line


def manual_page(path):
    html = subprocess.run(["mandoc", "-Thtml", "-Ofragment", path], check=True,
                          stdout=subprocess.PIPE, text=True).stdout
    name, section = os.path.basename(path).rsplit(".", 1)
    # The pages of this library that are named become links.
    for other in sorted(os.listdir(os.path.dirname(path))):
        word, number = other.rsplit(".", 1)
        named = rf"<(\w+)[^>]*>{word}</\1>\({number}\)|(?<=>){word}\({number}\)(?=</a>)"
        link = f"{label(os.path.dirname(path) + '/' + other)}.html"
        html = re.sub(named, f'<a href="{link}">{word}({number})</a>', html)
    html = re.sub(r"<a class=\"Xr\">(<a .*?</a>)</a>", r"\1", html)
    return (f"# {name}({section}) {{#{label(path)}}}\n\n"
            f'@htmlonly\n<div class="manual">{html}</div>\n@endhtmlonly')


def main():
    page = os.path.relpath(sys.argv[1])
    if not page.endswith(".md"):
        print(manual_page(page))
        return
    with open(page, encoding="utf-8") as file:
        print("\n".join(filtered(page, file.read().split("\n"))))


main()
