// Walks the page as a person would, against the real service and the real agent.

import assert from "node:assert/strict";
import { appendFileSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { axeSource, go, launch, openPage, shoot, Stage } from "./stage.mjs";
import { session } from "./transcripts.mjs";

let browser;
before(async () => {
  browser = await launch();
});
after(() => browser.close());

const number = (text) => Number(text.replaceAll(/[^0-9]/g, ""));

async function withStage(use) {
  const stage = await Stage.open();
  try {
    await use(stage);
  } finally {
    await stage.close();
  }
}

/** The figure of an overview's card. */
const card = async (page, name) => number(await page.locator(".card", { hasText: name }).locator("dd").evaluate((node) => node.firstChild.textContent));

const openRun = async (page, name) => {
  await go(page, "#/runs");
  await page.getByRole("link", { name }).click();
  await page.waitForSelector(".row");
};

async function axe(page) {
  // Evaluated by the test's own channel: the page's policy lets no other script in.
  await page.evaluate(axeSource);
  const { violations } = await page.evaluate(() => window.axe.run(document));
  return violations.map(({ id, impact, nodes }) => `${impact} ${id}: ${nodes[0].html}`);
}

test("An empty service says what to do next", () => withStage(async (stage) => {
  const page = await openPage(browser, stage.page);
  await page.getByText("Nothing has been sent yet").waitFor();
  assert.ok(await page.getByText("./run FOLDER").isVisible());
  await shoot(page, "empty");
  await go(page, "#/runs");
  await page.getByText("No agent has started a run yet.").waitFor();
  await go(page, "#/sent");
  await page.getByText("No request here yet.").waitFor();
  assert.deepEqual(page.complaints, []);
}));

test("Without its token the page shows nothing and says why", () => withStage(async (stage) => {
  const page = await openPage(browser, stage.url);
  await page.getByText("This address lacks its token").waitFor();
}));

test("Every view shows what the database holds", () => withStage(async (stage) => {
  stage.agent({ one: session("one", 3), two: session("two", 2) });
  stage.agent({ solo: session("solo", 2) }, "");
  await stage.until(({ steps, llm_calls: calls }) => steps.total === 35 && calls.total === 14);
  const page = await openPage(browser, stage.page);
  await page.waitForSelector(".card");
  const [[sessions, steps]] = stage.rows("SELECT count(DISTINCT session_id), count(*) FROM steps");
  const [[tokens]] = stage.rows("SELECT sum(tokens_in) + sum(tokens_out) FROM llm_calls");
  const [[runs]] = stage.rows("SELECT count(*) FROM runs");
  assert.equal(await card(page, "Sessions"), sessions);
  assert.equal(await card(page, "Steps"), steps);
  assert.equal(await card(page, "Runs"), runs);
  assert.equal(await card(page, "Tokens"), tokens);
  assert.equal(await page.locator("canvas").count() >= 4, true);
  await shoot(page, "overview");

  await go(page, "#/runs");
  assert.equal(await page.locator("tbody tr").count(), runs);
  await page.getByRole("button", { name: "steps" }).click();
  await page.locator('th[aria-sort="descending"]', { hasText: "steps" }).waitFor();
  await page.locator("tbody tr").first().getByText("page-agent").waitFor();
  await shoot(page, "runs");
  await page.getByLabel("Search session id, tool name and text").fill("solo");
  await page.getByText("1 run found").waitFor();

  await openRun(page, "Session solo");
  await page.getByText("No position is missing or came twice").waitFor();
  assert.equal(await page.locator(".row").count(), 10);
  assert.deepEqual((await page.locator(".cell.turn").allTextContents()).filter(Boolean), ["Turn 1", "Turn 2"]);
  await page.getByLabel("Tool", { exact: true }).selectOption("Read");
  await page.getByText("2 steps", { exact: true }).waitFor();
  await page.getByLabel("Errors only").check();
  await page.getByText("1 step", { exact: true }).waitFor();
  await page.locator(".row", { hasText: "✗ failed" }).waitFor();
  await page.getByLabel("Tool", { exact: true }).selectOption("");
  await page.getByLabel("Errors only").uncheck();
  await page.getByText("10 steps", { exact: true }).waitFor();
  await page.locator(".row", { hasText: "tool_use" }).first().click();
  await page.getByRole("button", { name: "Go to its result" }).click();
  await page.getByRole("button", { name: "Go to its tool call" }).waitFor();
  await page.getByRole("button", { name: "Exactly as it came" }).click();
  const raw = await page.getByLabel("JSON as it came").textContent();
  const bodies = stage.rows("SELECT body FROM requests WHERE path LIKE '%/steps/'").map(([body]) => body);
  assert.ok(raw.includes('"tool_result"') && bodies.some((body) => body.includes(raw)));
  await page.context().grantPermissions(["clipboard-read", "clipboard-write"]);
  await page.getByRole("button", { name: "Copy" }).click();
  await page.getByText("Copied, exactly as it came.").waitFor();
  assert.equal(await page.evaluate(() => navigator.clipboard.readText()), raw);
  await shoot(page, "run");

  await go(page, "#/sent");
  await page.waitForSelector(".row");
  const [[requests]] = stage.rows("SELECT count(*) FROM requests");
  assert.ok(number(await page.locator("main > .note").first().textContent()) <= requests);
  await page.locator(".row").first().click();
  await page.locator(".details").getByText("X-Pel-Key").waitFor();
  assert.ok((await page.locator(".details").textContent()).includes("***"));
  assert.ok(!(await page.content()).includes("sesame-key"));
  const [[userText]] = stage.rows("SELECT sum(length(json_extract(output,'$.text'))) FROM steps WHERE kind = 'user_message'");
  await page.getByRole("row", { name: "user_message text user text" }).getByText(String(userText)).waitFor();
  await shoot(page, "sent");
  assert.deepEqual(page.complaints, []);
}));

test("What an agent reports appears while the page is open", () => withStage(async (stage) => {
  const projects = stage.agent({ live: session("live", 1) });
  await stage.until(({ steps }) => steps.total === 5);
  const page = await openPage(browser, stage.page);
  await openRun(page, "Daily run");
  await page.getByText("5 steps", { exact: true }).waitFor();
  appendFileSync(join(projects, "live.jsonl"), `${JSON.stringify({ type: "user", uuid: "late", session_id: "live", message: { role: "user", content: "one more thing" } })}\n`);
  await page.locator(".row", { hasText: "one more thing" }).waitFor();
  await page.getByText("6 steps", { exact: true }).waitFor();
}));

test("Missing and doubled positions and doubled events are pointed out", () => withStage(async (stage) => {
  const { run_id: run } = await stage.post("runs/daily/", { agent_slug: "a", agent_type: "t" });
  const step = (position, text) => ({ step_name: "s", position, output: { kind: "user_message", timestamp: "2026-03-04T10:00:00Z", source: "s", session_id: "S", hardware_uuid: "H", text } });
  await stage.post(`runs/${run}/steps/`, { hardware_uuid: "H", steps: [step(0, "a"), step(3, "b"), step(3, "c"), step(4, "c")] });
  const page = await openPage(browser, stage.page);
  await openRun(page, "Daily run");
  await page.getByText("3 findings").click();
  await page.getByText("Position 3 came twice").waitFor();
  await page.getByText("recorded 2 times").waitFor();
  await page.getByText("Positions 1 to 2 are missing").click();
  await page.locator(".details .warning", { hasText: "Positions 1 to 2" }).waitFor();
}));

test("A run can be taken along as JSON Lines and as CSV", () => withStage(async (stage) => {
  stage.agent({ one: session("one", 2) });
  await stage.until(({ steps, llm_calls: calls }) => steps.total === 10 && calls.total === 4);
  const page = await openPage(browser, stage.page);
  await openRun(page, "Daily run");
  for (const [name, lines] of [["As JSON Lines", 15], ["As CSV", 11]]) {
    const arrives = page.waitForEvent("download");
    await page.getByRole("link", { name }).click();
    const text = readFileSync(await (await arrives).path(), "utf8");
    assert.equal(text.trimEnd().split("\n").length, lines, name);
  }
}));

test("The keyboard alone reaches everything", () => withStage(async (stage) => {
  stage.agent({ one: session("one", 30) });
  await stage.until(({ steps }) => steps.total === 150);
  const page = await openPage(browser, stage.page);
  const tabTo = async (selector) => {
    for (let presses = 0; presses < 60; presses += 1) {
      await page.keyboard.press("Tab");
      if (await page.evaluate((wanted) => document.activeElement.matches(wanted), selector)) return;
    }
    assert.fail(`${selector} is not reached`);
  };
  await page.waitForSelector(".card");
  await tabTo('nav a[href="#/runs"]');
  await page.keyboard.press("Enter");
  await page.waitForSelector("tbody a");
  await tabTo("tbody a");
  await page.keyboard.press("Enter");
  await page.waitForSelector(".row");
  await tabTo(".rows");
  await page.keyboard.press("End");
  await page.locator('.row[aria-selected="true"][aria-posinset="150"]').waitFor();
  await page.keyboard.press("Home");
  await page.keyboard.press("ArrowDown");
  await page.locator('.row[aria-selected="true"][aria-posinset="2"]').waitFor();
  await page.keyboard.press("Enter");
  await page.getByText("Step 1", { exact: true }).waitFor();
  await page.keyboard.press("Escape");
  await page.locator(".details").waitFor({ state: "hidden" });
  assert.ok(await page.evaluate(() => document.activeElement.matches(".rows")));
}));

test("No view has an accessibility finding, in light or dark or on a narrow window", () => withStage(async (stage) => {
  stage.agent({ one: session("one", 3) });
  await stage.until(({ steps, llm_calls: calls }) => steps.total === 15 && calls.total === 6);
  for (const [name, options] of [["light", {}], ["dark", { colorScheme: "dark" }], ["narrow", { viewport: { width: 390, height: 800 } }]]) {
    const page = await openPage(browser, stage.page, options);
    await page.waitForSelector(".card");
    for (const view of ["overview", "runs", "run", "sent"]) {
      if (view === "run") await openRun(page, "Daily run");
      else await go(page, `#/${view === "overview" ? "" : view}`);
      if (view === "run" || view === "sent") {
        await page.waitForSelector("[data-view=privacy]");
        await page.locator(".row").first().click();
        await page.waitForSelector(".details pre");
      }
      assert.deepEqual(await axe(page), [], `${view}, ${name}`);
      const tooWide = await page.evaluate(() => [document.documentElement, ...document.querySelectorAll(".scroll")]
        .filter((node) => node.scrollWidth > node.clientWidth).map((node) => node.ariaLabel ?? node.tagName));
      assert.deepEqual(tooWide, [], `too wide: ${view}, ${name}`);
      await shoot(page, `${view}-${name}`);
    }
    await page.context().close();
  }
}));
