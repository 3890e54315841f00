// Picks the view that the address names and keeps it up to date.

import { listen } from "./api.js";
import { el } from "./dom.js";
import { overview } from "./overview.js";
import { run } from "./run.js";
import { runs } from "./runs.js";
import { sent } from "./sent.js";

const VIEWS = { "": ["Overview", overview], runs: ["Runs", runs], sent: ["What was sent", sent], run: ["Run", run] };
const main = document.getElementById("main");
const live = document.getElementById("live");
let refresh = async () => {};

function explain(error) {
  main.replaceChildren(el("h1", {}, error.status === 401 ? "This address lacks its token" : "That did not work"), el("p", {}, error.status === 401
    ? "The page may only be opened at the address that ./run or pelmar-local-service printed: it ends in ?token=… and changes at every start."
    : error.message));
}

let isBusy = false;
let isStale = false;

/** One refresh at a time; what changes meanwhile makes one more. */
async function update() {
  isStale = true;
  if (isBusy) return;
  isBusy = true;
  while (isStale) {
    isStale = false;
    const asked = refresh;
    try {
      await asked();
    } catch (error) {
      if (asked === refresh) explain(error);
    }
    document.documentElement.dataset.drawn = String(Number(document.documentElement.dataset.drawn ?? 0) + 1);
  }
  isBusy = false;
}

function open() {
  const [name, query] = location.hash.replace(/^#\/?/, "").split("?");
  const [title, view] = VIEWS[name] ?? VIEWS[""];
  document.title = `${title} · What leaves this machine`;
  document.getElementById("nav").replaceChildren(...["", "runs", "sent"].map((key) =>
    el("a", { href: `#/${key}`, "aria-current": key === name || (name === "run" && key === "runs") ? "page" : undefined }, VIEWS[key][0])));
  main.replaceChildren();
  refresh = view(main, new URLSearchParams(query ?? ""));
  window.scrollTo(0, 0);
  update();
}

addEventListener("hashchange", () => {
  open();
  main.focus({ preventScroll: true });
});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", update);
document.querySelector(".skip").addEventListener("click", (event) => {
  event.preventDefault();
  main.focus();
});
open();
let isFirst = true;
listen(() => {
  if (!isFirst) update();
  isFirst = false;
}, (state) => {
  live.textContent = state === "live" ? "● live" : "○ not connected";
});
