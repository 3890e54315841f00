// What was sent: every request, the latest first, and the privacy summary over all of them or
// over one run.

import { ask } from "./api.js";
import { el, select } from "./dom.js";
import { bytes, duration, plural, time } from "./format.js";
import { Details, showRequest } from "./details.js";
import { privacyPanel } from "./privacy.js";
import { Rows } from "./rows.js";

// What a request is for: the last word of its path.
const purpose = (path) => path.split("?")[0].split("/").filter((part) => part !== "").at(-1) ?? "";

function drawRequest(request) {
  const isFine = request.status >= 200 && request.status < 300;
  return [
    el("span.cell.time", {}, time(request.received_at)),
    el(`span.badge.${isFine ? "status-success" : "status-error"}`, {}, `${isFine ? "✓" : "✗"} ${request.status || "no answer"}`),
    el("strong.cell.purpose", {}, el("bdi", {}, purpose(request.path).slice(0, 40))),
    el("span.cell.grow.path", {}, el("bdi", {}, `${request.method} ${request.path}`)),
    el("span.cell.number", {}, bytes(request.body_bytes)),
    el("span.cell.number.wide", {}, duration(request.duration_us)),
  ];
}

export function sent(main, parameters) {
  const filter = { run: parameters.get("run") ?? "", failed: false };
  const details = new Details("Request");
  const status = el("p.note", { role: "status" });
  const privacy = el("div");
  const open = (id) => showRequest(details, id);
  const rows = new Rows({
    label: "Requests, the latest first",
    height: 40,
    fetchPage: (offset, limit, signal) => ask("request-list", { ...filter, offset, limit }, signal),
    draw: drawRequest,
    open: (request) => open(request.id),
    empty: "No request here yet.",
  });
  async function refresh(reset = false) {
    await rows.refresh(reset === true);
    status.textContent = plural(rows.total, "request");
    privacy.replaceChildren(privacyPanel(await ask(filter.run ? `runs/${encodeURIComponent(filter.run)}/privacy` : "privacy"), open));
  }
  main.append(
    el("h1", {}, "What was sent"),
    el("div.filters", {},
      select("Show", "", [["", "all requests"], ["1", "failed only"]], (value) => {
        filter.failed = value === "1";
        refresh(true);
      }),
      filter.run ? el("a.button", { href: "#/sent" }, "Of one run. Show those of all") : null),
    status,
    el("div.split", {}, el("div.listside", {}, rows.node, rows.none), details.node),
    privacy,
  );
  if (parameters.has("request")) open(parameters.get("request"));
  return refresh;
}
