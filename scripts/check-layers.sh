#!/usr/bin/env bash
# Layer direction: every file under include/bvgeo/, src/ and apps/ may include only
# files of its own layer or of the layers before it in LAYERS below (the table in
# DESIGN.md, top row first). Prints each include that points the other way and
# fails when there is one. Usage: scripts/check-layers.sh [SOURCE_DIR]
set -euo pipefail
root="${1:-$(dirname "$0")/..}"
exec python3 - "$root" <<'PY'
# Layers in order; a layer may include itself and the layers above it. Each path is
# relative to the source directory: "dir/" is everything below that folder, any
# other entry is a glob on the file path. The longest entry that matches a file
# decides its layer, so "src/zone/ZoneBuilder*" wins over "src/zone/".
LAYERS = [
    ("vocabulary", ["include/bvgeo/*"]),
    ("platform", ["include/bvgeo/platform/", "include/bvgeo/testing/", "src/platform/"]),
    ("storage", ["src/datastore/", "src/logger/"]),
    ("records", ["src/models/"]),
    ("settings", ["src/settings/"]),
    ("services", ["src/location/", "src/fence/", "src/zone/", "src/trigger/", "src/request/", "src/network/"]),
    ("facade", ["include/bvgeo/BVGeoTracker.hpp", "include/bvgeo/bvgeo.h", "src/tracker/", "src/capi/"]),
    ("debug console", ["include/bvgeo/DebugConsole.hpp", "src/debug/", "src/server/LoopbackHttpServer*",
                       "src/server/HttpExchange*"]),
    ("tools", ["src/track/", "src/zone/ZoneBuilder*", "src/server/ReferenceServer*", "src/server/TriggerStore*"]),
    ("programs", ["apps/", "python/", "examples/"]),
]
# Where the files to check are.
CHECKED = ["include/bvgeo", "src", "apps"]
SOURCE_SUFFIXES = {".h", ".hpp", ".c", ".cc", ".cpp", ".ipp", ".inl"}
SKIPPED_FOLDERS = {"node_modules"}

import fnmatch
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
RANK = {name: index for index, (name, _) in enumerate(LAYERS)}


def layer_of(path):
    """The layer of a source-relative path, or None when no entry covers it."""
    best, best_length = None, -1
    for name, entries in LAYERS:
        for entry in entries:
            if entry.endswith("/"):
                matches = path.startswith(entry)
            else:
                matches = fnmatch.fnmatchcase(path, entry)
            if matches and len(entry) > best_length:
                best, best_length = name, len(entry)
    return best


def resolve(root, including, kind, name):
    """The source-relative path an include names; None for headers from outside
    (the standard library, dependencies); raises ValueError when a quoted include
    names nothing that can be found."""
    if kind == "<":
        return "include/" + name if name.startswith("bvgeo/") else None
    candidates = [os.path.join(os.path.dirname(including), name), os.path.join("src", name),
                  os.path.join("include", name)]
    for candidate in candidates:
        if os.path.isfile(os.path.join(root, candidate)):
            return os.path.normpath(candidate)
    # A header that moved away or is not written yet still names its folder.
    first = name.split("/", 1)[0]
    if "/" in name and os.path.isdir(os.path.join(root, "src", first)):
        return os.path.normpath(os.path.join("src", name))
    if name.startswith("bvgeo/"):
        return "include/" + name
    raise ValueError("no such file under src/, include/ or beside it")


def checked_files(root):
    for top in CHECKED:
        for folder, subfolders, files in os.walk(os.path.join(root, top)):
            subfolders[:] = sorted(d for d in subfolders if d not in SKIPPED_FOLDERS)
            for file in sorted(files):
                if os.path.splitext(file)[1] in SOURCE_SUFFIXES:
                    yield os.path.relpath(os.path.join(folder, file), root)


def main(root):
    problems, violations = [], 0
    for path in checked_files(root):
        own = layer_of(path)
        if own is None:
            problems.append(f"{path}: no layer in the table covers this file")
            continue
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as text:
            for number, line in enumerate(text, 1):
                found = INCLUDE.match(line)
                if not found:
                    continue
                kind, name = found.groups()
                shown = f"<{name}>" if kind == "<" else f'"{name}"'
                try:
                    target = resolve(root, path, kind, name)
                except ValueError as error:
                    problems.append(f"{path}:{number} includes {shown}: {error}")
                    continue
                if target is None:
                    continue
                theirs = layer_of(target)
                if theirs is None:
                    problems.append(f"{path}:{number} includes {shown}: no layer in the table covers {target}")
                elif RANK[theirs] > RANK[own]:
                    problems.append(f"{path}:{number} includes {shown}: layer {own} may not include layer {theirs}")
                    violations += 1
    for problem in problems:
        print(problem)
    if problems:
        order = " < ".join(name for name, _ in LAYERS)
        print(f"check-layers: {len(problems)} problem(s), {violations} of them includes against the layer order "
              f"({order})")
        return 1
    return 0


sys.exit(main(os.path.normpath(sys.argv[1])))
PY
