'use strict';
// What every page of the panel shares: its query keys, the links between
// the pages, the user's sign-in, the add-in's messages and local queries,
// and failures put in words a user understands.
const Panel = (function () {
  const QUERY_KEYS = ['_', 'host', 'pane', 'mode', 'uiLang'];
  const PAGES = {
    translate: ['./', 'Translate'],
    glossary: ['glossary.html', 'Glossary'],
    instruction: ['instruction.html', 'Instruction'],
    account: ['account.html', 'Account'],
    login: ['login.html', 'Sign in'],
    support: ['support.html', 'Support'],
  };
  const TOKEN = 'qb.panel.token';
  const USER = 'qb.panel.user';
  // A local query the add-in never answers is given up after this long.
  const QUERY_WAIT_MS = 10000;

  const params = new URLSearchParams(location.search);
  const keys = {};
  for (const key of QUERY_KEYS) keys[key] = params.get(key);

  const view = window.chrome && window.chrome.webview;
  const handlers = {};

  function post(message) {
    if (view) view.postMessage(message);
  }

  function on(action, handler) {
    (handlers[action] = handlers[action] || []).push(handler);
  }

  if (view) {
    view.addEventListener('message', (e) => {
      let message = e.data;
      if (typeof message === 'string') {
        try {
          message = JSON.parse(message);
        } catch (err) {
          return;
        }
      }
      if (!message || typeof message.action !== 'string') return;
      for (const handler of handlers[message.action] || []) {
        try {
          handler(message);
        } catch (err) {
          console.error('panel: handling ' + message.action + ' failed', err);
        }
      }
    });
  }

  // --- Sign-in: the page owns it; the add-in keeps a copy -----------------

  function token() {
    return localStorage.getItem(TOKEN) || '';
  }
  function user() {
    return localStorage.getItem(USER) || '';
  }
  function signIn(accessToken, name) {
    localStorage.setItem(TOKEN, accessToken);
    localStorage.setItem(USER, name || '');
    post({ action: 'setAccessToken', accessToken: accessToken });
    showUser();
  }
  function signOut() {
    localStorage.removeItem(TOKEN);
    localStorage.removeItem(USER);
    post({ action: 'clearAccessToken' });
    showUser();
  }
  // The add-in gives back the token it holds after every load.
  on('accessToken', (m) => {
    if (typeof m.accessToken === 'string' && m.accessToken && !token()) {
      localStorage.setItem(TOKEN, m.accessToken);
      showUser();
    }
  });
  on('uiLangChanged', (m) => {
    if (typeof m.uiLang === 'string') {
      keys.uiLang = m.uiLang;
      showKeys();
    }
  });

  // --- Local queries: answered by the add-in through _onResponse ----------

  let nextQuery = 0;
  const waiting = {};
  window.QuillbrookTerminology = {
    _onResponse(response) {
      if (!response || typeof response.requestId !== 'string') return;
      const resolve = waiting[response.requestId];
      if (!resolve) return;
      delete waiting[response.requestId];
      resolve(response.ok ? response.data : null);
    },
  };
  function query(action) {
    return new Promise((resolve) => {
      const requestId = 'pq_' + ++nextQuery;
      waiting[requestId] = resolve;
      post({ action: action, requestId: requestId });
      setTimeout(() => {
        if (waiting[requestId]) {
          delete waiting[requestId];
          resolve(null);
        }
      }, QUERY_WAIT_MS);
    });
  }

  // --- Failures in words ---------------------------------------------------

  const SIGN_IN_AGAIN = 'You are not signed in, or your sign-in has run out. Sign in again, then start again.';
  const NO_CREDITS = 'Your account has no translation credits left. Top up or change your plan, then start again.';
  const WORDS = {
    unauthorized: SIGN_IN_AGAIN,
    401: SIGN_IN_AGAIN,
    insufficient_credits: NO_CREDITS,
    402: NO_CREDITS,
    cancelled: 'The translation was cancelled.',
    aborted: 'The translation was stopped.',
    AbortError: 'The translation service took too long to answer, so the request was stopped.',
    request_timeout: 'The translation service took too long to answer. Try again.',
    network_error: 'The translation service could not be reached. Check your connection and try again.',
    service_error: 'The translation service ran into a problem. Try again in a moment.',
    translate_failed: 'The translation service could not translate this presentation.',
    batch_size_mismatch: 'The translation service gave back an incomplete answer.',
    collect_failed: 'There is nothing to translate here. Select some text, or choose another scope.',
    terminology_resolve_failed: 'The translation service could not load your glossary or instruction.',
    bilingual_copy_failed: 'The bilingual copy of the slides could not be made.',
    webview_unavailable: 'The panel has lost its connection to the presentation. Close the panel and open it again.',
    webview_navigating: 'The panel was reloaded while translating.',
    pane_window_unavailable: 'The panel has lost its connection to the presentation. Close the panel and open it again.',
    internal_error: 'Something went wrong inside the add-in. Try again.',
  };
  function describe(code, message) {
    const words = WORDS[code] || 'The translation stopped because of a problem.';
    const details = [code, message].filter((x) => x).join(': ');
    return { words: words, details: details };
  }

  // --- The page's frame: links, sign-in line, query keys -------------------

  function pageUrl(page) {
    const search = new URLSearchParams();
    for (const key of QUERY_KEYS) {
      if (key === '_') search.set('_', String(Date.now()));
      else if (keys[key] !== null) search.set(key, keys[key]);
    }
    return PAGES[page][0] + '?' + search.toString();
  }

  function element(tag, attributes, text) {
    const node = document.createElement(tag);
    for (const key of Object.keys(attributes || {})) node.setAttribute(key, attributes[key]);
    if (text !== undefined) node.textContent = text;
    return node;
  }

  function showUser() {
    const line = document.getElementById('user');
    if (!line) return;
    line.textContent = '';
    if (token()) {
      line.appendChild(document.createTextNode('Signed in as ' + (user() || 'you') + ' · '));
      const out = element('a', { href: '#', id: 'signout-link' }, 'Sign out');
      out.addEventListener('click', (e) => {
        e.preventDefault();
        signOut();
      });
      line.appendChild(out);
    } else {
      line.appendChild(document.createTextNode('Not signed in · '));
      line.appendChild(element('a', { href: pageUrl('login') }, 'Sign in'));
    }
    document.body.classList.toggle('signed-in', !!token());
  }

  function showKeys() {
    const list = document.getElementById('querykeys');
    if (!list) return;
    list.textContent = '';
    for (const key of QUERY_KEYS) {
      const item = element('span', { 'data-key': key });
      item.textContent = key + '=' + (keys[key] === null ? '(none)' : keys[key]);
      list.appendChild(item);
    }
  }

  // The heading, the links and the sign-in line above the page, the query
  // keys below it: the same on every page.
  function frame() {
    const header = element('header');
    header.appendChild(element('h1', {}, document.title));
    header.appendChild(element('nav', { id: 'pages' }));
    header.appendChild(element('div', { id: 'user' }));
    document.body.insertBefore(header, document.body.firstChild);
    const footer = element('footer');
    footer.appendChild(element('div', { id: 'querykeys' }));
    document.body.appendChild(footer);
    const nav = document.getElementById('pages');
    if (nav) {
      for (const page of Object.keys(PAGES)) {
        const link = element('a', { href: pageUrl(page), 'data-page': page }, PAGES[page][1]);
        if (document.body.dataset.page === page) link.className = 'here';
        nav.appendChild(link);
      }
    }
    showUser();
    showKeys();
    // The add-in learns of a sign-in made on another page of this panel.
    if (token()) post({ action: 'setAccessToken', accessToken: token() });
    else post({ action: 'requestAccessToken' });
  }

  return {
    keys: keys,
    post: post,
    on: on,
    query: query,
    token: token,
    user: user,
    signIn: signIn,
    signOut: signOut,
    describe: describe,
    pageUrl: pageUrl,
    element: element,
    frame: frame,
  };
})();
