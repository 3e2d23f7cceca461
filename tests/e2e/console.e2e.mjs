// The settings page of `sensorctl serve` in headless Chromium: a brightness
// change reaches the ISP and shows in the trace panel, a refused change keeps
// its control, and a day/night scheme follows the simulated night.
//
//   SENSORCTL_URL=http://127.0.0.1:PORT/ [SCREENSHOT=out.png] [CHROMIUM=/usr/bin/chromium] node console.e2e.mjs
import { chromium } from "playwright-core";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const url = process.env.SENSORCTL_URL;
const screenshot = process.env.SCREENSHOT || "web-console.png";
const executablePath = process.env.CHROMIUM || "/usr/bin/chromium";
if (!url || !/^http:\/\/127\.0\.0\.1:\d+\/$/.test(url)) {
  console.error("SENSORCTL_URL must be http://127.0.0.1:PORT/");
  process.exit(2);
}

// The whole run is bounded: a hung browser fails the test instead of CI.
const watchdog = setTimeout(() => {
  console.error("e2e: gave up after 120 s");
  process.exit(1);
}, 120_000);

const step = (text) => console.log(`e2e: ${text}`);
const expect = (ok, text) => {
  if (!ok) throw new Error(text);
};

const profile = mkdtempSync(join(tmpdir(), "sensorctl-e2e-"));
let context;
let failed = false;
try {
  context = await chromium.launchPersistentContext(profile, {
    executablePath,
    headless: true,
    viewport: { width: 1400, height: 900 },
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
  const page = context.pages()[0] || (await context.newPage());
  page.setDefaultTimeout(10_000);

  // The page may talk to its own server only.
  const errors = [];
  page.on("pageerror", (e) => errors.push(e.message));
  await page.route("**/*", (route) =>
    route.request().url().startsWith(url) ? route.continue() : route.abort());

  step(`open ${url}`);
  await page.goto(url);
  const tab = (name) => page.locator("#tabs button", { hasText: new RegExp(`^${name}$`) });
  await tab("Image").waitFor();
  const tabNames = await page.locator("#tabs button").allTextContents();
  step(`tabs: ${tabNames.join(", ")}`);
  for (const name of ["Scheme", "Image", "Exposure", "Day/Night"])
    expect(tabNames.includes(name), `no tab ${name}`);

  step("brightness (key 34): the change reaches the ISP");
  await tab("Image").click();
  const brightness = page.locator('input[type=number][data-key="34"]');
  const before = Number(await brightness.inputValue());
  const wanted = before === 60 ? 61 : 60;
  await brightness.fill(String(wanted));
  await brightness.press("Tab");
  await page.locator("#message.ok", { hasText: `Brightness set to ${wanted}` }).waitFor();
  await page.locator(`#trace div[data-kind=isp][data-cmd="34"][data-opt="0"]`,
                     { hasText: `= ${wanted}` }).waitFor();
  expect(Number(await page.locator('input[type=range][data-key="34"]').inputValue()) === wanted,
         "the slider did not follow the number");

  step("a change the ISP refuses shows the key and keeps the control");
  const fail = await page.request.post(url + "api/fail", { data: "2353 -1" });
  expect(fail.ok(), "cannot inject an ISP failure");
  const contrast = page.locator('input[type=number][data-key="2353"]');
  const contrastBefore = await contrast.inputValue();
  await contrast.fill(String(Number(contrastBefore) === 80 ? 81 : 80));
  await contrast.press("Tab");
  await page.locator("#message.bad", { hasText: "key 2353" }).waitFor();
  expect(await contrast.inputValue() === contrastBefore, "the refused value stayed in the control");
  await page.request.post(url + "api/fail", { data: "2353 off" });

  step("scheme mode by day/night (8000=2), then night: the worker switches to scheme 1");
  await tab("Scheme").click();
  await page.locator('select[data-key="8000"]').selectOption("2");
  await page.locator("#message.ok", { hasText: "Scheme mode set to" }).waitFor();
  expect((await page.locator("#status-scheme").textContent()) === "0", "not on scheme 0 at first");
  await page.locator("#dn-night").click();
  await page.locator("#status-dn", { hasText: "night" }).waitFor();
  await page.locator("#status-scheme", { hasText: /^1$/ }).waitFor({ timeout: 15_000 });
  await page.locator("#trace div[data-kind=scheme]", { hasText: "0 → 1" }).waitFor();
  // Scheme 1 keeps the factory brightness: the switch sends it back.
  await page.locator(`#trace div[data-kind=isp][data-cmd="34"][data-opt="0"]`,
                     { hasText: `= ${before}` }).last().waitFor();
  await tab("Image").click();
  await page.waitForFunction(
    (v) => document.querySelector('input[type=number][data-key="34"]').value === String(v), before);
  step(`scheme 1 applied, brightness back to ${before}`);

  expect(errors.length === 0, `errors in the page: ${errors.join("; ")}`);
  await page.screenshot({ path: screenshot });
  step(`screenshot ${screenshot}`);
  step("passed");
} catch (e) {
  failed = true;
  console.error(`e2e: FAILED: ${e.message}`);
} finally {
  if (context) await context.close().catch(() => {});
  rmSync(profile, { recursive: true, force: true });
  clearTimeout(watchdog);
}
process.exit(failed ? 1 : 0);
