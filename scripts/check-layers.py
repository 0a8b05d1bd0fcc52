#!/usr/bin/env python3
"""Holds src/ to its layers: a folder includes only from its own layer's lower neighbours, never
upwards and never sideways between engines, and nothing below ui/ includes Qt. Prints each
offending include as FILE:LINE and exits 1; exits 0 when the tree keeps to the layers.

Usage: check-layers.py SRC_DIR"""
import os
import re
import sys

# Each folder and the folders it may include from. The engines sit side by side: one engine
# never includes another, so each can be read, tested and changed alone.
BASE = {"common"}
ENGINE_BASE = BASE | {"packets", "capture", "filters"}
ALLOWED = {
    "common": set(),
    "packets": BASE | {"generated"},
    "capture": BASE,
    "tools": BASE,
    "filters": BASE | {"packets"},
    "packetmode": ENGINE_BASE,
    "filemode": ENGINE_BASE,
    "statistics": ENGINE_BASE,
    "graphical": ENGINE_BASE,
}
ENGINE_LAYERS = set(ALLOWED)
ALLOWED["app"] = ENGINE_LAYERS
ALLOWED["ui"] = ENGINE_LAYERS | {"app"}
ALLOWED["main"] = ENGINE_LAYERS | {"app", "ui"}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')
QT_HEADER = re.compile(r"^(Q[A-Za-z]+|Qt[A-Za-z]*/)")


def problems(src):
    for root, _, files in os.walk(src):
        for name in sorted(files):
            if not name.endswith((".cpp", ".hpp", ".h")):
                continue
            path = os.path.join(root, name)
            folder = os.path.relpath(path, src).split(os.sep)[0]
            allowed = ALLOWED.get(folder)
            if allowed is None:
                yield f"{path}: folder {folder}/ has no place in the layers"
                continue
            with open(path, encoding="utf-8") as text:
                for number, line in enumerate(text, 1):
                    match = INCLUDE.match(line)
                    if not match:
                        continue
                    header = match.group(1)
                    if folder in ENGINE_LAYERS and QT_HEADER.match(header):
                        yield f"{path}:{number}: {folder}/ is an engine layer and may not include {header}"
                    target = header.split("/")[0] if "/" in header else None
                    if target in ALLOWED and target != folder and target not in allowed:
                        yield f"{path}:{number}: {folder}/ may not include {header}"


def main():
    found = list(problems(sys.argv[1]))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
