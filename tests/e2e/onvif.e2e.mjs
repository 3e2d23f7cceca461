// The ONVIF services of `sensorctl serve` driven by a third-party ONVIF client
// (the npm package `onvif`, used as it is): it connects with a user and
// password, and what it reads and sets must be what the camera's own web API
// reads, what the ISP sees and what the style offers.
//
//   SENSORCTL_URL=http://127.0.0.1:PORT/ ONVIF_USER=U ONVIF_PASSWORD=P node onvif.e2e.mjs
import { createHash, randomBytes } from "node:crypto";
import { createRequire } from "node:module";

const require = createRequire(import.meta.url);
const { Cam } = require("onvif");
const { linerase } = require("onvif/lib/utils");

const url = process.env.SENSORCTL_URL;
const user = process.env.ONVIF_USER;
const password = process.env.ONVIF_PASSWORD;
const match = url && /^http:\/\/127\.0\.0\.1:(\d+)\/$/.exec(url);
if (!match || !user || !password) {
  console.error("SENSORCTL_URL must be http://127.0.0.1:PORT/, ONVIF_USER and ONVIF_PASSWORD set");
  process.exit(2);
}
const port = Number(match[1]);

const watchdog = setTimeout(() => {
  console.error("onvif e2e: gave up after 120 s");
  process.exit(1);
}, 120_000);

const step = (text) => console.log(`onvif e2e: ${text}`);
const expect = (ok, text) => {
  if (!ok) throw new Error(text);
};

// The camera's own web API: what the shell's `get` reads, the ISP trace, the
// style document, the scheme. A camera with users asks for HTTP digest there
// too: the first challenge (SHA-256) is answered as RFC 7616 says, with
// Node's hashes.
let apiCount = 0;
const digestFor = (challenge, method, uri) => {
  const param = (name) => {
    const m = new RegExp(`\\b${name}=(?:"([^"]*)"|([^,\\s]+))`).exec(challenge);
    return m ? (m[1] ?? m[2]) : undefined;
  };
  const algorithm = param("algorithm") || "MD5";
  const hash = (text) => createHash(algorithm === "SHA-256" ? "sha256" : "md5")
    .update(text).digest("hex");
  const realm = param("realm");
  const nonce = param("nonce");
  const nc = String(++apiCount).padStart(8, "0");
  const cnonce = randomBytes(8).toString("hex");
  const response = hash([hash(`${user}:${realm}:${password}`), nonce, nc, cnonce, "auth",
    hash(`${method}:${uri}`)].join(":"));
  return `Digest username="${user}", realm="${realm}", nonce="${nonce}", uri="${uri}", ` +
    `algorithm=${algorithm}, qop=auth, nc=${nc}, cnonce="${cnonce}", response="${response}", ` +
    `opaque="${param("opaque")}"`;
};
const api = async (path, body) => {
  const target = url + path.replace(/^\//, "");
  const method = body === undefined ? "GET" : "POST";
  const options = body === undefined ? {} : { method, body };
  let res = await fetch(target, options);
  if (res.status === 401) {
    await res.text();
    const challenge = res.headers.get("www-authenticate").split(/,\s*(?=Digest )/)[0];
    const uri = new URL(target).pathname + new URL(target).search;
    res = await fetch(target, { ...options,
      headers: { Authorization: digestFor(challenge, method, uri) } });
  }
  const text = await res.text();
  if (!res.ok) throw new Error(`${path}: HTTP ${res.status} ${text}`);
  return text;
};
const apiJson = async (path, body) => JSON.parse(await api(path, body));
const params = async (ids) => {
  const text = await api(`/api/params?ids=(${ids.join(",")})`);
  const out = {};
  for (const m of text.matchAll(/\((-?\d+),(-?\d+)\)/g)) out[Number(m[1])] = Number(m[2]);
  return out;
};
const traceSince = async (since) => (await apiJson(`/api/trace?since=${since}`)).entries;
const traceMark = async () => (await apiJson("/api/status")).trace;
// The style's bounds of one item.
const styleItem = (style, id) => {
  const m = new RegExp(`<item id="${id}"[^>]*>`).exec(style);
  if (!m) return null;
  const attr = (name) => {
    const a = new RegExp(`\\b${name}="([^"]*)"`).exec(m[0]);
    return a ? a[1] : undefined;
  };
  return { value: attr("value"), min: Number(attr("min")), max: Number(attr("max")) };
};

// The client's callbacks as promises; `this` is the camera.
const call = (cam, name, ...args) =>
  new Promise((resolve, reject) => {
    cam[name](...args, (err, data, xml) => {
      if (err) {
        // The fault's codes are in the answer; the client's message has its reason only.
        err.xml = xml || "";
        reject(err);
      } else {
        resolve({ data, xml });
      }
    });
  });
const connect = (options) =>
  new Promise((resolve, reject) => {
    const cam = new Cam({ hostname: "127.0.0.1", port, timeout: 10_000, ...options,
      autoconnect: false });
    cam.connect((err) => (err ? reject(err) : resolve(cam)));
  });
// A request the client has no method for, sent through its own request path
// with its own WS-Security header (_envelopeHeader: UsernameToken,
// PasswordDigest).
const raw = (cam, service, inner) =>
  new Promise((resolve, reject) => {
    cam._request({ service, body: cam._envelopeHeader() + inner + cam._envelopeFooter() },
      (err, data, xml) => {
        if (err) {
          err.xml = xml || "";
          reject(err);
        } else {
          resolve({ data: linerase(data), xml });
        }
      });
  });
const IMAGING = "http://www.onvif.org/ver20/imaging/wsdl";

const KEYS = { brightness: 34, colorSaturation: 2337, contrast: 2353, sharpness: 2321 };

let failed = false;
try {
  step("connect with the user and password");
  const cam = await connect({ username: user, password });
  expect(cam.activeSource && cam.activeSource.sourceToken === "VideoSource_1",
    `active source ${JSON.stringify(cam.activeSource)}`);
  expect(cam.uri.imaging && cam.uri.imaging.port === String(port),
    `imaging service at ${cam.uri.imaging && cam.uri.imaging.href}`);
  const info = (await call(cam, "getDeviceInformation")).data;
  step(`device: ${info.manufacturer} ${info.model}, firmware ${info.firmwareVersion}`);
  const scopes = (await call(cam, "getScopes")).data;
  expect(scopes.length > 0, "no scopes");
  const caps = (await call(cam, "getCapabilities")).data;
  expect(caps.imaging && /\/onvif\/imaging_service$/.test(caps.imaging.XAddr),
    `capabilities: ${JSON.stringify(caps)}`);

  step("an operation the camera does not have: ter:ActionNotSupported");
  try {
    // The camera reads its NTP settings out but sets none (its capabilities say so).
    await call(cam, "setNTP", { fromDHCP: false });
    throw new Error("SetNTP answered");
  } catch (e) {
    expect(/ter:ActionNotSupported/.test(e.xml), `SetNTP: ${e.message} ${e.xml}`);
  }

  step("the hostname needs no credentials");
  const anonymous = new Cam({ hostname: "127.0.0.1", port, timeout: 10_000, autoconnect: false });
  anonymous.uri = cam.uri;
  const hostname = (await call(anonymous, "getHostname")).data;
  expect(JSON.stringify(hostname).includes("sensorctl"), `hostname: ${JSON.stringify(hostname)}`);

  step("the client by HTTP digest alone (no WS-Security): 401, then its digest");
  const digestCam = await connect({ username: user, password, useWSSecurity: false });
  let digestStatus = [];
  digestCam.on("rawResponse", (_xml, code) => digestStatus.push(code));
  const digestInfo = (await call(digestCam, "getDeviceInformation")).data;
  expect(digestInfo.manufacturer === info.manufacturer, `digest: ${JSON.stringify(digestInfo)}`);
  const digestSettings = (await call(digestCam, "getImagingSettings")).data;
  expect(typeof digestSettings.brightness === "number",
    `digest settings: ${JSON.stringify(digestSettings)}`);
  expect(digestStatus.every((code) => code === 200), `digest answers: ${digestStatus}`);

  const viewerPassword = process.env.ONVIF_VIEWER_PASSWORD;
  if (viewerPassword) {
    step("a User-level user reads the settings but may not change them");
    const viewer = await connect({ username: "viewer", password: viewerPassword,
      useWSSecurity: false });
    await call(viewer, "getImagingSettings");
    try {
      await call(viewer, "setImagingSettings", { brightness: 20 });
      throw new Error("a User set the brightness");
    } catch (e) {
      expect(/ter:NotAuthorized/.test(e.xml), `viewer set: ${e.message} ${e.xml}`);
    }
  }

  step("getImagingSettings equals what the web API reads");
  let settings = (await call(cam, "getImagingSettings")).data;
  let now = await params(Object.values(KEYS));
  for (const [field, key] of Object.entries(KEYS)) {
    expect(settings[field] === now[key],
      `${field}: ONVIF ${settings[field]}, key ${key} = ${now[key]}`);
  }

  step("getVideoSourceOptions (GetOptions): the ranges are the style's");
  const style = await api("/api/style");
  const options = (await call(cam, "getVideoSourceOptions")).data;
  for (const [field, key] of Object.entries(KEYS)) {
    const item = styleItem(style, key);
    expect(item, `no style item ${key}`);
    expect(options[field] && options[field].min === item.min && options[field].max === item.max,
      `${field}: options ${JSON.stringify(options[field])}, style ${item.min}..${item.max}`);
  }

  step("setImagingSettings on brightness: command 34 reaches the ISP");
  const brightness = settings.brightness === 73 ? 27 : 73;
  let mark = await traceMark();
  await call(cam, "setImagingSettings", { brightness });
  let entries = await traceSince(mark);
  expect(entries.some((e) => e.kind === "isp" && e.cmd === 34 && e.opt === 0 &&
    e.val[0] === brightness), `no ISP call 34 with ${brightness}: ${JSON.stringify(entries)}`);
  expect((await params([34]))[34] === brightness, "the web API does not read the new brightness");
  settings = (await call(cam, "getImagingSettings")).data;
  expect(settings.brightness === brightness, `getImagingSettings: ${settings.brightness}`);

  step("presets are the schemes: setCurrentImagingPreset switches the scheme");
  const presets = (await raw(cam, "imaging",
    `<GetPresets xmlns="${IMAGING}"><VideoSourceToken>VideoSource_1</VideoSourceToken></GetPresets>`))
    .data.getPresetsResponse.preset;
  const list = Array.isArray(presets) ? presets : [presets];
  step(`presets: ${list.map((p) => `${p.$.token} (${p.name})`).join(", ")}`);
  const before = (await apiJson("/api/scheme")).scheme;
  const current = (await call(cam, "getCurrentImagingPreset")).data;
  const target = list.find((p) => p.$.token !== current.$.token);
  expect(target, "only one preset");
  mark = await traceMark();
  await call(cam, "setCurrentImagingPreset", { presetToken: target.$.token });
  const after = (await apiJson("/api/scheme")).scheme;
  expect(after !== before, `the scheme stayed ${before}`);
  entries = await traceSince(mark);
  expect(entries.some((e) => e.kind === "scheme" && e.from === before && e.to === after),
    `no scheme switch ${before} -> ${after} in the trace`);
  const nowPreset = (await call(cam, "getCurrentImagingPreset")).data;
  expect(nowPreset.$.token === target.$.token, `current preset ${JSON.stringify(nowPreset)}`);
  settings = (await call(cam, "getImagingSettings")).data;
  now = await params(Object.values(KEYS));
  for (const [field, key] of Object.entries(KEYS))
    expect(settings[field] === now[key], `after the switch ${field}: ${settings[field]} vs ${now[key]}`);

  step("focus: move and stop send lens commands");
  const moveOptions = (await call(cam, "imagingGetMoveOptions")).data;
  step(`move options: ${JSON.stringify(moveOptions)}`);
  // Focus keys, and 1632: the lens motor's run state, which Stop sets to 0.
  const lens = (e) => e.kind === "isp" && e.opt === 0 && (/FOCUS|LENS/.test(e.name) || e.cmd === 1632);
  mark = await traceMark();
  await call(cam, "imagingMove", { continuous: { speed: 0.5 } });
  entries = await traceSince(mark);
  expect(entries.some(lens), `move sent no lens command: ${JSON.stringify(entries)}`);
  step(`move: ${entries.filter(lens).map((e) => `${e.cmd} ${e.name}=${e.val}`).join(", ")}`);
  const status = (await call(cam, "imagingGetStatus")).data;
  step(`status: ${JSON.stringify(status)}`);
  mark = await traceMark();
  await call(cam, "imagingStop", {});
  entries = await traceSince(mark);
  expect(entries.some(lens), `stop sent no lens command: ${JSON.stringify(entries)}`);
  step(`stop: ${entries.filter(lens).map((e) => `${e.cmd} ${e.name}=${e.val}`).join(", ")}`);
  const stopped = (await call(cam, "imagingGetStatus")).data;
  expect(JSON.stringify(stopped).includes("IDLE"), `status after stop: ${JSON.stringify(stopped)}`);

  step("a wrong password is refused and changes nothing");
  // The clock and the services need no credentials, so the client connects;
  // the media service refuses it (no source), and so does every other call.
  for (const useWSSecurity of [true, false]) {
    const wrong = await connect({ username: user, password: password + "x", useWSSecurity });
    expect(!wrong.activeSource, `a wrong password found a source (WS ${useWSSecurity})`);
    try {
      await call(wrong, "getDeviceInformation");
      throw new Error(`a wrong password read the device information (WS ${useWSSecurity})`);
    } catch (e) {
      expect(useWSSecurity ? /ter:NotAuthorized/.test(e.xml)
        : /Digest authentication failed 401/.test(e.message), `wrong password: ${e.message}`);
    }
  }
  const intruder = new Cam({ hostname: "127.0.0.1", port, username: user,
    password: password + "x", timeout: 10_000, autoconnect: false });
  intruder.uri = cam.uri;
  intruder.activeSource = cam.activeSource;
  intruder.timeShift = cam.timeShift;
  let status400 = false;
  intruder.on("rawResponse", (_xml, code) => { status400 = code === 400; });
  const held = await params([34]);
  const schemeHeld = (await apiJson("/api/scheme")).scheme;
  mark = await traceMark();
  try {
    await call(intruder, "setImagingSettings", { brightness: held[34] === 11 ? 12 : 11 });
    throw new Error("a wrong password set the brightness");
  } catch (e) {
    expect(/ter:NotAuthorized/.test(e.xml), `set: ${e.message} ${e.xml}`);
  }
  expect(status400, "the refusal is not HTTP 400");
  try {
    await call(intruder, "setCurrentImagingPreset", { presetToken: current.$.token });
    throw new Error("a wrong password switched the preset");
  } catch (e) {
    expect(/ter:NotAuthorized/.test(e.xml), `preset: ${e.message} ${e.xml}`);
  }
  entries = await traceSince(mark);
  expect(!entries.some((e) => e.kind === "isp" && e.opt === 0 && e.cmd === 34),
    "the refused set reached the ISP");
  expect((await params([34]))[34] === held[34], "the refused set changed the brightness");
  expect((await apiJson("/api/scheme")).scheme === schemeHeld, "the refused preset switched");
  step("passed");
} catch (e) {
  failed = true;
  console.error(`onvif e2e: FAILED: ${e.stack || e}`);
} finally {
  clearTimeout(watchdog);
}
process.exit(failed ? 1 : 0);
