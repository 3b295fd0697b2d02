// The page of voltaris-node in a real browser: it loads, shows the fleet, and changes when the
// network changes something. scripts/page-test runs it:
//
//   node page_test.mjs PROGRAMS FOLDER CHROMIUM
//
// PROGRAMS holds voltaris and voltaris-node; FOLDER holds the installed packages, and gets the
// screenshots. Every wait is for something that the page shows, and ends after kPatience.
import assert from "node:assert/strict";
import { execFile, spawn } from "node:child_process";
import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { createRequire } from "node:module";
import { connect } from "node:net";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { after, before, test } from "node:test";
import { createInterface } from "node:readline";
import { promisify } from "node:util";

const [programs, folder, chromium] = process.argv.slice(2).map((path) => resolve(path));
const { chromium: browserType } = createRequire(join(folder, "package.json"))("playwright-core");
const kPatience = 20000;

const fleet = `
[node]
id = "page0000000000000000000000000000"
domain = "office"
name = "page test"
role = "node"

[[device]]
id = "page0000000000000000000000000001"
name = "corner lamp"
role = "lamp"
watts = [0, 100]
level = 10

[[device]]
id = "page0000000000000000000000000002"
name = "roof"
role = "solar"
watts = [0, 2500]
category = "producer"

[[group]]
count = 120
name = "desk-{n:03}"
role = "phone"
keywords = ["desk", "floor 2"]
watts = [0.5, 3.5]
level = 4
noise = 0.2

[[group]]
count = 12
name = "rack-{n:02}"
role = "server"
domain = "machine room"
watts = [60, 400]
profile = { kind = "sine", period = 60, low = 0.6, high = 1 }
`;

let scratch, node, address, page, browser;
const problems = []; // what the browser complained of
const outside = []; // requests that went elsewhere

const voltaris = (...words) =>
  promisify(execFile)(join(programs, "voltaris"), [...words, "--node", address, "--domain", "office"]);

// startNode returns where the node serves HTTP, and sets where it listens.
async function startNode(config) {
  node = spawn(join(programs, "voltaris-node"),
    ["--config", config, "--listen", "127.0.0.1:0", "--http", "127.0.0.1:0"],
    { stdio: ["ignore", "pipe", "ignore"] });
  const lines = createInterface({ input: node.stdout })[Symbol.asyncIterator]();
  const next = async (start) => {
    const line = (await lines.next()).value ?? "";
    assert.ok(line.startsWith(start), `the node wrote: ${line}`);
    return line.slice(start.length);
  };
  address = await next("listening on ");
  return await next("http on ");
}

const row = (name) => page.locator("#rows tr").filter({ hasText: name });
const has = (locator, text) => locator.filter({ hasText: text }).first().waitFor({ timeout: kPatience });
const gone = (locator) => locator.first().waitFor({ state: "detached", timeout: kPatience });
const shot = (name) => page.screenshot({ path: join(folder, `${name}.png`), fullPage: true });

before(async () => {
  scratch = await mkdtemp(join(tmpdir(), "voltaris-page-"));
  await writeFile(join(scratch, "fleet.toml"), fleet);
  const http = await startNode(join(scratch, "fleet.toml"));
  browser = await browserType.launch({
    executablePath: chromium,
    // A browser that runs as root has no sandbox. The others keep it from the network.
    args: [...(process.getuid() === 0 ? ["--no-sandbox"] : []), "--disable-gpu", "--disable-quic",
      "--no-first-run", "--disable-background-networking", "--disable-component-update",
      "--disable-sync"]
  });
  const context = await browser.newContext({ viewport: { width: 1360, height: 900 } });
  page = await context.newPage();
  page.setDefaultTimeout(kPatience);
  page.on("console", (line) => { if (line.type() === "error") problems.push(line.text()); });
  page.on("pageerror", (error) => problems.push(String(error)));
  page.on("request", (request) => {
    if (!request.url().startsWith(`http://${http}/`) && !request.url().startsWith("data:")) outside.push(request.url());
  });
  await page.goto(`http://${http}/`);
});

after(async () => {
  await browser?.close();
  node?.kill("SIGKILL");
  await rm(scratch, { recursive: true, force: true });
});

test("it loads and shows the node and its fleet", async () => {
  await has(page.locator("#live"), "live");
  assert.equal(await page.locator("#node").textContent(), "page test");
  await has(page.locator("#devices"), "134");
  await has(page.locator("#devices-note"), "134 entities in 2 domains");
  await has(row("corner lamp"), "100 W");
  await has(row("roof").locator(".tag"), "producer");
  await has(page.locator("#power-note"), "produced 2.5 kW");
  assert.equal(await page.locator("#rows tr").count(), 20, "a page of the fleet, not all of it");
  await has(page.locator("#range"), "1–20 of 134");
  await has(page.locator("#domains"), "machine room");
});

test("the total is drawn as a curve that grows", async () => {
  const curve = page.locator("#plot .curve");
  await curve.waitFor({ state: "attached" });
  const points = async () => ((await curve.getAttribute("d")) || "").split("L").length;
  const first = await points();
  await page.waitForFunction(
    (count) => document.querySelector("#plot .curve").getAttribute("d").split("L").length > count, first);
  assert.match(await page.locator("#plot-note").textContent(), /^last \d+ s: .*W to .*W$/);
});

test("a set query changes the row, the total and the list of queries", async () => {
  const before = await page.locator("#power").textContent();
  await voltaris("set", "--yes", "--name", "corner lamp", "level=3");
  await has(row("corner lamp").locator(".level"), "3");
  await has(row("corner lamp"), "30 W");
  await has(page.locator("#queries li").first(), "Set level 3");
  await has(page.locator("#queries li").first(), "1 accepted, 121 refused");
  await has(page.locator("#kinds"), "Set 1");
  assert.ok(before.length > 1);
});

test("collects and sums are counted and listed", async () => {
  await voltaris("collect");
  await voltaris("sum");
  // A set collects first, to see which devices are concerned.
  await has(page.locator("#kinds"), "Collect 2");
  await has(page.locator("#kinds"), "Sum 1");
  await has(page.locator("#queries-count"), "4");
});

test("texts from the network are shown as text", async () => {
  const hostile = "<img src=x onerror=alert(1)>";
  await voltaris("set", "--yes", "--name", "corner lamp", `name=${hostile}`);
  await has(page.locator("#rows .name"), hostile);
  assert.equal(await page.locator("main img").count(), 0);
  await voltaris("set", "--yes", "--id", "page0000000000000000000000000001", "name=corner lamp");
  await has(row("corner lamp"), "30 W");
});

test("the search, the sorting and the pages are those of the whole fleet", async () => {
  await page.locator("#next").click();
  await has(page.locator("#range"), "21–40 of 134");
  await page.locator("#find").fill("RACK-1");
  await has(page.locator("#range"), "1–3 of 3");
  await has(page.locator("#matching"), "3 of 134 match");
  await page.locator("#find").fill("no such thing");
  await page.locator("#none").waitFor();
  await page.locator("#find").fill("");
  await page.getByRole("button", { name: "Power" }).click();
  await has(page.locator("#rows tr").first(), "roof");
  assert.equal(await page.locator("th[data-sort=watts]").getAttribute("aria-sort"), "descending");
  await page.getByRole("button", { name: "Level" }).click();
  await page.getByRole("button", { name: "Level" }).click();
  await has(page.locator("#rows tr").first(), "corner lamp");
  await page.getByRole("button", { name: "Level" }).click();
});

test("a bad peer is shown with the reason", async () => {
  await new Promise((done, failed) => {
    const [host, port] = address.split(":");
    const peer = connect(Number(port), host, () => peer.end("GET / HTTP/1.1\r\n"));
    peer.on("close", done).on("error", failed).resume();
  });
  await has(page.locator("#reasons"), /incomplete 1|malformed 1/);
  await has(page.locator("#bad li").first(), "sent no whole message");
  await has(page.locator("#bad-count"), "1");
});

test("it is readable at every width, light and dark", async () => {
  for (const scheme of ["light", "dark"]) {
    for (const [name, width] of [["wide", 1360], ["tablet", 800], ["phone", 360]]) {
      await page.emulateMedia({ colorScheme: scheme });
      await page.setViewportSize({ width, height: 900 });
      await page.waitForFunction(() => {
        const box = document.querySelector("#plot").viewBox.baseVal;
        return box && box.width === document.querySelector("#plot").clientWidth;
      });
      const sideways = await page.evaluate(() =>
        document.documentElement.scrollWidth - document.documentElement.clientWidth);
      assert.equal(sideways, 0, `${name} scrolls sideways`);
      await shot(`page-${name}-${scheme}`);
    }
  }
});

test("every control has a name, and the table has headers", async () => {
  const nameless = await page.evaluate(() =>
    [...document.querySelectorAll("button, input, svg, [tabindex]")].filter((node) => {
      const labels = node.labels && [...node.labels].map((label) => label.textContent).join("");
      return !(node.textContent.trim() || labels || node.getAttribute("aria-labelledby"));
    }).map((node) => node.outerHTML));
  assert.deepEqual(nameless, []);
  assert.equal(await page.locator("th[scope=col]").count(), 5);
});

test("nothing came from elsewhere, and the browser had nothing to complain of", () => {
  assert.deepEqual(outside, []);
  assert.deepEqual(problems, []);
});

test("it says so when the node is gone", async () => {
  const ended = new Promise((done) => node.on("exit", done));
  node.kill("SIGTERM");
  assert.equal(await ended, 0);
  await has(page.locator("#live.lost"), "no answer from the node");
});
