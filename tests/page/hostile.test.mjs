// What transcripts may hold, and how much of it.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { go, launch, openPage, shoot, Stage } from "./stage.mjs";
import { session } from "./transcripts.mjs";

let browser;
before(async () => {
  browser = await launch();
});
after(() => browser.close());

const HOSTILE = [
  '<script>window.ran = 1; alert("script")</script>',
  '<img src=x onerror="window.ran = 1; alert(1)">',
  '"><svg onload=alert(1)>\' onmouseover=alert(1) x="',
  "javascript:alert(1) {{constructor.constructor('window.ran=1')()}}",
  "שלום עולם \u202Eevil\u202C מימין לשמאל",
  "👩‍👩‍👧‍👦 zero\u200Bwidth \u0000 null e\u0301",
  `${"nospaces".repeat(400)}`,
];

test("Hostile and odd text appears as text and runs nothing", async () => {
  const stage = await Stage.open();
  try {
    const transcripts = {};
    HOSTILE.forEach((text, at) => {
      transcripts[`h${at}`] = session(`h${at}${text.slice(0, 300)}`, 1, { question: text, answer: text, result: text });
    });
    transcripts.long = session("long", 1, { question: "<b>long</b>".repeat(100_000) });
    stage.agent(transcripts);
    await stage.until(({ steps }) => steps.total === (HOSTILE.length + 1) * 5);
    const page = await openPage(browser, stage.page);
    const foreign = [];
    page.on("request", (request) => {
      if (!request.url().startsWith(stage.url) && !request.url().startsWith("blob:")) foreign.push(request.url());
    });
    await go(page, "#/runs");
    await page.getByRole("link", { name: "Daily run" }).click();
    await page.waitForSelector(".row");
    for (const text of HOSTILE.slice(0, 5)) {
      const search = page.getByLabel("Search", { exact: true });
      await search.fill(text.slice(0, 40));
      const row = page.locator(".row", { hasText: "user_message" }).filter({ hasText: text.slice(0, 40) }).first();
      await row.click();
      const pre = page.getByLabel("JSON as it came");
      await pre.filter({ hasText: JSON.stringify(text).slice(1, -1) }).waitFor();
    }
    await page.getByLabel("Search", { exact: true }).fill("<b>long</b>");
    await page.locator(".row", { hasText: "user_message" }).filter({ hasText: "<b>long" }).first().click();
    await page.getByText("characters are drawn; copying takes all").waitFor();
    await shoot(page, "hostile");
    await go(page, "#/sent");
    await page.waitForSelector(".row");
    const state = await page.evaluate(() => ({
      ran: window.ran,
      scripts: document.scripts.length,
      images: document.querySelectorAll("main img, main svg, main script, main b").length,
      overflow: document.documentElement.scrollWidth - innerWidth,
    }));
    assert.deepEqual(state, { ran: undefined, scripts: 1, images: 0, overflow: 0 });
    assert.deepEqual(page.complaints, []);
    assert.deepEqual(foreign, []);
  } finally {
    await stage.close();
  }
});

const STEPS = 100_000;
const WHEEL_TURNS = 300;
const WHEEL_PIXELS = 500;
const ROW_PIXELS = 40;

/** Scrolls through thousands of rows as a person would; prints how smooth that was, and judges only
    what does not depend on how fast this machine is. */
async function scrollByWheel(page) {
  const asked = [];
  page.on("request", (request) => {
    if (request.url().includes("/timeline?")) asked.push(request.url());
  });
  // A row that stays is left as it is: a hundred frames, each a quarter of a row on, bring 25 rows.
  const crept = await page.evaluate(async (step) => {
    const list = document.querySelector(".rows");
    const frame = () => new Promise((resolve) => { requestAnimationFrame(() => requestAnimationFrame(resolve)); });
    let added = 0;
    const observer = new MutationObserver((changes) => {
      for (const { addedNodes } of changes) added += addedNodes.length;
    });
    observer.observe(list.firstChild, { childList: true, subtree: true });
    for (let at = 0; at < 100; at += 1) {
      list.scrollTop += step;
      await frame();
    }
    observer.disconnect();
    list.scrollTop = 0;
    return added;
  }, ROW_PIXELS / 4);
  assert.ok(crept <= 30, `${crept} elements drawn`);
  await page.evaluate(() => {
    const list = document.querySelector(".rows");
    const seen = window.seen = { frames: [], longTasks: 0, most: 0, drawn: 0, isOver: false };
    new PerformanceObserver((entries) => { seen.longTasks += entries.getEntries().length; }).observe({ entryTypes: ["longtask"] });
    new MutationObserver((changes) => {
      for (const { addedNodes } of changes) seen.drawn += addedNodes.length;
    }).observe(list.firstChild, { childList: true, subtree: true });
    let last = performance.now();
    const frame = (now) => {
      seen.frames.push(now - last);
      last = now;
      seen.most = Math.max(seen.most, list.querySelectorAll(".row").length);
      if (!seen.isOver) requestAnimationFrame(frame);
    };
    requestAnimationFrame(frame);
  });
  await page.locator(".rows").hover();
  for (let turn = 0; turn < WHEEL_TURNS; turn += 1) await page.mouse.wheel(0, WHEEL_PIXELS);
  const rows = WHEEL_TURNS * WHEEL_PIXELS / ROW_PIXELS;
  await page.locator(".row", { hasText: `step number ${rows} of` }).waitFor();
  const seen = await page.evaluate(() => {
    window.seen.isOver = true;
    return window.seen;
  });
  const frames = seen.frames.slice(1).sort((a, b) => a - b);
  const at = (share) => frames[Math.floor((frames.length - 1) * share)].toFixed(1);
  console.log(`scrolling through ${rows} rows: ${frames.length} frames, median ${at(0.5)} ms, 95th ${at(0.95)} ms, worst ${at(1)} ms, ` +
    `${frames.filter((length) => length > 25).length} late; ${seen.longTasks} long tasks; ${asked.length} requests; ${seen.drawn} elements drawn, ${seen.most} rows at once`);
  assert.ok(asked.length <= rows / 100 + 2, `${asked.length} requests`);
  assert.ok(seen.most < 100, `${seen.most} rows at once`);
}

/** Jumps while the service does not answer: what is passed by is given up, what is asked for comes. */
async function jumpWhileWaiting(page) {
  let answer;
  const mayAnswer = new Promise((resolve) => { answer = resolve; });
  const isPage = (offset) => (request) => new URL(request.url()).searchParams.get("offset") === String(offset);
  await page.route("**/timeline?*", async (route) => {
    await mayAnswer;
    await route.continue().catch(() => {});
  });
  const asked = page.waitForRequest(isPage(70_000));
  await page.locator(".rows").evaluate((node, top) => { node.scrollTop = top; }, 70_010 * ROW_PIXELS);
  const passedBy = await asked;
  const givenUp = page.waitForEvent("requestfailed", (request) => request === passedBy);
  await page.locator(".rows").focus();
  await page.keyboard.press("End");
  await page.keyboard.press("Enter");
  await givenUp;
  answer();
  await page.getByText("Step 99999", { exact: true }).waitFor();
  await page.keyboard.press("Escape");
  await page.unroute("**/timeline?*");
}

test("A hundred thousand steps are shown, scrolled and filtered, a window at a time", async () => {
  const stage = await Stage.open();
  try {
    const { run_id: run } = await stage.post("runs/daily/", { agent_slug: "many", agent_type: "t" });
    const kinds = ["user_message", "assistant", "tool_use", "tool_result"];
    for (let begin = 0; begin < STEPS; begin += 2000) {
      const steps = Array.from({ length: 2000 }, (_, at) => ({ step_name: "cowork:step", position: begin + at, output: {
        kind: kinds[at % 4], timestamp: "2026-03-04T10:00:00Z", source: "s", session_id: "S", hardware_uuid: "H",
        text: `step number ${begin + at} of many, with a sentence or two of text behind it. `.repeat(4) } }));
      await stage.post(`runs/${run}/steps/`, { hardware_uuid: "H", steps });
    }
    const timed = async (name, act) => {
      const begin = performance.now();
      await act();
      console.log(`${name}: ${Math.round(performance.now() - begin)} ms`);
    };
    const page = await openPage(browser, "about:blank");
    await timed("overview, first view", async () => {
      await page.goto(stage.page);
      await page.locator(".card", { hasText: "100,000" }).waitFor();
    });
    await timed("run, first view", async () => {
      await page.goto(`${stage.page}#/run?id=${run}`);
      await page.locator(".row", { hasText: "step number 0 of" }).first().waitFor();
    });
    await page.getByText("100,000 steps", { exact: true }).waitFor();
    await page.getByText("No position is missing").waitFor();
    await scrollByWheel(page);
    await jumpWhileWaiting(page);
    await page.keyboard.press("Home");
    await page.locator(".row", { hasText: "step number 0 of" }).waitFor();
    await timed("to the end", async () => {
      await page.keyboard.press("End");
      await page.locator(".row", { hasText: "step number 99999 of" }).waitFor();
    });
    await timed("to the middle", async () => {
      await page.locator(".rows").evaluate((node) => { node.scrollTop = node.scrollHeight / 2; });
      await page.locator(".row", { hasText: /step number (49|50)\d\d\d of/ }).first().waitFor();
    });
    await timed("filter by kind", async () => {
      await page.getByLabel("Kind", { exact: true }).selectOption("tool_use");
      await page.getByText("25,000 steps", { exact: true }).waitFor();
    });
    await timed("search", async () => {
      await page.getByLabel("Search", { exact: true }).fill("number 77774 ");
      await page.getByText("1 step", { exact: true }).waitFor();
    });
    assert.ok(await page.locator(".row").count() < 100);
    const heap = await page.evaluate(() => performance.memory.usedJSHeapSize);
    console.log(`page memory: ${(heap / 1e6).toFixed(1)} MB`);
    await page.getByLabel("Search", { exact: true }).fill("");
    await page.getByText("25,000 steps", { exact: true }).waitFor();
    await shoot(page, "many");
  } finally {
    await stage.close();
  }
});
