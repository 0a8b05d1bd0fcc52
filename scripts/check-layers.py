#!/usr/bin/env python3
"""Holds src/ to its layers: a folder includes only from the layers below it, never upwards and
never sideways between engines, and nothing below ui/ includes Qt. Inside ui/ the mode windows
keep to their own folder, the shared shell and the tools; only the start-up knows every window.
Prints each offending include as FILE:LINE and exits 1; exits 0 when the tree keeps to them.

Usage: check-layers.py SRC_DIR"""
import os
import re
import sys

# Each folder and the folders it may include from. The engines sit side by side: one engine
# never includes another, so each can be read, tested and changed alone.
BASE = {"common"}
ENGINE_BASE = BASE | {"packets", "capture", "filters"}
# Inside ui/: what each folder may include besides itself.
UI_ALLOWED = {"shell": set(), "tools": {"shell"}}
UI_MODES = {"packetmode", "filemode", "statistics", "graphical"}
for mode in UI_MODES:
    UI_ALLOWED[mode] = {"shell", "tools"}
# Where the windows are registered: the one file of the shell that knows them all.
UI_COMPOSITION_ROOT = "app_startup.cpp"
ALLOWED = {
    "common": set(),
    "packets": BASE | {"generated"},
    "capture": BASE | {"packets"},
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
                    if folder == "ui" and target == "ui":
                        yield from ui_problem(src, path, number, header)


def ui_problem(src, path, number, header):
    parts = os.path.relpath(path, src).split(os.sep)
    own = parts[1] if len(parts) > 2 else None
    wanted = header.split("/")[1] if header.count("/") >= 2 else None
    if own not in UI_ALLOWED or wanted is None:
        if own is not None and own not in UI_ALLOWED:
            yield f"{path}: ui/{own}/ has no place among the ui folders"
        return
    if wanted == own or wanted in UI_ALLOWED[own]:
        return
    if own == "shell" and parts[-1] == UI_COMPOSITION_ROOT:
        return
    yield f"{path}:{number}: ui/{own}/ may not include {header}"


def main():
    found = list(problems(sys.argv[1]))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
