"""Prints what bench.sh measured as one table, beside what is aimed at, draws the chart of rates by size, and writes
tables into the page of figures.

    bench_table.py FOLDER [--chart FILE.svg] [--page FILE.md]

FOLDER holds the JSON files of bench_peers. A missing file leaves out its rows.
"""
import argparse
import json
import pathlib

from bench_page import write_page
from bench_reports import OURS, Subject, divide, read_subjects


def list_rows(subjects):
    """(what, beside what, measured, aimed at): ratios above 1 are in favor of this library."""
    rows = []

    def add(name, what, beside, aim, value, form="{:.3f}"):
        subject = subjects.get(name)
        measured = value(subject) if subject else None
        if measured is not None:
            rows.append((f"{name}: {what}", beside, form.format(measured), aim))

    def add_rates(name, peers, threads=(1,)):
        for peer, aim in peers.items():
            for count in threads:
                add(name, f"rays, {count} thread{'s' * (count > 1)}", peer, aim,
                    lambda subject, peer=peer, count=count: subject.get_ratio(peer, count))

    meshes = {"bunny": ("1.0", "0.9"), "dragon": ("1.05", "1.0"), "terrain-8m": ("1.15", "1.0"),
              "speck-1m": ("1.0", ""), "needles-100k": ("1.0", "")}
    for name, (like, best) in meshes.items():
        add_rates(name, {"user-sse42": like, "user": best, "tri": "0.55"}, (1, 2))
        for count in (1, 2):
            add(name, f"build, {count} thread{'s' * (count > 1)}", "user-sse42", "1.5",
                lambda subject, count=count: subject.get_build_ratio("user-sse42", count))
        add(name, "build on two threads", "on one", "1.8",
            lambda subject: divide(subject.get_build(OURS, threads=2), subject.get_build(OURS, threads=1)))
        add(name, "bytes of the tree a triangle", "", "32" if name == "dragon" else "",
            lambda subject: subject.get_tree_bytes(), "{:.1f}")
        add(name, "bytes of its records a triangle", "", "",
            lambda subject: subject.get_memory()["record_bytes"], "{:.1f}")
    for name in ("bunny", "dragon"):
        add(name, "in a scene of one", "alone", "0.97",
            lambda subject: divide(1.0, subject.get_ratio("in-scene")))
        for samples in (2, 8):
            moving = f"{name}, {samples} motion samples"
            add_rates(moving, {"user-sse42": "1.1", "user": "1.0"})
            if name in subjects:
                still = subjects[name].get_mean_rate(OURS)
                add(moving, "rays", "static", "0.75",
                    lambda subject, still=still: divide(subject.get_mean_rate(OURS), still))
            add(moving, "refit", "build of user-sse42", "6",
                lambda subject: divide(subject.get_build(OURS, "refit"), subject.get_build("user-sse42")))
            add(moving, "bytes a triangle and sample", "", "45",
                lambda subject, samples=samples: subject.get_motion_bytes() / samples, "{:.1f}")
            add(moving, "bytes of its records a triangle", "", "",
                lambda subject: subject.get_memory()["record_bytes"], "{:.1f}")
    for name in ("swarm-10k", "giants-200"):
        for motion in ("", ", 2 motion samples"):
            add_rates(name + motion, {"user-sse42": "1.0"})
            add(name + motion, "rays, whole objects", "user-sse42", "1.0",
                lambda subject: subject.get_ratio("user-sse42", library="whole"))
    for name in ("bundle plants-200k", "bundle swarm-10k", "bundle giants-200"):
        for motion in ("", ", 2 motion samples"):
            add_rates(name + motion, {"user-sse42": ""})
            add(name + motion, "rays", "a scene of objects", "", lambda subject: subject.get_ratio("objects"))
        add(name, "bytes an instance", "", "", lambda subject: subject.get_tree_bytes(), "{:.0f}")
    add("swarm-10k", "build of the scene's tree, ms", "", "20", lambda subject: subject.get_build(OURS), "{:.1f}")
    add("swarm-10k", "its bytes, MB", "", "5", lambda subject: 1e-6 * subject.get_tree_bytes(), "{:.1f}")
    for name in ("fur-200k cubic", "fur-5m cubic"):
        add_rates(name, {"round-sse42": "1.1", "round": "0.8"})
        add(name, "build, 1 thread", "round", "1.0", lambda subject: subject.get_build_ratio("round"))
        add(name, "bytes of the tree a segment", "", "", lambda subject: subject.get_tree_bytes(), "{:.1f}")
        add(name, "bytes of its records a segment", "", "",
            lambda subject: subject.get_memory()["record_bytes"], "{:.1f}")
    return rows


def print_rows(rows):
    rows = [("", "beside", "measured", "aim")] + rows
    widths = [max(len(row[column]) for row in rows) for column in range(4)]
    for row in rows:
        print("  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip())


def draw_chart(subjects, path):
    """Rates and build rates of the terrains that were measured for it, by their number of triangles."""
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "vq_gas"  # the same figures, the same file
    from matplotlib import pyplot

    terrains = sorted((s for name, s in subjects.items()
                       if name.startswith("terrain-") and "shadow" not in s.get_sets()), key=Subject.get_count)
    figure, (rays, builds) = pyplot.subplots(1, 2, figsize=(9.6, 3.8), layout="constrained")
    for library, label, style in ((OURS, "this library", "o-"), ("user-sse42", "Embree, user geometry, SSE4.2", "s--"),
                                  ("tri", "Embree, own triangles, best", "^:")):
        counts = [subject.get_count() for subject in terrains]
        rays.plot(counts, [subject.get_mean_rate(library) for subject in terrains], style, label=label)
        builds.plot(counts, [subject.get_build(library) for subject in terrains], style, label=label)
    for axes, title in ((rays, "Million rays a second"), (builds, "Million triangles built a second")):
        axes.set(xscale="log", title=title, xlabel="triangles")
        axes.grid(True, which="both", alpha=0.25)
    rays.set_yscale("log")
    builds.set_ylim(bottom=0)
    rays.legend(fontsize=8)
    figure.savefig(path, metadata={"Date": None})
    print(f"\n{path}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--chart", type=pathlib.Path)
    parser.add_argument("--page", type=pathlib.Path)
    arguments = parser.parse_args()
    subjects, machine = read_subjects(arguments.folder)
    if not subjects:
        parser.error(f"{arguments.folder} holds no report of bench_peers")
    print(machine)
    rows = list_rows(subjects)
    print_rows(rows)
    (arguments.folder / "table.json").write_text(json.dumps(
        [dict(zip(("what", "beside", "measured", "aim"), row)) for row in rows], indent=1))
    if arguments.chart:
        draw_chart(subjects, arguments.chart)
    if arguments.page:
        write_page(arguments.page, machine, rows, subjects)


main()
