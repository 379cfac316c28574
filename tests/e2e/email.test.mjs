// "Send to Email" of a real `bvgeo console`: through an SMTP server when one is
// configured, as a downloaded .eml otherwise.
import assert from 'node:assert/strict';
import { copyFile, mkdir, readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';
import { OUTPUT_DIR, SKIP_REAL, eventually, openConsole, parseMail, sqliteFiles, startSmtpSink, useFixtureAndBrowser } from './support.mjs';

const FROM = 'console@e2e.test';
const TO = 'team@e2e.test';

// One replayed data directory and one browser for every test of this file.
const run = useFixtureAndBrowser();

// A data directory that also keeps an older archive in a folder of its own.
async function dataDirWithArchive() {
  const dir = await run.fixture.dataDir();
  await mkdir(path.join(dir, 'older'));
  await copyFile(path.join(dir, 'BVGDatabase.sqlite'), path.join(dir, 'older', 'first run.sqlite'));
  return dir;
}

async function openLog(t, dataDir, extra = []) {
  const opened = await openConsole(t, run.browser, dataDir, { pagePath: 'log', extra });
  await opened.page.waitForFunction(() => document.getElementById('log').textContent !== '');
  return opened;
}

async function assertReport(raw, dataDir) {
  const mail = parseMail(raw);
  assert.ok(mail.subject.startsWith('BVG SDK Tests - '), `subject: ${mail.subject}`);
  const text = mail.parts.find((part) => part.type === 'text/plain' && !part.attachment);
  assert.ok(text, 'the report has a text part');
  assert.ok(text.body.toString('utf8').startsWith('ID: '), `body: ${text.body.toString('utf8').slice(0, 80)}`);

  const files = await sqliteFiles(dataDir);
  const attached = mail.parts.filter((part) => part.filename !== null);
  assert.deepEqual(attached.map((part) => part.filename).sort(), files);
  for (const part of attached) {
    assert.equal(part.type, 'application/x-sqlite3', part.filename);
    // The live database may be written to after mailing; archives may not.
    if (part.filename === 'BVGDatabase.sqlite') assert.equal(part.body.subarray(0, 16).toString('latin1'), 'SQLite format 3\0');
    else assert.ok(part.body.equals(await readFile(path.join(dataDir, part.filename))), `${part.filename} is attached unchanged`);
  }
}

test('Send to Email mails the report with every database under the data directory attached', { skip: SKIP_REAL }, async (t) => {
  const sink = await startSmtpSink();
  t.after(() => sink.close());
  const dataDir = await dataDirWithArchive();
  const { consoleProcess, page, offsite } = await openLog(t, dataDir,
    ['--smtp', `smtp://127.0.0.1:${sink.port}`, '--mail-from', FROM, '--mail-to', TO]);

  // An archive the console made itself travels along too.
  await page.getByRole('button', { name: 'Restart' }).click();
  const restartDialog = page.getByRole('dialog', { name: 'Database Name' });
  await restartDialog.getByRole('textbox').fill('before mail');
  await restartDialog.getByRole('button', { name: 'Done' }).click();
  await restartDialog.waitFor({ state: 'hidden' });
  await eventually(async () => assert.deepEqual(await sqliteFiles(dataDir), ['BVGDatabase.sqlite', 'before mail.sqlite', 'older/first run.sqlite']));

  await page.getByRole('button', { name: 'Send to Email' }).click();
  await page.getByText('Report sent.', { exact: true }).waitFor();
  await eventually(() => assert.equal(sink.messages.length, 1), { timeout: 15_000 });
  const [message] = sink.messages;
  assert.equal(message.from, FROM);
  assert.deepEqual(message.to, [TO]);
  await assertReport(message.raw, dataDir);
  assert.ok(!consoleProcess.stdout().includes('Can not send email.'));
  assert.deepEqual(offsite, []);
});

test('without a mail server the report is downloaded as an .eml and the program says so', { skip: SKIP_REAL }, async (t) => {
  const dataDir = await dataDirWithArchive();
  const { consoleProcess, page, offsite } = await openLog(t, dataDir);

  const [download] = await Promise.all([
    page.waitForEvent('download', { timeout: 15_000 }),
    page.getByRole('button', { name: 'Send to Email' }).click(),
  ]);
  assert.equal(download.suggestedFilename(), 'bvgeo-report.eml');
  const saved = path.join(OUTPUT_DIR, 'bvgeo-report.eml');
  await mkdir(OUTPUT_DIR, { recursive: true });
  await download.saveAs(saved);
  await assertReport(await readFile(saved), dataDir);
  await eventually(() => assert.ok(consoleProcess.stdout().includes('Can not send email.'), 'stdout tells the mail was not sent'));
  assert.equal(await page.getByRole('dialog', { name: 'Error' }).isVisible(), false);
  assert.deepEqual(offsite, []);
});
