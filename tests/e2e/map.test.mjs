// The map page of a real `bvgeo console` over a replayed data directory.
import assert from 'node:assert/strict';
import http from 'node:http';
import { test } from 'node:test';
import { EARLIER, FENCES, SKIP_REAL, eventually, openConsole, screenshot, useFixtureAndBrowser } from './support.mjs';

const ZONE_CORNERS = [[-23.6, -46.7], [-23.6, -46.6], [-23.5, -46.6], [-23.5, -46.7]];
const TITLES = FENCES.map((f) => `${f.name} - ${f.radius}m`).sort();

// One replayed data directory and one browser for every test of this file.
const run = useFixtureAndBrowser();

async function openMap(t, extra = []) {
  return openConsole(t, run.browser, await run.fixture.dataDir(), { extra });
}

function drawn(page, more = 0) {
  return page.waitForFunction((n) => window.bvgeoConsole?.draws() > n, more);
}

function domCounts(page) {
  return page.evaluate(() => ({
    pins: document.querySelectorAll('.leaflet-marker-icon').length,
    paths: document.querySelectorAll('.leaflet-overlay-pane path').length,
  }));
}

test('map shows the zone square, one circle and pin per current fence, and the device', { skip: SKIP_REAL }, async (t) => {
  const { consoleProcess, page, offsite, errors } = await openMap(t);
  await page.goto(consoleProcess.url);
  assert.match(page.url(), /\/map$/, '/ leads to the map');
  await drawn(page);
  await page.waitForFunction(() => window.bvgeoConsole.baseMap() === 'outlines');
  await screenshot(page, 'map-page.png');

  await page.locator('#position', { hasText: 'Position: -23.5505, -46.6333' }).waitFor();
  const corners = await page.evaluate(() => window.bvgeoConsole.zoneCorners());
  assert.equal(corners.length, 4);
  corners.forEach(([lat, lng], i) => {
    assert.ok(Math.abs(lat - ZONE_CORNERS[i][0]) < 1e-9 && Math.abs(lng - ZONE_CORNERS[i][1]) < 1e-9,
      `corner ${i} is ${lat},${lng}, expected ${ZONE_CORNERS[i]}`);
  });
  assert.deepEqual(await page.evaluate(() => window.bvgeoConsole.counts()), { squares: 1, circles: 3, pins: 3, dots: 1 });
  assert.deepEqual(await domCounts(page), { pins: 3, paths: 4 });

  const circles = await page.evaluate(() => window.bvgeoConsole.circles());
  const near = (a, b) => Math.abs(a - b) < 1e-9;
  for (const fence of FENCES) {
    assert.ok(circles.some((c) => near(c.lat, fence.lat) && near(c.lng, fence.lon) && near(c.radius, fence.radius)), `circle for ${fence.id}`);
  }
  const pins = await page.evaluate(() => window.bvgeoConsole.pins());
  assert.ok(!pins.some((p) => near(p.lat, EARLIER.lat) && near(p.lng, EARLIER.lon)), 'the earlier zone\'s fence is not drawn');

  // Overlapping pins would swallow a pointer click, so each gets its own event.
  const icons = page.locator('.leaflet-marker-icon');
  const shown = [];
  for (let i = 0; i < 3; i += 1) {
    await icons.nth(i).dispatchEvent('click');
    shown.push(await page.locator('.leaflet-popup-content').textContent());
    await page.locator('.leaflet-popup-close-button').click();
    await page.locator('.leaflet-popup').waitFor({ state: 'detached' });
  }
  assert.deepEqual(shown.sort(), TITLES);
  assert.equal(await page.evaluate(() => window.__pwned), undefined);
  assert.equal(await page.locator('img[src="x"]').count(), 0);
  assert.ok(await icons.first().evaluate((img) => img.complete && img.naturalWidth > 0), 'pin image is served');

  const before = await page.evaluate(() => window.bvgeoConsole.draws());
  await page.click('#refresh');
  await drawn(page, before);
  await page.click('#refresh');
  await drawn(page, before + 1);
  assert.deepEqual(await page.evaluate(() => window.bvgeoConsole.counts()), { squares: 1, circles: 3, pins: 3, dots: 1 });
  assert.deepEqual(await domCounts(page), { pins: 3, paths: 4 });

  assert.deepEqual(offsite, []);
  assert.deepEqual(errors, []);
});

test('a tile template from the command line replaces the offline outlines', { skip: SKIP_REAL }, async (t) => {
  const tilePaths = [];
  const tiles = http.createServer((request, response) => {
    tilePaths.push(request.url);
    response.writeHead(404).end();
  });
  await new Promise((resolve) => tiles.listen(0, '127.0.0.1', resolve));
  t.after(() => new Promise((resolve) => { tiles.closeAllConnections(); tiles.close(resolve); }));
  const template = `http://127.0.0.1:${tiles.address().port}/{z}/{x}/{y}.png`;

  const { consoleProcess, page, offsite } = await openMap(t, ['--tile-url', template]);
  const assets = [];
  page.on('request', (request) => assets.push(new URL(request.url()).pathname));
  await page.goto(`${consoleProcess.url}map`);
  await drawn(page);
  await page.waitForFunction(() => window.bvgeoConsole.baseMap() === 'tiles');
  await eventually(() => assert.ok(tilePaths.length > 0, 'the tile server was asked'));
  assert.ok(tilePaths.every((p) => /^\/\d+\/\d+\/\d+\.png$/.test(p)), `tile requests: ${tilePaths}`);
  assert.ok(!assets.includes('/assets/countries-50m.json'));
  assert.deepEqual(offsite, []);
});
