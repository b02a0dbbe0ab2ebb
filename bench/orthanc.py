"""Measures a DICOM server over its REST interface, on loopback and with a store of its own: the same objects and questions
as the engine has. Lines of JSON go to standard output, as those of disk_bench.

Usage: orthanc.py PROGRAMS FOLDER [--quick]   PROGRAMS is the folder of phantom and disk_bench, FOLDER lies on the disk to
                                              measure"""
import http.client
import json
import pathlib
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

SERIES, IMAGES = 4, 50  # of a study, of a series
RUNS = 9


def report(area, what, who, n, seconds):
    print(json.dumps({"area": area, "what": what, "who": who, "n": n, "value": seconds * 1e6, "unit": "us"}), flush=True)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Server:
    """A process of its own, which ends with the scope."""

    def __init__(self, folder, synced):
        self.port = free_port()
        configuration = {
            "Name": "bench", "StorageDirectory": str(folder), "IndexDirectory": str(folder), "HttpPort": self.port,
            "DicomServerEnabled": False, "RemoteAccessAllowed": False, "AuthenticationEnabled": False,
            "SyncStorageArea": synced, "StorageCompression": False, "KeepAlive": True, "TcpNoDelay": True,
        }
        path = folder / "orthanc.json"
        path.write_text(json.dumps(configuration))
        self.process = subprocess.Popen(["Orthanc", str(path)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(300):
            try:
                self.connect()
                self.ask("GET", "/system")
                return
            except OSError:
                time.sleep(0.1)
        raise SystemExit("bench: Orthanc doesn't answer")

    def connect(self):
        self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        self.connection.connect()
        self.connection.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def ask(self, method, path, body=None):
        self.connection.request(method, path, body)
        response = self.connection.getresponse()
        content = response.read()
        if response.status != 200:
            raise SystemExit(f"bench: {method} {path}: {response.status}")
        return content

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.connection.close()
        self.process.terminate()
        self.process.wait()


def timed(work):
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def median(work, runs=RUNS):
    return statistics.median([timed(work) for _ in range(runs + 1)][1:])


class Ours:
    """Our durable store into a file-set of as many objects, a turn at a time."""

    def __init__(self, programs, base, count):
        command = [programs / "disk_bench", "--folder", base, "--store-when-asked", str(count)]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def store(self):
        print(file=self.process.stdin, flush=True)
        return float(self.process.stdout.readline()) / 1e6

    def __enter__(self):
        self.store()  # when it is ready
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()


def objects(programs, folder, seed):
    """The bytes of all objects of one study, another one for each seed."""
    made = folder / "objects"
    subprocess.run([programs / "phantom", str(made), "--series", str(SERIES), "--images", str(IMAGES), "--size", "64", "--seed",
                    str(seed)], check=True, stdout=subprocess.DEVNULL)
    content = [path.read_bytes() for path in sorted(made.rglob("*.dcm"))]
    shutil.rmtree(made)
    return content


def questions(server, n):
    def find(level, query, answers):
        body = json.dumps({"Level": level, "Query": query, "Expand": True})
        found = json.loads(server.ask("POST", "/tools/find", body))
        assert len(found) == answers, (level, query, len(found))

    study = json.loads(server.ask("GET", "/studies?since=0&limit=1&expand"))[0]
    series = json.loads(server.ask("GET", f"/studies/{study['ID']}/series"))[0]
    image = json.loads(server.ask("GET", f"/series/{series['ID']}/instances"))[0]
    study_uid = study["MainDicomTags"]["StudyInstanceUID"]
    series_uid = series["MainDicomTags"]["SeriesInstanceUID"]
    image_uid = image["MainDicomTags"]["SOPInstanceUID"]
    for what, level, query, answers in (
        ("all studies", "Study", {"StudyInstanceUID": ""}, n // (SERIES * IMAGES)),
        ("one study", "Study", {"StudyInstanceUID": study_uid}, 1),
        ("images of a series", "Instance", {"SeriesInstanceUID": series_uid}, IMAGES),
        ("one image", "Instance", {"SOPInstanceUID": image_uid}, 1),
    ):
        report("query", what, "Orthanc", n, median(lambda: find(level, query, answers)))
    report("query", "nothing (a request)", "Orthanc", n, median(lambda: server.ask("GET", "/system")))


def post(server, content):
    return timed(lambda: server.ask("POST", "/instances", content))


def main():
    programs, base = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    points = {True: [1000, 5000, 20000], False: [1000]}
    if "--quick" in sys.argv:
        points = {True: [2000], False: []}
    step = SERIES * IMAGES
    for synced, counts in points.items():
        with tempfile.TemporaryDirectory(dir=base, prefix="disk_bench_") as place:
            folder = pathlib.Path(place)
            (folder / "store").mkdir()
            with Server(folder / "store", synced) as server:
                for study in range(1, max(counts, default=0) // step + 1):
                    contents = objects(programs, folder, study)
                    if study * step not in counts:
                        for content in contents:
                            post(server, content)
                        continue
                    with Ours(programs, base, study * step) as ours:
                        server.connect()  # it has given up the connection, which nothing was asked on meanwhile
                        turns = [(post(server, content), ours.store()) for content in contents]
                    theirs, own = (statistics.median(times) for times in zip(*turns))
                    who = "Orthanc, " + ("synced" if synced else "not synced")
                    report("store, peers", "objects", who, study * step, theirs)
                    if synced:
                        report("store, peers", "objects", "ours, in turns with it", study * step, own)
                if synced:
                    server.connect()  # as above, while ours was removed
                    questions(server, max(counts))


if __name__ == "__main__":
    main()
