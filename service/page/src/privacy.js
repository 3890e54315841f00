// The privacy summary: which fields carried free text, how much of it, and the largest bodies.

import { el, table } from "./dom.js";
import { bytes, count, time } from "./format.js";

const ORDER = ["user text", "model text", "tool input", "tool output", "other"];

function bars(categories) {
  const amounts = ORDER.map((name) => [name, categories.find((one) => one.category === name)?.bytes ?? 0]);
  const most = Math.max(1, ...amounts.map(([, amount]) => amount));
  return el("dl.bars", {}, amounts.map(([name, amount]) => [
    el("dt", {}, name),
    el("dd", {}, el("meter", { min: 0, max: most, value: amount, "aria-label": name }), el("span", { title: `${count(amount)} bytes` }, bytes(amount))),
  ]));
}

export function privacyPanel(answer, open) {
  return el("section.panel", { "data-view": "privacy" },
    el("h2", {}, "What free text went out"),
    el("p.note", {}, "Bytes of what people, the model and tools wrote, by who wrote it. Tool calls go out twice: in the assistant’s step and in their own."),
    bars(answer.categories),
    table("Fields that carried free text",
      [["kind of step"], ["field"], ["whose text"], ["times", "number"], ["bytes", "number"]],
      answer.fields.map((field) => [el("bdi", {}, field.kind), el("code", {}, field.field), field.category, count(field.count), count(field.bytes)])),
    table("The ten largest bodies",
      [["request"], ["time", "time"], ["path"], ["bytes", "number"]],
      answer.largest.map((request) => [
        el("button.link", { onclick: () => open(request.id) }, `Request ${request.id}`),
        time(request.received_at), el("bdi.path", {}, request.path), count(request.body_bytes)])));
}
