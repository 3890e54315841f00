// The overview: agents, totals, plots. Follows what the agents report.

import { ask, address } from "./api.js";
import { el, table } from "./dom.js";
import { ago, bytes, count, time } from "./format.js";
import { figuresOf, Plot } from "./plots.js";

function card(name, figure, note) {
  return el("div.card", {}, el("dt", {}, name), el("dd", {}, figure, note ? el("small", {}, note) : null));
}

function cards(totals) {
  return [
    card("Sessions", count(totals.sessions)),
    card("Runs", count(totals.runs)),
    card("Steps", count(totals.steps)),
    card("LLM calls", count(totals.llm_calls)),
    card("Tokens", count(totals.tokens_in + totals.tokens_out), `${count(totals.tokens_in)} in, ${count(totals.tokens_out)} out`),
    card("Requests", count(totals.requests), totals.failed_requests ? `⚠ ${count(totals.failed_requests)} failed` : "none failed"),
    card("Sent", bytes(totals.bytes_sent), `${count(totals.bytes_sent)} bytes`),
  ];
}

function agentsTable(agents) {
  return table(
    "Agents",
    [["agent"], ["last heartbeat"], ["machine"], ["runs today", "number"], ["runs", "number"]],
    agents.map((agent) => [
      agent.agent_slug ? agent.agent_slug : `${agent.agent_name || "unnamed"} (no slug)`,
      agent.last_heartbeat ? el("time", { title: time(agent.last_heartbeat) }, ago(agent.last_heartbeat)) : "none yet",
      agent.machine_id ?? "–",
      count(agent.runs_today),
      count(agent.runs),
    ]),
  );
}

function nothingYet() {
  return el(
    "section.panel.welcome",
    {},
    el("h2", {}, "Nothing has been sent yet"),
    el("p", {}, "This page shows every byte an agent reports to this machine’s stand-in for the service, as it arrives. To see some:"),
    el("ol", {},
      el("li", {}, "stop this with Ctrl-C and run ", el("code", {}, "./run"), " for the samples, or ", el("code", {}, "./run FOLDER"), " for your own transcripts (they are copied, and leave this machine nowhere);"),
      el("li", {}, "or let an agent of yours report here: set ", el("code", {}, `api_url = ${location.origin}`), " and the service’s key as ", el("code", {}, "api_key"), " in its ", el("code", {}, "~/.pelmar/config"), ", and start it.")),
    el("p", {}, "What arrives appears here by itself."),
  );
}

export function overview(main) {
  const totals = el("dl.cards");
  const agents = el("section.panel");
  const plots = [];
  const figures = el("div.figures");
  const rest = el("div", {});
  main.append(el("h1", {}, "Overview"), rest);
  let isEmpty = null;

  function layOut(empty) {
    if (empty === isEmpty) return;
    isEmpty = empty;
    rest.replaceChildren(...(empty ? [nothingYet()] : [
      totals,
      figures,
      agents,
      el("section.panel", {}, el("h2", {}, "Take it with you"), el("p.actions", {},
        el("a.button", { href: address("export.jsonl"), download: true }, "Everything as JSON Lines"),
        el("a.button", { href: address("export.csv"), download: true }, "All steps as CSV"))),
    ]));
  }

  return async function refresh() {
    const answer = await ask("overview");
    layOut(answer.totals.requests === 0 && answer.totals.runs === 0);
    if (isEmpty) return;
    totals.replaceChildren(...cards(answer.totals));
    agents.replaceChildren(agentsTable(answer.agents));
    const drawn = figuresOf(answer.series);
    while (plots.length < drawn.length) {
      plots.push(new Plot());
      figures.append(plots.at(-1).node);
    }
    drawn.forEach((figure, at) => plots[at].show(figure));
  };
}
