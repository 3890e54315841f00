// A list of any length of which only the seen rows exist. Rows have one height and are fetched in
// pages as they come into sight. Arrow keys, Page Up and Down, Home and End move a selection,
// Enter opens it.

import { el } from "./dom.js";

const PAGE = 100;
// Browsers lay out no element higher than this; longer lists are scrolled to scale.
const MAX_HEIGHT = 8_000_000;

const pageOf = (place) => Math.floor(place / PAGE);

export class Rows {
  /** fetchPage(offset, limit, signal) → {total, items}; draw(item, place, before) → children; open(item) */
  constructor({ label, height, fetchPage, draw, open, empty }) {
    Object.assign(this, { height, fetchPage, draw, open });
    this.total = 0;
    this.selected = -1;
    this.pages = new Map();
    this.requests = new Map();
    this.drawn = new Map();
    this.top = 0;
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

  /** Asks for all that is in sight again; what is seen stays until its news is there. */
  async refresh(reset = false) {
    this.generation += 1;
    const generation = this.generation;
    if (reset) {
      this.selected = -1;
      this.node.scrollTop = 0;
    }
    const [first, last] = this.sight().map(pageOf);
    const numbers = Array.from({ length: last - first + 1 }, (_, at) => first + at);
    const answers = await Promise.all(numbers.map((page) => this.fetchPage(page * PAGE, PAGE)));
    if (generation !== this.generation) return;
    this.abandon(() => true);
    this.pages = new Map(numbers.map((page, at) => [page, answers[at].items]));
    this.total = answers[0].total;
    this.none.hidden = this.total > 0;
    this.node.hidden = this.total === 0;
    this.space.style.height = `${Math.min(this.total * this.height, MAX_HEIGHT)}px`;
    this.render();
  }

  /** Draws anew what is seen: how rows look depends on more than the rows. */
  redraw() {
    for (const row of this.drawn.values()) row.item = undefined;
    this.schedule();
  }

  scale() {
    const full = this.total * this.height - this.node.clientHeight;
    const seen = Math.min(this.total * this.height, MAX_HEIGHT) - this.node.clientHeight;
    return seen > 0 ? full / seen : 1;
  }

  firstPlace() {
    return Math.max(0, Math.floor((this.node.scrollTop * this.scale()) / this.height));
  }

  /** The first place in sight and the last, with some around them. */
  sight() {
    const first = this.firstPlace();
    return [Math.max(0, first - 5), first + Math.ceil(this.node.clientHeight / this.height) + 5];
  }

  item(place) {
    return this.pages.get(pageOf(place))?.[place % PAGE];
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
    const [first, end] = this.sight();
    const last = Math.min(end, this.total - 1);
    const shift = top - top * this.scale();
    this.fetchAround(pageOf(first), pageOf(last), top < this.top ? -1 : 1);
    this.top = top;
    for (const [place, { node }] of this.drawn) {
      if (place >= first && place <= last) continue;
      node.remove();
      this.drawn.delete(place);
    }
    let next = this.space.firstChild;
    for (let place = first; place <= last; place += 1) {
      const node = this.row(place);
      node.setAttribute("aria-selected", String(place === this.selected));
      node.style.transform = `translateY(${place * this.height + shift}px)`;
      if (node === next) next = next.nextSibling;
      else this.space.insertBefore(node, next);
    }
    const isSeen = this.selected >= first && this.selected <= last;
    if (isSeen) this.node.setAttribute("aria-activedescendant", `row-${this.selected}`);
    else this.node.removeAttribute("aria-activedescendant");
  }

  /** The row's element, drawn again only when something of it changed. */
  row(place) {
    const item = this.item(place) ?? null;
    const before = this.item(place - 1) ?? null;
    const known = this.drawn.get(place);
    if (known && known.item === item && known.before === before && known.total === this.total) return known.node;
    const node = known?.node ?? el("div.row", { role: "option", id: `row-${place}`, onclick: () => this.select(place, true) });
    this.drawn.set(place, { node, item, before, total: this.total });
    node.className = item && this.mark ? ["row", ...this.mark(item, before)].join(" ") : "row";
    node.style.height = `${this.height}px`;
    node.setAttribute("aria-setsize", this.total);
    node.setAttribute("aria-posinset", place + 1);
    node.replaceChildren(...(item ? this.draw(item, place, before) : ["…"]));
    return node;
  }

  /** The pages in sight, and the one that scrolling on will bring; those passed by meanwhile are given up. */
  fetchAround(first, last, direction) {
    this.abandon((page) => page < first - 1 || page > last + 1);
    for (let page = first; page <= last; page += 1) this.want(page);
    const ahead = direction > 0 ? last + 1 : first - 1;
    if (ahead >= 0 && ahead * PAGE < this.total) this.want(ahead);
  }

  abandon(isStale) {
    for (const [page, { controller }] of this.requests) {
      if (!isStale(page)) continue;
      controller.abort();
      this.requests.delete(page);
    }
  }

  /** Resolves when the page is there, or cannot be had. */
  async want(page) {
    if (this.pages.has(page)) return;
    if (!this.requests.has(page)) {
      const controller = new AbortController();
      this.requests.set(page, { controller, arrival: this.load(page, controller) });
    }
    await this.requests.get(page).arrival;
  }

  async load(page, controller) {
    try {
      const { items } = await this.fetchPage(page * PAGE, PAGE, controller.signal);
      if (controller.signal.aborted) return;
      this.pages.set(page, items);
      for (const far of [...this.pages.keys()]) {
        if (Math.abs(far - page) > 20) this.pages.delete(far);
      }
      this.schedule();
    } catch {
      // Given up, or asked for again when it is next in sight.
    } finally {
      if (this.requests.get(page)?.controller === controller) this.requests.delete(page);
    }
  }

  /** The item at a place, once it is there. */
  async fetched(place) {
    await this.want(pageOf(place));
    return this.item(place);
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
    const item = await this.fetched(this.selected);
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
