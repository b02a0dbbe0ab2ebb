#!/usr/bin/env python3
"""A DICOMDIR of three patients, twelve studies, images with icons, presentation states and reports, made by two runs of
`fileset`: other readers take it without a word, and a walk along its offsets finds exactly what was stored. The same
for one study that is exported to a medium and to a folder.

usage: dicomdir_made_here.py BIN

Ends with 0, with 1 when a check fails, 77 without dcmdump and gdcmdump."""
import os
import shutil
import subprocess
import sys
import tempfile

from dicomdir_walk import instances, walk

def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace")

def uid_of(path):
    return run("dcmdump", "-q", "+P", "SOPInstanceUID", path).stdout.split("[")[1].split("]")[0].strip("\0")

def uids_below(folder):
    return sorted(uid_of(os.path.join(where, name)) for where, _, names in os.walk(folder) for name in names)

def expect_readers_take(path, failures):
    for reader in ("dcmdump", "gdcmdump"):
        told = run(reader, path)
        faults = [line for line in told.stdout.splitlines() if line.startswith(("W:", "E:", "F:", "Warning", "Error"))]
        if told.returncode != 0 or faults:
            failures.append(f"{reader} {path}: {told.returncode} {faults[:3]}")

def check_medium(medium, wanted, failures):
    """The records of a medium lead to these objects."""
    expect_readers_take(medium + "/DICOMDIR", failures)
    records = walk(medium + "/DICOMDIR")
    found = instances(records)
    if sorted(image.values["0004,1511"] for image in found) != wanted:
        failures.append(f"{medium}: {len(found)} objects found, {len(wanted)} stored")
    for image in found:
        path = os.path.join(medium, *image.values["0004,1500"].split("\\"))
        if not os.path.isfile(path) or uid_of(path) != image.values["0004,1511"]:
            failures.append(f"{path} isn't the object of its record")
    studies = [study for patient in records for study in patient.children]
    print(f"{len(records)} patients, {len(studies)} studies, {len(found)} objects, each with its file")

def check_export(binary, source, work, failures):
    study = os.path.join(source, sorted(os.listdir(source))[0], "st001")
    first = next(os.path.join(where, names[0]) for where, _, names in os.walk(study) if names)
    uid = run("dcmdump", "-q", "+P", "StudyInstanceUID", first).stdout.split("[")[1].split("]")[0].strip("\0")
    run(binary + "/fileset", "store", work + "/set", source)
    for target, options in (("burn", ["--standard"]), ("folder", [])):
        exported = run(binary + "/fileset", "export", work + "/set", "--study", uid, "--out", f"{work}/{target}", *options)
        if exported.returncode != 0:
            failures.append(exported.stdout)
    check_medium(work + "/burn", uids_below(study), failures)
    for name in sorted(os.listdir(work + "/folder")):
        expect_readers_take(f"{work}/folder/{name}", failures)
    if uids_below(work + "/folder") != uids_below(study):
        failures.append("the folder doesn't hold the study")

def main():
    binary = sys.argv[1]
    if not shutil.which("dcmdump") or not shutil.which("gdcmdump"):
        print("skipped: no dcmdump or gdcmdump")
        return 77
    failures = []
    work = tempfile.mkdtemp(prefix="disk_made_here_")
    try:
        source, medium = work + "/in", work + "/medium"
        run(binary + "/phantom", source, "--patients", "3", "--studies", "4", "--series", "4", "--images", "2", "--kind",
            "mix", "--size", "64", "--charset", "utf8")
        patients = sorted(os.listdir(source))
        first, second = [os.path.join(source, name) for name in patients[:2]], os.path.join(source, patients[2])
        for sources in (first, [second]):
            stored = run(binary + "/fileset", "store", medium, "--standard", "--icon", *sources)
            if stored.returncode != 0:
                failures.append(stored.stdout)
        check_medium(medium, uids_below(source), failures)
        check_export(binary, source, work, failures)
    finally:
        shutil.rmtree(work)
    for failure in failures:
        print(f"FAILED: {failure}")
    return 1 if failures else 0

if __name__ == "__main__":
    sys.exit(main())
