// Each order on one clock: what the client said, what it was told, the truth, and what it believed.
const who = { client: "client says", venue: "client is told", truth: "truth", belief: "client believes" };
const voices = { client: ["right", "--bid"], venue: ["left", "--ask"], truth: ["square", "--ink"], belief: ["circle", "--belief"] };
let listed = 20;
function orders() {
  const words = byId("search").value.toLowerCase(), only = byId("diverging").checked;
  const shown = data.orders.filter(it => (!only || it.diverges) && [it.user, it.id, ...it.findings].join(" ").toLowerCase().includes(words));
  const box = byId("orders");
  box.replaceChildren(...shown.slice(0, listed).map(order => {
    const title = element("summary", {}, element("code", {}, order.id), ` of ${order.user} `,
      element("span", { class: "soft" }, [order.side, order.symbol].join(" ").trim() + (order.state ? `, last: ${order.state}` : "")));
    const rules = [...new Set(order.findings)];
    if (rules.length) title.append(element("b", { class: "finding" }, (order.diverges ? " truth and belief part: " : " ") + rules.join(", ")));
    const card = element("details", { class: "card" }, title);
    card.addEventListener("toggle", () => { if (card.open && card.children.length === 1) card.append(...life(order)); });
    return card;
  }));
  if (shown.length > listed) {
    const more = element("button", {}, `${shown.length - listed} more`);
    more.addEventListener("click", () => { listed += 100; orders(); });
    box.append(element("p", {}, more));
  }
  if (!shown.length) box.append(element("p", { class: "soft" }, data.orders.length ? "none of these" : "no orders in this run"));
}
const first_of = order => order.diverges ? "first divergence" : "first finding";
function life(order) {
  const first = order.events.findIndex(event => event[5]);
  const rows = order.events.map(([t, voice, text, packet, , rule], i) => {
    const said = element("td", { class: "text", "data-who": who[voice] }, text);
    if (packet) said.append(element("span", { class: "packet" }, `packet ${packet}`));
    if (rule) said.append(element("span", { class: "rule" }, (i === first ? `\u25B6 ${first_of(order)}: ` : "\u25B6 ") + rule));
    const cells = Object.keys(who).map(name => name === voice ? said : element("td", { class: "empty" }));
    return element("tr", rule ? { class: "marked" } : {}, element("td", { class: "time" }, clock(t, 6)), ...cells);
  });
  const head = element("tr", {}, ...["time", ...Object.values(who)].map(name => element("th", {}, name)));
  const box = element("div", { class: "scroll" });
  const parts = [box, element("table", { class: "life" }, element("thead", {}, head), element("tbody", {}, ...rows))];
  if (order.cut) parts.push(element("p", { class: "soft" }, `and ${order.cut} more events, which kavo show tells`));
  new ResizeObserver(() => { if (box.clientWidth !== box.drawnAt) { box.drawnAt = box.clientWidth; box.replaceChildren(lifeline(order, box.clientWidth)); } }).observe(box);
  return parts;
}
// The same as a picture: who spoke when, and above that the shares executed, in truth and as the client believes.
function lifeline(order, width) {
  const narrow = width < 600, gutter = narrow ? 8 : 130, row = narrow ? 34 : 24, steps = order.events.some(event => event[4]) ? 80 : 20, voice = Object.keys(who);
  const times = order.events.map(event => event[0]), from = Math.min(...times), to = Math.max(...times, from + 1);
  const x = ms => gutter + 6 + (width - gutter - 14) * (ms - from) / (to - from), base = steps + 14, height = base + voice.length * row + 24;
  const most = Math.max(...order.events.map(event => event[4] ?? 0), 1);
  const picture = drawn("svg", { width, height, role: "img", "aria-label": `the life of order ${order.id}` });
  const label = (text, y) => picture.append(drawn("text", { x: 0, y }, text));
  if (steps > 20) label(`executed, up to ${most}: truth thick, belief dashed`, 10);
  for (const [name, dash, thick] of [["truth", "", 4], ["belief", "5 3", 2]]) {
    const known = order.events.filter(event => event[1] === name && event[4] !== null && steps > 20);
    const y = number => base - 8 - (steps - 30) * number / most;
    const path = known.map((event, i) => `${i ? "H" : "M"}${x(event[0])}${i ? `V${y(event[4])}` : `,${y(event[4])}`}`).join("");
    if (path) picture.append(drawn("path", { d: path + `H${x(to)}`, fill: "none", stroke: colour(voices[name][1]), "stroke-width": thick, "stroke-dasharray": dash, opacity: name === "truth" ? .45 : 1 }));
  }
  voice.forEach((name, i) => {
    const y = base + i * row + (narrow ? 24 : 12);
    label(who[name], narrow ? y - 11 : y + 4);
    picture.append(drawn("line", { x1: gutter, x2: width, y1: base + (i + 1) * row, y2: base + (i + 1) * row, stroke: colour("--line") }));
    for (const event of order.events.filter(it => it[1] === name)) picture.append(sign(voices[name][0], colour(voices[name][1]), x(event[0]), y));
  });
  const parts = order.events.find(event => event[5]);
  if (parts) {
    const at = x(parts[0]), end = at > width * .6;
    picture.append(drawn("line", { x1: at, x2: at, y1: steps > 20 ? 16 : 0, y2: height - 22, stroke: colour("--wrong"), "stroke-width": 2, "stroke-dasharray": "6 3" }));
    const words = drawn("text", { x: end ? at - 5 : at + 5, y: steps > 20 ? 28 : 12, "text-anchor": end ? "end" : "start" }, first_of(order));
    words.style.fill = colour("--wrong");
    picture.append(words);
  }
  picture.append(drawn("text", { x: gutter, y: height - 6 }, clock(from)), drawn("text", { x: width, y: height - 6, "text-anchor": "end" }, clock(to)));
  return picture;
}
