// Builds elements. Text is only ever set as text: there is no way here to make markup of it.

/** el("p.note", {title: "x", onclick: f}, "text", child, …) */
export function el(selector, properties = {}, ...children) {
  const [tag, ...classes] = selector.split(".");
  const node = document.createElement(tag);
  if (classes.length > 0) node.className = classes.join(" ");
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith("on")) node.addEventListener(name.slice(2), value);
    else node.setAttribute(name, value === true ? "" : value);
  }
  node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
  return node;
}

let fields = 0;

function labelled(style, label, node) {
  fields += 1;
  node.id = `field-${fields}`;
  return el(style, {}, el("label", { for: node.id }, label), node);
}

/** A select of [value, text] pairs. */
export function select(label, value, options, onchange) {
  const node = el("select", { onchange: () => onchange(node.value) });
  for (const [key, text] of options) {
    const option = el("option", { value: key }, text);
    option.selected = key === value;
    node.append(option);
  }
  return labelled("div.field", label, node);
}

/** Search text, handed on when the typing pauses. */
export function searchField(label, value, onsearch) {
  let timer = 0;
  const input = el("input", {
    type: "search",
    value,
    autocomplete: "off",
    spellcheck: "false",
    maxlength: 200,
    oninput: () => {
      clearTimeout(timer);
      timer = setTimeout(() => onsearch(input.value), 250);
    },
  });
  return labelled("div.field.grow", label, input);
}

// Said outright, because a narrow window lays tables out as something else (page.css).
export const ROLES = { table: { role: "table" }, part: { role: "rowgroup" }, row: { role: "row" }, head: { role: "columnheader", scope: "col" } };

/** A cell, which tells its column's name where there is no heading above it. */
export function cell(name, style, ...children) {
  return el(style ? `td.${style}` : "td", { role: "cell", "data-name": name }, ...children);
}

/** A table of [heading, class] columns and rows of cells. */
export function table(caption, columns, rows) {
  return el(
    "div.scroll",
    { tabindex: "0", role: "region", "aria-label": caption },
    el(
      "table",
      ROLES.table,
      el("caption", {}, caption),
      el("thead", ROLES.part, el("tr", ROLES.row, columns.map(([name, style]) =>
        el(style ? `th.${style}` : "th", ROLES.head, name)))),
      el("tbody", ROLES.part, rows.map((cells) => el("tr", ROLES.row, cells.map((content, at) =>
        cell(columns[at][0], columns[at][1], content))))),
    ),
  );
}
