// Numbers in words and bars in SVG.

const formatCount = value => Math.round(value).toLocaleString("en-US").replace(/,/g, "\u202f");
function formatNumber(value, digits = 3) {
  if (value === 0) return "0";
  if (Math.abs(value) >= 1e5 || Math.abs(value) < 1e-3) return value.toExponential(digits - 1);
  return String(Number(value.toPrecision(digits)));
}
/** "1 polygon", "2 polygons"; "1 cluster of objects". */
const formatItems = (count, items) => `${formatCount(count)} ${count === 1 ? items.replace(/s( |$)/, "$1") : items}`;
function formatBytes(bytes) {
  if (bytes >= 1e6) return (bytes / 1e6).toFixed(2) + " MB";
  return bytes >= 1e3 ? (bytes / 1e3).toFixed(1) + " kB" : bytes + " B";
}
function formatSeconds(seconds) {
  return seconds >= 1 ? seconds.toFixed(2) + " s" : (1e3 * seconds).toFixed(seconds >= 0.01 ? 1 : 3) + " ms";
}

function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}
function svgElement(name, attributes = {}, text = "") {
  const made = document.createElementNS(document.getElementById("svg").namespaceURI, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.textContent = text;
  return made;
}

/**
 * A figure with one horizontal bar a row.
 * @param rows     [{label, parts: [{value, color, title}], text}]
 * @param largest  value of a full bar; that of both columns, so that bars can be compared
 */
function makeBars(title, caption, rows, largest) {
  const labelWidth = 16 + Math.max(24, ...rows.map(row => 6.1 * row.label.length));
  const rowHeight = 17, width = 420, textWidth = 92, barWidth = width - labelWidth - textWidth;
  const svg = svgElement("svg", {viewBox: `0 0 ${width} ${rows.length * rowHeight + 2}`, role: "img"});
  rows.forEach((row, k) => {
    const y = k * rowHeight;
    let x = labelWidth;
    svg.append(svgElement("text", {x: labelWidth - 8, y: y + 12, "text-anchor": "end", class: "soft"}, row.label));
    for (const part of row.parts) {
      const extent = largest > 0 ? barWidth * part.value / largest : 0;
      if (!(extent > 0)) continue;
      const bar = svgElement("rect", {x, y: y + 2, width: Math.max(extent, 0.75), height: rowHeight - 4,
                                      fill: `var(--${part.color})`});
      bar.append(svgElement("title", {}, part.title));
      svg.append(bar);
      x += extent;
    }
    svg.append(svgElement("text", {x: x + 5, y: y + 12}, row.text));
  });
  return element("figure", {}, element("h3", {}, title), svg, element("figcaption", {}, caption));
}

const sum = values => values.reduce((a, b) => a + b, 0);
const largestOf = (charts, get) => Math.max(0, ...charts.flatMap(get));

/** Rows of all charts of a column, by the name of the chart; a chart without rows is left out. */
function listCharts(column, tree) {
  const levels = tree.levels;
  const level = (k, rest) => `level ${k + 1}: ${rest}`;
  const one = (label, value, text, color, title) => ({label, parts: [{value, color, title}], text});
  const charts = {};
  charts.nodes = {
    title: "Nodes by level and kind", caption: "Number of nodes on each level. Level 1 is the root.",
    rows: levels.map((row, k) => ({
      label: String(k + 1), text: formatCount(sum(row.nodes)),
      parts: row.nodes.map((value, kind) => ({value, color: KINDS[kind],
        title: level(k, `${formatCount(value)} ${KIND_NAMES[KINDS[kind]]}`)}))}))};
  charts.overlap = {
    title: "Overlap of sibling boxes by level",
    caption: "Mean share of a box that lies in its siblings' boxes: 0 they are apart, 1 each point is in one more box.",
    rows: levels.flatMap((row, k) => row.overlap === null ? [] :
      [one(String(k + 1), row.overlap, formatNumber(row.overlap), "aligned", level(k, formatNumber(row.overlap, 6)))])};
  charts.cost = {
    title: "Surface-area cost by level",
    caption: `Expected tests by a random ray that hits the root's box; all levels: ${
      formatNumber(sum(levels.map(row => row.cost)), 4)} tests.`,
    rows: levels.map((row, k) => one(String(k + 1), row.cost, formatNumber(row.cost), "quantized",
                                     level(k, formatNumber(row.cost, 6) + " tests")))};
  charts.leaves = {
    title: "Leaf sizes", caption: `Leaves by the number of ${tree.items} in each.`,
    rows: tree.leaf_sizes.map(([size, count]) => one(String(size), count, formatCount(count), "leaf",
                                                     `${formatCount(count)} leaves of ${size}`))};
  if (tree.clusters) charts.clusters = {
    title: "Cluster sizes",
    caption: `${formatCount(tree.clusters.made)} clusters made of ${formatCount(tree.clusters.wanted)} asked for, by ${
      tree.items} in each.`,
    rows: tree.clusters.sizes.map(([size, count]) => {
      const range = size > 1 ? `${formatCount(size)}\u2013${formatCount(2 * size - 1)}` : String(size);
      return one(range, count, formatCount(count), "binary", `${formatCount(count)} clusters of ${range} ${tree.items}`);
    })};
  charts.memory = {
    title: "Memory by array", caption: `Together ${formatBytes(sum(tree.memory.map(row => row.bytes)))}, ${
      formatNumber(sum(tree.memory.map(row => row.bytes)) / Math.max(1, tree.item_count), 4)} bytes an item.`,
    rows: tree.memory.map(row => one(row.name, row.bytes, formatBytes(row.bytes), "oriented",
                                     `${row.name}: ${formatCount(row.bytes)} bytes`))};
  charts.stages = {
    title: "Build stages", caption: `All structures of the scene, ${column.threads} thread${
      column.threads === 1 ? "" : "s"}; whole build ${formatSeconds(column.build_seconds)}.`,
    rows: column.stages.map(([name, seconds]) => one(name, seconds, formatSeconds(seconds), "aligned",
                                                     `${name}: ${formatSeconds(seconds)}`))};
  return charts;
}
