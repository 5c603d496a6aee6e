#!/usr/bin/env python3
"""Compares packages with the page that lists what is in them: check_contents.py PAGE DEB...

The page has a "## NAME" for each package, and below it a table whose first column holds patterns of paths
in backticks. Every file of a package must match one of them, and every pattern a file. TRIPLET stands for
any architecture's folder. What the pages in the packages link to must be in one of the packages.
"""
import fnmatch
import io
import posixpath
import re
import subprocess
import sys
import tarfile

page, debs = sys.argv[1], sys.argv[2:]
sections = re.split(r"^## ", open(page).read(), flags=re.M)
patterns = {}
for section in sections[1:]:
    name = section.split("\n", 1)[0].strip("`")
    patterns[name] = re.findall(r"^\| `(/[^`]*)`", section, re.M)

def links(deb):
    """Pairs: a page of the package, and the path that one of its links leads to."""
    content = subprocess.check_output(["dpkg-deb", "--fsys-tarfile", deb])
    with tarfile.open(fileobj=io.BytesIO(content)) as tar:
        for entry in tar:
            if not entry.isfile() or not entry.name.endswith(".md"):
                continue
            text = tar.extractfile(entry).read().decode()
            for target in re.findall(r"\]\((?!https?:)([^)#]+)", text):
                yield entry.name[1:], posixpath.normpath(posixpath.join(entry.name[1:], "..", target))


paths, linked = set(), []
wrong = []
for deb in debs:
    name = subprocess.check_output(["dpkg-deb", "-f", deb, "Package"], text=True).strip()
    listing = subprocess.check_output(["dpkg-deb", "-c", deb], text=True)
    files = [re.sub("/(x86_64-linux-gnu|arm-linux-gnueabihf)/", "/TRIPLET/", line.split()[5][1:])
             for line in listing.splitlines() if not line.startswith("d")]
    paths.update(line.split()[5][1:].rstrip("/") for line in listing.splitlines())
    linked += [(deb, page, target) for page, target in links(deb)]
    listed = patterns.get(name, [])
    wrong += [f"{deb}: {file} is not listed" for file in files
              if not any(fnmatch.fnmatch(file, pattern) for pattern in listed)]
    wrong += [f"{deb}: nothing matches {pattern}" for pattern in listed
              if not fnmatch.filter(files, pattern)]
wrong += [f"{deb}: {page} links to {target}, which no package has"
          for deb, page, target in linked if target not in paths]
if wrong:
    sys.exit("\n".join([*wrong, f"Mend the package or {page}."]))
