"""Pages of `vqgas report` in a real browser:  report_page_test.py VQGAS

The page's own code is compared with other answers: the statistics of `vqgas info`, the hits of `vqgas trace`, and a
plain reading of the page's arrays. Ends with status 77 where the machine has no browser.
"""
import array
import base64
import csv
import json
import math
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

from browser import Browser

LEAF, BINARY, ORIENTED = 3, 4, 0x80
ARROW_LEFT, ARROW_RIGHT = "\ue012", "\ue014"


def make_torus(rings, sides):
    """Triangles with bumps, as an OBJ file; unequal, so that overlaps and costs differ from box to box."""
    lines = []
    for ring in range(rings):
        for side in range(sides):
            a, b = 2 * math.pi * ring / rings, 2 * math.pi * side / sides
            r = 0.4 + 0.1 * math.sin(5 * a) * math.cos(3 * b)
            lines.append(f"v {(1 + r * math.cos(b)) * math.cos(a)} {r * math.sin(b)} {(1 + r * math.cos(b)) * math.sin(a)}")
    number = lambda ring, side: 1 + ring % rings * sides + side % sides
    for ring in range(rings):
        for side in range(sides):
            a, b, c, d = number(ring, side), number(ring + 1, side), number(ring + 1, side + 1), number(ring, side + 1)
            lines += [f"f {a} {d} {c}", f"f {a} {c} {b}"]
    return "\n".join(lines) + "\n"


class Tree:
    """The arrays of one tree on a page."""

    def __init__(self, data):
        self.data, nodes = data, data["nodes"]
        read = lambda text, kind: array.array(kind, base64.b64decode(text))
        self.kinds, self.items = read(nodes["kinds"], "B"), read(nodes["items"], "I")
        self.overlaps = [v / nodes["overlap_unit"] for v in read(nodes["overlaps"], "H")]
        self.clusters = read(nodes["clusters"], "H")
        flat = read(nodes["boxes"], "f")
        self.boxes = [flat[k:k + 6] for k in range(0, len(flat), 6)]
        self.places = read(data["geometry"]["triangles"]["places"], "I")
        self.level, self.children, self.first = [0] * len(self.kinds), {}, [0] * len(self.kinds)
        end = 1
        for node, kind in enumerate(self.kinds):
            self.children[node] = range(end, end + (kind >> 3 & 7))
            item = self.first[node]
            for child in self.children[node]:
                self.level[child], self.first[child] = self.level[node] + 1, item
                item += self.items[child]
            end += kind >> 3 & 7

    def share(self, a, b):
        """Of the box of node a in that of node b."""
        share = 1
        for axis in range(3):
            low, high = self.boxes[a][axis], self.boxes[a][axis + 3]
            common = min(high, self.boxes[b][axis + 3]) - max(low, self.boxes[b][axis])
            if common < 0:
                return 0
            share *= min(common / (high - low), 1) if high > low else 1
        return share

    def enter(self, node, origin, direction):
        near, far = 0, math.inf
        for o, d, low, high in zip(origin, direction, self.boxes[node][:3], self.boxes[node][3:]):
            near, far = max(near, min((low - o) / d, (high - o) / d)), min(far, max((low - o) / d, (high - o) / d))
        return near if near <= far else None


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.browser = cls.enterClassContext(Browser(1100, 1500))
        # A name that would end the page's title and script, and start an element of its own.
        cls.name = "a</title></script><img src=x onerror=alert(1)>.obj"
        (cls.folder / cls.name).parent.mkdir(parents=True)
        (cls.folder / cls.name).write_text(make_torus(60, 24))

    def run_program(self, *arguments):
        return subprocess.run([program, *arguments], cwd=self.folder, capture_output=True, text=True, check=True).stdout

    def open_report(self, *arguments):
        """Writes a page and opens it. Returns its data, as columns."""
        page = self.folder / "page.html"
        self.run_program("report", *arguments, "--quiet", "-o", page.name)
        text = page.read_text()
        self.assertNotRegex(text, "https?:")
        self.browser.open(page)
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').map(entry => entry.name)"), [])
        self.assertEqual(self.browser.console(), [])
        return json.loads(re.search('<script id="data"[^>]*>(.*?)</script>', text)[1])["columns"]

    def settle(self):
        self.browser.call("POST", "/execute/async", {"script": "const done = arguments[0];"
                          "requestAnimationFrame(() => requestAnimationFrame(done))", "args": []})

    def set_level(self, level):
        slider = self.browser.find("#level")
        now = int(self.browser.run("return arguments[0].value", {"element-6066-11e4-a52e-4f735466cecf": slider}))
        if level != now:
            self.browser.type_keys(slider, (ARROW_RIGHT if level > now else ARROW_LEFT) * abs(level - now))
        self.settle()

    def test_levels_and_colors_show_what_the_tree_has(self):
        trees = [Tree(column["trees"][0]) for column in self.open_report(self.name, "--with-structure", "grid")]
        self.assertEqual(self.browser.run("return document.querySelector('h1').textContent"), f"{self.name} | {self.name}")
        self.assertEqual(self.browser.run("return [document.title, document.images.length]"),
                         [f"{self.name} | {self.name}", 0])
        info = json.loads(self.run_program("info", self.name, "--quiet", "--json", "-"))[0]
        levels = trees[0].data["levels"]
        for number, kind in enumerate(("aligned", "quantized", "oriented")):
            self.assertEqual(sum(level["nodes"][number] for level in levels), info["nodes"][kind])
        self.assertEqual(sum(level["nodes"][LEAF] for level in levels), info["leaves"])
        self.assertEqual(len(levels), info["depth"] + 1)
        self.assertAlmostEqual(sum(level["cost"] for level in levels), info["surface_area_cost"], places=6)
        self.assertEqual(sum(row["bytes"] for row in trees[0].data["memory"]), info["bytes"])
        canvases, former = [self.browser.find("canvas", k) for k in (0, 1)], None
        for level in range(1, 1 + max(len(tree.data["levels"]) for tree in trees)):
            self.set_level(level)
            for k, tree in enumerate(trees):
                own = min(level, len(tree.data["levels"]))
                drawn = self.browser.run("return document.querySelectorAll('canvas')[arguments[0]].dataset.boxes", k)
                self.assertEqual(int(drawn), sum(tree.data["levels"][own - 1]["nodes"]), f"column {k}, level {own}")
            if level > len(levels):
                continue
            image = self.browser.screenshot(canvases[0])
            self.assertTrue(image != former, f"level {level} shows the same as the one before")
            former = image
        self.check_overlaps(trees[0])
        self.check_colors(canvases[0])

    def check_overlaps(self, tree):
        sums = [[] for _ in tree.data["levels"]]
        for children in tree.children.values():
            for child in children:
                overlap = sum(tree.share(child, other) for other in children if other != child)
                self.assertAlmostEqual(tree.overlaps[child], overlap, delta=1e-4)
                sums[tree.level[child]].append(overlap)
        for level, overlaps in zip(tree.data["levels"][1:], sums[1:]):
            self.assertAlmostEqual(level["overlap"], sum(overlaps) / len(overlaps), places=5)
        sizes = {}
        for node, kind in enumerate(tree.kinds):
            if kind & 7 == LEAF:
                sizes[tree.clusters[node]] = sizes.get(tree.clusters[node], 0) + tree.items[node]
        self.assertNotIn(0, sizes, "each leaf is in a cluster")
        self.assertEqual(len(sizes), tree.data["clusters"]["made"])

    def check_colors(self, canvas):
        """The root's box alone on the canvas: its edges have the color that its values call for."""
        self.set_level(1)
        self.browser.type_keys(self.browser.find("#show-geometry"), " ")
        chosen = self.browser.find("#color")
        # Kind: aligned. Overlap: 0, no siblings. Cost: the largest on its level. Cluster: above all. Parts: built.
        for expected in ((63, 116, 184), (59, 112, 184), (204, 51, 46), (139, 146, 155), (42, 143, 130)):
            self.settle()
            near = [p for row in self.browser.pixels(canvas) for p in row if math.dist(p, expected) < 45]
            self.assertGreater(len(near), 300, f"edges of color {expected}")
            self.browser.type_keys(chosen, "\ue015")
        self.browser.type_keys(self.browser.find("#show-geometry"), " ")

    def test_a_click_follows_the_ray_as_the_library_does(self):
        columns = self.open_report(self.name, "--with-structure", "grid")
        trees = [Tree(column["trees"][0]) for column in columns]
        self.browser.drag(self.browser.find("canvas"), 60, 40)
        hits, ties = 0, [0, 0]
        for x, y in ((0, 0), (60, 10), (-70, 25), (30, -45), (-100, -30), (90, 60), (150, 190), (1, 2), (70, -60)):
            if x == 1:  # from here on the camera is inside of many boxes, which the ray enters at one distance
                self.browser.wheel(self.browser.find("canvas"), -1000)
            self.browser.click(self.browser.find("canvas"), x, y)
            for k, tree in enumerate(trees):
                found = self.browser.run("""
                    const visits = document.querySelectorAll('.visits')[arguments[0]];
                    return {...visits.dataset, trace: visits.querySelector('code').textContent,
                            rows: [...visits.querySelectorAll('li')].map(row => ({...row.dataset}))};""", k)
                answer = self.run_program(*shlex.split(found["trace"])[1:], "--quiet")
                row = next(csv.DictReader(answer.splitlines()))
                self.assertEqual(found["hit"], row["primitive"], found["trace"])
                if row["distance"]:
                    hits += 1
                    self.assertAlmostEqual(float(found["distance"]), float(row["distance"]), places=5)
                ties[k] += self.check_visits(tree, found, float(row["distance"] or math.inf))
        self.assertGreater(hits, 6)
        self.assertGreater(min(ties), 0)

    def check_visits(self, tree, found, limit):
        """Nearer children first, each after its parent, and none left out that the ray enters before its hit."""
        origin, direction = ([float(v) for v in found[key].split(",")] for key in ("origin", "direction"))
        rows = [(int(row["node"]), int(row["parent"]), float(row["t"])) for row in found["rows"]]
        self.assertEqual(rows[0][:2], (0, -1))
        self.assertEqual(len(rows), int(found["count"]))
        place = {node: k for k, (node, _, _) in enumerate(rows)}
        last, ties = {}, set()
        for node, parent, t in rows[1:]:
            self.assertIn(node, tree.children[parent])
            self.assertLess(place[parent], place[node])
            self.assertAlmostEqual(t, tree.enter(node, origin, direction), places=9)
            # Of two at one distance: in four-wide nodes the later lane first, in two-wide nodes the earlier one.
            order = t, node if tree.kinds[parent] & 7 == BINARY else -node
            self.assertLess(last.get(parent, (-1,)), order, "siblings from near to far")
            ties.update([parent] if last.get(parent, (-1,))[0] == t else [])
            last[parent] = order
        for node, _, _ in rows:
            # Depth first: a subtree is complete before the next sibling.
            below = [k for k, (other, _, _) in enumerate(rows) if self.is_below(tree, other, node)]
            self.assertEqual(below, list(range(place[node], place[node] + len(below))))
            for child in tree.children[node]:
                t = tree.enter(child, origin, direction)
                if t is not None and t < limit - 1e-9:
                    self.assertIn(child, place)
        return len(ties)

    def is_below(self, tree, node, above):
        while node > above:
            node = next(parent for parent in range(node) if node in tree.children[parent])
        return node == above

    def test_large_trees_are_thinned_and_the_page_says_so(self):
        columns = self.open_report("demo:knot", "--size-limit", "1")
        tree = Tree(columns[0]["trees"][0])
        shown, levels = tree.data["shown_levels"], tree.data["levels"]
        self.assertLess((self.folder / "page.html").stat().st_size, 1e6)
        self.assertEqual([sum(level["nodes"]) for level in levels[:shown]],
                         [tree.level.count(level) for level in range(shown)])
        text = self.browser.run("return document.querySelector('.missing').textContent").replace("\u202f", "")
        geometry = tree.data["geometry"]
        self.assertIn(f"{shown} of {len(levels)} levels", text)
        self.assertIn(f"{geometry['shown']} of 43200 polygons", text)
        # Without a diff, which would take minutes.
        self.assertTrue(sorted(set(tree.places)) == list(range(0, 43200, geometry["stride"])), "one in so many polygons")
        self.check_places(tree, "triangles", (0, 3, 6))

    def check_places(self, tree, name, points):
        """Each piece of geometry is in the box of the deepest node on the page that has its place."""
        pieces = tree.data["geometry"][name]
        values, places = (array.array(kind, base64.b64decode(pieces[key]))
                          for key, kind in (("values", "f"), ("places", "I")))
        each, at = len(values) // len(places), 0
        deepest = [node for node in range(len(tree.kinds)) if not tree.children[node]]
        for node in sorted(deepest, key=lambda node: tree.first[node]):
            low, high = tree.boxes[node][:3], tree.boxes[node][3:]
            while at < len(places) and places[at] < tree.first[node] + tree.items[node]:
                for point in points:
                    position = values[each * at + point:each * at + point + 3]
                    self.assertTrue(all(a - 1e-6 <= v <= b + 1e-6 for a, v, b in zip(low, position, high)),
                                    f"{name} {at} is outside of node {node}")
                at += 1
        self.assertEqual(at, len(places))

    def test_scenes_of_every_kind_and_size_open(self):
        triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"
        (self.folder / "one.obj").write_text(triangle)
        (self.folder / "ten.obj").write_text("".join(
            triangle.replace("v 0", f"v {2 * k}").replace("v 1", f"v {2 * k + 1}").replace("1 2 3", "-3 -2 -1")
            for k in range(10)))
        (self.folder / "hair.curves").write_text("\n".join(
            "\n".join(f"{0.1 * strand} {0.3 * k} {0.02 * k * k} 0.02" for k in range(6)) + "\n" for strand in range(9)))
        for name, kinds in (("one.obj", ["mesh"]), ("ten.obj", ["mesh"]), ("hair.curves", ["hair"]),
                            ("demo:snow", ["scene", "group", "bundle", "mesh", "points"])):
            columns = self.open_report(name, "--bundle", "--size-limit", "3")
            self.assertLess((self.folder / "page.html").stat().st_size, 3e6)
            found = [tree["kind"] for tree in columns[0]["trees"]]
            if name == "hair.curves":
                tree = Tree(columns[0]["trees"][0])
                self.assertTrue(any(kind & ORIENTED for kind in tree.kinds))
                self.check_places(tree, "strands", (0, 4))
            for kind in kinds:
                self.assertIn(kind, found, name)
            for number in sorted({found.index(kind) for kind in kinds}):
                self.browser.run("const chooser = document.querySelector('.chooser'); chooser.value = arguments[0];"
                                 "chooser.dispatchEvent(new Event('change'))", number)
                self.browser.click(self.browser.find("canvas"))
                listed = self.browser.run("return document.querySelectorAll('.visits li').length")
                self.assertGreaterEqual(listed, 1, f"{name}: tree {number}")
            self.assertEqual(self.browser.console(), [], name)

    def test_ten_million_points_fit_the_page(self):
        self.run_program("report", "demo:galaxy", "--quiet", "-o", "galaxy.html")
        self.assertLess((self.folder / "galaxy.html").stat().st_size, 20e6)


if __name__ == "__main__":
    for tool in ("chromedriver", "chromium"):
        if shutil.which(tool) is None:
            print(f"SKIPPED: {tool} is missing (scripts/install_packages.sh tests installs it)")
            sys.exit(77)
    program = str(pathlib.Path(sys.argv.pop(1)).resolve())
    unittest.main(verbosity=2)
