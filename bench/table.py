"""Makes a table per area of the lines that the benchmarks report, and sets the aims beside them.

Usage: table.py FIGURES [--json]        FIGURES is a file of lines of JSON. Ends with 1 when an aim isn't reached
       table.py FIGURES... --markdown   the aims beside what each run reached, for docs/performance.md"""
import collections
import json
import sys


class Figures:
    def __init__(self, lines):
        self.lines = lines
        self.values = {(f["area"], f["what"], f["who"], f["n"]): f["value"] for f in lines}

    def get(self, area, what, who, n=None):
        """The value; of the greatest n when none is given. None when it wasn't measured."""
        found = [(key[3], value) for key, value in self.values.items() if key[:3] == (area, what, who)]
        if n is not None:
            found = [pair for pair in found if pair[0] == n]
        return max(found)[1] if found else None


def ratio(area, what, who="ours", to="bare", n=None):
    def of(figures):
        above, below = figures.get(area, what, who, n), figures.get(area, what, to, n)
        return None if above is None or below is None else above / below

    return of


def value(area, what, who="ours", n=None, scale=1.0):
    def of(figures):
        found = figures.get(area, what, who, n)
        return None if found is None else found * scale

    return of


def quotient(above, below):
    def of(figures):
        a, b = above(figures), below(figures)
        return None if a is None or b is None else a / b

    return of


def bulk_large(figures):
    values = [figures.get("bulk", "objects of 512 x 512", who) for who in ("ours", "cp", "codec")]
    return None if None in values else values[0] / (values[1] + values[2])


AT_MOST, AT_LEAST = "at most", "at least"
RELAXED, DURABLE = "store, private, relaxed", "store, private, durable"
S_RELAXED, S_DURABLE = "store, standard, relaxed", "store, standard, durable"
PEERS = "store, peers"

# area, what is wanted, at most or at least, how much, and how it is told from the figures
AIMS = [
    ("Store, private, relaxed", "x bare, 20,000 objects in 700 studies", AT_MOST, 1.5, ratio(RELAXED, "objects in 700 studies")),
    ("Store, private, relaxed", "x the rate of the toolkit's index database, 20,000 objects", AT_LEAST, 50,
     ratio(PEERS, "objects", "toolkit", "ours, relaxed", 20000)),
    ("Store, private, relaxed", "x that rate, 100 objects", AT_LEAST, 1,
     ratio(PEERS, "objects", "toolkit", "ours, relaxed", 100)),
    ("Store, private, durable", "x bare, 20,000 objects in 700 studies", AT_MOST, 1.25, ratio(DURABLE, "objects in 700 studies")),
    ("Store, private, durable", "x the rate of Orthanc, synced", AT_LEAST, 1,
     ratio(PEERS, "objects", "Orthanc, synced", "ours, in turns with it")),
    ("Store, standard, relaxed", "x bare, 20,000 objects", AT_MOST, 1.5, ratio(S_RELAXED, "objects")),
    ("Store, standard, durable", "x bare, 20,000 objects", AT_MOST, 1.25, ratio(S_DURABLE, "objects")),
    ("Store, standard, relaxed", "x that with 10 objects, 20,000 objects", AT_MOST, 1.25,
     ratio(S_RELAXED, "objects, in turns", to="ours, the first ones")),
    ("Growth, private", "x bare, 10 images of one series", AT_MOST, 1.5, ratio(RELAXED, "images of one series", n=10)),
    ("Growth, private", "x bare, 1,000 images of one series", AT_MOST, 1.5, ratio(RELAXED, "images of one series", n=1000)),
    ("Growth, private", "x bare, 10,000 images of one series", AT_MOST, 1.5, ratio(RELAXED, "images of one series", n=10000)),
    ("Growth, private", "x bare, 7 studies", AT_MOST, 1.5, ratio(RELAXED, "studies", n=7)),
    ("Growth, private", "x bare, 700 studies", AT_MOST, 1.5, ratio(RELAXED, "studies", n=700)),
    ("Directory file", "us per record beside the bare I/O", AT_MOST, 1, value("directory file", "records", "ours beside bare")),
    ("Directory file", "x faster than the toolkit", AT_LEAST, 30, ratio("directory file", "records", "toolkit", "ours, not synced")),
    ("Directory file", "bytes of heap per record", AT_MOST, 1000, value("directory file", "heap")),
    ("Query", "ms, 700 studies, warm", AT_MOST, 0.3, value("query", "700 studies", scale=1e-3)),
    ("Query", "ms, 700 studies, new process", AT_MOST, 5, value("query", "700 studies, new process", scale=1e-3)),
    ("Query", "us, by Study Instance UID", AT_MOST, 30, value("query", "by Study Instance UID")),
    ("Query", "ms, images of a series of 50", AT_MOST, 0.3, value("query", "images of a series of 50", scale=1e-3)),
    *[("Query", f"x faster than {peer}, {what}, 20,000 objects", AT_LEAST, 20,
       ratio("query", what, peer, "ours", 20000))
      for peer in ("toolkit", "Orthanc") for what in ("all studies", "one study", "images of a series", "one image")],
    ("Fetch", "x reading the bytes, by file ID", AT_MOST, 1.3, ratio("fetch", "by file ID")),
    ("Fetch", "x reading the bytes, by UIDs", AT_MOST, 1.3, ratio("fetch", "by UIDs")),
    ("Fetch", "x the bare codec, JPEG-LS", AT_MOST, 1.1, ratio("fetch", "decompressed")),
    ("Delete", "x unlinking, a study of 200", AT_MOST, 3, ratio("delete", "a study of 200")),
    ("Cache", "x admission with 2 objects a study, with 300", AT_MOST, 1.5,
     quotient(value("cache", "durable admission", "more objects a study"), value("cache", "durable admission", "2 objects a study"))),
    ("Cache", "x deleting a study, cleaning", AT_MOST, 1.25, ratio("cache", "a study of 50 objects goes", "cleaning", "delete")),
    ("Two processes", "x the rate of one, durable", AT_LEAST, 1.6, ratio("processes", "stores into known studies", "one", "two")),
    ("Two processes", "x the rate of one, on a disk that has as much for each", AT_LEAST, 1.6,
     ratio("processes", "stores into known studies", "patient disk, one", "patient disk, two")),
    ("Bulk", "x cp and the codec, objects of 512 x 512", AT_MOST, 1.5, bulk_large),
    ("Bulk", "x bare, objects of 64 x 64", AT_MOST, 1.5, ratio("bulk", "objects of 64 x 64")),
]


def print_areas(figures):
    areas = collections.OrderedDict()
    for line in figures.lines:
        rows = areas.setdefault(line["area"], collections.OrderedDict())
        rows.setdefault((line["what"], line["n"]), collections.OrderedDict())[line["who"]] = line
    for area, rows in areas.items():
        people = list(collections.OrderedDict.fromkeys(who for row in rows.values() for who in row))
        units = {line["unit"] for row in rows.values() for line in row.values()}
        print(f"\n{area} ({', '.join(sorted(units))})")
        print(f"{'':42}{'n':>8}" + "".join(f"{who:>{max(14, len(who) + 2)}}" for who in people) + f"{'ours/bare':>11}")
        for (what, n), row in rows.items():
            cells = "".join(
                f"{row[who]['value']:>{max(14, len(who) + 2)}.1f}" if who in row else " " * max(14, len(who) + 2)
                for who in people)
            both = "ours" in row and "bare" in row
            print(f"{what:42}{n:>8}{cells}" + (f"{row['ours']['value'] / row['bare']['value']:>11.2f}" if both else ""))


def aims(figures):
    for area, what, kind, limit, told in AIMS:
        figure = told(figures)
        if figure is not None:
            yield {"area": area, "what": what, "aim": f"{kind} {limit:g}", "figure": round(figure, 3),
                   "reached": figure <= limit if kind == AT_MOST else figure >= limit}


def read(path):
    with open(path) as file:
        return Figures([json.loads(line) for line in file if line.strip()])


def print_markdown(paths):
    runs = [{(aim["area"], aim["what"]): aim for aim in aims(read(path))} for path in paths]
    print("| Area | | Aim |" + "".join(f" Run {i + 1} |" for i in range(len(runs))))
    print("|---|---|---|" + "---|" * len(runs))
    for key, aim in runs[0].items():
        told = [run.get(key) for run in runs]
        cells = "".join(" |" if not of else f" {of['figure']:,.2f} |" if of["reached"] else f" **{of['figure']:,.2f}** |"
                        for of in told)
        print(f"| {key[0]} | {key[1]} | {aim['aim']} |{cells}")


def main():
    if "--markdown" in sys.argv:
        return print_markdown([name for name in sys.argv[1:] if not name.startswith("--")])
    figures = read(sys.argv[1])
    told = list(aims(figures))
    if "--json" in sys.argv:
        print(json.dumps({"figures": figures.lines, "aims": told}, indent=1))
    else:
        print_areas(figures)
        print("\nAims")
        for aim in told:
            print(f"{aim['area']:26}{aim['what']:62}{aim['aim']:>14}{aim['figure']:>10.2f}"
                  + ("" if aim["reached"] else "   not reached"))
    return 0 if all(aim["reached"] for aim in told) else 1


if __name__ == "__main__":
    sys.exit(main())
