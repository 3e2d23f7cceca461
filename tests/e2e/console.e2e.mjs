// The settings page of `sensorctl serve` in headless Chromium: a brightness
// change reaches the ISP and shows in the trace panel, a refused change keeps
// its control, and a day/night scheme follows the simulated night. The live
// picture changes when the brightness slider moves; every numeric control has
// its unit; controls their mode makes meaningless are greyed; unsaved changes
// are marked until saved; a tab change clears the notice; at 420 px the page
// has no horizontal overflow.
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
const narrowShot = screenshot.replace(/\.png$/, "") + "-420.png";

// The mean luma of the live picture as the page shows it now (null before
// the first frame).
const pictureMean = (page) => page.evaluate(() => {
  const img = document.getElementById("picture");
  if (!img || !img.naturalWidth) return null;
  const c = document.createElement("canvas");
  c.width = 160; c.height = 90;
  const g = c.getContext("2d");
  g.drawImage(img, 0, 0, c.width, c.height);
  const d = g.getImageData(0, 0, c.width, c.height).data;
  let sum = 0;
  for (let i = 0; i < d.length; i += 4) sum += 0.299 * d[i] + 0.587 * d[i + 1] + 0.114 * d[i + 2];
  return sum / (d.length / 4);
});
// The picture's mean once it has settled (two looks a second apart within 2
// levels; auto-exposure converges over a few frames), bounded.
async function settledMean(page) {
  let last = null;
  for (let i = 0; i < 15; i++) {
    await page.waitForTimeout(1000);
    const now = await pictureMean(page);
    if (now !== null && last !== null && Math.abs(now - last) < 2) return now;
    last = now;
  }
  if (last === null) throw new Error("no picture");
  return last;
}
// Polls a condition on the picture's mean, bounded.
async function waitForMean(page, ok, what, seconds = 20) {
  let last = null;
  for (let i = 0; i < seconds * 4; i++) {
    last = await pictureMean(page);
    if (last !== null && ok(last)) return last;
    await page.waitForTimeout(250);
  }
  throw new Error(`${what}: the picture's mean stayed at ${last}`);
}
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

  step("an unsaved change is marked until saved");
  await page.locator("#unsaved.on", { hasText: "unsaved change" }).waitFor();
  expect((await page.locator('.row.unsaved[data-key="34"]').count()) === 1, "the brightness row is not marked");
  await page.locator("#flush").click();
  await page.locator("#message.ok", { hasText: "Current scheme saved" }).waitFor();
  await page.locator("#unsaved").waitFor({ state: "hidden" });
  expect((await page.locator(".row.unsaved").count()) === 0, "a row kept its unsaved mark after saving");

  step("a tab change clears the notice");
  await tab("Exposure").click();
  expect((await page.locator("#message").textContent()) === "", "the notice stayed on another tab");

  step("every numeric control carries its unit");
  for (const name of tabNames) {
    await tab(name).click();
    const missing = await page.locator("#items input[type=number]").evaluateAll((inputs) =>
      inputs.filter((i) => !(i.parentElement.querySelector(".unit")?.textContent || "").trim())
            .map((i) => i.dataset.key));
    expect(missing.length === 0, `tab ${name}: no unit on ${missing.join(", ")}`);
  }

  step("manual shutter and gain are greyed in automatic exposure, usable in manual");
  await tab("Exposure").click();
  const fixedShutter = page.locator('select[data-key="50"]');
  const fixedGain = page.locator('input[type=number][data-key="66"]');
  expect(await page.locator('select[data-key="16"]').inputValue() === "0", "exposure is not automatic");
  expect(await fixedShutter.isDisabled() && await fixedGain.isDisabled(), "manual exposure controls usable in auto");
  await page.locator('select[data-key="16"]').selectOption("3");
  await page.locator("#message.ok", { hasText: "Exposure mode set to" }).waitFor();
  expect(!(await fixedShutter.isDisabled()) && !(await fixedGain.isDisabled()),
         "manual exposure controls still greyed in manual mode");
  await page.locator('select[data-key="16"]').selectOption("0");
  await page.locator("#message.ok", { hasText: "Exposure mode set to Auto" }).waitFor();

  step("the live picture brightens as the brightness slider moves");
  await page.request.post(url + "api/light", { data: "2000" });
  await tab("Image").click();
  const slider = page.locator('input[type=range][data-key="34"]');
  await slider.evaluate((r) => { r.value = "20"; r.dispatchEvent(new Event("input")); r.dispatchEvent(new Event("change")); });
  await page.locator("#message.ok", { hasText: "Brightness set to 20" }).waitFor();
  const dim = await settledMean(page);
  await slider.evaluate((r) => { r.value = "80"; r.dispatchEvent(new Event("input")); r.dispatchEvent(new Event("change")); });
  await page.locator("#message.ok", { hasText: "Brightness set to 80" }).waitFor();
  const lit = await waitForMean(page, (m) => m > dim + 8, "brightness 20 → 80");
  step(`picture mean ${dim.toFixed(1)} at brightness 20, ${lit.toFixed(1)} at 80`);
  await page.locator("#histogram").waitFor();
  await page.locator("#meter-state", { hasText: /day|night/ }).waitFor();
  await page.locator("#ro-exposure", { hasText: "gain" }).waitFor();
  await page.locator("#ro-ircut", { hasText: /in|out/ }).waitFor();
  await page.screenshot({ path: screenshot });
  step(`screenshot ${screenshot}`);

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

  step("at 420 px wide the page has no horizontal overflow");
  const narrow = await context.newPage();
  await narrow.setViewportSize({ width: 420, height: 900 });
  narrow.on("pageerror", (e) => errors.push(e.message));
  await narrow.route("**/*", (route) =>
    route.request().url().startsWith(url) ? route.continue() : route.abort());
  await narrow.goto(url);
  await narrow.locator("#tabs button", { hasText: /^Image$/ }).waitFor();
  for (const name of ["Image", "Exposure", "Day/Night", "Infrared"]) {
    await narrow.locator("#tabs button", { hasText: new RegExp(`^${name}$`) }).click();
    const [scroll, width] = await narrow.evaluate(() =>
      [document.documentElement.scrollWidth, document.documentElement.clientWidth]);
    expect(scroll <= width, `tab ${name}: the page is ${scroll} px wide in a ${width} px window`);
  }
  await narrow.screenshot({ path: narrowShot, fullPage: true });
  step(`screenshot ${narrowShot}`);
  await narrow.close();

  expect(errors.length === 0, `errors in the page: ${errors.join("; ")}`);
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
