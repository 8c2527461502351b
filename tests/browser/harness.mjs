// Shared pieces of the browser tests: the programs under test, headless Chromium, artefacts.
// Every wait here has a deadline; nothing paces itself on wall time.
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

export const tool = process.env.PELORA_TOOL;
export const sandboxProgram = process.env.PELORA_SANDBOX;
export const artifacts = process.env.PELORA_ARTIFACTS || path.join(tmpdir(), 'pelora-browser-artifacts');
const chromiumPath = process.env.PELORA_CHROMIUM || '/usr/bin/chromium';
mkdirSync(artifacts, { recursive: true });

// A child process whose output lines are kept and can be waited for.
export class Child {
  constructor(command, args, options = {}) {
    this.lines = [];
    this.stderr = '';
    this.waiters = [];
    this.exited = new Promise((resolve) => {
      this.proc = spawn(command, args, { stdio: ['ignore', 'pipe', 'pipe'], ...options });
      this.proc.on('exit', (code, signal) => resolve({ code, signal }));
    });
    let pending = '';
    this.proc.stdout.setEncoding('utf8');
    this.proc.stdout.on('data', (chunk) => {
      pending += chunk;
      let nl;
      while ((nl = pending.indexOf('\n')) >= 0) {
        this.lines.push(pending.slice(0, nl));
        pending = pending.slice(nl + 1);
      }
      this.check();
    });
    this.proc.stderr.setEncoding('utf8');
    this.proc.stderr.on('data', (chunk) => { this.stderr += chunk; this.check(); });
    this.exited.then(() => this.check(true));
  }

  check(ended = false) {
    this.waiters = this.waiters.filter((w) => {
      const hit = this.lines.find(w.test);
      if (hit !== undefined) { clearTimeout(w.timer); w.resolve(hit); return false; }
      if (ended) { clearTimeout(w.timer); w.reject(new Error(`exited before: ${w.what}\n${this.stderr}`)); return false; }
      return true;
    });
  }

  // The first output line for which `test` holds, within `timeoutMs`.
  waitForLine(test, what, timeoutMs = 30000) {
    return new Promise((resolve, reject) => {
      const w = { test, what, resolve, reject };
      w.timer = setTimeout(() => {
        this.waiters = this.waiters.filter((x) => x !== w);
        reject(new Error(`no line "${what}" within ${timeoutMs} ms; got:\n${this.lines.join('\n')}\n${this.stderr}`));
      }, timeoutMs);
      this.waiters.push(w);
      this.check(this.proc.exitCode !== null);
    });
  }

  // Ends the process (SIGTERM, then SIGKILL after `graceMs`) and returns how it ended.
  async stop(graceMs = 10000) {
    if (this.proc.exitCode === null && this.proc.signalCode === null) this.proc.kill('SIGTERM');
    const timer = setTimeout(() => this.proc.kill('SIGKILL'), graceMs);
    const result = await this.exited;
    clearTimeout(timer);
    return result;
  }
}

// Runs a program to its end (killed after `timeoutMs`): {code, stdout, stderr}.
export async function run(command, args, timeoutMs = 60000) {
  const child = new Child(command, args);
  const timer = setTimeout(() => child.proc.kill('SIGKILL'), timeoutMs);
  const { code, signal } = await child.exited;
  clearTimeout(timer);
  return { code, signal, stdout: child.lines, stderr: child.stderr };
}

// `pelora-sandbox` on a free loopback port; resolves once it printed its address.
export async function startSandbox() {
  const child = new Child(sandboxProgram, ['--host', '127.0.0.1', '--port', '0']);
  const base = await child.waitForLine((l) => l.startsWith('http://127.0.0.1:'), 'base URL', 20000);
  child.base = base.trim();
  return child;
}

// Headless Chromium from the system, on a fresh profile, with nothing reaching the network.
export async function launchBrowser() {
  const profile = mkdtempSync(path.join(tmpdir(), 'pelora-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: chromiumPath,
    headless: true,
    timeout: 60000,
    acceptDownloads: true,
    viewport: { width: 1440, height: 900 },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  context.setDefaultTimeout(20000);
  const close = async () => {
    await context.close().catch(() => {});
    rmSync(profile, { recursive: true, force: true });
  };
  return { context, close };
}

// Opens the inspector at `url`; every request the page makes is listed in `requests`.
export async function openInspector(context, url) {
  const page = context.pages()[0] || (await context.newPage());
  const requests = [];
  page.on('request', (r) => requests.push(r.url()));
  const errors = [];
  page.on('pageerror', (e) => errors.push(String(e)));
  await page.goto(url);
  await page.locator('#connection[data-state="live"]').waitFor();
  return { page, requests, errors };
}

export async function screenshot(page, name) {
  const file = path.join(artifacts, name);
  await page.screenshot({ path: file, fullPage: true });
  return file;
}

// Rows of the timeline matching a CSS attribute selector, as their data attributes.
export async function rows(page, selector = '') {
  return page.locator(`#timeline li${selector}`).evaluateAll((lis) => lis.map((li) => ({ ...li.dataset, hidden: li.classList.contains('hidden'), text: li.textContent })));
}
