#!/usr/bin/env python3
"""Copies the files of the tree that pages link to into the site: copy_files.py SITE.

page_filter.py made the links: files/PATH.txt for a file, files/PATH/index.html for a folder, which
lists what it holds.
"""
import html
import os
import re
import shutil
import sys

LINK = re.compile(r'href="files/([^"#]+)"')


def copy(site, path):
    copied = os.path.join(site, "files", path + ".txt")
    os.makedirs(os.path.dirname(copied), exist_ok=True)
    shutil.copyfile(path, copied)


def list_folder(site, folder):
    names = sorted(n for n in os.listdir(folder) if os.path.isfile(os.path.join(folder, n)))
    for name in names:
        copy(site, os.path.join(folder, name))
    rows = "\n".join(f'<li><a href="{html.escape(n)}.txt">{html.escape(n)}</a></li>' for n in names)
    with open(os.path.join(site, "files", folder, "index.html"), "w", encoding="utf-8") as file:
        file.write(f'<!DOCTYPE html><meta charset="utf-8"><meta name="viewport" '
                   f'content="width=device-width"><meta name="color-scheme" content="light dark">'
                   f"<title>{html.escape(folder)}</title><h1>{html.escape(folder)}</h1>"
                   f"<ul>\n{rows}\n</ul>\n")


def main(site):
    for page in sorted(os.listdir(site)):
        if not page.endswith(".html"):
            continue
        with open(os.path.join(site, page), encoding="utf-8") as file:
            for path in LINK.findall(file.read()):
                if path.endswith("/index.html"):
                    list_folder(site, path.removesuffix("/index.html"))
                else:
                    copy(site, path.removesuffix(".txt"))


main(sys.argv[1])
