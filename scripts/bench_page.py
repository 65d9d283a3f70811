"""Writes the measured figures into the page between two marks, as tables of Markdown."""
from bench_reports import OURS

BEGIN, END = "<!-- scripts/bench.sh writes what follows -->", "<!-- scripts/bench.sh ends here -->"

ABOUT_RATES = """\
Million rays a second, then the ratio to each peer of the second column. *Spread*: largest less least round, the largest
of the four sets. *Disagree*: rays whose hit or distance differs from a peer's, the most of any set."""
ABOUT_BUILDS = """\
Million primitives or instances a second and bytes each; for scenes milliseconds and bytes in all. Of scenes *all*
includes the structures of the objects, of moving subjects the samples."""


def make_table(rows):
    """The first row is the head."""
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join([lines[0], "|---" * len(rows[0]) + "|", *lines[1:]])


def format_count(count):
    return f"{count:,}".replace(",", " ")


def list_rates(subjects):
    """One thread: this library's rates, then the ratio to each peer."""
    sets = ("primary", "bounce", "random", "shadow")
    rows = [("Mrays/s, and ratio to", "peers", *sets, "spread", "disagree")]
    for name, subject in subjects.items():
        peers = subject.get_peers()
        cells, spreads = [], []
        for ray_set in sets:
            ours = subject.get_trace(OURS, ray_set)
            if ours is None:
                cells.append("")
                continue
            rate = ours["mrays"]
            spreads.append((rate["most"] - rate["least"]) / rate["median"])
            ratios = [f'{subject.get_trace(peer, ray_set)["ratio"]:.2f}' for peer in peers]
            cells.append(f'{rate["median"]:.3g}: ' + ", ".join(ratios))
        if not spreads:
            continue
        differ, rays = subject.get_disagreements()
        count = f"{format_count(subject.get_count())} {subject.get_primitives()}"
        rows.append((f"{name}, {count}", ", ".join(f"`{peer}`" for peer in peers), *cells, f"{100 * max(spreads):.0f} %",
                     f"{differ} of {format_count(rays)}" if differ else "none"))
    return rows


def list_builds(subjects):
    """One thread; million primitives a second, and bytes a primitive. Scenes: milliseconds and bytes in all."""
    rows = [("", "build", "peers", "bytes, tree and all", "peers, all")]
    for name, subject in subjects.items():
        build, memory, peers = subject.get_build(OURS), subject.get_memory(), subject.get_peers()
        if build is None:
            continue
        unit = " ms" if subject.is_measured_whole() else " M/s"
        builds = ((peer, subject.get_build(peer)) for peer in peers)
        rows.append((name, f"{build:.3g}{unit}", ", ".join(f"`{peer}` {value:.3g}" for peer, value in builds if value),
                     f'{format_bytes(memory["tree_bytes"])}, {format_bytes(memory["total_bytes"])}',
                     ", ".join(f'`{peer}` {format_bytes(subject.get_memory(peer)["total_bytes"])}' for peer in peers)))
    return rows


def format_bytes(count):
    return f"{count:.1f}" if count < 1000 else format_count(round(count))


def write_page(path, machine, rows, subjects):
    text = path.read_text()
    before, rest = text.split(BEGIN)
    after = rest.split(END)[1]
    parts = (f"Measured on: {machine}.", make_table([("", "beside", "measured", "aim"), *rows]),
             "### Rates of each set of rays, one thread", ABOUT_RATES, make_table(list_rates(subjects)),
             "### Builds and memory, one thread", ABOUT_BUILDS, make_table(list_builds(subjects)))
    path.write_text(f"{before}{BEGIN}\n\n" + "\n\n".join(parts) + f"\n\n{END}{after}")
