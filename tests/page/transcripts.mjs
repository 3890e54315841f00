// Transcripts as the desktop application writes them.

const at = (number) => new Date(Date.UTC(2026, 2, 4, 10, 0, number)).toISOString();

/** A session of `turns` turns: a question, a tool call, its result, an answer. */
export function session(id, turns, { question = "How is the garden?", answer = "It grows.", result = "green" } = {}) {
  const lines = [];
  const add = (line) => lines.push(JSON.stringify({ uuid: `${id}-${lines.length}`, session_id: id, _audit_timestamp: at(lines.length), ...line }));
  const usage = (tokens) => ({ input_tokens: tokens, output_tokens: 20, cache_creation_input_tokens: 0, cache_read_input_tokens: 0 });
  add({ type: "system", subtype: "init", cwd: "/home/me", model: "m", tools: ["Bash"] });
  for (let turn = 0; turn < turns; turn += 1) {
    add({ type: "user", message: { role: "user", content: question } });
    add({ type: "assistant", message: { id: `${id}-m${turn}`, role: "assistant", model: "model-one", usage: usage(100 + turn),
      content: [{ type: "tool_use", id: `${id}-t${turn}`, name: turn % 2 ? "Read" : "Bash", input: { command: `ls ${turn}` } }] } });
    add({ type: "user", message: { role: "user", content: [{ type: "tool_result", tool_use_id: `${id}-t${turn}`, is_error: turn === 1, content: result }] } });
    add({ type: "assistant", message: { id: `${id}-n${turn}`, role: "assistant", model: "model-one", usage: usage(10), content: [{ type: "text", text: answer }] } });
  }
  return `${lines.join("\n")}\n`;
}
