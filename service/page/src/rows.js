// A list of any length of which only the seen rows exist. Rows have one height and are fetched in
// pages as they come into sight. Arrow keys, Page Up and Down, Home and End move a selection,
// Enter opens it.

import { el } from "./dom.js";

const PAGE = 100;
// Browsers lay out no element higher than this; longer lists are scrolled to scale.
const MAX_HEIGHT = 8_000_000;

export class Rows {
  /** fetchPage(offset, limit) → {total, items}; draw(item, place, before) → children; open(item) */
  constructor({ label, height, fetchPage, draw, open, empty }) {
    Object.assign(this, { height, fetchPage, draw, open });
    this.total = 0;
    this.selected = -1;
    this.pages = new Map();
    this.generation = 0;
    this.space = el("div.rows-space", { role: "presentation" });
    this.node = el("div.rows", {
      role: "listbox",
      tabindex: "0",
      "aria-label": label,
      onscroll: () => this.schedule(),
      onkeydown: (event) => this.key(event),
    }, this.space);
    this.none = el("p.empty", { hidden: true }, empty);
    new ResizeObserver(() => this.schedule()).observe(this.node);
  }

  /** Asks for everything again; what is seen stays until its news is there. */
  async refresh(reset = false) {
    this.generation += 1;
    const generation = this.generation;
    if (reset) {
      this.selected = -1;
      this.node.scrollTop = 0;
    }
    const first = Math.floor(this.firstPlace() / PAGE);
    const answer = await this.fetchPage(first * PAGE, PAGE);
    if (generation !== this.generation) return;
    this.pages = new Map([[first, answer.items]]);
    this.total = answer.total;
    this.none.hidden = this.total > 0;
    this.node.hidden = this.total === 0;
    this.space.style.height = `${Math.min(this.total * this.height, MAX_HEIGHT)}px`;
    this.render();
  }

  scale() {
    const full = this.total * this.height - this.node.clientHeight;
    const seen = Math.min(this.total * this.height, MAX_HEIGHT) - this.node.clientHeight;
    return seen > 0 ? full / seen : 1;
  }

  firstPlace() {
    return Math.max(0, Math.floor((this.node.scrollTop * this.scale()) / this.height));
  }

  item(place) {
    return this.pages.get(Math.floor(place / PAGE))?.[place % PAGE];
  }

  schedule() {
    if (this.frame) return;
    this.frame = requestAnimationFrame(() => {
      this.frame = 0;
      this.render();
    });
  }

  render() {
    const top = this.node.scrollTop;
    const first = Math.max(0, this.firstPlace() - 5);
    const last = Math.min(this.total, this.firstPlace() + Math.ceil(this.node.clientHeight / this.height) + 6);
    const shift = top - top * this.scale();
    const drawn = [];
    for (let place = first; place < last; place += 1) {
      const item = this.item(place);
      if (!item) this.want(Math.floor(place / PAGE));
      const row = el("div.row", {
        role: "option",
        id: `row-${place}`,
        "aria-selected": String(place === this.selected),
        "aria-setsize": this.total,
        "aria-posinset": place + 1,
        onclick: () => this.select(place, true),
      }, item ? this.draw(item, place, this.item(place - 1)) : "…");
      if (item && this.mark) row.classList.add(...this.mark(item, this.item(place - 1)));
      row.style.height = `${this.height}px`;
      row.style.transform = `translateY(${place * this.height + shift}px)`;
      drawn.push(row);
    }
    this.space.replaceChildren(...drawn);
    const isSeen = this.selected >= first && this.selected < last;
    if (isSeen) this.node.setAttribute("aria-activedescendant", `row-${this.selected}`);
    else this.node.removeAttribute("aria-activedescendant");
  }

  async want(page) {
    if (this.pages.has(page)) return;
    this.pages.set(page, null);
    const generation = this.generation;
    try {
      const answer = await this.fetchPage(page * PAGE, PAGE);
      if (generation !== this.generation) return;
      this.pages.set(page, answer.items);
      for (const far of [...this.pages.keys()]) {
        if (Math.abs(far - page) > 20) this.pages.delete(far);
      }
      this.schedule();
    } catch {
      this.pages.delete(page);
    }
  }

  /** Scrolls to a place and selects it. */
  async select(place, opens = false) {
    this.selected = Math.max(0, Math.min(place, this.total - 1));
    const begin = (this.selected * this.height) / this.scale();
    const room = this.node.clientHeight - this.height;
    if (begin < this.node.scrollTop) this.node.scrollTop = begin;
    else if (begin > this.node.scrollTop + room) this.node.scrollTop = begin - room;
    this.render();
    if (!opens) return;
    await this.want(Math.floor(this.selected / PAGE));
    const item = this.item(this.selected);
    if (item) this.open(item);
  }

  key(event) {
    const page = Math.max(1, Math.floor(this.node.clientHeight / this.height) - 1);
    const moves = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page };
    if (event.key in moves) this.select(this.selected + moves[event.key]);
    else if (event.key === "Home") this.select(0);
    else if (event.key === "End") this.select(this.total - 1);
    else if (event.key === "Enter" && this.selected >= 0) this.select(this.selected, true);
    else return;
    event.preventDefault();
  }
}
