// A tree as the page holds it: the upper levels, with part of the geometry. No drawing here.

function decodeArray(text, ArrayType) {
  const letters = atob(text);
  const bytes = new Uint8Array(letters.length);
  for (let k = 0; k < letters.length; ++k) bytes[k] = letters.charCodeAt(k);
  return new ArrayType(bytes.buffer);
}

const KINDS = ["aligned", "quantized", "oriented", "leaf", "binary", "unbuilt"];
const KIND_NAMES = {aligned: "aligned (float)", quantized: "quantized (8 bit)", oriented: "oriented", leaf: "leaf",
                    binary: "two-wide (grid)", unbuilt: "part not built"};

const subtract = (a, b) => [a[0] - b[0], a[1] - b[1], a[2] - b[2]];
const addScaled = (a, b, s) => [a[0] + b[0] * s, a[1] + b[1] * s, a[2] + b[2] * s];
const cross = (a, b) => [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const lengthOf = a => Math.sqrt(dot(a, a));

/** Triangles, pieces of hair or points. Those of a range of places are consecutive. */
class Pieces {
  constructor(data, valuesEach) {
    this.each = valuesEach;
    this.values = decodeArray(data.values, Float32Array);
    this.places = decodeArray(data.places, Uint32Array);
    this.primitives = decodeArray(data.primitives, Uint32Array);
    this.count = this.places.length;
  }
  /** Index of the first piece whose place is not below `place`. */
  find(place) {
    let low = 0, high = this.count;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (this.places[middle] < place) low = middle + 1; else high = middle;
    }
    return low;
  }
  point(piece, corner, stride) {
    const at = piece * this.each + corner * stride;
    return [this.values[at], this.values[at + 1], this.values[at + 2]];
  }
}

class Tree {
  constructor(data) {
    this.data = data;
    const nodes = data.nodes;
    this.kinds = decodeArray(nodes.kinds, Uint8Array);
    this.boxes = decodeArray(nodes.boxes, Float32Array);
    this.frames = decodeArray(nodes.frames, Float32Array);
    this.items = decodeArray(nodes.items, Uint32Array);
    this.overlaps = decodeArray(nodes.overlaps, Uint16Array);
    this.clusters = decodeArray(nodes.clusters, Uint16Array);
    this.owners = data.owners ? decodeArray(data.owners, Uint32Array) : null;
    this.count = this.kinds.length;
    this.triangles = new Pieces(data.geometry.triangles, 9);
    this.strands = new Pieces(data.geometry.strands, 8);
    this.points = new Pieces(data.geometry.points, 4);
    this.link();
  }

  /** The children of a node are consecutive, and the levels follow each other. */
  link() {
    this.levelFirst = [0];
    this.firstChild = new Uint32Array(this.count);
    this.firstItem = new Uint32Array(this.count);
    this.frameOf = new Uint32Array(this.count);
    let frames = 0, next = 1, levelEnd = 1;
    for (let node = 0; node < this.count; ++node) {
      if (node === levelEnd) {
        this.levelFirst.push(node);
        levelEnd = next;
      }
      if (this.isOriented(node)) this.frameOf[node] = frames++;
      this.firstChild[node] = next;
      let item = this.firstItem[node];
      for (let k = 0; k < this.childCount(node); ++k, ++next) {
        this.firstItem[next] = item;
        item += this.items[next];
      }
    }
    this.levelFirst.push(this.count);
  }

  kind(node) { return KINDS[this.kinds[node] & 7]; }
  childCount(node) { return this.kinds[node] >> 3 & 7; }
  isCut(node) { return (this.kinds[node] & 0x40) !== 0; }
  isOriented(node) { return (this.kinds[node] & 0x80) !== 0; }
  levelCount() { return this.levelFirst.length - 1; }
  level(node) {
    let level = 1;
    while (node >= this.levelFirst[level]) ++level;
    return level;
  }
  overlap(node) { return this.overlaps[node] / this.data.nodes.overlap_unit; }

  /** One corner and the three edges that meet there. */
  frame(node) {
    if (this.isOriented(node)) {
      const f = this.frames.subarray(12 * this.frameOf[node], 12 * this.frameOf[node] + 12);
      return [[f[0], f[1], f[2]], [f[3], f[4], f[5]], [f[6], f[7], f[8]], [f[9], f[10], f[11]]];
    }
    const b = this.boxes.subarray(6 * node, 6 * node + 6);
    return [[b[0], b[1], b[2]], [b[3] - b[0], 0, 0], [0, b[4] - b[1], 0], [0, 0, b[5] - b[2]]];
  }
  halfArea(node) {
    const [, a, b, c] = this.frame(node);
    return lengthOf(cross(a, b)) + lengthOf(cross(b, c)) + lengthOf(cross(c, a));
  }
  /** Share of the surface-area cost: expected tests by a random ray that hits the root's box. */
  cost(node) {
    const root = this.halfArea(0);
    const chance = root > 0 ? this.halfArea(node) / root : 1;
    return this.kind(node) === "leaf" ? chance * this.items[node] : chance;
  }

  /** Distance at which a ray enters a node's box; infinite when it misses. */
  enter(node, ray, limit) {
    const [origin, ...edges] = this.frame(node);
    let near = 0, far = limit;
    if (this.isOriented(node)) {
      const normals = [cross(edges[1], edges[2]), cross(edges[2], edges[0]), cross(edges[0], edges[1])];
      const volume = dot(edges[0], normals[0]), from = subtract(ray.origin, origin);
      for (const normal of normals) {
        const start = dot(from, normal) / volume, step = dot(ray.direction, normal) / volume;
        [near, far] = cutSlab(start, step, 0, 1, near, far);
      }
    } else {
      for (let axis = 0; axis < 3; ++axis)
        [near, far] = cutSlab(ray.origin[axis], ray.direction[axis], this.boxes[6 * node + axis],
                              this.boxes[6 * node + 3 + axis], near, far);
    }
    return near <= far ? near : Infinity;
  }

  /**
   * Follows a ray through the levels that the page has, nearer children first; of two at one distance the later lane
   * of a four-wide node, the earlier one of a two-wide node, as the library does. The root is visited also when the
   * ray misses its box.
   * @returns {visits: [{node, t, parent}], hit: null or {t, kind, piece}}
   */
  trace(ray) {
    const visits = [], stack = [{node: 0, t: 0, parent: -1}];
    let hit = null;
    while (stack.length > 0) {
      const at = stack.pop();
      if (hit !== null && at.t > hit.t) continue;
      visits.push(at);
      const children = [];
      for (let k = 0; k < this.childCount(at.node); ++k) {
        const node = this.firstChild[at.node] + k;
        const t = this.enter(node, ray, hit === null ? Infinity : hit.t);
        if (t < Infinity) children.push({node, t, parent: at.node});
      }
      const tie = this.kind(at.node) === "binary" ? -1 : 1;
      children.sort((a, b) => b.t - a.t || tie * (a.node - b.node));
      stack.push(...children);
      if (this.childCount(at.node) === 0) hit = this.testItems(at.node, ray, hit);
    }
    return {visits, hit};
  }

  /** Tests what the page has of the geometry below a node. */
  testItems(node, ray, hit) {
    const first = this.firstItem[node], end = first + this.items[node];
    if (!this.data.is_over_objects) return this.testPlaces(first, end, ray, hit);
    if (this.owners === null) return hit;
    for (let item = first; item < end; ++item)
      hit = this.testPlaces(this.owners[item], this.owners[item] + 1, ray, hit);
    return hit;
  }
  testPlaces(first, end, ray, hit) {
    for (const [kind, test] of [["triangles", hitTriangle], ["strands", hitStrand]]) {
      const pieces = this[kind], last = pieces.find(end);
      for (let piece = pieces.find(first); piece < last; ++piece) {
        const t = test(pieces, piece, ray);
        if (t >= 0 && t < (hit === null ? Infinity : hit.t)) hit = {t, kind, piece, primitive: pieces.primitives[piece]};
      }
    }
    return hit;
  }
}

/** The part [near, far] of a ray between two planes of an axis. */
function cutSlab(origin, direction, low, high, near, far) {
  if (direction === 0) return origin >= low && origin <= high ? [near, far] : [1, 0];
  const a = (low - origin) / direction, b = (high - origin) / direction;
  return [Math.max(near, Math.min(a, b)), Math.min(far, Math.max(a, b))];
}

/** Distance of a ray's hit (Möller, Trumbore 1997), from both sides; -1 for a miss. */
function hitTriangle(pieces, piece, ray) {
  const a = pieces.point(piece, 0, 3);
  const ab = subtract(pieces.point(piece, 1, 3), a), ac = subtract(pieces.point(piece, 2, 3), a);
  const p = cross(ray.direction, ac), determinant = dot(ab, p);
  if (!(determinant !== 0)) return -1;
  const from = subtract(ray.origin, a), u = dot(from, p) / determinant;
  if (!(u >= 0 && u <= 1)) return -1;
  const q = cross(from, ab), v = dot(ray.direction, q) / determinant;
  return v >= 0 && u + v <= 1 ? dot(ac, q) / determinant : -1;
}

/** About the distance at which a ray enters a piece of hair: a ball where it comes nearest to the axis. */
function hitStrand(pieces, piece, ray) {
  const at = piece * 8, a = pieces.point(piece, 0, 4), axis = subtract(pieces.point(piece, 1, 4), a);
  const from = subtract(ray.origin, a), dd = dot(ray.direction, ray.direction);
  const perpendicular = v => addScaled(v, ray.direction, -dot(v, ray.direction) / dd);
  const flat = perpendicular(axis), flatFrom = perpendicular(from), length = dot(flat, flat);
  const s = length > 0 ? Math.min(1, Math.max(0, dot(flatFrom, flat) / length)) : 0;
  const radius = pieces.values[at + 3] * (1 - s) + pieces.values[at + 7] * s;
  const gap = subtract(flatFrom, [flat[0] * s, flat[1] * s, flat[2] * s]), rest = radius * radius - dot(gap, gap);
  if (!(rest > 0)) return -1;
  return dot(subtract(addScaled(a, axis, s), ray.origin), ray.direction) / dd - Math.sqrt(rest / dd);
}
