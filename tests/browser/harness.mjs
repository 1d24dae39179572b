// What the browser suite runs on: qb-panel started per test on a deck, one
// Debian Chromium for the whole suite with a fresh profile, polling waits
// with generous bounds, and a runner that ends with "N passed, M failed".
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';

export const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
export const buildDir = process.env.QB_BUILD_DIR || path.join(root, 'build/native');
export const outDir = path.join(root, 'build/browser');
export const panelProgram = path.join(buildDir, 'sim/bridge/qb-panel');
export const cliProgram = path.join(buildDir, 'cli/qb-translate');
export const serviceProgram = path.join(buildDir, 'sim/service/qb_service');

const CHROMIUM = process.env.QB_CHROMIUM || '/usr/bin/chromium';
const TEST_MS = 180000;

export function fail(message) {
  throw new Error(message);
}

export function check(condition, message) {
  if (!condition) fail(message);
}

export function same(actual, expected, what) {
  const a = JSON.stringify(actual);
  const e = JSON.stringify(expected);
  if (a !== e) fail(what + ': expected ' + e + ', got ' + a);
}

// Polls `probe` until it gives something truthy, which it returns.
export async function waitFor(probe, what, timeoutMs = 60000) {
  const until = Date.now() + timeoutMs;
  let last;
  for (;;) {
    try {
      last = await probe();
      if (last) return last;
    } catch (e) {
      last = e.message;
    }
    if (Date.now() > until) fail('timed out waiting for ' + what + ' (last: ' + JSON.stringify(last) + ')');
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
}

// Runs a program to its end: exit code, output and errors.
// The programs keep their logs and the user's settings in folders of the
// test's own, never in the machine's.
function isolated() {
  const home = fs.mkdtempSync(path.join(os.tmpdir(), 'qb-home-'));
  for (const folder of ['config', 'data']) fs.mkdirSync(path.join(home, folder));
  return {
    home,
    env: Object.assign({}, process.env, {
      XDG_CONFIG_HOME: path.join(home, 'config'),
      XDG_DATA_HOME: path.join(home, 'data'),
    }),
  };
}

export function runProgram(program, args, timeoutMs = 120000) {
  return new Promise((resolve, reject) => {
    const { home, env } = isolated();
    const child = spawn(program, args, { stdio: ['ignore', 'pipe', 'pipe'], env });
    let stdout = '';
    let stderr = '';
    child.stdout.on('data', (d) => (stdout += d));
    child.stderr.on('data', (d) => (stderr += d));
    const timer = setTimeout(() => child.kill('SIGKILL'), timeoutMs);
    child.on('error', reject);
    child.on('close', (code, signal) => {
      clearTimeout(timer);
      fs.rmSync(home, { recursive: true, force: true });
      resolve({ code, signal, stdout, stderr });
    });
  });
}

// A deck file of the given slides, each a list of texts in text boxes.
export function writeDeck(name, slides) {
  const file = path.join(outDir, 'decks', name + '.json');
  fs.mkdirSync(path.dirname(file), { recursive: true });
  const deck = {
    formatVersion: 1,
    fullName: 'C:\\Decks\\' + name + '.pptx',
    slides: slides.map((texts) => ({
      shapes: texts.map((text, i) => ({ name: 'Text ' + (i + 1), left: 40, top: 40 + i * 80, width: 600, height: 60, text })),
    })),
  };
  fs.writeFileSync(file, JSON.stringify(deck, null, 2));
  return file;
}

export class Bridge {
  static async start(deck, args = []) {
    const bridge = new Bridge();
    const { home, env } = isolated();
    bridge.home = home;
    bridge.child = spawn(panelProgram, args.concat([deck]), { stdio: ['ignore', 'pipe', 'pipe'], env });
    bridge.stdout = '';
    bridge.stderr = '';
    bridge.exited = null;
    bridge.child.stdout.on('data', (d) => (bridge.stdout += d));
    bridge.child.stderr.on('data', (d) => (bridge.stderr += d));
    bridge.child.on('close', (code, signal) => (bridge.exited = { code, signal }));
    const address = await waitFor(() => {
      if (bridge.exited) fail('qb-panel ended early: ' + bridge.stderr.trim());
      return /open (http:\/\/\S+)/.exec(bridge.stdout);
    }, 'qb-panel to print its address', 20000);
    bridge.url = address[1];
    bridge.serviceUrl = /service (http:\/\/\S+)/.exec(bridge.stdout)[1];
    return bridge;
  }

  async state() {
    const response = await fetch(this.url + 'bridge/state');
    return response.json();
  }

  async stop() {
    if (this.exited) return this.exited;
    this.child.kill('SIGTERM');
    try {
      await waitFor(() => this.exited, 'qb-panel to end', 20000);
    } catch (e) {
      this.child.kill('SIGKILL');
      throw e;
    }
    fs.rmSync(this.home, { recursive: true, force: true });
    return this.exited;
  }
}

export async function launchBrowser() {
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'qb-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    viewport: { width: 1280, height: 800 },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  return { context, profile };
}

const tests = [];
// QB_BROWSER_ONLY=words runs only the tests whose names hold them.
const only = process.env.QB_BROWSER_ONLY || '';
export function test(name, body) {
  if (name.includes(only)) tests.push({ name, body });
}

export async function runAll() {
  fs.mkdirSync(outDir, { recursive: true });
  let browser;
  try {
    browser = await launchBrowser();
  } catch (e) {
    console.log('not ok - Chromium would not start: ' + e.message);
    console.log('0 passed, ' + Math.max(tests.length, 1) + ' failed');
    return 1;
  }
  let passed = 0;
  let failed = 0;
  for (const [i, t] of tests.entries()) {
    const started = Date.now();
    const cleanups = [];
    const scope = {
      context: browser.context,
      later: (fn) => cleanups.push(fn),
    };
    let error = null;
    try {
      let timer;
      await Promise.race([
        t.body(scope),
        new Promise((_, reject) => (timer = setTimeout(() => reject(new Error('the test took over ' + TEST_MS / 1000 + ' s')), TEST_MS))),
      ]).finally(() => clearTimeout(timer));
    } catch (e) {
      error = e;
    }
    for (const fn of cleanups.reverse()) {
      try {
        await fn();
      } catch (e) {
        error = error || e;
      }
    }
    const took = ((Date.now() - started) / 1000).toFixed(1) + ' s';
    if (error) {
      failed++;
      console.log('not ok ' + (i + 1) + ' - ' + t.name + ' (' + took + ')');
      console.log('  ' + String(error.stack || error).split('\n').slice(0, 6).join('\n  '));
    } else {
      passed++;
      console.log('ok ' + (i + 1) + ' - ' + t.name + ' (' + took + ')');
    }
  }
  await browser.context.close();
  fs.rmSync(browser.profile, { recursive: true, force: true });
  console.log(passed + ' passed, ' + failed + ' failed');
  return failed === 0 ? 0 : 1;
}
