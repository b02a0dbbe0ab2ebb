"""Walks along the offsets of a DICOMDIR, as dcmdump tells of it."""
import re
import subprocess

class Record:
    def __init__(self, kind):
        self.kind, self.place, self.values, self.children = kind, None, {}, []

    def number(self, tag):
        return int(self.values.get(tag) or 0)

def records_of(path):
    """The records by their places, and the offset of the first."""
    shown = subprocess.run(["dcmdump", "-q", "+L", "+U8", path], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if shown.returncode != 0 or shown.stderr:
        raise ValueError(f"dcmdump: {shown.stderr.decode(errors='replace')[:200]}")
    first, records, current = 0, {}, None
    for line in shown.stdout.decode(errors="replace").splitlines():
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
    """The patients, with what is below them; records that aren't in use are left out. ValueError tells a fault."""
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
