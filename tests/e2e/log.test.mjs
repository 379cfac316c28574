// The log page of a real `bvgeo console`: rows as the database holds them,
// paging, filters and restarting on a fresh database.
import assert from 'node:assert/strict';
import { copyFile, mkdtemp, readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';
import { SKIP_REAL, eventually, newestFirstText, openConsole, readLogs, screenshot, sqliteFiles, useFixtureAndBrowser } from './support.mjs';

const FILTERS = ['NONE', 'FENCE', 'ZONE', 'GENERAL', 'LOCATION', 'REQUESTS', 'TRIGGER', 'CLIENT'];

// One replayed data directory and one browser for every test of this file.
const run = useFixtureAndBrowser();

async function openLog(t) {
  const dataDir = await run.fixture.dataDir();
  return { dataDir, ...(await openConsole(t, run.browser, dataDir, { pagePath: 'log' })) };
}

const logText = (page) => page.locator('#log').textContent();
const showsText = (page, expected) => eventually(async () => assert.equal(await logText(page), expected));

// Waits until the page shows the database's rows, read anew on every try in
// case the console logged something of its own after it came up; returns them.
function showsRows(page, dataDir, { category, limit } = {}) {
  return eventually(async () => {
    const rows = await readLogs(dataDir, category);
    assert.equal(await logText(page), newestFirstText(rows, limit));
    return rows;
  });
}

function minuteName(ms) {
  const d = new Date(ms);
  const two = (n) => String(n).padStart(2, '0');
  return `${two(d.getMonth() + 1)}-${two(d.getDate())}-${d.getFullYear()} ${two(d.getHours())}:${two(d.getMinutes())}`;
}

test('log lists the stored rows newest first, pages in older ones and filters by category', { skip: SKIP_REAL }, async (t) => {
  const { dataDir, page, offsite, errors } = await openLog(t);
  const rows = await showsRows(page, dataDir, { limit: 500 });
  assert.ok(rows.length > 500, 'the fixture outgrows one page');
  const firstPage = newestFirstText(rows, 500);
  await screenshot(page, 'log-page.png');

  await page.locator('#log').evaluate((log) => { log.scrollTop = log.scrollHeight; });
  await showsText(page, newestFirstText(rows));

  const line = page.getByRole('button', { name: /^FILTER: / });
  assert.equal(await line.textContent(), 'FILTER: NONE');
  await line.click();
  assert.deepEqual(await page.getByRole('option').allTextContents(), FILTERS);
  await page.getByRole('option', { name: 'REQUESTS' }).click();
  assert.equal(await line.textContent(), 'FILTER: REQUESTS');
  await page.getByRole('listbox').waitFor({ state: 'hidden' });
  const requests = await showsRows(page, dataDir, { category: 'REQUESTS' });
  assert.ok(requests.length > 0);

  await line.click();
  await page.getByRole('option', { name: 'NONE' }).click();
  assert.equal(await line.textContent(), 'FILTER: NONE');
  await showsText(page, firstPage);

  await page.locator('#log').evaluate((log) => { log.scrollTop = log.scrollHeight; });
  await showsText(page, newestFirstText(rows));
  await page.getByRole('button', { name: 'Refresh' }).click();
  await showsText(page, firstPage);

  assert.deepEqual(offsite, []);
  assert.deepEqual(errors, []);
});

test('restart offers the current minute as name, refuses empty and taken names, and starts a fresh database', { skip: SKIP_REAL }, async (t) => {
  const { dataDir, page } = await openLog(t);
  const oldRows = await showsRows(page, dataDir, { limit: 500 });
  const restartDialog = page.getByRole('dialog', { name: 'Database Name' });
  const errorDialog = page.getByRole('dialog', { name: 'Error' });
  const archive = path.join(dataDir, 'e2e archive.sqlite');

  const asked = Date.now();
  await page.getByRole('button', { name: 'Restart' }).click();
  await restartDialog.waitFor();
  const answered = Date.now();
  await restartDialog.getByText('Write a new name or press done for default').waitFor();
  const offered = await restartDialog.getByRole('textbox').inputValue();
  assert.match(offered, /^\d\d-\d\d-\d{4} \d\d:\d\d$/);
  assert.ok([minuteName(asked), minuteName(answered)].includes(offered), `${offered} is not the current minute`);
  await restartDialog.getByRole('button', { name: 'Cancel' }).click();
  await restartDialog.waitFor({ state: 'hidden' });
  assert.deepEqual(await sqliteFiles(dataDir), ['BVGDatabase.sqlite']);

  const restartAs = async (name) => {
    await page.getByRole('button', { name: 'Restart' }).click();
    await restartDialog.getByRole('textbox').fill(name);
    await restartDialog.getByRole('button', { name: 'Done' }).click();
  };
  const refusedWith = async (message) => {
    await errorDialog.getByText(message, { exact: true }).waitFor();
    await errorDialog.getByRole('button', { name: 'Done' }).click();
    await errorDialog.waitFor({ state: 'hidden' });
  };

  await restartAs('');
  await refusedWith('Name cannot be empty');
  assert.deepEqual(await sqliteFiles(dataDir), ['BVGDatabase.sqlite']);
  assert.equal(await logText(page), newestFirstText(oldRows, 500));

  await restartAs('e2e archive');
  await restartDialog.waitFor({ state: 'hidden' });
  const oldMessages = new Set(oldRows.map((row) => row.message));
  await eventually(async () => {
    const lines = (await logText(page)).split(' \n');
    assert.ok(lines.some((l) => l.includes('Started tracking location')), 'the fresh database has started tracking');
    assert.ok(!lines.some((l) => oldMessages.has(l)), 'no row of the archived database is shown');
  });
  assert.deepEqual(await sqliteFiles(dataDir), ['BVGDatabase.sqlite', 'e2e archive.sqlite']);
  // The archive is the old database: read it back through the command line.
  const readBack = await mkdtemp(path.join(run.fixture.root, 'archive-'));
  await copyFile(archive, path.join(readBack, 'BVGDatabase.sqlite'));
  const archived = await readLogs(readBack);
  assert.deepEqual(archived.slice(0, oldRows.length), oldRows);

  const archiveBytes = await readFile(archive);
  await restartAs('e2e archive');
  await refusedWith('Name already exists');
  assert.deepEqual(await readFile(archive), archiveBytes);
});
