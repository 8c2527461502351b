// The inspector of the sandbox inside `pelora demo`, watched while the scripted host plays a
// splash ad, native ads and a rewarded video through the SDK.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { Child, launchBrowser, openInspector, rows, screenshot, tool } from './harness.mjs';

let demo, browser, page, errors;

before(async () => {
  assert.ok(tool, 'PELORA_TOOL names the pelora program');
  demo = new Child(tool, ['demo', '--fast', '--json', '--serve']);
  const line = await demo.waitForLine((l) => l.includes('"event":"inspector"'), 'the inspector address', 20000);
  const url = JSON.parse(line).url;
  assert.match(url, /^http:\/\/127\.0\.0\.1:\d+\/inspector\/$/);
  browser = await launchBrowser();
  ({ page, errors } = await openInspector(browser.context, url));
});

after(async () => {
  await browser?.close();
  if (demo) await demo.stop();
});

test('the demo\'s fetches and beacons arrive live and none is flagged', async () => {
  // The page is open while the demo runs: the rewarded video's last beacon shows up on its own.
  await page.locator('#timeline li[data-ad="reward-001"][data-event="close"]').waitFor({ timeout: 120000 });
  const summary = JSON.parse(await demo.waitForLine((l) => l.startsWith('{"ok"'), 'the summary', 60000));
  assert.equal(summary.ok, true);
  await demo.waitForLine((l) => l.includes('"event":"serving"'), 'serving', 10000);

  const all = await rows(page);
  const fetched = all.filter((r) => r.kind === 'fetch').map((r) => r.slot);
  assert.deepEqual(fetched, ['splash-demo', 'native-demo', 'reward-demo']);
  // The SDK counts each event once and fills every macro it knows.
  assert.deepEqual(all.filter((r) => r.flags !== '').map((r) => `${r.ad} ${r.event} ${r.flags}`), []);
  assert.equal(all.filter((r) => r.ad === 'reward-001' && r.event === 'impression').length, 1);
  assert.deepEqual(errors, []);
});

test('the rewarded video\'s checklist shows what was sent and what never came', async () => {
  const card = page.locator('#ads .ad[data-ad="reward-001"]');
  const stateOf = (event) => card.locator(`li[data-event="${event}"]`).getAttribute('data-state');
  for (const event of ['impression', 'video start', 'video 25%', 'video 50%', 'video 75%', 'video complete', 'close']) {
    assert.equal(await stateOf(event), 'sent', event);
  }
  for (const event of ['skip', 'mute', 'play error']) assert.equal(await stateOf(event), 'never', event);
  // Not clicked in this run.
  assert.equal(await stateOf('click'), 'never');
});

test('video beacons decode their playback values', async () => {
  await page.locator('#timeline li[data-ad="reward-001"][data-event="video complete"]').click();
  const decoded = (macro) => page.locator(`#detail tr[data-macro="${macro}"] td.decoded`).textContent();
  assert.equal(await decoded('__VIDEO_TIME__'), '10 s long');
  assert.equal(await decoded('__VIDEO_END_TIME__'), 'to 10 s');
  assert.equal(await decoded('__VIDEO_PLAY_LAST_FRAME__'), '1: played to the last frame');
  assert.equal(await decoded('__VIDEO_STATUS__'), '0: playing normally');
  assert.equal(await decoded('__VIDEO_BEHAVIOR__'), '0: played by itself');

  // The native ad's click carries its touch point in the ad's own coordinates.
  await page.locator('#timeline li[data-ad="native-001"][data-event="click"]').click();
  assert.match(await decoded('__DOWN_X__'), /^\d+ pt in the ad$/);
  assert.match(await decoded('__UP_Y__'), /^\d+ pt in the ad$/);
  // Its impression went by POST: the macros are read from the body.
  await page.locator('#timeline li[data-ad="native-001"][data-event="impression"]').click();
  assert.equal(await page.locator('#detail tr[data-macro="__TS__"] td').nth(1).textContent(), 'body');

  await page.locator('#timeline li[data-ad="reward-001"][data-event="video 75%"]').click();
  await screenshot(page, 'inspector-demo.png');
});

test('the demo stops on SIGTERM while a page is still open', async () => {
  const { code, signal } = await demo.stop();
  assert.equal(signal, null);
  assert.equal(code, 0);
  demo = null;
});
