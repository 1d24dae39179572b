'use strict';
// window.chrome.webview for a panel page in an ordinary browser, where no
// browser view of the add-in hosts it. The page runs in a frame of
// qb-panel's window; messages go to that window, which carries them to the
// pane over HTTP, and the pane's scripts and messages come back the same
// way. Inside the add-in's view the view's own object is there and this
// does nothing.
(function () {
  if (window.chrome && window.chrome.webview) return;
  const host = window.parent !== window ? window.parent : null;
  const listeners = [];

  // The frame holds no secret of its own, and the page can't know the
  // frame's address (qb-panel picks its port), so any parent may listen.
  function toHost(item) {
    if (!host) return;
    item.qbBridge = 1;
    host.postMessage(item, '*');
  }

  const webview = {
    postMessage(value) {
      // The view hands the pane the message as JSON text.
      toHost({ kind: 'message', json: JSON.stringify(value === undefined ? null : value) });
    },
    addEventListener(type, listener) {
      if (type === 'message' && typeof listener === 'function') listeners.push(listener);
    },
    removeEventListener(type, listener) {
      const at = listeners.indexOf(listener);
      if (type === 'message' && at >= 0) listeners.splice(at, 1);
    },
  };
  window.chrome = window.chrome || {};
  window.chrome.webview = webview;

  window.addEventListener('message', (e) => {
    if (!host || e.source !== host || !e.data || e.data.qbBridge !== 1) return;
    const item = e.data;
    if (item.kind === 'message') {
      let data;
      try {
        data = JSON.parse(item.json);
      } catch (err) {
        console.error('panel: a message from the add-in is not JSON', err);
        return;
      }
      for (const listener of listeners.slice()) {
        try {
          listener({ data: data, type: 'message' });
        } catch (err) {
          console.error('panel: a message listener failed', err);
        }
      }
    } else if (item.kind === 'script') {
      try {
        // The view runs a script in the page's global scope.
        (0, eval)(item.code);
      } catch (err) {
        console.error('panel: a script of the add-in failed', err);
      }
    }
  });

  window.addEventListener('load', () => toHost({ kind: 'loaded', url: location.href }));
  window.addEventListener('pagehide', () => toHost({ kind: 'leaving', url: location.href }));
})();
