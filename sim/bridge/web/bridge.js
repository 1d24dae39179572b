'use strict';
// The frame of qb-panel: a ribbon, the deck as the host holds it, and the
// panel in a frame of its own. The program's events (navigate, run a
// script, post a message, the deck changed) come by long poll; what the
// panel reports comes back by POST, one batch at a time so that order holds.
(function () {
  const panel = document.getElementById('panel');
  const statusLine = document.getElementById('status');
  const urlLine = document.getElementById('panelurl');
  const deckView = document.getElementById('deck');
  const SVG = 'http://www.w3.org/2000/svg';
  // How long a load may stay without the panel's own word before it counts
  // as failed: an error page has no shim to speak for it.
  const LOAD_WORD_MS = 1500;

  let client = 0;
  let after = 0;
  let panelOrigin = null;
  let expectingLoad = false;
  let panelSpoke = false;
  let ownNavigation = false;
  let detached = false;
  const outbox = [];
  let sending = false;
  const drawnSlides = [];
  let drawnRevision = 0;

  function say(text) { statusLine.textContent = text; }

  async function attach() {
    try {
      const answer = await (await fetch('/bridge/attach', { method: 'POST' })).json();
      client = answer.client;
      after = answer.after;
      showLanguages(answer.uiLanguages || []);
    } catch (e) {
      say('Cannot reach qb-panel: is it still running? (' + e.message + ')');
      return;
    }
    drawDeck();
    poll();
  }

  async function poll() {
    let failures = 0;
    while (!detached) {
      let response;
      try {
        response = await fetch('/bridge/events?client=' + client + '&after=' + after);
      } catch (e) {
        if (++failures >= 3) {
          say('qb-panel has stopped: the deck and panel no longer change.');
          return;
        }
        continue;
      }
      failures = 0;
      if (response.status === 409) return detach();
      const body = await response.json();
      for (const event of body.events) {
        after = event.seq;
        handle(event);
      }
    }
  }

  function detach() {
    detached = true;
    say('This deck is open in another browser window now; this one no longer follows it.');
  }

  function handle(event) {
    switch (event.kind) {
      case 'navigate': navigate(event.url); break;
      case 'script': toPanel({ kind: 'script', code: event.code }); break;
      case 'message': toPanel({ kind: 'message', json: event.json }); break;
      case 'deck': drawDeck(); break;
      case 'box': say(event.title + ': ' + event.text); break;
      case 'closed': say('The pane has closed its view.'); break;
      default: break;
    }
  }

  function navigate(url) {
    try {
      panelOrigin = new URL(url).origin;
    } catch (e) {
      panelOrigin = null;
    }
    ownNavigation = true;
    expectingLoad = true;
    panelSpoke = false;
    urlLine.textContent = url;
    panel.src = url;
  }

  // A page that is loading misses what is sent to it, as in the host.
  function toPanel(item) {
    if (!panelOrigin || !panel.contentWindow) return;
    item.qbBridge = 1;
    panel.contentWindow.postMessage(item, panelOrigin);
  }

  function report(item) {
    outbox.push(item);
    flush();
  }

  async function flush() {
    if (sending || outbox.length === 0 || detached) return;
    sending = true;
    const batch = outbox.splice(0, outbox.length);
    try {
      const response = await fetch('/bridge/post?client=' + client, {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(batch),
      });
      if (response.status === 409) detach();
      else if (!response.ok) say('qb-panel refused a report: ' + (await response.text()));
    } catch (e) {
      say('Cannot reach qb-panel: ' + e.message);
    }
    sending = false;
    flush();
  }

  window.addEventListener('message', (e) => {
    if (e.source !== panel.contentWindow || !e.data || e.data.qbBridge !== 1) return;
    const item = e.data;
    if (item.kind === 'loaded') {
      panelSpoke = true;
      ownNavigation = false;
      urlLine.textContent = item.url;
      report({ kind: 'loaded', url: String(item.url) });
    } else if (item.kind === 'leaving') {
      // The page goes elsewhere by itself: the view would say so first.
      if (!ownNavigation) {
        expectingLoad = true;
        panelSpoke = false;
        report({ kind: 'leaving' });
      }
    } else if (item.kind === 'message' && typeof item.json === 'string') {
      report({ kind: 'message', json: item.json });
    }
  });

  panel.addEventListener('load', () => {
    if (!expectingLoad) return;
    expectingLoad = false;
    setTimeout(() => {
      if (!panelSpoke) {
        ownNavigation = false;
        say('The panel page did not load.');
        report({ kind: 'failed' });
      }
    }, LOAD_WORD_MS);
  });

  document.getElementById('ribbon').addEventListener('click', (e) => {
    const button = e.target.closest('button');
    if (!button) return;
    const order = { page: button.dataset.page };
    if (button.dataset.mode) order.mode = button.dataset.mode;
    post('/bridge/ribbon', order);
  });
  document.getElementById('clear').addEventListener('click', () => post('/bridge/select', {}));

  const languages = document.getElementById('uilang');
  function showLanguages(list) {
    languages.appendChild(new Option('Display language…', ''));
    for (const language of list) languages.appendChild(new Option(language.name, language.code));
  }
  languages.addEventListener('change', () => {
    if (languages.value) post('/bridge/uilang', { code: languages.value });
    languages.value = '';
  });

  async function post(path, body) {
    try {
      const response = await fetch(path, {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(body),
      });
      if (!response.ok) say('qb-panel refused: ' + (await response.text()));
    } catch (e) {
      say('Cannot reach qb-panel: ' + e.message);
    }
  }

  // --- The deck -----------------------------------------------------------

  async function drawDeck() {
    let answer;
    try {
      answer = await (await fetch('/bridge/deck')).json();
    } catch (e) {
      return;
    }
    const deck = answer.deck;
    // Answers to two quick fetches may cross: an older picture never wins.
    if (!deck || !deck.slides || answer.revision < drawnRevision) return;
    drawnRevision = answer.revision;
    deckView.dataset.revision = answer.revision;
    deck.slides.forEach((slide, i) => {
      const text = JSON.stringify(slide);
      const current = deck.current === i + 1;
      const old = deckView.children[i];
      if (old && drawnSlides[i] === text && old.classList.contains('current') === current) return;
      const card = drawSlide(deck, slide, i + 1);
      // A slide whose text changed since the last picture has just been written.
      if (old && drawnSlides[i] !== text) card.classList.add('written');
      if (old) deckView.replaceChild(card, old);
      else deckView.appendChild(card);
      drawnSlides[i] = text;
    });
    while (deckView.children.length > deck.slides.length) deckView.lastChild.remove();
    drawnSlides.length = deck.slides.length;
  }

  function element(name, attributes, parent) {
    const node = document.createElementNS(SVG, name);
    for (const key of Object.keys(attributes)) node.setAttribute(key, attributes[key]);
    if (parent) parent.appendChild(node);
    return node;
  }

  function drawSlide(deck, slide, number) {
    const card = document.createElement('div');
    card.className = 'slide' + (deck.current === number ? ' current' : '');
    card.dataset.slide = number;
    const title = document.createElement('h3');
    title.textContent = 'Slide ' + number + (slide.selected ? ' (selected)' : '');
    card.appendChild(title);
    const svg = element('svg', { viewBox: '0 0 ' + deck.width + ' ' + deck.height });
    const page = element('rect', { width: deck.width, height: deck.height, fill: '#fff' }, svg);
    page.addEventListener('click', () => post('/bridge/select', { slide: number }));
    for (const shape of slide.shapes) {
      const box = element('rect', { x: shape.x, y: shape.y, width: shape.w, height: shape.h,
                                    class: 'box' + (shape.selected ? ' selected' : '') +
                                           (shape.over ? ' over' : '') }, svg);
      const name = element('title', {}, box);
      name.textContent = shape.name;
      box.addEventListener('click', () => post('/bridge/select', { slide: number, path: shape.path }));
      for (const line of shape.lines || []) {
        const text = element('text', { x: shape.textX, y: line.top + line.height * 0.8,
                                       'font-size': line.height / 1.2,
                                       class: shape.over ? 'over' : '' }, svg);
        text.textContent = line.text;
      }
    }
    card.appendChild(svg);
    return card;
  }

  attach();
})();
