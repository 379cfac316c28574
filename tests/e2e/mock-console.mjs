// A stand-in for the console's HTTP side with canned data, for working on the
// pages without building the library and for the fast page-level tests.
// Pages are read from disk on every request so an edit shows on reload.
//
//   node tests/e2e/mock-console.mjs [--port 8099] [--rows 1000000] [--tiles URL] [--email sent|download|error]
import { randomBytes } from 'node:crypto';
import { readFile } from 'node:fs/promises';
import http from 'node:http';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const webRoot = path.resolve(here, '../../src/debug/web');
const pagesDir = path.join(webRoot, 'pages');
const modules = path.join(webRoot, 'node_modules');

export const CATEGORIES = ['FENCE', 'ZONE', 'GENERAL', 'LOCATION', 'REQUESTS', 'TRIGGER', 'CLIENT'];

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.json': 'application/json',
  '.png': 'image/png',
  '.svg': 'image/svg+xml',
};

const LIBRARIES = {
  '/assets/leaflet/leaflet.js': 'leaflet/dist/leaflet.js',
  '/assets/leaflet/leaflet.css': 'leaflet/dist/leaflet.css',
  '/assets/topojson-client.min.js': 'topojson-client/dist/topojson-client.min.js',
  '/assets/countries-50m.json': 'world-atlas/countries-50m.json',
};

// Row ids run 1..count; a row's category and text follow from its id so a
// million rows cost nothing until asked for.
export function mockRow(id) {
  const category = CATEGORIES[id % CATEGORIES.length];
  return { id, category, message: `[mock] ${category} row ${id}` };
}

function defaultState() {
  return {
    position: { id: 9, latitude: -23.5505, longitude: -46.6333, timestamp: 1700000760, type: 'LocationTracker' },
    zoneInterval: 0.1,
    zone: { center: [-23.55, -46.65], corners: [[-23.6, -46.7], [-23.6, -46.6], [-23.5, -46.6], [-23.5, -46.7]] },
    fences: [
      { id: 'shop', name: 'Shop', latitude: -23.5505, longitude: -46.634, radius: 100, title: 'Shop - 100m' },
      { id: 'inj', name: '<img src=x onerror="window.__pwned=1">', latitude: -23.552, longitude: -46.631, radius: 60,
        title: '<img src=x onerror="window.__pwned=1"> - 60m' },
      { id: 'park', name: 'Park', latitude: -23.555, longitude: -46.64, radius: 250, title: 'Park - 250m' },
      { id: 'gate', name: 'Gate', latitude: -23.545, longitude: -46.628, radius: 0, title: 'Gate - 0m' },
    ],
    tileUrlTemplate: null,
    // Either a count of generated rows or an explicit list, oldest first.
    logRows: 1200,
    email: 'download',
    archives: new Set(),
  };
}

function logPage(state, filter, before, limit) {
  const rows = [];
  let more = false;
  if (Array.isArray(state.logRows)) {
    const matching = state.logRows.filter((r) => (filter === 'NONE' || r.category === filter) && (before === null || r.id < before));
    matching.reverse();
    return { rows: matching.slice(0, limit).map(({ id, message }) => ({ id, message })), more: matching.length > limit };
  }
  let id = Math.min(before === null ? state.logRows : before - 1, state.logRows);
  for (; id >= 1; id -= 1) {
    const row = mockRow(id);
    if (filter !== 'NONE' && row.category !== filter) continue;
    if (rows.length === limit) {
      more = true;
      break;
    }
    rows.push({ id, message: row.message });
  }
  return { rows, more };
}

function localName(date) {
  const two = (n) => String(n).padStart(2, '0');
  return `${two(date.getMonth() + 1)}-${two(date.getDate())}-${date.getFullYear()} ${two(date.getHours())}:${two(date.getMinutes())}`;
}

async function readBody(request) {
  const chunks = [];
  for await (const chunk of request) chunks.push(chunk);
  return Buffer.concat(chunks).toString('utf8');
}

export async function startMock(overrides = {}) {
  const state = { ...defaultState(), ...overrides };
  const token = randomBytes(16).toString('hex');
  const requests = [];
  let origin = '';

  const send = (response, status, type, body, headers = {}) => {
    response.writeHead(status, { 'Content-Type': type, 'Cache-Control': 'no-store', ...headers });
    response.end(body);
  };
  const json = (response, value, status = 200) => send(response, status, 'application/json', JSON.stringify(value));

  async function serveFile(response, file, transform) {
    let body;
    try {
      body = await readFile(file);
    } catch {
      return send(response, 404, 'text/plain', 'not found');
    }
    if (transform) body = transform(body.toString('utf8'));
    return send(response, 200, TYPES[path.extname(file)] || 'application/octet-stream', body);
  }

  async function handle(request, response) {
    const url = new URL(request.url, 'http://mock.invalid');
    requests.push({ method: request.method, path: url.pathname, query: Object.fromEntries(url.searchParams) });
    if (request.headers.host !== origin.slice('http://'.length)) return send(response, 403, 'text/plain', 'forbidden');
    const p = url.pathname;

    if (p === '/') return send(response, 302, 'text/plain', '', { Location: '/map' });
    if (LIBRARIES[p]) return serveFile(response, path.join(modules, LIBRARIES[p]));
    if (p.startsWith('/assets/leaflet/images/')) {
      return serveFile(response, path.join(modules, 'leaflet/dist/images', path.basename(p)));
    }
    if (p.startsWith('/assets/')) return serveFile(response, path.join(pagesDir, path.basename(p)));
    if (/^\/[a-z]+$/.test(p) && !p.startsWith('/api')) {
      return serveFile(response, path.join(pagesDir, `${p.slice(1)}.html`), (text) => text.replaceAll('{{BVGEO_TOKEN}}', token));
    }

    if (request.method === 'GET' && p === '/api/position') return json(response, { position: state.position });
    if (request.method === 'GET' && p === '/api/map') {
      const { position, zoneInterval, zone, fences, tileUrlTemplate } = state;
      return json(response, { position, zoneInterval, zone, fences, tileUrlTemplate });
    }
    if (request.method === 'GET' && p === '/api/logs') {
      const filter = url.searchParams.get('filter') || 'NONE';
      const before = url.searchParams.has('before') ? Number(url.searchParams.get('before')) : null;
      const limit = Math.min(Number(url.searchParams.get('limit') || 500), 5000);
      return json(response, { filter, ...logPage(state, filter, before, limit) });
    }
    if (request.method === 'GET' && p === '/api/restart/default-name') return json(response, { name: localName(new Date()) });
    if (request.method === 'GET' && p === '/api/report.eml') {
      if (url.searchParams.get('token') !== token) return send(response, 403, 'text/plain', 'forbidden');
      const eml = 'Subject: BVG SDK Tests - mock\r\nContent-Type: text/plain\r\n\r\nID: mock\r\n';
      return send(response, 200, 'message/rfc822', eml, { 'Content-Disposition': 'attachment; filename="bvgeo-report.eml"' });
    }
    if (request.method === 'POST' && (p === '/api/restart' || p === '/api/email')) {
      if (request.headers['x-bvgeo-token'] !== token) return send(response, 403, 'text/plain', 'forbidden');
      const body = JSON.parse((await readBody(request)) || '{}');
      if (p === '/api/email') {
        if (state.email === 'sent') return json(response, { sent: true });
        if (state.email === 'error') return json(response, { sent: false, error: 'SMTP: connection refused (mock)' });
        return json(response, { sent: false, download: `/api/report.eml?token=${token}` });
      }
      const name = String(body.name ?? '');
      if (name === '') return json(response, { ok: false, code: 1001, message: 'Name cannot be empty' });
      if (/[/\\:*?"<>|]/.test(name)) return json(response, { ok: false, code: 1002, message: 'Name has characters a file name cannot hold' });
      if (state.archives.has(name)) return json(response, { ok: false, code: 1000, message: 'Name already exists' });
      state.archives.add(name);
      state.logRows = [{ id: 1, category: 'GENERAL', message: '[mock] start() Started tracking location' }];
      return json(response, { ok: true });
    }
    return send(response, 404, 'text/plain', 'not found');
  }

  const server = http.createServer((request, response) => {
    handle(request, response).catch((error) => send(response, 500, 'text/plain', String(error)));
  });
  await new Promise((resolve) => server.listen(overrides.port ?? 0, '127.0.0.1', resolve));
  origin = `http://127.0.0.1:${server.address().port}`;
  return {
    url: `${origin}/`,
    origin,
    token,
    state,
    requests,
    close: () => new Promise((resolve) => { server.closeAllConnections(); server.close(resolve); }),
  };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const { values } = (await import('node:util')).parseArgs({
    options: { port: { type: 'string', default: '8099' }, rows: { type: 'string' }, tiles: { type: 'string' }, email: { type: 'string' } },
  });
  const mock = await startMock({
    port: Number(values.port),
    ...(values.rows ? { logRows: Number(values.rows) } : {}),
    ...(values.tiles ? { tileUrlTemplate: values.tiles } : {}),
    ...(values.email ? { email: values.email } : {}),
  });
  console.log(`Debug console at ${mock.url}`);
}
