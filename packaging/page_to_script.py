#!/usr/bin/env python3
"""Turns a page of the manual into what its reader does: page_to_script.py PAGE FOLDER

Writes the files that the page shows (blocks that begin with "// docs/examples/NAME" or "# NAME") into FOLDER,
and its commands (the ```sh blocks, in their order) into FOLDER/install.sh, those that install something, and
FOLDER/walk.sh.
"""
import re
import sys

page, folder = sys.argv[1:]
scripts = {"install.sh": [], "walk.sh": []}
for language, text in re.findall(r"```(\w+)\n(.*?)```", open(page).read(), re.S):
    name = re.match(r"(?:// docs/examples/|# )([\w.]+)\n", text)
    if name:
        with open(f"{folder}/{name.group(1)}", "w") as file:
            file.write(text)
    elif language == "sh":
        scripts["install.sh" if "apt-get" in text else "walk.sh"].append(text)
for name, commands in scripts.items():
    with open(f"{folder}/{name}", "w") as file:
        # Readers are slower than scripts, and what they left running ends when they go.
        file.write("set -e\ntrap 'kill $(jobs -p) 2>/dev/null || :' EXIT\n" + "sleep 2\n".join(commands))
