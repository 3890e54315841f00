// Looks at JSON text without reading its values: numbers keep their digits, strings their escapes.

/** The tokens of `text` as [start, end) pairs, whitespace left out. */
function* tokens(text) {
  const pattern = /"(?:[^"\\]|\\.)*"|[{}[\],:]|[^\s{}[\],:"]+/gsu;
  for (const match of text.matchAll(pattern)) yield [match.index, match.index + match[0].length];
}

/** The text of element `place` of the array at key `list` of the object that `text` holds. */
export function elementText(text, list, place) {
  let depth = 0;
  let key = "";
  let last = "";
  let begin = -1;
  let index = 0;
  let found = null;
  for (const [from, to] of tokens(text)) {
    const token = text.slice(from, to > from + 200 ? from + 200 : to);
    if (token === ":" && depth === 1) key = last;
    const inList = key === JSON.stringify(list);
    if (depth === 2 && inList && begin < 0 && token !== "]") begin = from;
    if (token === "{" || token === "[") {
      depth += 1;
      if (depth === 2 && inList) index = 0;
    } else if (token === "}" || token === "]") {
      depth -= 1;
      if (depth === 1 && begin >= 0) {
        if (index === place) found = text.slice(begin, from).trimEnd();
        begin = -1;
      }
    } else if (token === "," && depth === 2 && begin >= 0) {
      if (index === place) found = text.slice(begin, from).trimEnd();
      begin = -1;
      index += 1;
    }
    last = token;
  }
  return found;
}

/** The same tokens, one value a line. */
export function indented(text) {
  const parts = [];
  let depth = 0;
  let previous = "";
  const line = () => parts.push("\n", "  ".repeat(depth));
  for (const [from, to] of tokens(text)) {
    const token = text.slice(from, to);
    if (token === "}" || token === "]") {
      depth -= 1;
      if (previous !== "{" && previous !== "[") line();
    } else if (previous === "{" || previous === "[" || previous === ",") {
      line();
    }
    parts.push(token === ":" ? ": " : token);
    if (token === "{" || token === "[") depth += 1;
    previous = token;
  }
  return parts.join("");
}
