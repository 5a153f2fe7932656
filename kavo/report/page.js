// What the parts of the page share, and the timeline of the run.
"use strict";
const data = JSON.parse(document.getElementById("data").textContent);
const byId = id => document.getElementById(id);
const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
const clock = (ms, digits = 3) => (ms < 0 ? "\u2212" : "+") + (Math.abs(ms) / 1000).toFixed(digits) + " s";
const length = Math.max(data.length_ms, 1);
function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}
function drawn(name, attributes = {}, ...children) {
  const made = document.createElementNS(byId("drawings").namespaceURI, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

// Everything has a shape of its own as well as a colour, so that nothing is told by colour alone.
const shapes = {
  triangle: (x, y) => `M${x - 5},${y + 5}L${x},${y - 5}L${x + 5},${y + 5}Z`,
  square: (x, y) => `M${x - 4},${y - 4}h8v8h-8Z`,
  diamond: (x, y) => `M${x},${y - 6}l5,6l-5,6l-5,-6Z`,
  circle: (x, y) => `M${x - 4},${y}a4,4 0 1 0 8,0a4,4 0 1 0 -8,0`,
  cross: (x, y) => `M${x - 5},${y - 5}l10,10m0,-10l-10,10`,
  right: (x, y) => `M${x - 4},${y - 5}l9,5l-9,5Z`,
  left: (x, y) => `M${x + 4},${y - 5}l-9,5l9,5Z`,
};
function sign(shape, paint, x, y) {
  const style = shape === "cross" ? { fill: "none", stroke: paint, "stroke-width": 2.5 } : { fill: paint, stroke: colour("--card") };
  return drawn("path", { d: shapes[shape](x, y), ...style });
}
function span([from, to, kind], x, y) {
  const paint = colour("--ask"), left = x(from), width = Math.max(x(to) - left, 1.5);
  if (kind === "late") return drawn("rect", { x: left, y: y - 6, width, height: 12, fill: "none", stroke: paint });
  const bar = drawn("g", {}, drawn("rect", { x: left, y: y - 8, width, height: 16, fill: paint }));
  if (kind === "unexplained") bar.append(drawn("path", { d: shapes.cross(left + width / 2, y), stroke: colour("--ink"), "stroke-width": 2 }));
  return bar;
}
function key(name, ...parts) {
  return element("span", {}, drawn("svg", { width: 18, height: 18, "aria-hidden": "true" }, ...parts), name);
}

// Lanes below each other on one clock.
const lanes = [
  ["feed", "feed numbers"], ["gaps", "gaps of the feed"], ["faults", "faults", "triangle", "--wrong"], ["sessions", "logins, ends", "square", "--right"],
  ["marks", "marks, script", "diamond", "--soft"], ["beliefs", "beliefs", "circle", "--belief"], ["findings", "findings", "cross", "--wrong"]];
let stretch = 1, chosen = null;
function timeline() {
  const box = byId("timeline"), narrow = box.parentNode.clientWidth < 600, gutter = narrow ? 0 : 150;
  box.style.marginLeft = gutter + "px";
  const width = Math.max(box.clientWidth, 240) * stretch, row = narrow ? 46 : 38, middle = narrow ? 30 : 19;
  const x = ms => edge + (width - 2 * edge) * Math.min(Math.max(ms / length, 0), 1);
  const picture = drawn("svg", { width, height: lanes.length * row + 22, role: "img", tabindex: 0, "aria-label": "timeline of the run; arrow keys walk through its events" });
  const names = lanes.map(([lane, name], i) => {
    const label = element("span", {}, name + (lane === "feed" && data.feed.length ? ` to ${data.feed.at(-1)[1]}` : ""));
    label.style.top = i * row + (narrow ? 6 : 13) + "px";
    return label;
  });
  box.previousElementSibling.replaceChildren(...names);
  const cursor = drawn("line", { y1: 0, y2: lanes.length * row, stroke: colour("--ink"), "stroke-dasharray": "3 3", visibility: "hidden" });
  const points = lanes.map(([lane, , shape, paint], i) => {
    const y = i * row + middle;
    picture.append(drawn("line", { x1: 0, x2: width, y1: (i + 1) * row - 2, y2: (i + 1) * row - 2, stroke: colour("--line") }));
    if (lane === "feed") picture.append(feedLine(x, y));
    if (lane === "gaps") picture.append(...data.spans.map(it => span(it, x, y)));
    let drawnTo = -9;
    for (const [t] of data.lanes[lane] || []) {
      if (x(t) - drawnTo < 6) continue;
      picture.append(sign(shape, colour(paint), x(t), y));
      drawnTo = x(t);
    }
    return lane === "gaps" ? data.spans.map(([from, , , text, count]) => [from, [text], count]) : data.lanes[lane] || [];
  });
  picture.append(cursor, ...timeAxis(x, lanes.length * row + 16, Math.max(2, Math.floor((width - 60) / 160))));
  const choose = (t, text) => {
    chosen = t;
    cursor.setAttribute("x1", x(t));
    cursor.setAttribute("x2", x(t));
    cursor.setAttribute("visibility", "visible");
    byId("timeline-readout").textContent = text;
  };
  const tell = ([t, texts, count]) => choose(t, `${clock(t)}  ${texts.join("\n")}` + (count > texts.length ? `\nand ${count - texts.length} more at about this time` : ""));
  const point = event => {
    const at = (event.offsetX - edge) / (width - 2 * edge) * length, lane = Math.floor(event.offsetY / row);
    const near = points[lane]?.length ? points[lane].reduce((a, b) => Math.abs(b[0] - at) < Math.abs(a[0] - at) ? b : a) : null;
    if (near && Math.abs(x(near[0]) - event.offsetX) < 16) tell(near);
    else if (at >= 0 && at <= length) choose(at, `${clock(at)}  number ${data.feed.findLast(it => it[0] <= at)?.[1] ?? "-"} of the feed`);
  };
  picture.addEventListener("pointermove", point);
  picture.addEventListener("pointerdown", point);
  const walk = points.flat().sort((a, b) => a[0] - b[0]);
  picture.addEventListener("keydown", event => {
    const next = event.key === "ArrowRight" ? walk.find(it => it[0] > (chosen ?? -1e9)) : event.key === "ArrowLeft" ? walk.findLast(it => it[0] < (chosen ?? 1e18)) : null;
    if (!next) return;
    event.preventDefault();
    tell(next);
    box.scrollLeft = x(next[0]) - box.clientWidth / 2;
  });
  byId("timeline-readout").textContent = "Point at the timeline or touch it to read what happened.";
  box.replaceChildren(picture);
  byId("timeline-legend").replaceChildren(
    ...lanes.slice(2).map(([, name, shape, paint]) => key(name, sign(shape, colour(paint), 9, 9))),
    ...[["lost", "gap, planned by the bench"], ["late", "only late"], ["unexplained", "gap that nobody planned"]].map(([kind, name]) => key(name, span([2, 16, kind], ms => ms, 9))));
}
function timeAxis(x, y, parts) {
  return Array.from({ length: parts + 1 }, (_, part) => {
    const ms = length * part / parts;
    return drawn("text", { x: x(ms), y, "text-anchor": part === 0 ? "start" : part === parts ? "end" : "middle" }, clock(ms));
  });
}
function feedLine(x, y) {
  const last = Math.max(...data.feed.map(point => point[1]), 1);
  const d = data.feed.map(([ms, number], i) => `${i ? "L" : "M"}${x(ms).toFixed(1)},${(y + 11 - 22 * number / last).toFixed(1)}`);
  return drawn("path", { d: d.join("") || "M0,0", fill: "none", stroke: colour("--bid"), "stroke-width": 1.5 });
}
