// The page: columns, controls, lists.

const COLORINGS = {
  kind: {name: "kind of node"},
  overlap: {name: "overlap with siblings"},
  cost: {name: "surface-area cost"},
  clusters: {name: "clusters"},
  parts: {name: "parts built (grid)"},
};

class Column {
  constructor(data, page) {
    this.data = data;
    this.page = page;
    this.trees = new Map();
    this.canvas = element("canvas", {"aria-label": "Boxes of the tree over the geometry"});
    this.chooser = element("select", {class: "chooser"}, ...data.trees.map((tree, k) =>
      element("option", {value: k}, `${tree.kind}: ${tree.name} (${formatCount(tree.item_count)} ${tree.items})`)));
    this.status = element("p", {class: "status"});
    this.missing = element("p", {class: "missing"});
    this.visits = element("div", {class: "visits"});
    this.charts = element("div", {class: "charts"});
    const count = data.trees.length < data.tree_count ?
      ` (${data.trees.length} of ${formatCount(data.tree_count)} trees, some of each kind)` : "";
    this.root = element("article", {class: "column"},
      element("h2", {}, data.name + (data.settings ? ` (${data.settings})` : "")),
      element("label", {}, "Tree ", this.chooser, count),
      this.missing, element("div", {class: "view"}, this.canvas), this.status, this.visits, this.charts);
    this.view = new TreeView(this.canvas, page.camera);
    this.chooser.addEventListener("change", () => { this.choose(); page.update(); });
    addMouse(this, page);
  }

  treeData() { return this.data.trees[Number(this.chooser.value)]; }
  choose() {
    const number = this.chooser.value;
    if (!this.trees.has(number)) this.trees.set(number, new Tree(this.treeData()));
    this.tree = this.trees.get(number);
    this.view.setTree(this.tree);
    this.missing.textContent = describeShown(this.treeData(), this.tree);
    this.visits.replaceChildren("Click into the view to shoot a ray.");
    delete this.visits.dataset.hit;
  }

  updateLevel(level, coloring) {
    const shown = Math.min(level, this.tree.levelCount());
    this.largestCost = 0;
    for (let node = this.tree.levelFirst[shown - 1]; node < this.tree.levelFirst[shown]; ++node)
      this.largestCost = Math.max(this.largestCost, this.tree.cost(node));
    const boxes = this.view.setLevel(shown, node => this.colorOf(node, coloring));
    this.canvas.dataset.boxes = boxes;
    this.canvas.dataset.level = shown;
    const note = level > shown ? `, the deepest that the page has of this tree` : "";
    this.status.textContent = this.view.gl === null ? "This browser has no WebGL: there is no 3D view." :
      `Level ${shown}${note}: ${formatCount(boxes)} boxes drawn.`;
  }
  colorOf(node, coloring) {
    const tree = this.tree;
    if (coloring === "overlap") return rampColor(tree.overlap(node));
    if (coloring === "cost") {
      const cost = tree.cost(node);
      return rampColor(cost > 0 ? 1 + Math.log10(cost / this.largestCost) / 3 : 0);
    }
    if (coloring === "clusters")
      return tree.clusters[node] > 0 ? numberColor(tree.clusters[node]) : parseColor("leaf");
    if (coloring === "parts") return this.page.kindColors[tree.kind(node) === "unbuilt" ? "unbuilt" : "quantized"];
    return this.page.kindColors[tree.kind(node)];
  }

  shoot(x, y) {
    const ray = this.view.worldRay(this.page.camera.ray(x, y, this.canvas.clientWidth / this.canvas.clientHeight));
    const found = {ray, ...this.tree.trace(ray)};
    this.view.setVisits(found);
    this.listVisits(found);
  }

  listVisits({ray, visits, hit}) {
    const tree = this.tree, list = element("ol");
    const most = 2000;
    for (const visit of visits.slice(0, most)) {
      const node = visit.node, kind = tree.kind(node), items = formatItems(tree.items[node], this.treeData().items);
      const content = kind === "leaf" ? items + this.ownerText(node) : kind === "unbuilt" ? items :
        tree.isCut(node) ? `cut here, ${items} below` : `${tree.childCount(node)} children`;
      const row = element("li", {"data-node": node, "data-parent": visit.parent, "data-t": visit.t},
        `level ${tree.level(node)} \u00b7 ${KIND_NAMES[kind]} \u00b7 entered at ${formatNumber(visit.t, 5)} \u00b7 ${content}`);
      row.addEventListener("mouseenter", () => { this.view.setMarked(node); this.page.draw(); });
      row.addEventListener("mouseleave", () => { this.view.setMarked(null); this.page.draw(); });
      list.append(row);
    }
    this.visits.dataset.count = visits.length;
    this.visits.dataset.hit = hit === null ? "" : hit.primitive;
    this.visits.dataset.distance = hit === null ? "" : hit.t;
    this.visits.dataset.origin = ray.origin.join(",");
    this.visits.dataset.direction = ray.direction.join(",");
    const cut = visits.length > most ? ` (the first ${most} are listed)` : "";
    this.visits.replaceChildren(
      element("strong", {}, `Visited ${formatCount(visits.length)} nodes and leaves${cut}. `), this.describeHit(hit),
      this.traceText(ray), list);
  }
  ownerText(node) {
    const tree = this.tree, names = this.treeData().owner_names ?? [];
    if (tree.owners === null) return "";
    const owner = tree.owners[tree.firstItem[node]];
    return names[owner] ? `: ${names[owner]}` : `: number ${owner}`;
  }
  describeHit(hit) {
    const data = this.treeData(), geometry = data.geometry;
    if (data.kind === "points") return "Rays do not hit points, beams find them: there is no hit to show.";
    const among = geometry.stride > 1 ? ` among the ${formatCount(geometry.shown)} of ${formatCount(geometry.total)
      } primitives on the page` : "";
    const near = (data.is_displaced ? ", on the flat triangles between displaced corners" : "") +
      (hit !== null && hit.kind === "strands" ? ", on straight pieces of the curve" : "");
    if (hit === null) return `No hit${among}.`;
    return `Hit${among}: primitive ${hit.primitive} at ${formatNumber(hit.t, 6)}${near}.`;
  }
  traceText(ray) {
    if (!this.data.trace || !this.treeData().is_in_world || this.treeData().kind === "points") return "";
    const text = `vqgas trace ${this.data.trace} --ray=${[...ray.origin, ...ray.direction].join(",")}`;
    return element("div", {class: "trace"}, "The whole tree's answer: ", element("code", {}, text));
  }

  updateCharts(largest) {
    this.charts.replaceChildren(...Object.entries(listCharts(this.data, this.treeData()))
      .filter(([, chart]) => chart.rows.length > 0)
      .map(([name, chart]) => {
        const made = makeBars(chart.title, chart.caption, chart.rows, largest[name]);
        made.dataset.chart = name;
        return made;
      }));
  }
}

/** In words, what of a tree is on the page. */
function describeShown(data, tree) {
  const geometry = data.geometry, all = sum(data.levels.map(level => sum(level.nodes)));
  const levels = data.levels.length === data.shown_levels ? `all ${data.levels.length} levels` :
    `${data.shown_levels} of ${data.levels.length} levels (${formatCount(tree.count)} of ${formatCount(all)} nodes)`;
  const unit = data.is_over_objects ? "primitives" : data.items;
  const shown = geometry.stride === 1 ? `all ${formatCount(geometry.total)} ${unit}` :
    `${formatCount(geometry.shown)} of ${formatCount(geometry.total)} ${unit}`;
  const growth = geometry.stride > 1 && tree.triangles.count > 0 ?
    "; triangles are drawn larger than they are, so that the surface still shows" : "";
  const parts = data.parts ? ` ${formatCount(data.parts.built)} of ${formatCount(data.parts.all)
    } parts are built, those that a picture of 64 x 64 ${data.kind === "points" ? "beams" : "rays"} has reached.` : "";
  const rays = data.shown_levels < data.levels.length || geometry.stride > 1 ?
    " A click follows the ray through what is shown, not through the whole tree." :
    " A click follows the ray through the whole tree.";
  const owners = data.is_over_objects && tree.owners === null ? " Leaves do not name their objects; there is no hit." : "";
  return `Shown: ${levels}, ${shown}${growth}.${parts}${rays}${owners}`;
}

function addMouse(column, page) {
  const canvas = column.canvas;
  let last = null, moved = 0;
  const place = event => {
    const box = canvas.getBoundingClientRect();
    return [2 * (event.clientX - box.left) / box.width - 1, 1 - 2 * (event.clientY - box.top) / box.height];
  };
  canvas.addEventListener("contextmenu", event => event.preventDefault());
  canvas.addEventListener("pointerdown", event => {
    last = [event.clientX, event.clientY];
    moved = 0;
    canvas.setPointerCapture(event.pointerId);
  });
  canvas.addEventListener("pointermove", event => {
    if (last === null) return;
    const x = event.clientX - last[0], y = event.clientY - last[1], camera = page.camera;
    moved += Math.abs(x) + Math.abs(y);
    last = [event.clientX, event.clientY];
    if (moved < 4) return;
    if (event.shiftKey || event.buttons & 6) {
      const {right, up} = camera.axes(), unit = 2 * Camera.slope * camera.distance / canvas.clientHeight;
      camera.target = addScaled(addScaled(camera.target, right, -x * unit), up, y * unit);
    } else {
      camera.yaw -= 0.008 * x;
      camera.pitch = Math.min(1.55, Math.max(-1.55, camera.pitch + 0.008 * y));
    }
    page.draw();
  });
  canvas.addEventListener("pointerup", event => {
    if (last !== null && moved < 4 && event.button === 0) page.shoot(...place(event));
    last = null;
  });
  canvas.addEventListener("wheel", event => {
    event.preventDefault();
    page.camera.distance = Math.min(20, Math.max(0.01, page.camera.distance * Math.exp(0.001 * event.deltaY)));
    page.draw();
  }, {passive: false});
}

class Page {
  constructor(data) {
    this.camera = new Camera();
    this.readColors();
    this.level = document.getElementById("level");
    this.color = document.getElementById("color");
    this.columns = data.columns.map(column => new Column(column, this));
    document.getElementById("heading").textContent = data.columns.map(column => column.name).join(" | ");
    document.getElementById("intro").textContent = data.columns.length > 1 ?
      "Two builds side by side. The views share the camera, the level and the colors; charts of one kind share a scale." :
      "The acceleration structures of one scene.";
    document.getElementById("columns").append(...this.columns.map(column => column.root));
    for (const [name, coloring] of Object.entries(COLORINGS))
      if (this.canColor(name)) this.color.append(element("option", {value: name}, coloring.name));
    for (const input of [this.level, this.color]) input.addEventListener("input", () => this.updateBoxes());
    for (const name of ["show-geometry", "show-boxes"])
      document.getElementById(name).addEventListener("input", () => this.draw());
    document.getElementById("reset").addEventListener("click", () => { this.camera.reset(); this.draw(); });
    window.addEventListener("resize", () => this.draw());
    window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      this.readColors();
      this.columns.forEach(column => column.view.setTree(column.tree));
      this.update();
    });
    this.columns.forEach(column => column.choose());
    this.level.value = 4;
    this.update();
  }
  readColors() { this.kindColors = Object.fromEntries(KINDS.map(kind => [kind, parseColor(kind)])); }
  canColor(name) {
    const trees = this.columns.flatMap(column => column.data.trees);
    return name === "clusters" ? trees.some(tree => tree.clusters) : name !== "parts" || trees.some(tree => tree.parts);
  }

  update() {
    const wanted = this.level.dataset.ready ? Number(this.level.value) : 5;
    this.level.max = Math.max(...this.columns.map(column => column.tree.levelCount()));
    this.level.value = Math.min(wanted, this.level.max);
    this.level.dataset.ready = "yes";
    this.updateBoxes();
    const all = this.columns.map(column => listCharts(column.data, column.treeData()));
    const largest = {};
    for (const chart of all.flatMap(charts => Object.entries(charts)))
      largest[chart[0]] = Math.max(largest[chart[0]] ?? 0,
                                   ...chart[1].rows.map(row => sum(row.parts.map(part => part.value))));
    this.columns.forEach(column => column.updateCharts(largest));
    this.updateFacts();
  }
  updateBoxes() {
    const level = Number(this.level.value);
    document.getElementById("level-text").textContent = `${level} of ${
      Math.max(...this.columns.map(column => column.treeData().levels.length))}`;
    this.columns.forEach(column => column.updateLevel(level, this.color.value));
    this.updateLegend();
    this.draw();
  }
  draw() {
    if (this.isDrawing) return;
    this.isDrawing = true;
    requestAnimationFrame(() => {
      this.isDrawing = false;
      const shows = {geometry: document.getElementById("show-geometry").checked,
                     boxes: document.getElementById("show-boxes").checked};
      this.columns.forEach(column => column.view.draw(shows));
    });
  }
  shoot(x, y) {
    this.columns.forEach(column => column.shoot(x, y));
    this.draw();
  }

  updateLegend() {
    const swatch = (color, text) => element("span", {}, element("i", {style: `background: ${color}`}), text);
    const ramp = "linear-gradient(90deg, " + [0, 1, 2, 3].map(k =>
      `rgb(${rampColor(k / 3).map(v => Math.round(255 * v)).join(" ")})`).join(", ") + ")";
    const scale = text => element("span", {}, element("i", {class: "ramp", style: `background: ${ramp}`}), text);
    const present = new Set(this.columns.flatMap(column => column.treeData().levels.flatMap(level =>
      KINDS.filter((kind, k) => level.nodes[k] > 0))));
    const legends = {
      kind: () => KINDS.filter(kind => present.has(kind)).map(kind => swatch(`var(--${kind})`, KIND_NAMES[kind])),
      overlap: () => [scale("0 to 1: share of the box inside its siblings")],
      cost: () => [scale(`0.001 to 1 of the largest on the level: ${
        this.columns.map(column => formatNumber(column.largestCost)).join(" | ")} tests`)],
      clusters: () => [swatch("linear-gradient(90deg, #d55, #5b5, #55d)", "a color a cluster"),
                       swatch("var(--leaf)", "above the clusters")],
      parts: () => [swatch("var(--quantized)", "built, or above the parts"), swatch("var(--unbuilt)", "not built")],
    };
    document.getElementById("legend").replaceChildren(...legends[this.color.value]());
  }

  updateFacts() {
    const rows = this.columns.map(column => listFacts(column.data, column.treeData()));
    const names = [...new Set(rows.flatMap(facts => [...facts.keys()]))];
    document.getElementById("facts").replaceChildren(
      element("thead", {}, element("tr", {}, element("th"), ...this.columns.map(column =>
        element("th", {}, column.data.name + (column.data.settings ? ` (${column.data.settings})` : ""))))),
      element("tbody", {}, ...names.map(name => element("tr", {}, element("th", {}, name),
        ...rows.map(facts => element("td", {}, facts.get(name) ?? "\u2013"))))));
  }
}

/** Rows of the table; a row that a tree does not have is left out. */
function listFacts(column, tree) {
  const facts = new Map(), total = kind => sum(tree.levels.map(level => level.nodes[KINDS.indexOf(kind)]));
  const bytes = sum(tree.memory.map(row => row.bytes));
  facts.set("tree", `${tree.kind}: ${tree.name}`);
  facts.set(`items`, `${formatCount(tree.item_count)} ${tree.items}`);
  facts.set("levels", String(tree.levels.length));
  for (const kind of KINDS) {
    const name = {leaf: "leaves", unbuilt: "parts not built"}[kind] ?? `nodes, ${KIND_NAMES[kind]}`;
    if (total(kind) > 0) facts.set(name, formatCount(total(kind)));
  }
  const inner = sum(["aligned", "quantized", "oriented", "binary"].map(total));
  if (inner > 0) facts.set("children per node",
                           ((inner + total("leaf") + total("unbuilt") - 1) / inner).toFixed(3));
  facts.set("surface-area cost", formatNumber(sum(tree.levels.map(level => level.cost)), 5) + " tests" +
    (total("unbuilt") > 0 ? ", parts not built count 1" : ""));
  if (tree.parts) facts.set("parts built", `${formatCount(tree.parts.built)} of ${formatCount(tree.parts.all)}`);
  if (tree.clusters) facts.set("clusters made", formatCount(tree.clusters.made));
  facts.set("memory", formatBytes(bytes));
  facts.set("memory per item", formatNumber(bytes / Math.max(1, tree.item_count), 4) + " B");
  facts.set("primitives in the scene", formatCount(column.kept));
  facts.set("whole build", `${formatSeconds(column.build_seconds)} on ${column.threads} thread${
    column.threads === 1 ? "" : "s"}`);
  return facts;
}

new Page(JSON.parse(document.getElementById("data").textContent));
