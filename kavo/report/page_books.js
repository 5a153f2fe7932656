// A book over time: price upwards, time to the right, the deeper the stronger. Bids lie below asks and a line runs along
// both touches, so the picture reads without its colours.
function unfold(side) {
  const levels = [];
  for (let i = 0, price = 0; i < side.length; i += 2) levels.push([price += side[i], side[i + 1]]);
  return levels;
}
const view = { from: 0, to: length, paints: [] };
function look(from, to) {
  const long = Math.min(to - from, length);
  view.from = Math.min(Math.max(from, 0), length - long);
  view.to = view.from + long;
  document.querySelector("#window span").textContent = `${clock(view.from)} to ${clock(view.to)}`;
  for (const paint of view.paints) paint();
}
for (const button of document.querySelectorAll("#window button")) {
  button.addEventListener("click", () => {
    const long = view.to - view.from, { by, go } = button.dataset, half = by ? long / by / 2 : long / 2;
    const middle = (view.from + view.to) / 2 + (go ? go * long / 2 : 0);
    if (half > 5 || go) look(middle - half, middle + half);
  });
}
const money = price => (price / 10000).toFixed(price % 100 ? 4 : 2);
function books() {
  byId("books").replaceChildren(...data.books.map(book => {
    const columns = book.columns.map(([t, number, bids, asks]) => ({ t, number, bids: unfold(bids), asks: unfold(asks) }));
    const picture = element("canvas", { role: "img", tabindex: 0, "aria-label": `the book of ${book.symbol} over time; arrow keys walk through it` });
    const line = element("p", { class: "mono soft readout" }, "Point at the picture or touch it to read the book of a moment.");
    const title = element("h3", {}, book.symbol);
    if (book.findings.length) title.append(element("span", { class: "finding" }, ` the client's book is wrong from ${clock(book.findings[0][0])} on`));
    const state = { at: -1 };
    const paint = () => { if (picture.clientWidth) paintBook(picture, book, columns, state.at); };
    const tell = at => {
      if (at < 0 || at >= columns.length) return;
      state.at = at;
      const column = columns[at], levels = side => side.slice(0, 5).map(([price, size]) => `${money(price)}x${size}`).join(" ") || "-";
      line.textContent = `${clock(column.t)}  number ${column.number}\nbids ${levels(column.bids)}\nasks ${levels(column.asks)}`;
      paint();
    };
    const point = event => tell(columns.findLastIndex(it => it.t <= (event.offsetX - gutterOf(picture)) / (picture.clientWidth - gutterOf(picture) - edge) * (view.to - view.from) + view.from));
    picture.addEventListener("pointermove", point);
    picture.addEventListener("pointerdown", point);
    picture.addEventListener("keydown", event => {
      if (event.key === "ArrowRight") tell(state.at + 1);
      else if (event.key === "ArrowLeft") tell(state.at - 1);
      else return;
      event.preventDefault();
    });
    new ResizeObserver(paint).observe(picture);
    view.paints.push(paint);
    return element("section", { class: "card" }, title, picture, line, bookLegend());
  }));
  if (!data.books.length) byId("books").append(element("p", { class: "soft" }, "no book truth in this run"));
}
function bookLegend() {
  const depth = name => [.25, .6, 1].map((strength, i) => drawn("rect", { x: i * 6, y: 3, width: 6, height: 12, fill: name, opacity: strength }));
  const ring = drawn("circle", { cx: 9, cy: 9, r: 4, fill: "none", stroke: "currentColor", "stroke-width": 1.5 });
  const hatch = drawn("path", { d: "M2,10L10,2M2,18L18,2M10,18L18,10", stroke: "currentColor", "stroke-width": 1.5 });
  return element("p", { class: "legend soft" }, key("bids, the deeper the stronger", ...depth("var(--bid)")), key("asks", ...depth("var(--ask)")), key("trade (a dot where there are many)", ring), key("gap of the feed", hatch),
    key("the client told its book", sign("circle", "var(--belief)", 9, 9)), key("and it was wrong", sign("cross", "var(--wrong)", 9, 9)),
    ...data.told_until === null ? [] : [key("not told one by one, being too many", drawn("path", { d: shapes.circle(9, 9), fill: "none", stroke: "var(--belief)" }))]);
}
const gutterOf = canvas => canvas.clientWidth < 500 ? 50 : 58, edge = 8;
function paintBook(canvas, book, columns, at) {
  const scale = devicePixelRatio || 1, width = canvas.clientWidth, height = canvas.clientHeight, left = gutterOf(canvas), bottom = height - 40;
  canvas.width = width * scale;
  canvas.height = height * scale;
  const ink = canvas.getContext("2d"), whole = number => Math.round(number * scale) / scale;
  ink.scale(scale, scale);
  ink.font = "12px system-ui, sans-serif";
  const seen = columns.filter((it, i) => it.t <= view.to && (columns[i + 1]?.t ?? length) >= view.from);
  const all = seen.flatMap(it => [...it.bids, ...it.asks]);
  const prices = all.map(level => level[0]).sort((a, b) => a - b), sizes = all.map(level => level[1]).sort((a, b) => a - b);
  const low = (prices[Math.floor(prices.length * .01)] ?? 0) - 200, high = (prices[Math.ceil(prices.length * .99) - 1] ?? 10000) + 200;
  const deepest = sizes[Math.floor(sizes.length * .98)] || 1;
  const right = width - edge, x = ms => whole(left + (ms - view.from) / (view.to - view.from) * (right - left)), y = price => bottom - (price - low) / (high - low) * bottom;
  const thick = Math.max(bottom / ((high - low) / 100), 1.5), soft = colour("--soft");
  ink.save();
  ink.beginPath();
  ink.rect(left, 0, right - left, bottom);
  ink.clip();
  seen.forEach((column, i) => {
    const from = x(column.t), to = Math.max(i + 1 < seen.length ? x(seen[i + 1].t) : right, from + 1 / scale);
    for (const [side, name] of [[column.bids, "--bid"], [column.asks, "--ask"]]) {
      ink.fillStyle = paintBook.colours[name];
      for (const [price, size] of side) {
        const top = whole(y(price) - thick / 2);
        ink.globalAlpha = .18 + .82 * Math.min(size / deepest, 1);
        ink.fillRect(from, top, to - from, whole(y(price) + thick / 2) - top);
      }
    }
  });
  ink.globalAlpha = 1;
  paintTouches(ink, seen, x, y, thick, right);
  paintGaps(ink, x, bottom);
  const trades = book.trades.filter(([ms]) => ms >= view.from && ms <= view.to), many = trades.length > (right - left) / 8;
  for (const [ms, price] of trades) {
    ink.fillStyle = paintBook.colours["--ink"];
    if (many) ink.fillRect(x(ms) - 1, y(price) - 1, 2, 2);
    for (const [paint, line] of many ? [] : [["--card", 3.5], ["--ink", 1.5]]) {
      ink.strokeStyle = paintBook.colours[paint];
      ink.lineWidth = line;
      ink.beginPath();
      ink.arc(x(ms), y(price), 3, 0, 7);
      ink.stroke();
    }
  }
  ink.restore();
  const shown = it => it >= view.from && it <= view.to;
  paintBeliefs(ink, { beliefs: book.beliefs.filter(shown), findings: book.findings.filter(it => shown(it[0])) }, x, bottom);
  paintAxes(ink, soft, { left, bottom, width, height, low, high, x, y });
  if (at < 0 || !shown(columns[at].t)) return;
  ink.fillStyle = paintBook.colours["--ink"];
  ink.fillRect(x(columns[at].t), 0, 1, bottom);
}
function paintTouches(ink, columns, x, y, thick, right) {
  ink.strokeStyle = paintBook.colours["--ink"];
  ink.lineWidth = 1;
  ink.globalAlpha = columns.length > 300 ? .4 : 1;
  for (const [side, shift] of [["bids", -thick / 2], ["asks", thick / 2]]) {
    ink.beginPath();
    columns.forEach((column, i) => {
      if (!column[side].length) return;
      const to = i + 1 < columns.length ? x(columns[i + 1].t) : right, level = y(column[side][0][0]) + shift;
      if (!i || !columns[i - 1][side].length) ink.moveTo(x(column.t), level);
      ink.lineTo(x(column.t), level);
      ink.lineTo(to, level);
    });
    ink.stroke();
  }
  ink.globalAlpha = 1;
}
function paintGaps(ink, x, bottom) {
  const tile = document.createElement("canvas");
  tile.width = tile.height = 8;
  const line = tile.getContext("2d");
  line.strokeStyle = paintBook.colours["--ink"];
  line.globalAlpha = .55;
  for (const shift of [-8, 0, 8]) {
    line.moveTo(shift, 8);
    line.lineTo(shift + 8, 0);
  }
  line.stroke();
  const lost = data.spans.filter(([from, to, kind]) => kind !== "late" && to >= view.from && from <= view.to);
  // Where most of the time some number is missing, hatching would hide what it is about: then a strip below tells.
  const much = lost.reduce((sum, [from, to]) => sum + Math.max(x(to) - x(from), 2), 0) > .4 * (x(view.to) - x(view.from));
  ink.fillStyle = ink.createPattern(tile, "repeat");
  for (const [from, to] of lost) ink.fillRect(x(from), much ? bottom - 8 : 0, Math.max(x(to) - x(from), 1.5), bottom);
}
function paintBeliefs(ink, book, x, bottom) {
  ink.fillStyle = paintBook.colours["--belief"];
  ink.strokeStyle = paintBook.colours["--belief"];
  for (const ms of book.beliefs) {
    const dot = new Path2D(shapes.circle(x(ms), bottom + 10));
    data.told_until !== null && ms > data.told_until ? ink.stroke(dot) : ink.fill(dot);
  }
  ink.strokeStyle = paintBook.colours["--wrong"];
  ink.lineWidth = 2.5;
  for (const [ms] of book.findings) ink.stroke(new Path2D(shapes.cross(x(ms), bottom + 10)));
  if (!book.findings.length) return;
  ink.lineWidth = 1.5;
  ink.setLineDash([6, 3]);
  ink.beginPath();
  ink.moveTo(x(book.findings[0][0]), 0);
  ink.lineTo(x(book.findings[0][0]), bottom);
  ink.stroke();
  ink.setLineDash([]);
}
function paintAxes(ink, soft, { left, bottom, width, height, low, high, x, y }) {
  ink.fillStyle = soft;
  const fit = Math.max(2, Math.floor(bottom / 40)), step = [100, 200, 500, 1000, 2000, 5000, 10000, 20000, 50000, 100000, 1000000].find(it => (high - low) / it <= fit) ?? 1e7;
  for (let price = Math.ceil(low / step) * step; price < high; price += step) {
    ink.textAlign = "right";
    if (y(price) > 8) ink.fillText(money(price), left - 6, y(price) + 4);
    ink.fillRect(left - 4, y(price), 4, 1);
  }
  ink.fillRect(left - 1, 0, 1, bottom);
  const parts = Math.max(2, Math.floor((width - left) / 160));
  for (let part = 0; part <= parts; ++part) {
    ink.textAlign = part === 0 ? "left" : part === parts ? "right" : "center";
    const ms = view.from + (view.to - view.from) * part / parts;
    ink.fillText(clock(ms), x(ms), height - 6);
  }
}
