// Drawing with WebGL 1. Positions are divided by the size of the tree's box around its center, so that two views can
// share a camera and single precision suffices.

const CORNER_EDGES = [0, 1, 2, 3, 4, 5, 6, 7, 0, 2, 1, 3, 4, 6, 5, 7, 0, 4, 1, 5, 2, 6, 3, 7];

const VERTEX_SHADER = `
attribute vec3 position, normal;
attribute vec4 color;
uniform mat4 matrix;
uniform vec3 eye;
uniform float lit, pointSize;
varying vec4 shade;
void main() {
  gl_Position = matrix * vec4(position, 1.0);
  gl_PointSize = pointSize;
  float light = mix(1.0, 0.35 + 0.65 * abs(dot(normalize(normal), normalize(eye - position))), lit);
  shade = vec4(color.rgb * light, color.a);
}`;
const FRAGMENT_SHADER = `
precision mediump float;
varying vec4 shade;
uniform float opacity;
void main() { gl_FragColor = vec4(shade.rgb, shade.a * opacity); }`;

/** Orbits around a target; shared by all views. */
class Camera {
  constructor() { this.reset(); }
  reset() {
    this.yaw = 0.6;
    this.pitch = 0.35;
    this.distance = 2.1;
    this.target = [0, 0, 0];
  }
  axes() {
    const [cy, sy, cp, sp] = [Math.cos(this.yaw), Math.sin(this.yaw), Math.cos(this.pitch), Math.sin(this.pitch)];
    return {right: [cy, 0, -sy], up: [-sy * sp, cp, -cy * sp], back: [sy * cp, sp, cy * cp]};
  }
  eye() { return addScaled(this.target, this.axes().back, this.distance); }
  static get slope() { return Math.tan(20 * Math.PI / 180); }  // of the upper edge of the picture
  /** Column by column. */
  matrix(aspect) {
    const {right, up, back} = this.axes(), eye = this.eye(), slope = Camera.slope;
    const near = Math.max(0.002, this.distance - 3), far = this.distance + 4;
    const rows = [
      [...right.map(v => v / (slope * aspect)), -dot(right, eye) / (slope * aspect)],
      [...up.map(v => v / slope), -dot(up, eye) / slope],
      [...back.map(v => v * (near + far) / (near - far)),
       -dot(back, eye) * (near + far) / (near - far) + 2 * far * near / (near - far)],
      [...back.map(v => -v), dot(back, eye)]];
    return new Float32Array([0, 1, 2, 3].flatMap(column => rows.map(row => row[column])));
  }
  /** Through a point of the picture, x and y from -1 to 1. */
  ray(x, y, aspect) {
    const {right, up, back} = this.axes();
    let direction = back.map(v => -v);
    direction = addScaled(direction, right, x * Camera.slope * aspect);
    direction = addScaled(direction, up, y * Camera.slope);
    return {origin: this.eye(), direction};
  }
}

function parseColor(name) {
  const hex = getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
  return [1, 3, 5].map(at => parseInt(hex.slice(at, at + 2), 16) / 255);
}
/** From blue over yellow to red, for 0 to 1. */
function rampColor(value) {
  const stops = [[0.23, 0.44, 0.72], [0.45, 0.72, 0.62], [0.94, 0.77, 0.28], [0.80, 0.20, 0.18]];
  const at = Math.min(1, Math.max(0, value)) * (stops.length - 1), k = Math.min(stops.length - 2, Math.floor(at));
  return stops[k].map((v, axis) => v + (stops[k + 1][axis] - v) * (at - k));
}
/** Neighboring numbers get distinct hues. */
function numberColor(number) {
  const hue = number * 0.618034 % 1 * 6, part = k => Math.min(1, Math.max(0, Math.abs((hue + k) % 6 - 3) - 1));
  return [0, 4, 2].map(k => 0.25 + 0.6 * part(k));
}

class TreeView {
  constructor(canvas, camera) {
    this.canvas = canvas;
    this.camera = camera;
    const gl = canvas.getContext("webgl", {antialias: true, alpha: false});
    this.gl = gl;
    if (gl === null) return;
    const program = gl.createProgram();
    for (const [kind, source] of [[gl.VERTEX_SHADER, VERTEX_SHADER], [gl.FRAGMENT_SHADER, FRAGMENT_SHADER]]) {
      const shader = gl.createShader(kind);
      gl.shaderSource(shader, source);
      gl.compileShader(shader);
      gl.attachShader(program, shader);
    }
    ["position", "normal", "color"].forEach((name, k) => gl.bindAttribLocation(program, k, name));
    gl.linkProgram(program);
    if (!gl.getProgramParameter(program, gl.LINK_STATUS)) throw new Error(gl.getProgramInfoLog(program));
    gl.useProgram(program);
    this.uniforms = {};
    for (const name of ["matrix", "eye", "lit", "pointSize", "opacity"])
      this.uniforms[name] = gl.getUniformLocation(program, name);
    this.meshes = {};
  }

  setTree(tree) {
    this.tree = tree;
    const box = tree.boxes.subarray(0, 6);
    this.center = [0, 1, 2].map(axis => (box[axis] + box[axis + 3]) / 2);
    this.size = Math.max(lengthOf([0, 1, 2].map(axis => box[axis + 3] - box[axis])) / 2, 1e-30) * 1.25;
    this.setGeometry();
    this.setVisits(null);
  }
  toView(point) { return subtract(point, this.center).map(v => v / this.size); }
  worldRay(ray) {
    const length = lengthOf(ray.direction);
    return {origin: ray.origin.map((v, k) => v * this.size + this.center[k]),
            direction: ray.direction.map(v => v / length)};
  }

  setMesh(name, mode, positions, colors, normals = null) {
    const gl = this.gl;
    if (gl === null) return;
    for (const buffer of this.meshes[name]?.buffers ?? []) gl.deleteBuffer(buffer);
    const store = values => {
      const buffer = gl.createBuffer();
      gl.bindBuffer(gl.ARRAY_BUFFER, buffer);
      gl.bufferData(gl.ARRAY_BUFFER, values, gl.STATIC_DRAW);
      return buffer;
    };
    this.meshes[name] = {mode, count: positions.length / 3, isLit: normals !== null,
                         buffers: [store(positions), normals && store(normals), store(colors)]};
  }

  /** Thinned triangles and points are drawn larger, so that the surface still shows. */
  setGeometry() {
    const {triangles, strands, points, data} = this.tree, growth = Math.sqrt(data.geometry.stride);
    const surface = parseColor("surface"), line = parseColor("line-geometry"), gl = this.gl;
    if (gl === null) return;
    const positions = new Float32Array(9 * triangles.count), normals = new Float32Array(9 * triangles.count);
    for (let k = 0; k < triangles.count; ++k) {
      const corners = [0, 1, 2].map(corner => this.toView(triangles.point(k, corner, 3)));
      const middle = [0, 1, 2].map(axis => (corners[0][axis] + corners[1][axis] + corners[2][axis]) / 3);
      const normal = cross(subtract(corners[1], corners[0]), subtract(corners[2], corners[0]));
      const length = lengthOf(normal) || 1;
      if (!corners.flat().every(Number.isFinite)) continue;
      // No larger than a twentieth of the view: few triangles would turn into spikes.
      const reach = Math.max(...corners.map(corner => lengthOf(subtract(corner, middle))));
      const scale = Math.max(1, Math.min(growth, 0.025 / reach));
      corners.forEach((corner, c) => {
        positions.set(addScaled(middle, subtract(corner, middle), scale), 9 * k + 3 * c);
        normals.set(normal.map(v => v / length), 9 * k + 3 * c);
      });
    }
    this.setMesh("triangles", gl.TRIANGLES, positions, fillColors(positions.length / 3, surface), normals);
    const lines = new Float32Array(6 * strands.count);
    for (let k = 0; k < 2 * strands.count; ++k) lines.set(this.toView(strands.point(k >> 1, k & 1, 4)), 3 * k);
    this.setMesh("strands", gl.LINES, lines, fillColors(lines.length / 3, line));
    const dots = new Float32Array(3 * points.count);
    for (let k = 0; k < points.count; ++k) dots.set(this.toView(points.point(k, 0, 4)), 3 * k);
    this.setMesh("points", gl.POINTS, dots, fillColors(points.count, line));
  }

  /** Twelve edges a box. */
  boxLines(nodes) {
    const positions = new Float32Array(nodes.length * 72);
    nodes.forEach((node, k) => {
      const [origin, ...edges] = this.tree.frame(node), corners = [];
      for (let corner = 0; corner < 8; ++corner) {
        let point = origin;
        for (let axis = 0; axis < 3; ++axis) if (corner >> axis & 1) point = addScaled(point, edges[axis], 1);
        corners.push(this.toView(point));
      }
      CORNER_EDGES.forEach((corner, end) => positions.set(corners[corner], 72 * k + 3 * end));
    });
    return positions;
  }
  /** @returns the number of boxes */
  setLevel(level, colorOf) {
    const nodes = [];
    for (let node = this.tree.levelFirst[level - 1]; node < this.tree.levelFirst[level]; ++node) nodes.push(node);
    const colors = new Uint8Array(nodes.length * 96);
    nodes.forEach((node, k) => {
      const color = colorOf(node).map(v => 255 * v);
      for (let end = 0; end < 24; ++end) colors.set([...color, 255], 96 * k + 4 * end);
    });
    if (this.gl !== null) this.setMesh("boxes", this.gl.LINES, this.boxLines(nodes), colors);
    return nodes.length;
  }

  /** The boxes of the nodes visited, the ray and the piece that it hits; null: nothing. */
  setVisits(found) {
    if (this.gl === null) return;
    const accent = parseColor("accent"), gl = this.gl;
    const boxes = found === null ? new Float32Array() : this.boxLines(found.visits.map(visit => visit.node));
    let path = [], piece = [];
    if (found !== null) {
      const end = found.hit === null ? 3 * this.size : found.hit.t;
      path = [found.ray.origin, addScaled(found.ray.origin, found.ray.direction, end)].flatMap(p => this.toView(p));
      if (found.hit !== null && found.hit.kind === "triangles")
        piece = [0, 1, 1, 2, 2, 0].flatMap(c => this.toView(this.tree.triangles.point(found.hit.piece, c, 3)));
      if (found.hit !== null && found.hit.kind === "strands")
        piece = [0, 1].flatMap(c => this.toView(this.tree.strands.point(found.hit.piece, c, 4)));
    }
    this.setMesh("visited", gl.LINES, boxes, fillColors(boxes.length / 3, accent));
    const lines = new Float32Array([...path, ...piece]);
    this.setMesh("path", gl.LINES, lines, fillColors(lines.length / 3, accent));
  }
  setMarked(node) {
    if (this.gl === null) return;
    const lines = node === null ? new Float32Array() : this.boxLines([node]);
    this.setMesh("marked", this.gl.LINES, lines, fillColors(lines.length / 3, parseColor("text")));
  }

  draw(shows) {
    const gl = this.gl, canvas = this.canvas;
    if (gl === null) return;
    const scale = window.devicePixelRatio || 1;
    const width = Math.max(1, Math.round(canvas.clientWidth * scale));
    const height = Math.max(1, Math.round(canvas.clientHeight * scale));
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, {width, height});
    gl.viewport(0, 0, width, height);
    gl.clearColor(...parseColor("canvas"), 1);
    gl.depthMask(true);
    gl.clear(gl.COLOR_BUFFER_BIT | gl.DEPTH_BUFFER_BIT);
    gl.uniformMatrix4fv(this.uniforms.matrix, false, this.camera.matrix(width / height));
    gl.uniform3fv(this.uniforms.eye, this.camera.eye());
    gl.uniform1f(this.uniforms.pointSize, scale * Math.min(5, Math.max(1.5, 3 / this.camera.distance)));
    gl.enable(gl.DEPTH_TEST);
    gl.enable(gl.BLEND);
    gl.blendFunc(gl.SRC_ALPHA, gl.ONE_MINUS_SRC_ALPHA);
    gl.enable(gl.POLYGON_OFFSET_FILL);
    gl.polygonOffset(1, 1);
    if (shows.geometry) ["triangles", "strands", "points"].forEach(name => this.drawMesh(name, 1, true));
    // What the surface hides shows faintly.
    gl.depthMask(false);
    for (const name of shows.boxes ? ["boxes"] : []) {
      this.drawMesh(name, 0.13, false);
      this.drawMesh(name, 0.85, true);
    }
    this.drawMesh("visited", 0.55, false);
    this.drawMesh("path", 1, false);
    this.drawMesh("marked", 1, false);
  }
  drawMesh(name, opacity, isHidden) {
    const mesh = this.meshes[name], gl = this.gl;
    if (!mesh || mesh.count === 0) return;
    gl.depthFunc(isHidden ? gl.LEQUAL : gl.ALWAYS);
    gl.uniform1f(this.uniforms.opacity, opacity);
    gl.uniform1f(this.uniforms.lit, mesh.isLit ? 1 : 0);
    mesh.buffers.forEach((buffer, k) => {
      if (buffer === null) {
        gl.disableVertexAttribArray(k);
        return gl.vertexAttrib3f(k, 0, 0, 1);
      }
      gl.enableVertexAttribArray(k);
      gl.bindBuffer(gl.ARRAY_BUFFER, buffer);
      if (k === 2) gl.vertexAttribPointer(k, 4, gl.UNSIGNED_BYTE, true, 0, 0);
      else gl.vertexAttribPointer(k, 3, gl.FLOAT, false, 0, 0);
    });
    gl.drawArrays(mesh.mode, 0, mesh.count);
  }
}

function fillColors(count, color) {
  const colors = new Uint8Array(4 * count);
  for (let k = 0; k < count; ++k) colors.set([...color.map(v => 255 * v), 255], 4 * k);
  return colors;
}
