#!/usr/bin/env python3
"""Real files go in and come out: every file below a folder is offered to `fileset store`, found by query, fetched by UIDs
and by Referenced File ID, and compared with the original element by element, as dcmdump tells both.

usage: samples_roundtrip.py BIN SAMPLES [--standard]

Ends with 0 when every stored object came back equal, 1 otherwise, 77 when there are no samples or no dcmdump."""
import collections
import functools
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import types

def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, errors="replace")

@functools.cache
def tag_value(path, keyword):
    shown = run("dcmdump", "-q", "+L", "+P", keyword, path).stdout
    text = re.search(r"^\(\S+\) \S\S \[([^\]]*)\]", shown, re.M)
    if text:
        return text.group(1).rstrip("\0 ")
    unknown = re.search(r"^\(\S+\) UN ((?:[0-9a-f]{2}\\?)+) ", shown, re.M) # an attribute whose writer didn't know its VR
    return bytes.fromhex(unknown.group(1).replace("\\", "")).decode("ascii").rstrip("\0 ") if unknown else ""

def listing(path, work):
    """What dcmdump shows of a file, without what a store adds or may change: meta information, the system's own private
    block, group lengths, lengths and the form of sequences. Native files are shown in implicit VR, where VRs come from
    one dictionary for both sides."""
    implicit = os.path.join(work, "implicit.dcm")
    if run("dcmconv", "-q", "+ti", path, implicit).returncode == 0:
        path = implicit
    lines = []
    for line in run("dcmdump", "-q", "+L", path).stdout.splitlines():
        line = line.strip()
        if re.match(r"\((0002|0009),|\(....,0000\)|\(fffe,e0[0d]d\)|#|$", line):
            continue
        line = re.sub(r"\s+#\s+(\d+|u/l),.*$", "", line)
        line = re.sub(r"\((Sequence|Item|PixelSequence) with .*$", r"\1", line)
        lines.append(line)
    return lines

@functools.cache
def listing_of_original(path):
    with tempfile.TemporaryDirectory(prefix="disk_samples_") as work:
        return listing(path, work)

def equal(original, other, work):
    a, b = listing_of_original(original), listing(other, work)
    if a == b:
        return ""
    for x, y in zip(a, b):
        if x != y:
            return f"{x[:100]!r} became {y[:100]!r}"
    return f"{len(a)} elements became {len(b)}"

def check_set(binary, files, mode, report, structure):
    with tempfile.TemporaryDirectory(prefix="disk_samples_") as work:
        fileset, base = os.path.join(work, "set"), [binary + "/fileset"]
        stored = run(*base, "store", fileset, "--accept-mismatch", *structure, *(["--native"] if mode == "native" else []), *files)
        for line in stored.stderr.splitlines():
            for path in files:
                if path + ": " in line:
                    report.refused[path] = line.split(path + ": ", 1)[1]
        images = json.loads(run(*base, "query", fileset, "--level", "image", "--key", "SOPInstanceUID", "--key",
                                "ReferencedFileID", "--json").stdout or "[]")
        found = {}
        for image in images:
            uid = image.get("00080018", {}).get("Value", [""])[0]
            found[uid] = "\\".join(image.get("00041500", {}).get("Value", []))
        for path in files:
            if path in report.refused:
                continue
            uid = tag_value(path, "SOPInstanceUID")
            if uid not in found:
                report.failures.append(f"{mode}: {path}: stored, but no query finds it")
                continue
            problem = fetch_and_compare(base, fileset, path, uid, found[uid], mode, work)
            if problem:
                report.failures.append(f"{mode}: {path}: {problem}")

def fetch_and_compare(base, fileset, path, uid, file_id, mode, work):
    was_compressed = "PixelSequence" in run("dcmdump", "-q", "+P", "PixelData", path).stdout
    decompress = ["--decompress"] if mode == "compressed" and not was_compressed else []
    names = []
    for way in (["--image", uid], ["--file-id", file_id]):
        out = os.path.join(work, way[0].strip("-"))
        fetched = run(*base, "fetch", fileset, *way, "--out", out, *decompress)
        if fetched.returncode != 0:
            return f"fetch {way[0]} fails: {fetched.stderr.strip()[:200]}"
        names.append(os.path.join(out, os.listdir(out)[0]))
    problem = equal(path, names[0], work)
    if not problem and open(names[0], "rb").read() != open(names[1], "rb").read():
        problem = "the two roads give different bytes"
    for name in names:
        shutil.rmtree(os.path.dirname(name))
    return problem

def check_names(binary, folder, report, structure):
    """A name typed in UTF-8, whole and with a wild card, finds its object, and the table shows it."""
    for name in sorted(os.listdir(folder)) if os.path.isdir(folder) else []:
        path = os.path.join(folder, name)
        if path in report.refused:
            continue
        shown = re.search(r"PN \[([^\]]*)\]", run("dcmdump", "-q", "+U8", "+P", "PatientName", path).stdout)
        work = tempfile.mkdtemp(prefix="disk_names_")
        fileset = os.path.join(work, "set")
        run(binary + "/fileset", "store", fileset, *structure, path)
        told = json.loads(run(binary + "/fileset", "query", fileset, "--key", "PatientName", "--json").stdout)
        value = told[0].get("00100010", {}).get("Value", [{}])[0]
        person = "=".join(value.get(group, "") for group in ("Alphabetic", "Ideographic", "Phonetic")).rstrip("=")
        if shown and shown.group(1).strip() != person:
            report.failures.append(f"{path}: the name is {person!r}, but dcmdump tells {shown.group(1)!r}")
        for key in (person, person[: max(1, len(person) // 2)] + "*"):
            table = run(binary + "/fileset", "query", fileset, "--key", "PatientName=" + key).stdout
            if not person or person not in table:
                report.failures.append(f"{path}: {key!r} doesn't find {person!r}")
        shutil.rmtree(work)

def main():
    structure = ["--standard", "--compress"] if "--standard" in sys.argv else []
    binary, samples = sys.argv[1:3]
    if not os.path.isdir(samples) or not shutil.which("dcmdump"):
        print("skipped: no sample files, or no dcmdump")
        return 77
    groups = collections.defaultdict(list)
    for folder, _, names in sorted(os.walk(samples)):
        for name in sorted(names):
            path = os.path.join(folder, name)
            if not name.endswith(".md"):
                groups[tag_value(path, "SOPInstanceUID") or path].append(path)
    sets = [[paths[0] for paths in groups.values()]]
    sets += [[path] for paths in groups.values() for path in paths[1:]]
    report = types.SimpleNamespace(refused={}, failures=[])
    for mode in ("compressed",) if structure else ("native", "compressed"): # how objects are written is the same in both
        for files in sets:
            check_set(binary, files, mode, report, structure)
    check_names(binary, os.path.join(samples, "charset"), report, structure)
    for path, reason in sorted(report.refused.items()):
        print(f"refused: {os.path.relpath(path, samples)}: {reason}")
    for failure in report.failures:
        print(f"FAILED: {failure}")
    files = sum(map(len, groups.values()))
    print(f"{files} files, {len(report.refused)} refused, {len(report.failures)} failures")
    return 1 if report.failures else 0

if __name__ == "__main__":
    sys.exit(main())
