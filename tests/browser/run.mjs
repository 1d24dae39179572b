// The browser suite: the web panel in Debian's Chromium, driving a real pane
// on the simulated host through qb-panel, against the stand-in service.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import {
  Bridge, check, cliProgram, fail, outDir, panelProgram, root, runAll, runProgram, same,
  serviceProgram, test, waitFor, writeDeck,
} from './harness.mjs';

const BUSINESS = path.join(root, 'samples/business.json');
const CLOSING = ['onComplete', 'onError', 'onCancelled'];

async function startBridge(scope, deck, args = []) {
  const bridge = await Bridge.start(deck, args);
  scope.later(async () => {
    const exited = await bridge.stop();
    check(exited.code === 0, 'qb-panel ended with ' + JSON.stringify(exited) + ': ' + bridge.stderr.trim());
  });
  return bridge;
}

// The bridge's page with the translate page loaded in its panel.
async function openPanel(scope, bridge) {
  const page = await scope.context.newPage();
  const errors = [];
  page.on('pageerror', (e) => errors.push(e.message));
  scope.later(async () => {
    await page.close();
    check(errors.length === 0, 'script errors in the page: ' + errors.join('; '));
  });
  await page.goto(bridge.url);
  const frame = await (await page.waitForSelector('#panel')).contentFrame();
  const panel = { page, frame };
  await pageReady(panel, 'translate');
  return panel;
}

// The page named is loaded in the panel and its scripts have run.
async function pageReady(panel, name) {
  const file = name === 'translate' ? '/panel/ppt/?' : '/panel/ppt/' + name + '.html?';
  await waitFor(async () => panel.frame.url().includes(file) &&
    (await panel.frame.locator('body[data-page=' + name + '][data-ready=yes]').count()) === 1,
  'the ' + name + ' page');
}

function events(panel) {
  return panel.frame.evaluate(() => window.panelEvents || []);
}

async function ribbon(panel, page, mode) {
  const selector = '#ribbon button[data-page=' + page + ']' + (mode ? '[data-mode=' + mode + ']' : '');
  await panel.page.click(selector);
}

async function signIn(panel, bridge, token = 'stand-in-token') {
  await ribbon(panel, 'login');
  await pageReady(panel, 'login');
  await submitSignIn(panel, bridge, token);
}

async function submitSignIn(panel, bridge, token) {
  await panel.frame.locator('#name').fill('ada@example.com');
  await panel.frame.locator('#password').fill('secret');
  await panel.frame.locator('#signin button[type=submit]').click();
  await pageReady(panel, 'translate');
  await waitFor(async () => (await panel.frame.locator('#user').innerText()).includes('Signed in as ada@example.com'),
    'the translate page, signed in');
  await waitFor(async () => (await bridge.state()).accessToken === token, 'the pane to hold the token');
}

async function start(panel, lang) {
  await panel.frame.locator('#targetLang').selectOption(lang);
  await panel.frame.locator('#start').click();
}

async function runEnd(panel) {
  return waitFor(async () => {
    const seen = await events(panel);
    return seen.some((e) => CLOSING.includes(e.name)) && seen;
  }, 'the run to end', 120000);
}

function named(seen, name) {
  return seen.filter((e) => e.name === name);
}

function keysOf(url) {
  const search = new URL(url).searchParams;
  return ['_', 'host', 'pane', 'mode', 'uiLang'].map((k) => search.get(k));
}

// --- Pages ------------------------------------------------------------------

test('every page loads from the ribbon with its query keys', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  const [tick, host, pane, mode, uiLang] = keysOf(panel.frame.url());
  check(/^\d+$/.test(tick), 'the _ key is a tick count: ' + tick);
  same([host, pane, mode], ['ppt', 'ppt1', 'full'], 'host, pane and mode of the first load');
  check(/^[a-z]{2}/.test(uiLang), 'uiLang is a language tag: ' + uiLang);

  // The translate page stays and is told the new mode.
  await ribbon(panel, 'translate', 'slide');
  await waitFor(async () => (await panel.frame.locator('#scope').innerText()) === 'The current slide', 'the slide scope');
  same(keysOf(panel.frame.url())[3], 'full', 'the mode key of the page that was not reloaded');

  const pages = [['glossary', 'Glossary'], ['instruction', 'Instruction'], ['account', 'Account'],
    ['login', 'Sign in'], ['support', 'Support'], ['translate', 'Translate']];
  for (const [name, heading] of pages) {
    await ribbon(panel, name, name === 'translate' ? 'full' : undefined);
    await pageReady(panel, name);
    same(await panel.frame.locator('h1').innerText(), heading, 'the heading of ' + name);
    const keys = keysOf(panel.frame.url());
    check(/^\d+$/.test(keys[0]), name + ': _ is a tick count');
    // Pages loaded after the switch to the slide scope carry it.
    same(keys.slice(1), ['ppt', 'ppt1', name === 'translate' ? 'full' : 'slide', uiLang], name + ': query keys');
    const shown = await waitFor(async () => {
      const text = await panel.frame.locator('#querykeys').innerText();
      return text.includes('host=') && text;
    }, name + '\'s query keys to show');
    check(shown.includes('host=ppt') && shown.includes('pane=ppt1') && shown.includes('uiLang=' + uiLang),
      name + ' shows its query keys: ' + shown);
    await waitFor(async () => (await bridge.state()).page === name, 'the pane\'s current page to be ' + name);
  }
  same(await panel.frame.locator('#scope').innerText(), 'The whole presentation', 'the scope after "Translate deck"');

  // The panel's own links move the pane's idea of its page with them.
  await panel.frame.locator('#pages a[data-page=glossary]').click();
  await waitFor(async () => (await bridge.state()).page === 'glossary', 'the pane to follow the page\'s own navigation');

  const web = await panel.page.context().newPage();
  scope.later(() => web.close());
  await web.goto(bridge.serviceUrl + '/panel/web/webtranslate.html?tool=pdftr');
  same(await web.locator('#tool').innerText(), 'pdftr', 'the web translation page\'s tool');
});

test('sign-in hands the pane the token the service accepts', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS, ['--token', 'token-for-this-test']);
  const panel = await openPanel(scope, bridge);
  same((await bridge.state()).accessToken, '', 'the pane\'s token before signing in');
  await ribbon(panel, 'login');
  await pageReady(panel, 'login');
  // A refused sign-in is said in words, and hands over nothing.
  await panel.frame.locator('#name').fill('ada@example.com');
  await panel.frame.evaluate(() => document.getElementById('password').removeAttribute('required'));
  await panel.frame.locator('#signin button[type=submit]').click();
  await waitFor(async () => (await panel.frame.locator('#problem').innerText()).includes('Sign-in failed'), 'the refusal');
  same((await bridge.state()).accessToken, '', 'the pane\'s token after a refused sign-in');
  await submitSignIn(panel, bridge, 'token-for-this-test');
  // The token works at the service: a run completes with it.
  await start(panel, 'de');
  same(named(await runEnd(panel), 'onComplete').length, 1, 'a run with the token');
});

test('a new display language reaches the page at once and the next page\'s uiLang key', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  same(keysOf(panel.frame.url())[4], 'en', 'the display language at first');
  await panel.page.locator('#uilang').selectOption('de');
  await waitFor(async () => (await panel.frame.locator('#querykeys').innerText()).includes('uiLang=de'),
    'the page to hear of the new language');
  same(keysOf(panel.frame.url())[4], 'en', 'the loaded page\'s own key');
  await ribbon(panel, 'account');
  await pageReady(panel, 'account');
  same(keysOf(panel.frame.url())[4], 'de', 'the next page\'s uiLang key');
  await waitFor(async () => (await panel.frame.locator('#uiLang').innerText()) === 'de', 'the add-in\'s answer to uiLangGet');
  const refused = await fetch(bridge.url + 'bridge/uilang', { method: 'POST', body: '{"code":"xx"}' });
  same(refused.status, 400, 'an unknown display language is refused');
});

// --- Runs -------------------------------------------------------------------

test('a full-deck run completes with its events in order and the counts shown', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  const before = await (await fetch(bridge.url + 'bridge/deck')).json();
  await start(panel, 'fr');
  const seen = await runEnd(panel);
  const run = seen.slice(seen.findIndex((e) => e.name === 'onRunStarted'));
  const names = run.map((e) => e.name).filter((n) => n.startsWith('on') && n !== 'onSelectionPreview');
  check(names[0] === 'onRunStarted', 'the run opens with onRunStarted');
  same(names.filter((n) => CLOSING.includes(n)), ['onComplete'], 'the closing events');
  same(names[names.length - 1], 'onComplete', 'the last event');
  const scans = named(run, 'onScanProgress');
  same(scans.map((e) => e.detail.current), Array.from({ length: 20 }, (_, i) => i + 1), 'slides scanned');
  check(scans.every((e) => e.detail.total === 20 && e.detail.phase === 'slides'), 'scan totals and phase');
  const ready = named(run, 'onReady');
  same(ready.length, 1, 'onReady events');
  const total = ready[0].detail.total;
  check(total > 0, 'units to translate: ' + total);
  const progress = named(run, 'onProgress');
  same(progress.map((e) => e.detail.wordIndex), Array.from({ length: total }, (_, i) => i + 1), 'unit numbers');
  check(progress.every((e) => e.detail.total === total && e.detail.translated !== e.detail.original),
    'every unit translated and counted against the total');
  const complete = named(run, 'onComplete')[0].detail;
  same([complete.total, complete.bilingualCopy], [total, false], 'onComplete\'s total and bilingual copy');
  check(run.every((e) => !e.detail || e.detail.runId === undefined || e.detail.runId === run[0].detail.runId),
    'one run id throughout');
  const sent = named(seen, 'translateBatchRequest').reduce((n, e) => n + e.detail.texts, 0);
  same(sent, total, 'texts sent to the service through the page');
  same(named(seen, 'terminologyResolveRequest').length, 1, 'terminology requests');

  same(await panel.frame.locator('#units').innerText(), total + ' of ' + total, 'the units shown');
  same(await panel.frame.locator('#slides').innerText(), '20 of 20', 'the slides shown');
  check((await panel.frame.locator('#done').innerText()).startsWith(total + ' texts translated'), 'the closing words');

  // The picture beside the panel shows the slides as written.
  const after = await waitFor(async () => {
    const now = await (await fetch(bridge.url + 'bridge/deck')).json();
    return now.revision > before.revision && now;
  }, 'the picture to change');
  const firstLine = (deck) => deck.deck.slides[0].shapes[0].lines[0].text;
  check(firstLine(after) !== firstLine(before), 'slide 1 redrawn: ' + firstLine(after));
  await waitFor(async () => (await panel.page.locator('#deck .slide').first().innerText()).includes(firstLine(after)),
    'the drawn slide to show the new text');
  await panel.page.screenshot({ path: path.join(outDir, 'translate.png') });
  check(fs.statSync(path.join(outDir, 'translate.png')).size > 10000, 'the screenshot was written');
});

test('a run driven from the page writes the same deck as qb-translate', async (scope) => {
  const cliOut = path.join(outDir, 'business.cli.de.json');
  const panelOut = path.join(outDir, 'business.panel.de.json');
  for (const file of [cliOut, panelOut]) fs.rmSync(file, { force: true });
  const cli = await runProgram(cliProgram, ['--to', 'de', '-o', cliOut, BUSINESS]);
  same(cli.code, 0, 'qb-translate\'s exit code (' + cli.stderr.trim() + ')');

  const bridge = await startBridge(scope, BUSINESS, ['--save', panelOut]);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  const seen = await runEnd(panel);
  same(named(seen, 'onComplete').length, 1, 'a completed run');
  await waitFor(async () => (await bridge.state()).saves >= 1, 'qb-panel to save the deck');
  const report = JSON.parse(fs.readFileSync(cliOut.replace(/\.json$/, '.report.json'), 'utf8'));
  same(named(seen, 'onReady')[0].detail.total, report.units, 'units of the page\'s run and of the command line\'s');
  const a = fs.readFileSync(cliOut, 'utf8');
  const b = fs.readFileSync(panelOut, 'utf8');
  check(a !== fs.readFileSync(BUSINESS, 'utf8'), 'the command line changed the deck');
  if (a !== b) fail('the decks differ; compare ' + cliOut + ' with ' + panelOut);
});

test('a font picked from the add-in\'s font list is the font of the translated text', async (scope) => {
  const saved = path.join(outDir, 'business.panel.font.json');
  fs.rmSync(saved, { force: true });
  const bridge = await startBridge(scope, BUSINESS, ['--save', saved]);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  const fonts = await waitFor(async () => {
    const names = await panel.frame.locator('#targetFont option').evaluateAll((options) => options.map((o) => o.value));
    return names.length > 1 && names.slice(1);
  }, 'the font list');
  check(fonts.every((f) => f && !f.startsWith('@')), 'font names: ' + fonts.join(', '));
  const font = fonts[fonts.length - 1];
  await panel.frame.locator('#targetFont').selectOption(font);
  await start(panel, 'de');
  same(named(await runEnd(panel), 'onComplete').length, 1, 'a completed run');
  await waitFor(async () => (await bridge.state()).saves >= 1, 'qb-panel to save the deck');
  const text = fs.readFileSync(saved, 'utf8');
  check(text.includes('"name": ' + JSON.stringify(font)), 'the saved deck uses ' + font);
  check(!text.includes('"Times New Roman"'), 'the default font is not used');
});

test('translate again starts a second run with a run id of its own', async (scope) => {
  const deck = writeDeck('twice', [['Good morning'], ['Good evening', 'Thank you']]);
  const bridge = await startBridge(scope, deck);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  same(named(await runEnd(panel), 'onComplete').length, 1, 'the first run');
  await panel.frame.locator('#targetLang').selectOption('ja');
  await panel.frame.locator('#restart').click();
  const seen = await waitFor(async () => {
    const now = await events(panel);
    return named(now, 'onComplete').length === 2 && now;
  }, 'the second run to complete');
  const ids = named(seen, 'onRunStarted').map((e) => e.detail.runId);
  same(ids.length, 2, 'runs started');
  check(ids[1] > ids[0], 'the second run id is above the first: ' + ids.join(', '));
  same(named(seen, 'onReady').map((e) => e.detail.total), [3, 3], 'units of each run');
});

// Each text asks the stand-in service to answer it late, so that a run
// stands long enough in its batches to be paused or cancelled.
function lateDeck(name) {
  return writeDeck(name, [1, 2, 3, 4].map((n) => ['Slide ' + n + ' speaks slowly @fault:late']));
}

test('pause holds the next batch back, resume lets the run complete', async (scope) => {
  const bridge = await startBridge(scope, lateDeck('late-pause'), ['--late-ms', '1500']);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  await waitFor(async () => named(await events(panel), 'translateBatchRequest').length === 1, 'the first batch');
  await panel.frame.locator('#pause').click();
  check((await panel.frame.locator('#status').innerText()).startsWith('Paused'), 'the paused status');
  check(await panel.frame.locator('#resume').isEnabled(), 'Resume can be pressed');
  // The batch under way is answered; the run holds its results and starts
  // no other batch while paused.
  await waitFor(async () => named(await events(panel), 'translateBatchResult').length === 1, 'the page to answer the batch under way');
  const moved = await waitFor(async () => {
    const seen = await events(panel);
    return named(seen, 'translateBatchRequest').length > 1 || named(seen, 'onProgress').length > 0;
  }, 'the run to move while paused', 3000).then(() => true, () => false);
  check(!moved, 'the run went on while paused');
  same((await bridge.state()).runInProgress, true, 'the run is still in progress');
  await panel.frame.locator('#resume').click();
  const seen = await runEnd(panel);
  same(named(seen, 'onComplete').length, 1, 'the run completed');
  same(named(seen, 'onProgress').length, 4, 'units translated');
});

test('cancel ends the run with onCancelled and aborts the waiting batch', async (scope) => {
  const bridge = await startBridge(scope, lateDeck('late-cancel'), ['--late-ms', '3000']);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  await waitFor(async () => named(await events(panel), 'translateBatchRequest').length === 1, 'the first batch');
  await panel.frame.locator('#cancel').click();
  const seen = await runEnd(panel);
  same(seen.filter((e) => CLOSING.includes(e.name)).map((e) => e.name), ['onCancelled'], 'the closing events');
  const runId = named(seen, 'onRunStarted')[0].detail.runId;
  same(named(seen, 'translateAbortForRun').map((e) => e.detail.runId), [runId], 'the abort message for the run');
  check((await panel.frame.locator('#status').innerText()).startsWith('Cancelled'), 'the cancelled status');
  check(await panel.frame.locator('#start').isEnabled(), 'Start can be pressed again');
  await waitFor(async () => (await bridge.state()).runInProgress === false, 'the pane to be idle');
  same(named(seen, 'onProgress').length, 0, 'units written after cancel');
});

test('a service out of credits is shown in words and ends the run', async (scope) => {
  const deck = writeDeck('no-credits', [['Quarterly figures @fault:402'], ['Outlook']]);
  const bridge = await startBridge(scope, deck);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  const seen = await runEnd(panel);
  const errors = named(seen, 'onError');
  same(errors.length, 1, 'onError events');
  same(errors[0].detail.code, 'insufficient_credits', 'the failure code');
  await waitFor(async () => panel.frame.locator('#problem').isVisible(), 'the problem to show');
  const words = await panel.frame.locator('#problemWords').innerText();
  check(words.includes('no translation credits left'), 'the words for no credits: ' + words);
  same(await panel.frame.locator('#status').innerText(), 'Stopped.', 'the status');
});

test('a failing service is shown in words, not as a crash', async (scope) => {
  const deck = writeDeck('server-error', [['Every answer fails @fault:500']]);
  const bridge = await startBridge(scope, deck);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await start(panel, 'de');
  const seen = await runEnd(panel);
  // The text is in the terminology step's corpus too: that call fails first,
  // with a code that ends the run.
  same(named(seen, 'onError').length, 1, 'onError events');
  same(named(seen, 'serviceFailed').map((e) => e.detail.code), ['service_error'], 'the page saw the service fail');
  await waitFor(async () => panel.frame.locator('#problem').isVisible(), 'the problem to show');
  const words = await panel.frame.locator('#problemWords').innerText();
  check(/translation service/.test(words), 'words a user understands: ' + words);
  same((await bridge.state()).runInProgress, false, 'the pane is idle again');
});

test('sign-out clears the token in the pane and the page', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  await ribbon(panel, 'account');
  await pageReady(panel, 'account');
  await waitFor(async () => (await panel.frame.locator('#signedInState').innerText()).startsWith('yes'), 'the account page, signed in');
  await waitFor(async () => (await panel.frame.locator('#docKey').innerText()).startsWith('Document key '), 'the document key');
  await panel.frame.locator('#signout').click();
  await waitFor(async () => (await bridge.state()).accessToken === '', 'the pane to drop the token');
  same(await panel.frame.locator('#signedInState').innerText(), 'no', 'the account page after sign-out');
  same(await panel.frame.evaluate(() => localStorage.getItem('qb.panel.token')), null, 'the page\'s stored token');
  await ribbon(panel, 'translate', 'full');
  await pageReady(panel, 'translate');
  same((await bridge.state()).accessToken, '', 'the pane\'s token after a reload');
  await panel.frame.locator('#start').click();
  await waitFor(async () => panel.frame.locator('#problem').isVisible(), 'the request to sign in');
  check((await panel.frame.locator('#problemWords').innerText()).includes('not signed in'), 'the words');
  same(named(await events(panel), 'onRunStarted').length, 0, 'runs started while signed out');
});

test('a selection picked on the deck is previewed and translated alone', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  await signIn(panel, bridge);
  // Slide 2's title, picked on the picture.
  await panel.page.locator('#deck .slide[data-slide="2"] rect.box').first().click();
  await waitFor(async () => panel.page.locator('#deck .slide[data-slide="2"] rect.box.selected').count(), 'the shape to show as selected');
  await ribbon(panel, 'translate', 'selection');
  await waitFor(async () => (await panel.frame.locator('#previewText').innerText()).startsWith('Selected:'), 'the selection preview');
  check((await panel.frame.locator('#previewText').innerText()).includes('(1 texts'), 'one text selected');
  await start(panel, 'de');
  const seen = await runEnd(panel);
  same(named(seen, 'onComplete').length, 1, 'the run completed');
  same(named(seen, 'onReady')[0].detail.total, 1, 'units of the selection');
  same(named(seen, 'onProgress')[0].detail.original, 'Agenda', 'the text translated');
});

test('a second browser window takes the deck over, and the first one says so', async (scope) => {
  const bridge = await startBridge(scope, BUSINESS);
  const first = await openPanel(scope, bridge);
  await signIn(first, bridge);
  const second = await openPanel(scope, bridge);
  await waitFor(async () => (await first.page.locator('#status').innerText()).includes('another browser window'),
    'the first window to step back');
  // The pane reloads its page for the new window and hands it the token.
  await waitFor(async () => (await second.frame.locator('#user').innerText()).includes('Signed in'), 'the second window signed in');
  await start(second, 'de');
  same(named(await runEnd(second), 'onComplete').length, 1, 'a run from the second window');
  same(named(await events(first), 'onRunStarted').length, 0, 'run events in the first window');
});

test('qb-panel works with a running stand-in service that serves the panel', async (scope) => {
  const service = spawn(serviceProgram, ['--port', '0', '--token', 'outside-token', '--panel',
    path.join(root, 'sim/panel/web')], { stdio: ['ignore', 'pipe', 'pipe'] });
  let said = '';
  let ended = null;
  service.stdout.on('data', (d) => (said += d));
  service.on('close', (code) => (ended = { code }));
  scope.later(async () => {
    service.kill('SIGTERM');
    await waitFor(() => ended, 'qb_service to end', 20000);
  });
  const port = (await waitFor(() => /listening on 127\.0\.0\.1:(\d+)/.exec(said), 'qb_service to listen'))[1];
  const url = 'http://127.0.0.1:' + port;
  const bridge = await startBridge(scope, BUSINESS, ['--service', url]);
  same(bridge.serviceUrl, url, 'the service qb-panel uses');
  const panel = await openPanel(scope, bridge);
  check(panel.frame.url().startsWith(url + '/panel/ppt/?'), 'the panel comes from that service: ' + panel.frame.url());
  await signIn(panel, bridge, 'outside-token');
  await start(panel, 'de');
  same(named(await runEnd(panel), 'onComplete').length, 1, 'a run through that service');
});

// --- Bad input --------------------------------------------------------------

test('broken messages and bad command lines get clear answers, never a crash', async (scope) => {
  const missing = await runProgram(panelProgram, [path.join(outDir, 'no-such-deck.json')]);
  check(missing.code !== 0, 'a missing deck ends qb-panel with a failure code');
  same(missing.stderr.trim().split('\n').length, 1, 'one line of error: ' + missing.stderr);
  check(missing.stderr.startsWith('qb-panel: ') && missing.stderr.includes('no-such-deck.json'), 'the error names the file: ' + missing.stderr);
  const option = await runProgram(panelProgram, ['--port', 'eighty', BUSINESS]);
  same(option.code, 2, 'a bad option\'s exit code');
  check(option.stderr.includes('--port'), 'the error names the option: ' + option.stderr);

  const bridge = await startBridge(scope, BUSINESS);
  const panel = await openPanel(scope, bridge);
  const attach = await (await fetch(bridge.url + 'bridge/state')).json();
  check(attach.viewReady, 'the view is up');
  // Not JSON, and reports the program doesn't know, from the browser's side.
  const notJson = await fetch(bridge.url + 'bridge/post?client=1', { method: 'POST', body: '{"kind":' });
  check(notJson.status === 400 || notJson.status === 409, 'a broken report is refused: ' + notJson.status);
  const badPage = await fetch(bridge.url + 'bridge/ribbon', { method: 'POST', body: '{"page":"nowhere"}' });
  same(badPage.status, 400, 'an unknown page is refused');
  check((await badPage.text()).includes('no such page'), 'with a reason');
  // Messages the pane can't use, posted by the page itself.
  await panel.frame.evaluate(() => {
    window.chrome.webview.postMessage('a bare string');
    window.chrome.webview.postMessage({});
    window.chrome.webview.postMessage({ action: 'noSuchAction' });
    window.chrome.webview.postMessage({ action: 'translateBatchResult', requestId: 'ppttr_999', ok: true });
  });
  // The pane still answers: sign-in and a local query go through.
  await signIn(panel, bridge);
  same((await bridge.state()).viewReady, true, 'the view after the broken messages');
});

process.exitCode = await runAll();
