// Draws everything, and again when the colours or the width change.
function draw() {
  paintBook.colours = Object.fromEntries(["--bid", "--ask", "--ink", "--card", "--belief", "--wrong"].map(name => [name, colour(name)]));
  timeline();
}
function again() {
  draw();
  orders();
  for (const paint of view.paints) paint();
}
for (const name of ["search", "diverging"]) byId(name).addEventListener("input", () => { listed = 20; orders(); });
for (const [name, factor] of [["closer", 2], ["further", .5]]) {
  byId(name).addEventListener("click", () => {
    const box = byId("timeline"), middle = (box.scrollLeft + box.clientWidth / 2) / stretch;
    stretch = Math.min(Math.max(stretch * factor, 1), 32);
    timeline();
    box.scrollLeft = middle * stretch - box.clientWidth / 2;
  });
}
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", again);
let drawnAt = innerWidth;
addEventListener("resize", () => { if (innerWidth !== drawnAt) { drawnAt = innerWidth; timeline(); } });
if (data.left_out.length) byId("left-out").append(element("h2", {}, "Left out of this page"), element("ul", {}, ...data.left_out.map(text => element("li", {}, text))));
again();
books();
look(0, length);
