// Refreshes what changes by itself. Elements with an id and `data-live` are taken anew from the same page every few
// seconds (`data-live="5"`) while somebody looks at it; everything works without this, by loading the page again.
"use strict";

const live = document.querySelectorAll("[data-live][id]");

// Whether somebody is in the middle of using it: typing, or with a menu or a detail open by hand.
function isInUse(element) {
  return element.contains(document.activeElement) && document.activeElement !== document.body;
}

async function refresh() {
  const answer = await fetch(location.href, { headers: { Accept: "text/html" }, cache: "no-store" });
  if (!answer.ok || answer.redirected) return;
  const page = new DOMParser().parseFromString(await answer.text(), "text/html");
  for (const { id } of live) {
    const now = document.getElementById(id);
    const then = page.getElementById(id);
    if (now && then && !isInUse(now) && now.innerHTML !== then.innerHTML) now.replaceWith(document.adoptNode(then));
  }
}

if (live.length > 0) {
  const seconds = Math.max(2, Math.min(...Array.from(live, (element) => Number(element.dataset.live) || 5)));
  setInterval(() => {
    if (document.visibilityState === "visible") refresh().catch(() => {});
  }, seconds * 1000);
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
