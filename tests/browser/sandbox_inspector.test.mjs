// The inspector page of `pelora-sandbox`, driven in headless Chromium while `pelora load` runs
// the SDK's real loaders against the same sandbox.
import assert from 'node:assert/strict';
import { copyFileSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { artifacts, launchBrowser, openInspector, rows, run, sandboxProgram, screenshot, startSandbox, tool } from './harness.mjs';

let sandbox, browser, page, requests, errors;

before(async () => {
  assert.ok(tool && sandboxProgram, 'PELORA_TOOL and PELORA_SANDBOX name the programs under test');
  sandbox = await startSandbox();
  browser = await launchBrowser();
  ({ page, requests, errors } = await openInspector(browser.context, `${sandbox.base}/inspector/`));
});

after(async () => {
  await browser?.close();
  if (sandbox) {
    const { code } = await sandbox.stop();
    assert.equal(code, 0, 'the sandbox stops cleanly on SIGTERM with a page still open');
  }
});

const load = (slot, kind = 'splash') => run(tool, ['load', '--kind', kind, '--slot', slot, '--base-url', sandbox.base], 60000);

// Asks the sandbox for an ad the way the SDK does, without the SDK.
async function fetchAds(slot) {
  const res = await fetch(`${sandbox.base}/api/v1/advert/fetch?reqId=T`, {
    method: 'POST', headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ slot: { slotId: slot, width: 640, height: 360 } }),
  });
  return (await res.json()).data.ads;
}

async function beacon(url, init) {
  const res = await fetch(url, init);
  assert.equal(res.status, 204, url);
}

function trackUrl(ad, type) {
  return ad.trackUrls.find((t) => t.trackType === type).urls[0];
}

test('the address is printed at start-up and the page loads nothing from elsewhere', async () => {
  assert.match(sandbox.stderr, new RegExp(`inspector: open ${sandbox.base}/inspector/`));
  assert.ok(requests.length >= 3, requests.join('\n'));
  for (const url of requests) assert.ok(url.startsWith(`${sandbox.base}/`), url);
  await page.locator('#empty').waitFor();
  assert.deepEqual(errors, []);
});

test('an SDK load appears live, its request and answer decoded', async () => {
  const result = await load('splash-demo');
  assert.equal(result.code, 0, result.stderr);
  const fetchRow = page.locator('#timeline li[data-kind="fetch"][data-slot="splash-demo"]');
  await fetchRow.waitFor();
  await page.locator('#timeline li[data-kind="beacon"][data-event="impression"]').waitFor();
  assert.match(await fetchRow.textContent(), /HTTP 200, 1 ad/);

  await fetchRow.click();
  const detail = page.locator('#detail');
  await detail.locator('h3', { hasText: 'Ad fetch for splash-demo' }).waitFor();
  // The request body as a tree: the slot the SDK asked for, with its size in pixels.
  const body = await detail.locator('.tree').first().textContent();
  assert.match(body, /slotId: "splash-demo"/);
  assert.match(body, /width: \d+/);
  const answer = await detail.locator('.tree').nth(1).textContent();
  assert.match(answer, /adId: "splash-001"/);
});

test('a beacon opens to its decoded macros and the ad checklist', async () => {
  const impression = page.locator('#timeline li[data-kind="beacon"][data-event="impression"]').first();
  assert.equal(await impression.getAttribute('data-flags'), '');
  await impression.click();
  const macro = (name) => page.locator(`#detail tr[data-macro="${name}"]`);
  await macro('__TS__').waitFor();
  const rawTs = Number(await macro('__TS__').locator('td').nth(2).textContent());
  const date = await macro('__TS__').locator('td.decoded').textContent();
  const iso = new Date(rawTs).toISOString();  // 2026-01-02T03:04:05.678Z
  assert.equal(date, `${iso.slice(0, 10)} ${iso.slice(11, 23)} UTC`);
  assert.match(await macro('__REQ_WIDTH__').locator('td.decoded').textContent(), /^\d+ px requested$/);
  assert.match(await macro('__WIDTH__').locator('td.decoded').textContent(), /^\d+ pt on screen$/);
  const card = page.locator('#detail .ad[data-ad="splash-001"]');
  assert.equal(await card.locator('li[data-event="impression"]').getAttribute('data-state'), 'sent');
  assert.equal(await card.locator('li[data-event="click"]').getAttribute('data-state'), 'never');
  assert.match(await card.locator('li[data-event="click"]').textContent(), /never came/);
});

test('double beacons and other faults are flagged', async () => {
  // The SDK's own impression, sent a second time as a misbehaving integration would.
  const first = await page.locator('#detail .url').textContent();
  await beacon(first.replace(/^GET /, ''));
  const twice = page.locator('#timeline li[data-event="impression"][data-flags~="duplicate"]');
  await twice.waitFor();
  await page.locator('#ads .ad[data-ad="splash-001"] li[data-event="impression"][data-state="twice"]').waitFor();

  // An ad nobody served, a click before any impression, a macro left although the SDK
  // knows its value, and a quartile after the video completed.
  await beacon(`${sandbox.base}/track/splash-demo/ghost-001/1?ts=1700000000000`);
  const native = await fetchAds('native-demo');
  await beacon(trackUrl(native[1], 2).replaceAll(/__[A-Z_]+__/g, '7'));
  await beacon(trackUrl(native[2], 2).replace('__TS__', '1700000000000').replaceAll(/__(?!DOWN_X)[A-Z_]+__/g, '3'));
  const reward = await fetchAds('reward-demo');
  const fill = (url) => url.replaceAll(/__[A-Z_]+__/g, '1');
  await beacon(fill(trackUrl(reward[0], 35)));
  await beacon(fill(trackUrl(reward[0], 32)));

  for (const [flag, ad] of [['never-served', 'ghost-001'], ['click-without-impression', 'native-002'],
    ['macro-left', 'native-003'], ['quartile-after-complete', 'reward-001']]) {
    await page.locator(`#timeline li[data-ad="${ad}"][data-flags~="${flag}"]`).waitFor();
  }
  await page.locator('#timeline li[data-ad="native-003"]').click();
  await page.locator('#detail li[data-flag="macro-left"]', { hasText: '__DOWN_X__' }).waitFor();
  await page.locator('#detail tr[data-macro="__DOWN_X__"][data-state="left"]').waitFor();
  const file = await screenshot(page, 'inspector-flags.png');
  // The picture in docs/SANDBOX.md: PELORA_DOCS_SCREENSHOT=$PWD/docs/sandbox-inspector.png
  if (process.env.PELORA_DOCS_SCREENSHOT) copyFileSync(file, process.env.PELORA_DOCS_SCREENSHOT);
});

test('the control panel switches a slot to HTTP 500 and the next SDK load fails', async () => {
  await page.locator('#control-slot').selectOption('splash-demo');
  await page.locator('[data-preset="http500"]').click();
  await page.locator('#control-message.ok', { hasText: 'HTTP 500' }).waitFor();
  await page.locator('#control-current', { hasText: 'HTTP 500' }).waitFor();

  const failed = await load('splash-demo');
  assert.equal(failed.code, 1);
  assert.ok(failed.stdout.some((l) => l.includes('"splashAdDidFailWithError"')), failed.stdout.join('\n'));
  const failedRow = page.locator('#timeline li[data-kind="fetch"][data-slot="splash-demo"] .status-bad', { hasText: 'HTTP 500' });
  await failedRow.waitFor();
  await screenshot(page, 'inspector-control-panel.png');

  // Input the sandbox cannot use is refused with a reason, and changes nothing.
  await page.locator('#control-status').fill('700');
  await page.locator('#control-apply').click();
  await page.locator('#control-message.error', { hasText: '"status" out of range' }).waitFor();
  await page.locator('#control-current', { hasText: 'HTTP 500' }).waitFor();

  await page.locator('#control-reset').click();
  await page.locator('#control-current', { hasText: 'HTTP 200, body ads' }).waitFor();
  const again = await load('splash-demo');
  assert.equal(again.code, 0, again.stdout.join('\n'));
});

test('filters narrow the timeline by slot, ad, event and flags', async () => {
  const visible = async () => (await rows(page)).filter((r) => !r.hidden);
  await page.locator('#filter-event').selectOption('impression');
  let shown = await visible();
  assert.ok(shown.length >= 3);
  assert.ok(shown.every((r) => r.event === 'impression'));

  await page.locator('#filter-event').selectOption('');
  await page.locator('#filter-slot').selectOption('native-demo');
  shown = await visible();
  assert.ok(shown.length >= 3);
  assert.ok(shown.every((r) => r.slot === 'native-demo'));
  assert.ok(await page.locator('#ads .ad[data-slot="splash-demo"]').first().isHidden());

  await page.locator('#filter-slot').selectOption('');
  await page.locator('#filter-ad').selectOption('splash-001');
  shown = await visible();
  assert.ok(shown.every((r) => r.ad.split(' ').includes('splash-001')));
  assert.ok(shown.some((r) => r.kind === 'fetch') && shown.some((r) => r.kind === 'beacon'));

  await page.locator('#filter-ad').selectOption('');
  await page.locator('#filter-flagged').check();
  shown = await visible();
  assert.equal(shown.length, 5);
  assert.ok(shown.every((r) => r.flags !== ''));
  await page.locator('#filter-flagged').uncheck();
});

test('the export holds the whole decoded and flagged record', async () => {
  const [download] = await Promise.all([page.waitForEvent('download'), page.locator('#export').click()]);
  const file = path.join(artifacts, 'inspector-export.json');
  await download.saveAs(file);
  const record = JSON.parse(readFileSync(file, 'utf8'));
  const all = await rows(page);
  assert.equal(record.fetches.length + record.beacons.length, all.length);
  const flags = record.beacons.flatMap((b) => b.flags.map((f) => `${b.adId} ${f.code}`)).sort();
  assert.deepEqual(flags, ['ghost-001 never-served', 'native-002 click-without-impression',
    'native-003 click-without-impression', 'native-003 macro-left', 'reward-001 quartile-after-complete',
    'splash-001 duplicate']);
  const splash = record.ads.filter((a) => a.adId === 'splash-001');
  assert.equal(splash.length, 2);  // the two loads that got an answer with ads
  assert.deepEqual(splash[0].events.find((e) => e.event === 'impression').sent.length, 2);
  assert.ok(record.fetches.some((f) => f.status === 500 && f.answerJson.code === 500));
  writeFileSync(path.join(artifacts, 'inspector-rows.json'), JSON.stringify(all, null, 2));
});
