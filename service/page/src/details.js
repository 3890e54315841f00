// The panel beside a list: one step or one request, whole, as it came.

import { ask } from "./api.js";
import { el } from "./dom.js";
import { bytes, count, duration, time } from "./format.js";
import { elementText, indented } from "./jsontext.js";

// Drawing more text than this makes a browser slow; copying always takes all of it.
const MAX_SHOWN = 200_000;

export class Details {
  constructor(label) {
    this.content = el("div");
    this.close = el("button.close", { onclick: () => this.hide(), "aria-label": "Close the details" }, "✕");
    this.node = el("aside.details", { "aria-label": label, hidden: true, tabindex: "-1", onkeydown: (event) => {
      if (event.key === "Escape") this.hide();
    } }, this.close, this.content);
  }

  show(...children) {
    if (this.node.hidden) this.before = document.activeElement;
    this.content.replaceChildren(...children);
    this.node.hidden = false;
    this.node.scrollTop = 0;
    this.node.focus({ preventScroll: true });
  }

  hide() {
    this.node.hidden = true;
    this.before?.focus({ preventScroll: true });
  }
}

function facts(pairs) {
  return el("dl.facts", {}, pairs.filter(([, value]) => value !== null && value !== "" && value !== undefined)
    .map(([name, value]) => [el("dt", {}, name), el("dd", {}, typeof value === "string" ? el("bdi", {}, value) : value)]));
}

/** Text in a box with buttons to copy it and to see it without line breaks of ours. */
function textBox(label, text) {
  let isIndented = true;
  const shown = el("pre.code", { tabindex: "0", "aria-label": label });
  const note = el("p.note", { role: "status" });
  const draw = () => {
    const whole = isIndented ? indented(text) : text;
    shown.textContent = whole.slice(0, MAX_SHOWN);
    note.textContent = whole.length > MAX_SHOWN
      ? `The first ${count(MAX_SHOWN)} of ${count(whole.length)} characters are drawn; copying takes all.` : "";
  };
  const copy = async () => {
    await navigator.clipboard.writeText(text);
    note.textContent = "Copied, exactly as it came.";
  };
  const toggle = el("button", { "aria-pressed": "false", onclick: () => {
    isIndented = !isIndented;
    toggle.setAttribute("aria-pressed", String(!isIndented));
    draw();
  } }, "Exactly as it came");
  draw();
  return el("section", {}, el("div.boxhead", {}, el("h3", {}, label), toggle, el("button", { onclick: copy }, "Copy")), note, shown);
}

export async function showStep(details, id, { goTo, partner, notes = [] }) {
  const step = await ask(`steps/${id}`);
  const request = await ask(`requests/${step.request}`);
  const text = elementText(request.body, "steps", step.place) ?? JSON.stringify(step.output);
  details.show(
    el("h2", {}, `Step ${step.position}`),
    ...notes.map((note) => el("p.warning", {}, `⚠ ${note}`)),
    facts([
      ["kind", step.kind], ["name", step.step_name], ["session", step.session_id], ["turn", String(step.turn)],
      ["time", step.timestamp], ["arrived", step.received_at], ["tool use", step.tool_use_id],
      ["tokens", step.tokens_in === null ? "" : `${count(step.tokens_in)} in, ${count(step.tokens_out)} out`],
      ["failed", step.is_error ? "yes" : ""],
    ]),
    el("p.actions", {},
      partner ? el("button", { onclick: () => goTo(partner) }, step.kind === "tool_use" ? "Go to its result" : "Go to its tool call") : null,
      el("a.button", { href: `#/sent?request=${step.request}` }, `Sent in request ${step.request}`)),
    textBox("JSON as it came", text),
  );
}

export async function showRequest(details, id) {
  const request = await ask(`requests/${id}`);
  details.show(
    el("h2", {}, `Request ${request.id}`),
    facts([
      ["time", time(request.received_at)], ["line", `${request.method} ${request.path}`],
      ["status", request.status === 0 ? "0: nothing was answered" : String(request.status)],
      ["body", `${bytes(request.body_bytes)} (${count(request.body_bytes)} bytes)`],
      ["answer", `${count(request.answer_bytes)} bytes`], ["handled in", duration(request.duration_us)],
    ]),
    el("h3", {}, "Headers"),
    facts(request.headers),
    request.body ? textBox("Body", request.body) : el("p.note", {}, "It had no body."),
  );
}
