// The list of runs: sorted and searched by the service.

import { ask } from "./api.js";
import { cell, el, ROLES, searchField } from "./dom.js";
import { count, plural, time } from "./format.js";

const PAGE = 100;
const COLUMNS = [
  ["agent", "run and agent"], ["kind", "kind"], ["status", "status"], ["first_event", "first event"],
  ["last_event", "last event"], ["steps", "steps", "number"], ["errors", "errors", "number"],
  ["tokens_in", "tokens in", "number"], ["tokens_out", "tokens out", "number"],
];

const MARKS = { open: "○", success: "✓", error: "✗" };

export const statusBadge = (status) =>
  el(`span.badge.status-${["open", "success"].includes(status) ? status : "error"}`, {},
    `${MARKS[status] ?? "✗"} ${status.slice(0, 40)}`);

export const runTitle = (run) =>
  run.kind === "daily" ? `Daily run of ${run.date}` : `Session ${run.session_id || run.run_id}`;

export function runs(main, parameters) {
  const chosen = { search: parameters.get("search") ?? "", sort: "last_event", order: "desc" };
  let shown = PAGE;
  const head = el("tr", ROLES.row);
  const body = el("tbody", ROLES.part);
  const status = el("p.note", { role: "status" });
  const more = el("button", { hidden: true, onclick: () => { shown += PAGE; refresh(); } }, "Show more");
  const scroll = el("div.scroll.panel.runs", { tabindex: "0", role: "region", "aria-label": "Runs" },
    el("table.list", ROLES.table, el("caption.hidden", {}, "Runs"), el("thead", ROLES.part, head), body));
  main.append(
    el("h1", {}, "Runs"),
    el("div.filters", {}, searchField("Search session id, tool name and text", chosen.search, (text) => {
      chosen.search = text.trim();
      shown = PAGE;
      refresh();
    })),
    status, scroll, more,
  );

  function heading([column, name, style]) {
    const isSorted = chosen.sort === column;
    const direction = chosen.order === "asc" ? "ascending" : "descending";
    const sort = () => {
      chosen.order = isSorted && chosen.order === "desc" ? "asc" : "desc";
      chosen.sort = column;
      refresh();
    };
    return el(style ? `th.${style}` : "th", { ...ROLES.head, "aria-sort": isSorted ? direction : undefined },
      el("button.sort", { onclick: sort, "data-column": column }, name, el("span", { "aria-hidden": "true" }, isSorted ? (chosen.order === "asc" ? " ▲" : " ▼") : "")));
  }

  function row(run) {
    const search = run.matches && chosen.search ? `&search=${encodeURIComponent(chosen.search)}` : "";
    return el("tr", ROLES.row,
      el("th", { role: "rowheader", scope: "row" },
        el("a", { href: `#/run?id=${encodeURIComponent(run.run_id)}${search}` }, el("bdi", {}, runTitle(run))),
        el("small", {}, el("bdi", {}, run.agent || "unnamed agent"), run.matches ? ` · ${plural(run.matches, "matching step")}` : "")),
      cell("kind", "", run.kind === "daily" ? "daily" : "per session"),
      cell("status", "", statusBadge(run.status)),
      cell("first event", "time", time(run.first_event)), cell("last event", "time", time(run.last_event)),
      cell("steps", "number", count(run.steps)),
      cell("errors", "number", run.errors ? `⚠ ${count(run.errors)}` : "0"),
      cell("tokens in", "number", count(run.tokens_in)), cell("tokens out", "number", count(run.tokens_out)));
  }

  let asked = 0;
  async function refresh() {
    asked += 1;
    const mine = asked;
    const pages = [];
    for (let offset = 0; offset < shown; offset += PAGE) {
      const page = await ask("run-list", { ...chosen, offset, limit: PAGE });
      pages.push(page);
      if (page.items.length < PAGE) break;
    }
    if (mine !== asked) return;
    const items = pages.flatMap((page) => page.items);
    const focused = document.activeElement?.dataset?.column;
    head.replaceChildren(...COLUMNS.map(heading));
    if (focused) head.querySelector(`[data-column="${focused}"]`)?.focus();
    body.replaceChildren(...items.map(row));
    status.textContent = items.length === 0
      ? (chosen.search ? "No run matches this search." : "No agent has started a run yet.")
      : `${plural(pages[0].total, "run")}${chosen.search ? " found" : ""}`;
    scroll.hidden = items.length === 0;
    more.hidden = items.length >= pages[0].total;
  }
  return refresh;
}
