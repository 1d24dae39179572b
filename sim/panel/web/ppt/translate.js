'use strict';
// The translate page: what a run covers (the mode the add-in sets), the
// languages and font, starting, pausing and cancelling runs, their progress
// from the add-in's events, and the service calls the add-in hands the page.
(function () {
  const LANGUAGES = [
    ['en', 'English'], ['zh-cn', 'Chinese (Simplified)'], ['zh-tw', 'Chinese (Traditional)'],
    ['ja', 'Japanese'], ['ko', 'Korean'], ['de', 'German'], ['fr', 'French'], ['es', 'Spanish'],
    ['it', 'Italian'], ['pt', 'Portuguese'], ['ru', 'Russian'], ['ar', 'Arabic'],
    ['nl', 'Dutch'], ['pl', 'Polish'], ['tr', 'Turkish'], ['vi', 'Vietnamese'], ['th', 'Thai'],
    ['id', 'Indonesian'], ['uk', 'Ukrainian'], ['sv', 'Swedish'],
  ];
  const SCOPES = {
    full: 'The whole presentation',
    slide: 'The current slide',
    selection: 'What is selected',
  };
  // Under the add-in's 120 s, so that the add-in hears the page's own word.
  const SERVICE_WAIT_MS = 100000;
  const KEPT_EVENTS = 300;

  const $ = (id) => document.getElementById(id);
  let mode = SCOPES[Panel.keys.mode] ? Panel.keys.mode : 'full';
  const run = { id: 0, running: false, paused: false };
  const calls = new Map(); // requestId -> { controller, runId, why }
  const events = [];
  window.panelEvents = events; // what the add-in told this page, in order

  for (const [code, name] of [['auto', 'Detect the language']].concat(LANGUAGES)) {
    $('sourceLang').appendChild(Panel.element('option', { value: code }, name));
    if (code !== 'auto') $('targetLang').appendChild(Panel.element('option', { value: code }, name));
  }
  $('targetLang').value = localStorage.getItem('qb.panel.targetLang') || 'en';
  $('targetLang').addEventListener('change', () => {
    localStorage.setItem('qb.panel.targetLang', $('targetLang').value);
  });

  function note(name, detail) {
    events.push({ name: name, detail: detail });
    const item = Panel.element('li', {}, name + ' ' + JSON.stringify(detail));
    $('events').appendChild(item);
    while ($('events').children.length > KEPT_EVENTS) $('events').firstChild.remove();
  }

  function say(text) {
    $('status').textContent = text;
  }

  function problem(code, message) {
    const described = Panel.describe(code, message);
    $('problemWords').textContent = described.words;
    $('problemDetails').textContent = described.details;
    $('problem').hidden = false;
  }

  function buttons() {
    $('start').disabled = run.running;
    $('restart').disabled = run.running;
    $('pause').disabled = !run.running || run.paused;
    $('resume').disabled = !run.running || !run.paused;
    $('cancel').disabled = !run.running;
  }

  function showScope() {
    $('scope').textContent = SCOPES[mode];
    $('preview').hidden = mode !== 'selection';
    if (mode === 'selection') askPreview();
  }

  function askPreview() {
    $('previewText').textContent = 'Looking at the selection…';
    Panel.post({ action: 'requestSelectionPreview' });
  }

  // --- Starting and steering runs ------------------------------------------

  function start(action) {
    $('problem').hidden = true;
    $('done').hidden = true;
    if (!Panel.token()) {
      problem('unauthorized', 'sign in before translating');
      return;
    }
    const message = {
      action: action,
      panelMode: mode,
      sourceLang: $('sourceLang').value,
      targetLang: $('targetLang').value,
      accessToken: Panel.token(),
    };
    const glossaryIds = JSON.parse(localStorage.getItem('qb.panel.glossaryIds') || '[]');
    if (glossaryIds.length) message.glossaryIds = glossaryIds;
    const instructionId = localStorage.getItem('qb.panel.instructionId');
    if (instructionId) message.globalInstructionId = instructionId;
    say('Starting…');
    Panel.post(message);
  }

  $('start').addEventListener('click', () => start('start'));
  $('restart').addEventListener('click', () => start('restart'));
  $('pause').addEventListener('click', () => {
    Panel.post({ action: 'pause' });
    run.paused = true;
    say('Paused. The texts already on their way are finished first.');
    buttons();
  });
  $('resume').addEventListener('click', () => {
    Panel.post({ action: 'resume' });
    run.paused = false;
    say('Translating…');
    buttons();
  });
  $('cancel').addEventListener('click', () => {
    Panel.post({ action: 'cancel' });
    say('Cancelling…');
  });
  $('previewRefresh').addEventListener('click', askPreview);
  $('targetFont').addEventListener('change', () => {
    // An empty font goes back to the add-in's default at the next start.
    Panel.post({ action: 'setTargetStyle', targetFont: $('targetFont').value });
  });

  // --- The add-in's run events --------------------------------------------

  window.onRunStarted = function (e) {
    note('onRunStarted', e);
    Object.assign(run, { id: e.runId, running: true, paused: false });
    $('slides').textContent = '0 of 0';
    $('units').textContent = '0 of 0';
    $('bar').value = 0;
    $('last').textContent = '';
    say('Reading the slides…');
    buttons();
  };
  window.onScanProgress = function (e) {
    note('onScanProgress', e);
    $('slides').textContent = e.current + ' of ' + e.total;
    say('Reading slide ' + e.current + ' of ' + e.total + '…');
  };
  window.onReady = function (e) {
    note('onReady', e);
    $('units').textContent = '0 of ' + e.total;
    say(e.total ? 'Translating ' + e.total + ' texts…' : 'Nothing to translate.');
  };
  window.onProgress = function (e) {
    note('onProgress', e);
    $('units').textContent = e.wordIndex + ' of ' + e.total;
    $('bar').value = e.total ? e.wordIndex / e.total : 1;
    $('last').textContent = e.original + ' → ' + e.translated;
    if (!run.paused) say('Translating…');
  };
  function ended() {
    run.running = false;
    run.paused = false;
    buttons();
    if (mode === 'selection') askPreview();
  }
  window.onComplete = function (e) {
    note('onComplete', e);
    ended();
    $('bar').value = 1;
    say('Done.');
    $('done').textContent = e.total + ' texts translated in ' + (e.elapsed / 1000).toFixed(1) +
      ' s' + (e.bilingualCopy ? ', with a bilingual copy of the slides.' : '.');
    $('done').hidden = false;
  };
  window.onError = function (e) {
    note('onError', e);
    ended();
    say('Stopped.');
    problem(e.code, e.message);
  };
  window.onCancelled = function (e) {
    note('onCancelled', e);
    ended();
    say('Cancelled. What was already translated stays in the presentation.');
  };
  window.onSelectionPreview = function (p) {
    note('onSelectionPreview', p);
    if (p.error) $('previewText').textContent = 'The selection could not be read (' + p.error + ').';
    else if (p.pptEmpty) $('previewText').textContent = 'Nothing is selected. Select slides, shapes or text first.';
    else $('previewText').textContent = 'Selected: ' + p.label + ' (' + p.fragments + ' texts, ' + p.chars + ' characters).';
  };

  // --- The add-in's messages -----------------------------------------------

  Panel.on('setMode', (m) => {
    note('setMode', m);
    if (SCOPES[m.mode]) mode = m.mode;
    showScope();
  });
  Panel.on('fontList', (m) => {
    const select = $('targetFont');
    const chosen = select.value;
    while (select.options.length > 1) select.remove(1);
    // The system may list a family more than once; one entry is enough here.
    for (const name of Array.from(new Set(m.fonts || []))) {
      select.appendChild(Panel.element('option', { value: name }, name));
    }
    select.value = chosen;
    note('fontList', { fonts: (m.fonts || []).length });
  });
  Panel.on('translateAbortForRun', (m) => {
    note('translateAbortForRun', m);
    for (const call of calls.values()) {
      if (call.runId === m.runId) {
        call.why = 'aborted';
        call.controller.abort();
      }
    }
  });
  Panel.on('translateBatchRequest', (m) => {
    note('translateBatchRequest', { requestId: m.requestId, batchSeq: m.batchSeq, texts: (m.texts || []).length });
    translateBatch(m);
  });
  Panel.on('terminologyResolveRequest', (m) => {
    note('terminologyResolveRequest', { requestId: m.requestId });
    resolveTerminology(m);
  });

  // --- The service calls the add-in hands the page ------------------------

  let context = null;
  function clientContext() {
    if (!context) {
      context = Panel.query('clientInfoGet').then((info) => {
        info = info || {};
        let installId = info.installId;
        if (!installId) {
          installId = localStorage.getItem('qb.panel.installId') || 'web-' + Math.random().toString(16).slice(2);
          localStorage.setItem('qb.panel.installId', installId);
        }
        return {
          installId: installId,
          channel: 'ppt',
          os: info.os || navigator.platform,
          hostApp: info.hostApp || Panel.keys.host || '',
          hostVersion: info.hostAppVersion || '',
          clientVersion: info.version || '0.0.0',
        };
      });
    }
    return context;
  }

  async function callService(path, body, requestId, runId) {
    const controller = new AbortController();
    const call = { controller: controller, runId: runId, why: 'AbortError' };
    calls.set(requestId, call);
    const timer = setTimeout(() => controller.abort(), SERVICE_WAIT_MS);
    try {
      const headers = { 'Content-Type': 'application/json' };
      if (Panel.token()) headers.Authorization = 'Bearer ' + Panel.token();
      const response = await fetch(path, {
        method: 'POST', headers: headers, body: JSON.stringify(body), signal: controller.signal,
      });
      const text = await response.text();
      let data = null;
      try {
        data = text ? JSON.parse(text) : null;
      } catch (err) {
        data = null;
      }
      return { status: response.status, data: data };
    } catch (err) {
      if (controller.signal.aborted) return { status: 0, code: call.why, message: 'the request was stopped' };
      return { status: 0, code: 'network_error', message: String(err.message || err) };
    } finally {
      clearTimeout(timer);
      calls.delete(requestId);
    }
  }

  // A refused call in the add-in's code words: for a batch the service's own
  // (sign-in and credits end the run at once), for terminology the bare
  // status, after which a run goes on without terminology.
  function failure(reply, terminology) {
    if (reply.code) return { ok: false, code: reply.code, message: reply.message };
    const data = reply.data || {};
    let code = data.code || 'service_error';
    if (reply.status === 401) code = terminology ? '401' : 'unauthorized';
    if (reply.status === 402) code = terminology ? '402' : 'insufficient_credits';
    return { ok: false, code: code, message: data.message || 'the service answered ' + reply.status };
  }

  async function translateBatch(m) {
    const body = {
      texts: m.texts || [],
      sourceLang: m.sourceLang,
      targetLang: m.targetLang,
      usageKind: m.usageKind,
      clientProduct: m.clientProduct,
    };
    // The service matches unit ids to texts only when there are any.
    if (m.unitIds && m.unitIds.length) body.unitIds = m.unitIds;
    if (m.glossary) body.glossary = m.glossary;
    if (m.instruction) body.instruction = m.instruction;
    body.trace = { runId: String(m.runId), batchSeq: m.batchSeq };
    if (m.clientTraceId) body.trace.clientTraceId = m.clientTraceId;
    body.clientContext = await clientContext();
    const reply = await callService('/v1/translate', body, m.requestId, m.runId);
    let answer;
    if (reply.status === 200 && reply.data && Array.isArray(reply.data.translations)) {
      answer = {
        ok: true,
        translations: reply.data.translations,
        unitIds: Array.isArray(reply.data.unitIds) ? reply.data.unitIds : m.unitIds || [],
      };
    } else {
      answer = failure(reply, false);
      note('serviceFailed', { requestId: m.requestId, code: answer.code, message: answer.message });
    }
    Panel.post(Object.assign({ action: 'translateBatchResult', requestId: m.requestId }, answer));
    note('translateBatchResult', { requestId: m.requestId, ok: answer.ok });
  }

  async function resolveTerminology(m) {
    const body = {
      glossaryIds: m.glossaryIds || [],
      instructionId: m.instructionId || '',
      corpusTexts: m.corpusTexts || [],
      maxEntries: 200,
    };
    const reply = await callService('/v1/terminology/resolve', body, m.requestId, null);
    const answer = reply.status === 200 && reply.data && typeof reply.data === 'object'
      ? { ok: true, result: reply.data }
      : failure(reply, true);
    if (!answer.ok) note('serviceFailed', { requestId: m.requestId, code: answer.code, message: answer.message });
    Panel.post(Object.assign({ action: 'terminologyResolveResult', requestId: m.requestId }, answer));
  }

  Panel.frame();
  showScope();
  buttons();
  Panel.post({ action: 'getFontList' });
  clientContext();
  document.body.dataset.ready = 'yes'; // the page answers from here on
})();
