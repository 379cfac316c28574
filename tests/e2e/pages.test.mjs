// Page behaviour that the real program's data cannot easily provoke (a moving
// device, a million log rows, every mail outcome), against the node stand-in.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { mockRow, startMock } from './mock-console.mjs';
import { eventually, launchBrowser, openPage } from './support.mjs';

let browser;
before(async () => { browser = await launchBrowser(); });
after(() => browser?.close());

async function open(t, path, state = {}) {
  const mock = await startMock(state);
  t.after(() => mock.close());
  const opened = await openPage(browser);
  t.after(() => opened.context.close());
  await opened.page.goto(`${mock.url}${path}`);
  return { mock, ...opened };
}

const lines = (text) => text.split(' \n').slice(0, -1);

test('the map follows the device, redrawing once per new position and keeping the chosen zoom', async (t) => {
  const { mock, page, offsite, errors } = await open(t, 'map');
  const hooks = () => page.evaluate(() => ({ ...window.bvgeoConsole.counts(), draws: window.bvgeoConsole.draws(), zoom: window.bvgeoConsole.zoom(), center: window.bvgeoConsole.center() }));
  await page.waitForFunction(() => window.bvgeoConsole?.draws() === 1);
  const first = await hooks();
  // A fence of radius 0 still gets its pin.
  assert.deepEqual({ squares: first.squares, circles: first.circles, pins: first.pins, dots: first.dots }, { squares: 1, circles: 3, pins: 4, dots: 1 });

  await page.locator('.leaflet-control-zoom-in').click();
  await page.waitForFunction((z) => window.bvgeoConsole.zoom() === z, first.zoom + 1);
  mock.state.position = { id: 10, latitude: -23.56, longitude: -46.66, timestamp: 1700000900, type: 'LocationTracker' };
  await page.locator('#position', { hasText: 'Position: -23.56, -46.66' }).waitFor();
  await eventually(async () => {
    const now = await hooks();
    assert.equal(now.draws, 2);
    assert.ok(Math.abs(now.center[0] + 23.56) < 1e-3 && Math.abs(now.center[1] + 46.66) < 1e-3, `centre ${now.center}`);
  });
  const moved = await hooks();
  assert.equal(moved.zoom, first.zoom + 1);
  assert.deepEqual([moved.squares, moved.circles, moved.pins, moved.dots], [1, 3, 4, 1]);

  const polled = mock.requests.filter((r) => r.path === '/api/position').length;
  await eventually(() => assert.ok(mock.requests.filter((r) => r.path === '/api/position').length >= polled + 2), { timeout: 5_000 });
  assert.equal((await hooks()).draws, 2, 'an unchanged position draws nothing new');
  assert.deepEqual(offsite, []);
  assert.deepEqual(errors, []);
});

test('a million-row log opens with one page and pages in older rows on scroll', async (t) => {
  const { mock, page } = await open(t, 'log', { logRows: 1_000_000 });
  const log = page.locator('#log');
  await eventually(async () => assert.equal(lines(await log.textContent()).length, 500));
  const text = await log.textContent();
  assert.ok(text.startsWith(`${mockRow(1_000_000).message} \n${mockRow(999_999).message} \n`), text.slice(0, 80));
  const asked = () => mock.requests.filter((r) => r.path === '/api/logs').map((r) => r.query);
  assert.deepEqual(asked(), [{ filter: 'NONE', limit: '500' }]);

  await log.evaluate((pre) => { pre.scrollTop = pre.scrollHeight; });
  await eventually(async () => assert.equal(lines(await log.textContent()).length, 1000));
  assert.deepEqual(asked()[1], { filter: 'NONE', limit: '500', before: '999501' });
  assert.ok((await log.textContent()).endsWith(`${mockRow(999_001).message} \n`));
});

test('Send to Email shows a notice, an error dialog or starts a download, as the server answers', async (t) => {
  const { mock, page } = await open(t, 'log', { email: 'sent' });
  const send = page.getByRole('button', { name: 'Send to Email' });
  await send.click();
  await page.getByText('Report sent.', { exact: true }).waitFor();

  mock.state.email = 'error';
  await send.click();
  const error = page.getByRole('dialog', { name: 'Error' });
  await error.getByText('SMTP: connection refused (mock)', { exact: true }).waitFor();
  await error.getByRole('button', { name: 'Done' }).click();
  await error.waitFor({ state: 'hidden' });

  mock.state.email = 'download';
  const [download] = await Promise.all([page.waitForEvent('download'), send.click()]);
  assert.equal(download.suggestedFilename(), 'bvgeo-report.eml');
});

test('in the restart dialog Enter means Done and Escape means Cancel', async (t) => {
  const { mock, page } = await open(t, 'log');
  const dialog = page.getByRole('dialog', { name: 'Database Name' });
  await page.getByRole('button', { name: 'Restart' }).click();
  await dialog.getByRole('textbox').press('Escape');
  await dialog.waitFor({ state: 'hidden' });
  assert.equal(mock.state.archives.size, 0);

  await page.getByRole('button', { name: 'Restart' }).click();
  await dialog.getByRole('textbox').fill('by keyboard');
  await dialog.getByRole('textbox').press('Enter');
  await page.locator('#log', { hasText: 'Started tracking location' }).waitFor();
  assert.deepEqual([...mock.state.archives], ['by keyboard']);
});

test('a polygon fence is drawn as its polygons with their holes, and pinned like a circle', async (t) => {
  const square = [[-23.552, -46.642], [-23.552, -46.638], [-23.548, -46.638], [-23.548, -46.642]];
  const pond = [[-23.551, -46.641], [-23.549, -46.641], [-23.549, -46.639], [-23.551, -46.639]];
  const triangle = [[-23.552, -46.636], [-23.552, -46.634], [-23.549, -46.635]];
  const closed = (ring) => [...ring, ring[0]];
  const fences = [
    { id: 'park', name: 'Park', latitude: -23.55, longitude: -46.639, radius: 320, title: 'Park - 320m',
      polygons: [[closed(square), closed(pond)], [closed(triangle)]] },
    { id: 'shop', name: 'Shop', latitude: -23.5505, longitude: -46.634, radius: 100, title: 'Shop - 100m' },
  ];
  const { page, errors } = await open(t, 'map', { fences });
  await page.waitForFunction(() => window.bvgeoConsole?.draws() === 1);
  const counts = await page.evaluate(() => window.bvgeoConsole.counts());
  assert.deepEqual(counts, { squares: 1, circles: 1, pins: 2, dots: 1 });
  // Leaflet keeps rings open: the closing position is its own first.
  assert.deepEqual(await page.evaluate(() => window.bvgeoConsole.polygons()), [[[square, pond], [triangle]]]);
  const titles = await page.evaluate(() => window.bvgeoConsole.pins().map((p) => p.title).sort());
  assert.deepEqual(titles, ['Park - 320m', 'Shop - 100m']);
  assert.deepEqual(errors, []);
});
