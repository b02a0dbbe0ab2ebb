"""Draws the curves and bars of docs/performance.md from the figures of a run.

Usage: plot.py FIGURES FOLDER   FIGURES is a file of lines of JSON, FOLDER gets the SVG files"""
import json
import math
import pathlib
import sys

WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 720, 400, 70, 180, 40, 50
COLOURS = ["#0b6e99", "#7a9e1f", "#c2410c", "#7c3aed", "#6b7280", "#b45309"]


def decades(values):
    return math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))


def label(value):
    return f"{value:,.0f}" if value >= 1 else f"{value:g}"


class Drawing:
    def __init__(self, title, unit, lows_highs):
        self.low, self.high = decades(lows_highs)
        self.parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
                      'font-family="sans-serif" font-size="12">',
                      f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
                      f'<text x="{LEFT}" y="22" font-size="15">{title}</text>',
                      f'<text x="8" y="{TOP - 4}" fill="#555">{unit}</text>']
        for power in range(self.low, self.high + 1):
            y = self.y(10.0**power)
            self.line(LEFT, y, WIDTH - RIGHT, y, "#ddd")
            self.text(LEFT - 6, y + 4, label(10.0**power), "end")

    def y(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return HEIGHT - BOTTOM - share * (HEIGHT - BOTTOM - TOP)

    def line(self, x1, y1, x2, y2, colour):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"/>')

    def text(self, x, y, text, anchor="start", colour="#333"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">{text}</text>')

    def legend(self, i, name):
        y = TOP + 14 + 20 * i
        self.parts.append(f'<rect x="{WIDTH - RIGHT + 14}" y="{y - 9}" width="12" height="10" '
                          f'fill="{COLOURS[i % len(COLOURS)]}"/>')
        self.text(WIDTH - RIGHT + 32, y, name)

    def save(self, path):
        path.write_text("\n".join(self.parts + ["</svg>"]) + "\n")


def curves(path, title, series):
    """`series`: names to {n: microseconds}; both axes are logarithmic."""
    series = {name: dict(sorted(points.items())) for name, points in series.items() if points}
    if not series:
        return  # it wasn't measured
    drawing = Drawing(title, "us", [v for points in series.values() for v in points.values()])
    first, last = decades([n for points in series.values() for n in points])
    across = lambda n: LEFT + (math.log10(n) - first) / max(last - first, 1) * (WIDTH - RIGHT - LEFT)
    for power in range(first, last + 1):
        drawing.line(across(10.0**power), TOP, across(10.0**power), HEIGHT - BOTTOM, "#eee")
        drawing.text(across(10.0**power), HEIGHT - BOTTOM + 18, label(10.0**power), "middle")
    drawing.text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 12, "objects stored already", "middle")
    for i, (name, points) in enumerate(series.items()):
        colour = COLOURS[i % len(COLOURS)]
        places = [(across(n), drawing.y(value)) for n, value in points.items()]
        drawing.parts.append('<polyline fill="none" stroke-width="2" stroke="%s" points="%s"/>' %
                             (colour, " ".join(f"{x:.1f},{y:.1f}" for x, y in places)))
        drawing.parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in places]
        drawing.legend(i, name)
    drawing.save(path)


def bars(path, title, groups):
    """`groups`: questions to {who: microseconds}."""
    if not groups:
        return
    people = list(dict.fromkeys(who for group in groups.values() for who in group))
    drawing = Drawing(title, "us", [v for group in groups.values() for v in group.values()])
    room = (WIDTH - RIGHT - LEFT) / len(groups)
    width = room / (len(people) + 1)
    for k, (what, group) in enumerate(groups.items()):
        drawing.text(LEFT + (k + 0.5) * room, HEIGHT - BOTTOM + 18, what, "middle")
        for who, value in group.items():
            x, y = LEFT + k * room + (people.index(who) + 0.5) * width, drawing.y(value)
            drawing.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width - 3:.1f}" '
                                 f'height="{HEIGHT - BOTTOM - y:.1f}" fill="{COLOURS[people.index(who) % len(COLOURS)]}"/>')
    for i, who in enumerate(people):
        drawing.legend(i, who)
    drawing.save(path)


def main():
    lines = [json.loads(line) for line in open(sys.argv[1]) if line.strip()]
    folder = pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)

    def points(area, what, who):
        return {f["n"]: f["value"] for f in lines if (f["area"], f["what"], f["who"]) == (area, what, who)}

    peers = ("ours, relaxed", "ours, durable", "toolkit", "Orthanc, synced", "Orthanc, not synced")
    curves(folder / "store_peers.svg", "A store, beside what else there is",
           {who: points("store, peers", "objects", who) for who in peers})
    for structure, what in (("private", "images of one series"), ("standard", "objects")):
        curves(folder / f"store_{structure}.svg", f"A store, {structure} structure ({what}), beside the bare writing",
               {f"{who}, {level}": points(f"store, {structure}, {level}", what, who)
                for level in ("relaxed", "durable") for who in ("ours", "bare")})
    asked = {}
    for what in ("all studies", "one study", "images of a series", "one image"):
        for who, name in (("ours", what), ("ours, standard", what + ", standard"), ("toolkit", what), ("Orthanc", what)):
            found = points("query", name, who.split(",")[0])
            if found:
                asked.setdefault(what, {})[who] = found[max(found)]
    bars(folder / "query.svg", "Queries", asked)


if __name__ == "__main__":
    main()
