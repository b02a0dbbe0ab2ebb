#!/usr/bin/env python3
"""DICOMDIRs of other systems: each is queried at all levels and its objects are fetched, without a byte written; and
each that can be takes an image in a known series, a new series, a new study and a new patient, while every old byte
but links, counters and the numbers before the records stays.

usage: samples_dicomdir.py BIN SAMPLES

Ends with 0, with 1 when a check fails, 77 when there are no samples or no dcmdump, gdcmdump and dcmodify."""
import hashlib
import json
import os
import pathlib
import re
import shutil
import sys
import tempfile

from samples_roundtrip import run

# Damaged: what is refused, and what takes a new patient although a part of it can't be read.
REFUSED = ("DICOMDIR-empty.dcm", "DICOMDIR-nopatient") # no offset of a first record, and one that leads to no patient
TAKEN = {"DICOMDIR-nooffset": [6, 13, 30, 30]} # one of 31 image records is cut
LINKS = ("00041200", "00041202", "00041220", "00041400", "00041420", "00201206", "00201208", "00201209")

class Record:
    def __init__(self, kind):
        self.kind, self.place, self.values, self.children = kind, None, {}, []

    def number(self, tag):
        return int(self.values.get(tag) or 0)

def records_of(path):
    """The records by their places, and the offset of the first."""
    shown = run("dcmdump", "-q", "+L", "+U8", path)
    if shown.returncode != 0 or shown.stderr:
        raise ValueError(f"dcmdump: {shown.stderr[:200]}")
    first, records, current = 0, {}, None
    for line in shown.stdout.splitlines():
        item = re.match(r'  \(fffe,e000\) na "Directory Record" (.*) #=', line)
        place = re.match(r"  #  offset=\$(\d+)", line)
        element = re.match(r"(    )?\((\w{4},\w{4})\) \S\S (.*?) +#\s+\d+,", line)
        if item:
            current = Record(item.group(1))
        elif place:
            current.place = int(place.group(1))
            records[current.place] = current
        elif element:
            value = re.sub(r"^[\[=]?(.*?)\]?$", r"\1", element.group(3)).strip("\0 ")
            if element.group(1) and current:
                current.values[element.group(2)] = "" if value.startswith("(no value") else value
            elif element.group(2) == "0004,1200":
                first = int(value)
    return first, records

def walk(path):
    """The patients, with what is below them, along the offsets, as dcmdump tells of them; records that aren't in use are left
    out. ValueError tells a fault."""
    first, records = records_of(path)
    reached = set()

    def chain(place):
        found = []
        while place:
            if place not in records or place in reached:
                raise ValueError(f"a link leads to {place}")
            reached.add(place)
            record = records[place]
            record.children = chain(record.number("0004,1420"))
            if record.number("0004,1410") != 0:
                found.append(record)
            place = record.number("0004,1400")
        return found

    patients = chain(first)
    if len(reached) != len(records):
        raise ValueError(f"{len(records) - len(reached)} records are reached by no link")
    return patients

def instances(patients):
    return [image for patient in patients for study in patient.children for series in study.children
            for image in series.children]

def digest(folder):
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest()
            for path in pathlib.Path(folder).rglob("*") if path.is_file()}

def rows(binary, folder, level):
    told = run(binary + "/fileset", "query", folder, "--level", level, "--json")
    return json.loads(told.stdout) if told.returncode in (0, 1) and told.stdout else None

def check_reading(binary, folder, name, failures):
    before = digest(folder)
    counts = [len(rows(binary, folder, level) or []) for level in ("study", "series", "image")]
    out = folder + ".out"
    fetched = run(binary + "/fileset", "fetch", folder, "--all", "--out", out)
    objects = sum(len(names) for _, _, names in os.walk(out))
    shutil.rmtree(out, ignore_errors=True)
    if digest(folder) != before:
        failures.append(f"{name}: reading has changed the folder")
    if name in TAKEN and (counts + [objects] != TAKEN[name] or fetched.returncode != 1):
        failures.append(f"{name}: what can be read isn't given, or the rest isn't told: {fetched.stderr[:200]}")
    if name in REFUSED or name in TAKEN:
        return
    patients = walk(folder + "/DICOMDIR")
    studies = [study for patient in patients for study in patient.children]
    expected = [len(studies), sum(len(study.children) for study in studies), len(instances(patients))]
    if counts != expected:
        failures.append(f"{name}: {counts} are told, {expected} are there")
    there = sum(is_there(folder, image) for image in instances(patients))
    if objects != there:
        failures.append(f"{name}: {objects} objects fetched, {there} are there: {fetched.stderr[:200]}")

def is_there(folder, image):
    return os.path.isfile(os.path.join(folder, *image.values["0004,1500"].split("\\")))

def new_object(binary, work, number, values):
    """A phantom object with some of its values replaced."""
    folder = os.path.join(work, f"object{number}")
    run(binary + "/phantom", folder, "--series", "1", "--images", "1", "--size", "32", "--seed", str(900 + number),
        "--charset", "ascii")
    path = next(os.path.join(where, name) for where, _, names in os.walk(folder) for name in names)
    changes = [part for tag, value in values.items() for part in ("-i", f"({tag})={value}")]
    run("dcmodify", "-nb", "-ie", "-imt", "-e", "(0010,0021)", *changes, path)
    return path

def other_bytes_changed(old, new, big):
    """Places of bytes that differ although no link or counter stands there, 12 bytes behind its tag at most, nor the length
    of the records' sequence, whose header is 8 bytes longer."""
    halves = [(bytes.fromhex(tag[:4]), bytes.fromhex(tag[4:])) for tag in LINKS]
    allowed = [group + element if big else group[::-1] + element[::-1] for group, element in halves]
    return [place for place in range(len(old)) if old[place] != new[place]
            and not any(old[start : start + 4] in allowed for start in range(max(place - 20, 0), place))]

def check_appending(binary, folder, name, failures):
    patients = walk(folder + "/DICOMDIR")
    patient = patients[0]
    study, series = patient.children[0], patient.children[0].children[0]
    of_patient = {tag: patient.values.get(tag, "") for tag in ("0010,0010", "0010,0020")}
    of_study = {**of_patient, "0020,000d": study.values["0020,000d"], "0020,0010": study.values.get("0020,0010", "")}
    of_series = {**of_study, "0020,000e": series.values["0020,000e"], "0020,0011": series.values.get("0020,0011", ""),
                 "0008,0060": series.values["0008,0060"]}
    old = pathlib.Path(folder, "DICOMDIR").read_bytes()
    old_uids = {image.values.get("0004,1511") for image in instances(patients)}
    new_uids = set()
    for number, values in enumerate((of_series, of_study, of_patient, {})):
        path = new_object(binary, os.path.dirname(folder), number, values)
        stored = run(binary + "/fileset", "store", folder, path)
        if stored.returncode != 0:
            failures.append(f"{name}: object {number}: {stored.stderr.strip()[:300]}")
            return
        shown = run("dcmdump", "-q", "+P", "SOPInstanceUID", path).stdout
        new_uids.add(shown.split("[")[1].split("]")[0])
    after = walk(folder + "/DICOMDIR")
    uids = {image.values.get("0004,1511") for image in instances(after)}
    if uids != old_uids | new_uids:
        failures.append(f"{name}: {len(uids)} objects after appending, {len(old_uids | new_uids)} wanted")
    for image in instances(after):
        if image.values.get("0004,1511") in new_uids and not is_there(folder, image):
            failures.append(f"{name}: a new object's file is missing")
    if run("gdcmdump", folder + "/DICOMDIR").returncode != 0:
        failures.append(f"{name}: gdcmdump can't read it")
    changed = other_bytes_changed(old, pathlib.Path(folder, "DICOMDIR").read_bytes(), "bigEnd" in name)
    # the delimiter of a sequence of undefined length gives way to records
    tail = len(old) - 8 if name == "dangling" else len(old)
    if [place for place in changed if place < tail]:
        failures.append(f"{name}: old bytes changed at {changed[:5]}")

def check_damaged(binary, folder, name, failures):
    before, images = digest(folder), len(rows(binary, folder, "image") or [])
    path = new_object(binary, os.path.dirname(folder), 9, {})
    stored = run(binary + "/fileset", "store", folder, path)
    if name in TAKEN:
        if stored.returncode != 0 or len(rows(binary, folder, "image") or []) != images + 1:
            failures.append(f"{name}: the new patient isn't found beside the old ones")
        return
    checked = run(binary + "/fileset", "check", folder).stdout
    if name == "DICOMDIR-empty.dcm" and not (checked.endswith(": no records\n") and "no records" in stored.stderr):
        failures.append(f"{name}: check tells something else than store: {checked}")
    if stored.returncode == 0 or digest(folder).get("DICOMDIR") != before["DICOMDIR"]:
        failures.append(f"{name}: not refused, or changed")

def main():
    binary, samples = sys.argv[1:3]
    top = os.path.join(samples, "dicomdir")
    if not os.path.isdir(top) or not all(shutil.which(tool) for tool in ("dcmdump", "gdcmdump", "dcmodify")):
        print("skipped: no sample files, or no dcmdump, gdcmdump and dcmodify")
        return 77
    failures = []
    with tempfile.TemporaryDirectory(prefix="disk_dicomdir_") as work:
        for medium in sorted(os.listdir(top)):
            source = os.path.join(top, medium)
            directories = [name for name in sorted(os.listdir(source)) if name.startswith("DICOMDIR")]
            for directory in directories:
                name = directory if len(directories) > 1 else medium
                folder = os.path.join(work, name)
                shutil.copytree(source, folder, ignore=shutil.ignore_patterns("DICOMDIR*"))
                shutil.copy(os.path.join(source, directory), folder + "/DICOMDIR")
                print(name)
                check_reading(binary, folder, name, failures)
                try:
                    (check_damaged if name in REFUSED or name in TAKEN else check_appending)(binary, folder, name, failures)
                except ValueError as fault:
                    failures.append(f"{name}: {fault}")
    for failure in failures:
        print(f"FAILED: {failure}")
    print(f"{len(failures)} failures")
    return 1 if failures else 0

if __name__ == "__main__":
    sys.exit(main())
