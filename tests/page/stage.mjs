// The stage of a test: a service with its page, agents that report to it, and a browser. Each has a
// folder of its own that goes with it.

import { execFileSync, spawn } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { createInterface } from "node:readline";

const repository = new URL("../..", import.meta.url).pathname;
const require = createRequire(join(repository, "service/page/package.json"));
const { chromium } = require("playwright-core");
export const axeSource = require("axe-core").source;

const build = process.env.PELMAR_BUILD;
const screenshots = join(build, "page-screenshots");
const KEY = "sesame-key";

export async function launch() {
  return chromium.launch({
    executablePath: process.env.PELMAR_CHROMIUM,
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
}

async function ended(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const exit = new Promise((resolve) => child.once("exit", resolve));
  child.kill("SIGTERM");
  await exit;
}

export class Stage {
  static async open() {
    const stage = new Stage();
    stage.folder = mkdtempSync(join(tmpdir(), "pelmar-page-"));
    stage.database = join(stage.folder, "service.db");
    writeFileSync(join(stage.folder, "key"), KEY, { mode: 0o600 });
    stage.children = [spawn(join(build, "pelmar-local-service"),
      ["--database", stage.database, "--key-file", join(stage.folder, "key"), "--page", join(build, "page")],
      { stdio: ["ignore", "pipe", "inherit"] })];
    const lines = createInterface({ input: stage.children[0].stdout })[Symbol.asyncIterator]();
    stage.url = (await lines.next()).value.split(" ").at(-1);
    stage.page = (await lines.next()).value.split(" ").at(-1);
    return stage;
  }

  async close() {
    for (const child of this.children.reverse()) await ended(child);
    rmSync(this.folder, { recursive: true, force: true });
  }

  /** Starts the agent on transcripts {name: lines}; more can be appended to files below `projects`. */
  agent(transcripts, slug = "page-agent") {
    const root = mkdtempSync(join(this.folder, "agent-"));
    const home = join(root, "home");
    const records = join(home, "Library/Application Support/Claude/claude-code-sessions/page");
    const projects = join(home, ".claude/projects/page");
    for (const folder of [records, projects, join(home, ".pelmar")]) mkdirSync(folder, { recursive: true });
    writeFileSync(join(home, ".pelmar/config"),
      `[claude-cowork]\napi_url = ${this.url}\napi_key = ${KEY}\n${slug ? `agent_slug = ${slug}\n` : ""}`, { mode: 0o600 });
    for (const [name, lines] of Object.entries(transcripts)) {
      writeFileSync(join(records, `local_${name}.json`), JSON.stringify({ cliSessionId: name }));
      writeFileSync(join(projects, `${name}.jsonl`), lines);
    }
    this.children.push(spawn(join(build, "PelmarCoworkWatcher-rooted"), ["--from-start", "--poll", "0.05"],
      { env: { PELMAR_ROOT: root }, stdio: "ignore" }));
    return projects;
  }

  async ask(path) {
    const answer = await fetch(`${this.url}/api/local/${path}`, { headers: { "X-Pel-Key": KEY } });
    return answer.json();
  }

  /** Posts as an agent does. */
  async post(path, body) {
    const answer = await fetch(`${this.url}/api/v1/observe/${path}`,
      { method: "POST", headers: { "X-Pel-Key": KEY }, body: JSON.stringify(body) });
    return answer.json();
  }

  async until(holds) {
    const deadline = Date.now() + 60_000;
    while (true) {
      const summary = await this.ask("summary");
      if (holds(summary)) return summary;
      if (Date.now() > deadline) throw new Error(`did not arrive: ${JSON.stringify(summary)}`);
    }
  }

  /** Rows of the database itself, read by another program than the service. */
  rows(sql) {
    const script = "import json,sqlite3,sys; c=sqlite3.connect('file:'+sys.argv[1]+'?mode=ro',uri=True,timeout=10); print(json.dumps(c.execute(sys.argv[2]).fetchall()))";
    return JSON.parse(execFileSync("python3", ["-c", script, this.database, sql], { maxBuffer: 1 << 28 }).toString());
  }
}

/** A page that fails the test for anything the browser complains about. */
export async function openPage(browser, url, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, timezoneId: "UTC", acceptDownloads: true, ...options });
  const page = await context.newPage();
  page.complaints = [];
  page.on("console", (message) => {
    if (["error", "warning"].includes(message.type())) page.complaints.push(message.text());
  });
  page.on("pageerror", (error) => page.complaints.push(String(error)));
  page.on("dialog", async (dialog) => {
    page.complaints.push(`dialog: ${dialog.message()}`);
    await dialog.dismiss();
  });
  await page.goto(url);
  return page;
}

export async function shoot(page, name) {
  mkdirSync(screenshots, { recursive: true });
  await page.screenshot({ path: join(screenshots, `${name}.png`), fullPage: true });
}

/** Goes to a view and waits until it is drawn. */
export async function go(page, hash) {
  if (await page.evaluate((to) => location.hash === to, hash)) return;
  const drawn = Number(await page.evaluate(() => document.documentElement.dataset.drawn ?? 0));
  await page.evaluate((to) => { location.hash = to; }, hash);
  await page.waitForFunction((before) => Number(document.documentElement.dataset.drawn) > before, drawn);
}
