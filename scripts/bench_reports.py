"""Reads what bench_peers wrote: one Subject for each mesh, groom, scene and bundle."""
import json
import math
import pathlib
import re

OURS = "vq_gas"
PRIMITIVES = ("triangles", "segments", "instances")


def divide(ours, other):
    """None if either was not measured."""
    return ours / other if ours and other else None


class Subject:
    """What bench_peers measured on one mesh, groom or scene."""

    def __init__(self, report):
        kind = next(kind for kind in ("mesh", "hair", "scene", "bundle") if kind in report)
        # Without the folder and the ending of a file, and what a scene is made of. A bundle and a scene may have one name.
        name = pathlib.PurePath(report[kind]).name.replace(".obj", "").replace(".ply", "").split(" of ")[0]
        name = re.sub(r"^[\w-]*(bunny|dragon)", r"\1", name)
        self.name = f"bundle {name}" if kind == "bundle" else name
        self.report = report

    def get_count(self):
        return self.report[self.get_primitives()]

    def get_primitives(self):
        """What it consists of."""
        return next(name for name in PRIMITIVES if name in self.report)

    def get_peers(self):
        return list(dict.fromkeys(row["library"] for row in self.report["traces"] if row["library"] != OURS))

    def get_sets(self):
        return list(dict.fromkeys(row["set"] for row in self.report["traces"]))

    def get_trace(self, library, ray_set, threads=1):
        """The row of one set of rays, or None."""
        return next((row for row in self.report["traces"]
                     if (row["library"], row["set"], row["threads"]) == (library, ray_set, threads)), None)

    def get_disagreements(self):
        """(rays whose hits or distances differ from those of a peer, most of any set and peer; rays of that set)"""
        return max(((row["disagree_hits"] + row["disagree_distances"], row["rays"])
                    for row in self.report["traces"] if "disagree_hits" in row), default=(0, 0))

    def get_mean_rate(self, library, threads=1):
        """Geometric mean of the median rates of all ray sets, in million rays a second."""
        rates = [row["mrays"]["median"] for row in self.report["traces"]
                 if row["library"] == library and row["threads"] == threads]
        return math.exp(sum(map(math.log, rates)) / len(rates)) if rates else None

    def get_ratio(self, peer, threads=1, library=OURS):
        """Of the rates: the mean of the ratios of each round; between two libraries, of the mean rates."""
        if library == OURS:
            return next((row["ratio"] for row in self.report["mean_ratios"]
                         if row["library"] == peer and row["threads"] == threads), None)
        return divide(self.get_mean_rate(library, threads), self.get_mean_rate(peer, threads))

    def get_build(self, library, what=None, threads=1):
        """The median: million primitives a second; for scenes milliseconds."""
        for row in self.report["builds"]:
            if (row["library"], row["threads"], row.get("what")) == (library, threads, what):
                return (row.get("mprims") or row["milliseconds"])["median"]
        return None

    def get_build_ratio(self, peer, threads=1):
        return divide(self.get_build(OURS, threads=threads), self.get_build(peer, threads=threads))

    def is_measured_whole(self):
        """Builds in milliseconds and bytes in all, not a primitive."""
        return any("milliseconds" in row for row in self.report["builds"])

    def get_memory(self, library=OURS):
        """{"tree_bytes", "total_bytes"}: a primitive's, for scenes all."""
        return next(row for row in self.report["memory"] if row["library"] == library)

    def get_tree_bytes(self):
        return self.get_memory()["tree_bytes"]

    def get_motion_bytes(self):
        memory = self.get_memory()
        return memory["total_bytes"] - memory["tree_bytes"] - memory["record_bytes"]


def read_subjects(folder):
    """Subjects by their name, and what they were measured on."""
    subjects, machine = {}, None
    for path in sorted(folder.glob("*.json")):
        report = json.loads(path.read_text())
        if "meshes" not in report:
            continue
        machine = (f'{report["processor"]}, {report["compiler"]}, {report["clock"]}, {report["rounds"]} rounds, '
                   f'{report["size"]}² primary rays')
        for entry in report["meshes"]:
            subject = Subject(entry)
            subjects[subject.name] = subject
    return subjects, machine
