// What is more convenient with a script. Everything works without it, by loading a page again and by its forms.
"use strict";

// Elements with an id and `data-live` are taken anew from the same page every few seconds (`data-live="5"`) while
// somebody looks at it, except those that are in use: with the focus in them.
const live = document.querySelectorAll("[data-live][id]");

async function refresh() {
  const answer = await fetch(location.href, { headers: { Accept: "text/html" }, cache: "no-store" });
  if (!answer.ok || answer.redirected) return;
  const page = new DOMParser().parseFromString(await answer.text(), "text/html");
  for (const { id } of live) {
    const now = document.getElementById(id);
    const then = page.getElementById(id);
    const isInUse = now?.contains(document.activeElement) && document.activeElement !== document.body;
    if (now && then && !isInUse && now.innerHTML !== then.innerHTML) now.replaceWith(document.adoptNode(then));
  }
}

if (live.length > 0) {
  const seconds = Math.max(2, Math.min(...Array.from(live, (element) => Number(element.dataset.live) || 5)));
  setInterval(() => {
    if (document.visibilityState === "visible") refresh().catch(() => {});
  }, seconds * 1000);
}

// In a week the arrow keys go from box to box, and a mouse that is held down marks what it passes.
for (const grid of document.querySelectorAll("[data-grid]")) {
  let paint = null;
  grid.addEventListener("keydown", (event) => {
    const steps = { ArrowUp: -7, ArrowDown: 7, ArrowLeft: -1, ArrowRight: 1 };
    const boxes = Array.from(grid.querySelectorAll("input"));
    const at = boxes.indexOf(event.target);
    if (!steps[event.key] || at < 0) return;
    event.preventDefault();
    boxes[at + steps[event.key]]?.focus();
  });
  grid.addEventListener("pointerdown", (event) => {
    if (event.pointerType === "touch" || event.target.type !== "checkbox") return;
    paint = !event.target.checked;
  });
  grid.addEventListener("pointerout", (event) => {
    if (paint !== null && event.target.type === "checkbox" && event.buttons & 1) event.target.checked = paint;
  });
  grid.addEventListener("pointerover", (event) => {
    if (paint !== null && event.target.type === "checkbox" && event.buttons & 1) event.target.checked = paint;
  });
  addEventListener("pointerup", () => setTimeout(() => (paint = null)));
}

// A form is sent once, however often its button is pressed.
document.addEventListener("submit", (event) => {
  if (event.defaultPrevented) return;
  if (event.target.dataset.sent) event.preventDefault();
  event.target.dataset.sent = "1";
});
addEventListener("pageshow", () => {
  for (const form of document.forms) delete form.dataset.sent;
});
