#!/usr/bin/env python3
"""A DICOMDIR of three patients, twelve studies, images with icons, presentation states and reports, made by two runs of
`fileset`: other readers take it without a word, and a walk along its offsets finds exactly what was stored.

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
        for reader in ("dcmdump", "gdcmdump"):
            told = run(reader, medium + "/DICOMDIR")
            faults = [line for line in told.stdout.splitlines() if line.startswith(("W:", "E:", "F:", "Warning", "Error"))]
            if told.returncode != 0 or faults:
                failures.append(f"{reader}: {told.returncode} {faults[:3]}")
        wanted = {uid_of(os.path.join(where, name)) for where, _, names in os.walk(source) for name in names}
        records = walk(medium + "/DICOMDIR")
        found = instances(records)
        if sorted(image.values["0004,1511"] for image in found) != sorted(wanted):
            failures.append(f"{len(found)} objects found, {len(wanted)} stored")
        for image in found:
            path = os.path.join(medium, *image.values["0004,1500"].split("\\"))
            if not os.path.isfile(path) or uid_of(path) != image.values["0004,1511"]:
                failures.append(f"{path} isn't the object of its record")
        studies = [study for patient in records for study in patient.children]
        print(f"{len(records)} patients, {len(studies)} studies, {len(found)} objects, each with its file")
    finally:
        shutil.rmtree(work)
    for failure in failures:
        print(f"FAILED: {failure}")
    return 1 if failures else 0

if __name__ == "__main__":
    sys.exit(main())
