#!/usr/bin/env python3
"""Checks that the libraries and the shared headers stand in one direction.

    layers.py GRAPH INCLUDE_DIR

GRAPH holds one line per library of the tree, "name|archive|linked;libraries",
as the build writes it. Three checks, each printing what is wrong:

1. The link graph between the libraries has no cycle.
2. No library calls into one it does not link, directly or through others:
   every symbol an archive needs that another archive defines must come from
   a library in its link closure. Two static libraries that resolve each other
   show up here even when the link lines hide it.
3. The shared headers include each other downwards only: viewer over tol over
   view and graphic over the core, the status and handle headers at the
   bottom including none of ours.
Exit status 1 when any check fails.
"""
import re
import subprocess
import sys
from pathlib import Path

# Rank of each shared header: a header includes only headers of its rank or
# below, and those of rank 0 (the status header with its codes, the handles, the
# environment table) include only each other.
HEADER_RANK = {
    "tol_status.h": 0, "tol_handle.h": 0, "tol_codes.h": 0, "bw_env.h": 0,
    "database.h": 1, "fileio.h": 1, "geometry.h": 1, "material.h": 1, "model.h": 1,
    "camera.h": 1, "animation.h": 1, "dictionary.h": 1, "expr.h": 1,
    "channel.h": 1,
    "graphic.h": 2, "view.h": 2,
    "tol.h": 3,
    # The exporter stands beside the draw: it reads the display form, no hardware.
    "export.h": 2,
    "viewer.h": 4, "viewer_platform.h": 4,
    # The driver kit's header stands apart: drivers link nothing else of ours.
    "bwdriver.h": 0,
}


def read_graph(path):
    libs = {}
    for line in Path(path).read_text().splitlines():
        if not line.strip():
            continue
        name, archive, linked = line.split("|")
        libs[name] = (archive, [d for d in linked.split(";") if d])
    # Keep only the edges between the tree's own libraries.
    return {n: (a, [d for d in deps if d in libs]) for n, (a, deps) in libs.items()}


def find_cycle(edges):
    state, stack = {}, []

    def visit(node):
        state[node] = 1
        stack.append(node)
        for nxt in edges.get(node, []):
            if state.get(nxt) == 1:
                return stack[stack.index(nxt):] + [nxt]
            if nxt not in state:
                found = visit(nxt)
                if found:
                    return found
        stack.pop()
        state[node] = 2
        return None

    for node in sorted(edges):
        if node not in state:
            found = visit(node)
            if found:
                return found
    return None


def closure(edges, start):
    seen, todo = set(), list(edges.get(start, []))
    while todo:
        n = todo.pop()
        if n not in seen:
            seen.add(n)
            todo.extend(edges.get(n, []))
    return seen


def symbols(archive):
    out = subprocess.run(["nm", "-C", "--defined-only", archive], capture_output=True,
                         text=True, check=True).stdout
    defined = set()
    for line in out.splitlines():
        parts = line.split(" ", 2)
        # Strong definitions only: inline and template code (W, V, u) is
        # defined wherever it is used.
        if len(parts) == 3 and parts[1] in "TDBR":
            defined.add(parts[2])
    out = subprocess.run(["nm", "-C", "--undefined-only", archive], capture_output=True,
                         text=True, check=True).stdout
    needed = {line.split(" U ", 1)[1] for line in out.splitlines() if " U " in line}
    return defined, needed


def check_links(libs):
    edges = {n: deps for n, (_, deps) in libs.items()}
    problems = []
    cycle = find_cycle(edges)
    if cycle:
        problems.append("link cycle: " + " -> ".join(cycle))
    tables = {n: symbols(a) for n, (a, _) in libs.items()}
    owner = {}
    for n, (defined, _) in tables.items():
        for s in defined:
            owner.setdefault(s, n)
    for n, (_, needed) in sorted(tables.items()):
        reach = closure(edges, n)
        calls = {}
        for s in needed:
            o = owner.get(s)
            if o and o != n and o not in reach:
                calls.setdefault(o, []).append(s)
        for o, syms in sorted(calls.items()):
            problems.append(f"{n} calls {o} without linking it: " + ", ".join(sorted(syms)[:5]))
    return problems


def check_headers(include_dir):
    problems = []
    edges = {}
    for h in sorted(Path(include_dir).glob("*.h")):
        rank = HEADER_RANK.get(h.name)
        if rank is None:
            problems.append(f"{h.name}: no rank; add it to HEADER_RANK in scripts/layers.py")
            continue
        ours = [m for m in re.findall(r'^#include "([^"]+)"', h.read_text(), re.M)
                if m in HEADER_RANK]
        edges[h.name] = ours
        for inc in ours:
            if HEADER_RANK[inc] > rank:
                problems.append(f"{h.name} includes {inc}, which stands above it")
    cycle = find_cycle(edges)
    if cycle:
        problems.append("include cycle: " + " -> ".join(cycle))
    return problems


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip().splitlines()[2], file=sys.stderr)
        return 2
    problems = check_links(read_graph(sys.argv[1])) + check_headers(sys.argv[2])
    for p in problems:
        print(p)
    if not problems:
        print("layers: libraries and headers in one direction")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
