// What the browser tests share: a real data directory made with the bvgeo
// command line, the console process, a browser that may only talk to
// 127.0.0.1, an SMTP sink and a reader for the mails it catches.
import { execFile, spawn } from 'node:child_process';
import { cp, mkdir, mkdtemp, readdir, rm, writeFile } from 'node:fs/promises';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
import { chromium } from 'playwright-core';

export const BINARY = process.env.BVGEO_BINARY || '';
export const OUTPUT_DIR = process.env.BVGEO_E2E_OUT || path.join(os.tmpdir(), 'bvgeo-e2e-out');
export const SKIP_REAL = BINARY ? false : 'BVGEO_BINARY is not set (tests/e2e/run.sh sets it)';
export const DEVICE = { latitude: -23.5505, longitude: -46.6333 };

// Fences of the cell (-23.6..-23.5, -46.7..-46.6) the track ends in, and one
// of the cell it passed through first.
export const FENCES = [
  { id: 'shop', name: 'Shop', lat: -23.5505, lon: -46.634, radius: 100 },
  { id: 'inj', name: '<img src=x onerror="window.__pwned=1">', lat: -23.552, lon: -46.631, radius: 60 },
  { id: 'park', name: 'Park', lat: -23.555, lon: -46.64, radius: 250 },
];
export const EARLIER = { id: 'earlier', name: 'Earlier', lat: -23.45, lon: -46.55, radius: 150 };

const STEP_SECONDS = 60;

export function run(args, { cwd, timeout = 60_000 } = {}) {
  return new Promise((resolve, reject) => {
    execFile(BINARY, args, { cwd, timeout, maxBuffer: 64 << 20 }, (error, stdout, stderr) => {
      if (error) reject(new Error(`bvgeo ${args.join(' ')} failed: ${error.message}\n${stderr}`));
      else resolve(stdout);
    });
  });
}

// Waits for a condition that has no browser-side event: retries `check` until
// it stops throwing, for at most `timeout` ms.
export async function eventually(check, { timeout = 10_000, interval = 50 } = {}) {
  const deadline = Date.now() + timeout;
  for (;;) {
    try {
      return await check();
    } catch (error) {
      if (Date.now() > deadline) throw error;
      await new Promise((resolve) => setTimeout(resolve, interval));
    }
  }
}

function csvField(text) {
  return /[",\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
}

// Enough fixes that the log outgrows one 500-row page, so paging is exercised
// against the real database too.
function trackCsv() {
  const lines = ['time,lat,lon'];
  let time = 1_700_000_000;
  const add = (lat, lon) => {
    lines.push(`${time},${lat.toFixed(6)},${lon.toFixed(6)}`);
    time += STEP_SECONDS;
  };
  for (let i = 0; i < 4; i += 1) add(EARLIER.lat - 0.0002 * i, EARLIER.lon - 0.0002 * i);
  const legs = 40;
  for (let i = 1; i <= legs; i += 1) {
    add(EARLIER.lat + ((DEVICE.latitude - EARLIER.lat) * i) / legs, EARLIER.lon + ((DEVICE.longitude - EARLIER.lon) * i) / legs);
  }
  add(DEVICE.latitude, DEVICE.longitude);
  return `${lines.join('\n')}\n`;
}

function startZoneServer(root) {
  return new Promise((resolve, reject) => {
    const child = spawn(BINARY, ['serve', '--root', root, '--port', '0', '--quiet'], { stdio: ['ignore', 'pipe', 'pipe'] });
    let seen = '';
    const timer = setTimeout(() => { child.kill('SIGKILL'); reject(new Error(`bvgeo serve printed no address: ${seen}`)); }, 10_000);
    child.stdout.setEncoding('utf8');
    child.stdout.on('data', (chunk) => {
      seen += chunk;
      const match = /http:\/\/127\.0\.0\.1:(\d+)\//.exec(seen);
      if (match) {
        clearTimeout(timer);
        resolve({ base: `http://127.0.0.1:${match[1]}/`, stop: () => stopChild(child) });
      }
    });
    child.on('error', (error) => { clearTimeout(timer); reject(error); });
  });
}

// Builds zones, serves them and replays the track once per test file; each
// test then works on its own copy of the resulting data directory.
export async function buildFixture() {
  const root = await mkdtemp(path.join(os.tmpdir(), 'bvgeo-e2e-'));
  const places = ['id,name,lat,lon,radius', ...[...FENCES, EARLIER].map((f) => [f.id, csvField(f.name), f.lat, f.lon, f.radius].join(','))];
  await writeFile(path.join(root, 'places.csv'), `${places.join('\n')}\n`);
  await writeFile(path.join(root, 'track.csv'), trackCsv());
  await run(['zones', 'build', 'places.csv', '--out', 'SRV', '--app-id', 'e2e', '--interval', '0.1'], { cwd: root });
  const zones = await startZoneServer(path.join(root, 'SRV'));
  try {
    await run(['replay', 'track.csv', '--app-id', 'e2e', '--env', 'development', '--api-base', `${zones.base}api/v1/app/`,
      '--assets-base', zones.base, '--zone-interval', '0.1', '--data-dir', 'DATA'], { cwd: root });
  } finally {
    await zones.stop();
  }
  let copies = 0;
  return {
    root,
    async dataDir() {
      copies += 1;
      const dir = path.join(root, `data-${copies}`);
      await cp(path.join(root, 'DATA'), dir, { recursive: true });
      return dir;
    },
    remove: () => rm(root, { recursive: true, force: true }),
  };
}

export async function readLogs(dataDir, category) {
  const args = ['logs', '--data-dir', dataDir, '--json', ...(category ? ['--category', category] : [])];
  return (await run(args)).split('\n').filter(Boolean).map((line) => JSON.parse(line));
}

// The log page's text for rows given oldest first, as the CLI lists them.
export function newestFirstText(rows, limit = Infinity) {
  return rows.slice().reverse().slice(0, limit).map((row) => `${row.message} \n`).join('');
}

export async function sqliteFiles(dir, prefix = '') {
  const found = [];
  for (const entry of await readdir(path.join(dir, prefix), { withFileTypes: true })) {
    const relative = prefix ? `${prefix}/${entry.name}` : entry.name;
    if (entry.isDirectory()) found.push(...(await sqliteFiles(dir, relative)));
    else if (entry.name.endsWith('.sqlite')) found.push(relative);
  }
  return found.sort();
}

function stopChild(child) {
  if (child.exitCode !== null || child.signalCode !== null) return Promise.resolve({ code: child.exitCode, signal: child.signalCode });
  return new Promise((resolve) => {
    const force = setTimeout(() => child.kill('SIGKILL'), 5_000);
    child.once('exit', (code, signal) => { clearTimeout(force); resolve({ code, signal }); });
    child.kill('SIGTERM');
  });
}

// Starts `bvgeo console` on a free port and resolves once it has printed its
// address; register `stop` with t.after so it is ended even when a test fails.
// The zone interval is not stored with the data, so the console is told the one
// the fixture was replayed with.
export function startConsole(dataDir, extra = []) {
  return new Promise((resolve, reject) => {
    const args = ['console', '--data-dir', dataDir, '--port', '0', '--zone-interval', '0.1', ...extra];
    const child = spawn(BINARY, args, { stdio: ['ignore', 'pipe', 'pipe'] });
    let stdout = '';
    let stderr = '';
    let started = false;
    const fail = (why) => {
      if (started) return;
      started = true;
      child.kill('SIGKILL');
      reject(new Error(`bvgeo console ${why}\nstdout: ${stdout}\nstderr: ${stderr}`));
    };
    const timer = setTimeout(() => fail('printed no address within 15 s'), 15_000);
    child.stdout.setEncoding('utf8');
    child.stderr.setEncoding('utf8');
    child.stderr.on('data', (chunk) => { stderr += chunk; });
    child.stdout.on('data', (chunk) => {
      stdout += chunk;
      const match = /^Debug console at (http:\/\/127\.0\.0\.1:(\d+)\/)\r?$/m.exec(stdout);
      if (match && !started) {
        started = true;
        clearTimeout(timer);
        resolve({
          url: match[1],
          port: Number(match[2]),
          stdout: () => stdout,
          stop: () => stopChild(child),
        });
      }
    });
    child.on('error', (error) => { clearTimeout(timer); fail(`did not start: ${error.message}`); });
    child.on('exit', (code, signal) => { clearTimeout(timer); fail(`ended early (code ${code}, signal ${signal})`); });
  });
}

export function launchBrowser() {
  return chromium.launch({
    executablePath: process.env.BVGEO_CHROMIUM || '/usr/bin/chromium',
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
    timeout: 30_000,
  });
}

// Registers the hooks that make one replayed data directory and one browser for
// the tests of the calling file (nothing when the real program is not given) and
// tear them down after; read them as run.fixture and run.browser inside a test.
export function useFixtureAndBrowser() {
  const run = { fixture: undefined, browser: undefined };
  before(async () => {
    if (SKIP_REAL) return;
    run.fixture = await buildFixture();
    run.browser = await launchBrowser();
  });
  after(async () => {
    await run.browser?.close();
    await run.fixture?.remove();
  });
  return run;
}

// A page whose requests to anywhere but 127.0.0.1 are refused and recorded,
// so a test can assert that the console stays on this machine.
export async function openPage(browser, { viewport = { width: 1100, height: 750 } } = {}) {
  const context = await browser.newContext({ acceptDownloads: true, viewport });
  const offsite = [];
  await context.route((url) => url.hostname !== '127.0.0.1', (route) => {
    offsite.push(route.request().url());
    return route.abort();
  });
  const page = await context.newPage();
  page.setDefaultTimeout(10_000);
  const errors = [];
  page.on('pageerror', (error) => errors.push(error.message));
  return { context, page, offsite, errors };
}

// Starts `bvgeo console` on `dataDir` and a fresh page, both ended with the test,
// and opens `pagePath` of the console when given.
export async function openConsole(t, browser, dataDir, { pagePath, extra = [] } = {}) {
  const consoleProcess = await startConsole(dataDir, extra);
  t.after(() => consoleProcess.stop());
  const opened = await openPage(browser);
  t.after(() => opened.context.close());
  if (pagePath !== undefined) await opened.page.goto(`${consoleProcess.url}${pagePath}`);
  return { consoleProcess, ...opened };
}

export async function screenshot(page, name) {
  await mkdir(OUTPUT_DIR, { recursive: true });
  await page.screenshot({ path: path.join(OUTPUT_DIR, name), fullPage: true });
}

// Accepts one mail per connection the way a plain SMTP server would and keeps
// the raw DATA (dot-stuffing undone).
export async function startSmtpSink() {
  const messages = [];
  const server = net.createServer((socket) => {
    socket.setEncoding('latin1');
    socket.setTimeout(20_000, () => socket.destroy());
    const envelope = { from: '', to: [] };
    let buffer = '';
    let inData = false;
    socket.write('220 127.0.0.1 e2e sink\r\n');
    socket.on('data', (chunk) => {
      buffer += chunk;
      for (;;) {
        if (inData) {
          const end = buffer.indexOf('\r\n.\r\n');
          if (end < 0) return;
          const raw = buffer.slice(0, end + 2).replace(/^\.\./gm, '.');
          buffer = buffer.slice(end + 5);
          inData = false;
          messages.push({ from: envelope.from, to: [...envelope.to], raw: Buffer.from(raw, 'latin1') });
          socket.write('250 2.0.0 queued\r\n');
          continue;
        }
        const eol = buffer.indexOf('\r\n');
        if (eol < 0) return;
        const line = buffer.slice(0, eol);
        buffer = buffer.slice(eol + 2);
        const verb = line.split(' ')[0].toUpperCase();
        if (verb === 'MAIL') envelope.from = /<([^>]*)>/.exec(line)?.[1] ?? '';
        if (verb === 'RCPT') envelope.to.push(/<([^>]*)>/.exec(line)?.[1] ?? '');
        if (verb === 'DATA') {
          inData = true;
          socket.write('354 end with <CRLF>.<CRLF>\r\n');
        } else if (verb === 'QUIT') {
          socket.end('221 2.0.0 bye\r\n');
          return;
        } else if (['EHLO', 'HELO', 'MAIL', 'RCPT', 'RSET', 'NOOP'].includes(verb)) {
          socket.write('250 OK\r\n');
        } else {
          socket.write('502 5.5.2 not implemented\r\n');
        }
      }
    });
    socket.on('error', () => {});
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  return { port: server.address().port, messages, close: () => new Promise((resolve) => server.close(resolve)) };
}

function decodeWords(text) {
  return text.replace(/=\?([^?]+)\?([BbQq])\?([^?]*)\?=/g, (_, charset, kind, data) => {
    const bytes = kind.toUpperCase() === 'B'
      ? Buffer.from(data, 'base64')
      : Buffer.from(data.replaceAll('_', ' ').replace(/=([0-9A-Fa-f]{2})/g, (m, hex) => String.fromCharCode(parseInt(hex, 16))), 'latin1');
    return bytes.toString('utf8');
  }).replace(/\?=\s+=\?/g, '?==?');
}

function headerParam(value, name) {
  const extended = new RegExp(`;\\s*${name}\\*=([^']*)'[^']*'([^;]+)`, 'i').exec(value);
  if (extended) return decodeURIComponent(extended[2].trim());
  const plain = new RegExp(`;\\s*${name}=("((?:[^"\\\\]|\\\\.)*)"|[^;\\s]+)`, 'i').exec(value);
  if (!plain) return null;
  return decodeWords(plain[2] !== undefined ? plain[2].replace(/\\(.)/g, '$1') : plain[1]);
}

function decodeBody(text, encoding) {
  if (encoding === 'base64') return Buffer.from(text.replace(/[^A-Za-z0-9+/=]/g, ''), 'base64');
  if (encoding === 'quoted-printable') {
    return Buffer.from(text.replace(/=\r?\n/g, '').replace(/=([0-9A-Fa-f]{2})/g, (m, hex) => String.fromCharCode(parseInt(hex, 16))), 'latin1');
  }
  return Buffer.from(text, 'latin1');
}

// Reads a MIME message into its headers and its leaf parts, just enough to
// check what the console mails; multipart nesting is followed.
export function parseMail(raw) {
  const leaves = [];
  const walk = (entity) => {
    const split = /\r?\n\r?\n/.exec(entity);
    const head = split ? entity.slice(0, split.index) : entity;
    const body = split ? entity.slice(split.index + split[0].length) : '';
    const headers = {};
    for (const line of head.replace(/\r?\n[ \t]+/g, ' ').split(/\r?\n/)) {
      const colon = line.indexOf(':');
      if (colon > 0) headers[line.slice(0, colon).trim().toLowerCase()] ??= line.slice(colon + 1).trim();
    }
    const type = headers['content-type'] || 'text/plain';
    const boundary = /^multipart\//i.test(type) ? headerParam(type, 'boundary') : null;
    if (boundary) {
      const pieces = body.split(new RegExp(`\\r?\\n?--${boundary.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}(?:--)?[ \\t]*\\r?\\n?`));
      for (const piece of pieces.slice(1, -1)) walk(piece);
      return headers;
    }
    const disposition = headers['content-disposition'] || '';
    leaves.push({
      type: type.split(';')[0].trim().toLowerCase(),
      filename: headerParam(disposition, 'filename') ?? headerParam(type, 'name'),
      attachment: /^attachment/i.test(disposition),
      body: decodeBody(body, (headers['content-transfer-encoding'] || '').toLowerCase()),
    });
    return headers;
  };
  const headers = walk(raw.toString('latin1'));
  return { headers, subject: decodeWords(headers.subject || ''), parts: leaves };
}
