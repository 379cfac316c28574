// What a real `bvgeo console` serves over plain HTTP and what it refuses:
// other web sites reaching it through a name of theirs, and changes without
// the token of the page it served.
import assert from 'node:assert/strict';
import { readFile, readdir } from 'node:fs/promises';
import http from 'node:http';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { after, before, test } from 'node:test';
import { SKIP_REAL, buildFixture, readLogs, sqliteFiles, startConsole } from './support.mjs';

let fixture;
before(async () => {
  if (!SKIP_REAL) fixture = await buildFixture();
});
after(() => fixture?.remove());

function request(port, { method = 'GET', path = '/', headers = {}, body } = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request({ host: '127.0.0.1', port, method, path, headers, timeout: 10_000 }, (res) => {
      const chunks = [];
      res.on('data', (chunk) => chunks.push(chunk));
      res.on('end', () => {
        const bytes = Buffer.concat(chunks);
        resolve({ status: res.statusCode, type: res.headers['content-type'] || '', bytes, body: bytes.toString('utf8') });
      });
    });
    req.on('timeout', () => req.destroy(new Error(`${method} ${path} timed out`)));
    req.on('error', reject);
    req.end(body);
  });
}

async function pageToken(port) {
  const page = await request(port, { path: '/log' });
  assert.equal(page.status, 200);
  const token = /<meta name="bvgeo-token" content="([^"]*)">/.exec(page.body)?.[1];
  assert.ok(token && token !== '{{BVGEO_TOKEN}}', 'the page carries a token');
  return token;
}

const web = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../src/debug/web');
const TYPES = { '.js': /^(text|application)\/javascript\b/, '.css': /^text\/css\b/, '.json': /^application\/json\b/, '.png': /^image\/png$/ };

// Every file the pages need, with the type a browser insists on (a stylesheet
// served as anything but text/css is silently dropped) and the bytes on disk.
async function servedFiles() {
  const files = [];
  for (const name of await readdir(path.join(web, 'pages'))) {
    if (name.endsWith('.html')) files.push({ url: `/${name.slice(0, -5)}`, type: /^text\/html\b/ });
    else files.push({ url: `/assets/${name}`, file: path.join(web, 'pages', name) });
  }
  const library = { 'leaflet/leaflet.js': 'leaflet/dist/leaflet.js', 'leaflet/leaflet.css': 'leaflet/dist/leaflet.css',
    'topojson-client.min.js': 'topojson-client/dist/topojson-client.min.js', 'countries-50m.json': 'world-atlas/countries-50m.json' };
  for (const name of await readdir(path.join(web, 'node_modules/leaflet/dist/images'))) library[`leaflet/images/${name}`] = `leaflet/dist/images/${name}`;
  for (const [url, file] of Object.entries(library)) files.push({ url: `/assets/${url}`, file: path.join(web, 'node_modules', file) });
  return files.map((f) => ({ ...f, type: f.type ?? TYPES[path.extname(f.url)] }));
}

test('every page, script, stylesheet and image is served with its type and bytes', { skip: SKIP_REAL }, async (t) => {
  const consoleProcess = await startConsole(await fixture.dataDir());
  t.after(() => consoleProcess.stop());
  for (const { url, file, type } of await servedFiles()) {
    const answer = await request(consoleProcess.port, { path: url });
    assert.equal(answer.status, 200, url);
    assert.match(answer.type, type, url);
    if (file) assert.ok(answer.bytes.equals(await readFile(file)), `${url} holds ${path.relative(web, file)}`);
  }
  const root = await request(consoleProcess.port, { path: '/' });
  assert.ok(root.status >= 300 && root.status < 400, `/ answers ${root.status}`);
});

test('requests naming another host are refused, even with the token', { skip: SKIP_REAL }, async (t) => {
  const consoleProcess = await startConsole(await fixture.dataDir());
  t.after(() => consoleProcess.stop());
  const { port } = consoleProcess;
  const token = await pageToken(port);

  const own = await request(port, { path: '/api/position' });
  assert.equal(own.status, 200);
  assert.match(own.type, /^application\/json/);
  for (const path of ['/api/position', '/api/map', '/api/logs?filter=NONE', '/map']) {
    assert.equal((await request(port, { path, headers: { Host: 'evil.example' } })).status, 403, path);
  }
  const rebound = await request(port, {
    method: 'POST', path: '/api/restart', body: '{"name":"rebound"}',
    headers: { Host: `evil.example:${port}`, 'Content-Type': 'application/json', 'X-BVGeo-Token': token },
  });
  assert.equal(rebound.status, 403);
});

test('changes without the page\'s token are refused and leave the data alone', { skip: SKIP_REAL }, async (t) => {
  const dataDir = await fixture.dataDir();
  const consoleProcess = await startConsole(dataDir);
  t.after(() => consoleProcess.stop());
  const { port } = consoleProcess;
  const rowsBefore = await readLogs(dataDir);
  const json = { 'Content-Type': 'application/json' };

  for (const headers of [json, { ...json, 'X-BVGeo-Token': 'not-the-token' }]) {
    assert.equal((await request(port, { method: 'POST', path: '/api/restart', headers, body: '{"name":"sneaky"}' })).status, 403);
    assert.equal((await request(port, { method: 'POST', path: '/api/email', headers, body: '{}' })).status, 403);
  }
  assert.deepEqual(await sqliteFiles(dataDir), ['BVGDatabase.sqlite']);
  // Rows may be added by a running tracker, but none may go.
  assert.deepEqual((await readLogs(dataDir)).slice(0, rowsBefore.length), rowsBefore);
  assert.ok(!consoleProcess.stdout().includes('Can not send email.'), 'no report was made');

  assert.deepEqual(await consoleProcess.stop(), { code: 0, signal: null }, 'SIGTERM ends the console cleanly');
});
