// One run: its steps as a timeline in turns, filters, findings, and each step whole.

import { address, ask } from "./api.js";
import { el, searchField, select } from "./dom.js";
import { count, plural, time } from "./format.js";
import { Details, showRequest, showStep } from "./details.js";
import { privacyPanel } from "./privacy.js";
import { Rows } from "./rows.js";
import { runTitle, statusBadge } from "./runs.js";

const GROUPS = [["user", "user_message"], ["model", "assistant"], ["tool", "tool_use"], ["output", "tool_result"], ["ask", "permission:"], ["end", "result:"]];
const group = (kind) => GROUPS.find(([, begin]) => kind.startsWith(begin))?.[0] ?? "system";

// A line without a session id belongs to the turn around it.
const startsTurn = (step, before) => !before || before.turn !== step.turn ||
  (before.session_id !== step.session_id && before.session_id !== "" && step.session_id !== "");

function tokenBar(step, largest) {
  if (step.tokens_in === null) return el("span.cell.tokens", {});
  const all = step.tokens_in + step.tokens_out;
  return el("span.cell.tokens", { title: `${count(step.tokens_in)} tokens in, ${count(step.tokens_out)} out` },
    el("meter", { min: 0, max: Math.max(1, largest), value: all, "aria-hidden": "true" }),
    el("span", {}, `${count(all)} tokens`));
}

/** "permission:request" in two parts: a narrow window has room for the second only. */
function kindBadge(kind) {
  const begin = kind.indexOf(":") + 1;
  return el(`span.badge.kind.kind-${group(kind)}`, { title: kind },
    begin ? el("span.family", {}, kind.slice(0, begin)) : null, kind.slice(begin, 40));
}

function drawStep(step, before, { largest, notes }) {
  const tool = step.tool_name ? `${step.kind === "tool_result" ? "↳ " : ""}${step.tool_name.slice(0, 60)}: ` : "";
  return [
    el("span.cell.turn", {}, startsTurn(step, before) ? (step.turn ? `Turn ${step.turn}` : "Start") : ""),
    el("span.cell.position.number", {}, `#${step.position}`),
    kindBadge(step.kind),
    el("span.cell.grow", {}, step.is_error ? el("strong.error", {}, "✗ failed ") : null, notes.has(step.id) ? el("strong.error", {}, "⚠ ") : null, el("bdi", {}, tool, step.preview)),
    tokenBar(step, largest),
    el("span.cell.time.wide", {}, time(step.timestamp)),
  ];
}

/** Step id → what is odd about it; the list in words. */
function readFindings(findings) {
  const notes = new Map();
  const list = [];
  const add = (id, text) => {
    notes.set(id, [...(notes.get(id) ?? []), text]);
    list.push([id, text]);
  };
  for (const gap of findings.missing) {
    const which = gap.first === gap.last ? `Position ${gap.first} is missing` : `Positions ${gap.first} to ${gap.last} are missing`;
    add(gap.next_step, `${which} before this step: a sending that failed uses its position up.`);
  }
  for (const twice of findings.twice) add(twice.step, `Position ${twice.position} came twice in session ${twice.session_id || "(none)"}.`);
  for (const again of findings.recorded_twice) add(again.step, `This ${again.kind} was recorded ${count(again.count)} times: same session, time and content.`);
  return { notes, list };
}

export function run(main, parameters) {
  const id = parameters.get("id") ?? "";
  const path = `runs/${encodeURIComponent(id)}`;
  const filter = { kind: "", tool: "", session: "", errors: false, search: parameters.get("search") ?? "" };
  const seen = { largest: 0, notes: new Map() };
  const head = el("div");
  const filters = el("div.filters");
  const found = el("div");
  const status = el("p.note", { role: "status" });
  const privacy = el("div");
  const details = new Details("Step");
  const rows = new Rows({
    label: "Steps",
    height: 40,
    fetchPage: (offset, limit, signal) => ask(`${path}/timeline`, { ...filter, offset, limit }, signal),
    draw: (step, _, before) => drawStep(step, before, seen),
    open: (step) => openStep(step),
    empty: "No step passes these filters.",
  });
  rows.mark = (step, before) => [startsTurn(step, before) && before ? "turn-begins" : "within-turn", `side-${group(step.kind)}`];
  main.append(head, found, filters, status, el("div.split", {}, el("div.listside", {}, rows.node, rows.none), details.node), privacy);

  const openStep = (step) => showStep(details, step.id, { goTo, partner: step.partner, notes: seen.notes.get(step.id) });

  async function goTo(step) {
    const { place } = await ask(`${path}/place`, { ...filter, step });
    await rows.select(place, false);
    const item = await rows.fetched(place);
    if (item?.id === step) openStep(item);
    else showStep(details, step, { goTo, partner: null, notes: seen.notes.get(step) });
  }

  async function filtered() {
    await rows.refresh(true);
    tell();
  }

  function tell() {
    status.textContent = plural(rows.total, "step");
  }

  function drawFilters(answer) {
    const pairs = (all, items) => [["", all], ...items.filter(({ name }) => name !== "").map(({ name, count: times }) => [name, `${name.slice(0, 60)} (${count(times)})`])];
    const choose = (key) => (value) => {
      filter[key] = value;
      filtered();
    };
    const errors = el("input", { type: "checkbox", onchange: () => choose("errors")(errors.checked) });
    filters.replaceChildren(
      select("Kind", filter.kind, pairs("all kinds", answer.kinds), choose("kind")),
      select("Tool", filter.tool, pairs("all tools", answer.tools), choose("tool")),
      answer.sessions.length > 1 ? select("Session", filter.session, pairs("all sessions", answer.sessions), choose("session")) : "",
      searchField("Search", filter.search, choose("search")),
      el("label.check", {}, errors, " Errors only"),
    );
  }

  function drawHead(answer) {
    const totals = answer.totals ?? { steps: 0, errors: 0, llm_calls: 0, tokens_in: 0, tokens_out: 0 };
    const last = answer.completions.at(-1);
    head.replaceChildren(
      el("p.crumb", {}, el("a", { href: "#/runs" }, "← Runs")),
      el("h1", {}, el("bdi", {}, runTitle(answer)), " ", statusBadge(last?.status ?? "open")),
      el("p.note", {}, `${answer.agent_slug || answer.agent_name} · ${plural(totals.steps, "step")} · ${plural(totals.errors, "error")} · ` +
        `${plural(totals.llm_calls, "LLM call")} · ${count(totals.tokens_in)} tokens in, ${count(totals.tokens_out)} out · ` +
        `${time(totals.first_event)} to ${time(totals.last_event)}`),
      el("p.actions", {},
        el("a.button", { href: `#/sent?run=${encodeURIComponent(id)}` }, "Its requests"),
        el("a.button", { href: address("export.jsonl", { run: id }), download: true }, "As JSON Lines"),
        el("a.button", { href: address("export.csv", { run: id }), download: true }, "As CSV")),
    );
  }

  function drawFindings({ list }) {
    const isOpen = found.querySelector("details")?.open;
    found.replaceChildren(list.length === 0
      ? el("p.fine", {}, "✓ No position is missing or came twice, and no event was recorded twice.")
      : el("details.findings", { open: isOpen }, el("summary", {}, `⚠ ${plural(list.length, "finding")}: positions missing or doubled, events recorded twice`),
        el("ul", {}, list.slice(0, 200).map(([step, text]) => el("li", {}, el("button.link", { onclick: () => goTo(step) }, el("bdi", {}, text)))))));
  }

  // What reads a whole run takes its time of the service: of the page's time a tenth at most.
  let next = 0;
  let timer = 0;
  async function readWhole() {
    clearTimeout(timer);
    const begin = performance.now();
    if (begin < next) {
      timer = setTimeout(() => head.isConnected && readWhole().catch(() => {}), next - begin);
      return;
    }
    const findings = readFindings(await ask(`${path}/findings`));
    seen.notes = findings.notes;
    drawFindings(findings);
    rows.redraw();
    privacy.replaceChildren(privacyPanel(await ask(`${path}/privacy`), (request) => showRequest(details, request)));
    const end = performance.now();
    next = end + 10 * (end - begin);
  }

  let known = "";
  return async function refresh() {
    const timeline = rows.refresh();
    const answer = await ask(path);
    seen.largest = answer.largest_call;
    drawHead(answer);
    const facets = JSON.stringify([answer.kinds, answer.tools, answer.sessions]);
    if (facets !== known && !filters.contains(document.activeElement)) {
      known = facets;
      drawFilters(answer);
    }
    await timeline;
    tell();
    await readWhole();
  };
}
