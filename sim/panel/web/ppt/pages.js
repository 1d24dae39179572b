'use strict';
// The panel's smaller pages: sign-in, account, glossary, instruction and
// support, each set up by the name its body carries.
(function () {
  const $ = (id) => document.getElementById(id);
  const GLOSSARIES = 'qb.panel.glossaryIds';
  const INSTRUCTION = 'qb.panel.instructionId';

  function show(id, value) {
    $(id).textContent = value === null || value === undefined ? 'The add-in did not answer.' : value;
  }

  const pages = {
    login() {
      function refresh() {
        $('signin').hidden = !!Panel.token();
        $('signedin').hidden = !Panel.token();
        $('who').textContent = Panel.user();
      }
      $('signin').addEventListener('submit', async (e) => {
        e.preventDefault();
        $('problem').hidden = true;
        const name = $('name').value.trim();
        let reply = null;
        try {
          const response = await fetch('/v1/auth/signin', {
            method: 'POST',
            headers: { 'Content-Type': 'application/json' },
            body: JSON.stringify({ user: name, password: $('password').value }),
          });
          reply = { status: response.status, data: await response.json().catch(() => null) };
        } catch (err) {
          reply = { status: 0, data: null };
        }
        if (reply.status === 200 && reply.data && reply.data.accessToken) {
          Panel.signIn(reply.data.accessToken, reply.data.user || name);
          location.href = Panel.pageUrl('translate');
          return;
        }
        $('problem').textContent = reply.status === 0
          ? 'The sign-in service could not be reached. Check your connection and try again.'
          : 'Sign-in failed: ' + ((reply.data && reply.data.message) || 'the service answered ' + reply.status) + '.';
        $('problem').hidden = false;
      });
      $('signout').addEventListener('click', () => {
        Panel.signOut();
        refresh();
      });
      refresh();
    },

    account() {
      function refresh() {
        $('signedInState').textContent = Panel.token() ? 'yes, as ' + (Panel.user() || 'you') : 'no';
        $('signout').disabled = !Panel.token();
      }
      $('signout').addEventListener('click', () => {
        Panel.signOut();
        refresh();
      });
      refresh();
      Panel.on('accessToken', refresh);
      Panel.query('docKeyGet').then((d) => show('docKey', d && (d.docKey === '_no_doc' ? 'No presentation is open.' : 'Document key ' + d.docKey)));
      Panel.query('uiLangGet').then((d) => show('uiLang', d && d.uiLang));
      Panel.query('clientInfoGet').then((d) => show('clientInfo', d && [d.productId, d.version, d.platform, d.os].filter((x) => x).join(' · ')));
    },

    glossary() {
      function ids() {
        return JSON.parse(localStorage.getItem(GLOSSARIES) || '[]');
      }
      function refresh() {
        const list = $('glossaries');
        list.textContent = '';
        for (const id of ids()) {
          const item = Panel.element('li', {}, id + ' ');
          const remove = Panel.element('button', { type: 'button' }, 'Remove');
          remove.addEventListener('click', () => {
            localStorage.setItem(GLOSSARIES, JSON.stringify(ids().filter((x) => x !== id)));
            refresh();
          });
          item.appendChild(remove);
          list.appendChild(item);
        }
        if (!ids().length) list.appendChild(Panel.element('li', { class: 'note' }, 'None yet.'));
      }
      $('addGlossary').addEventListener('click', () => {
        const id = $('glossaryId').value.trim();
        if (id && !ids().includes(id)) localStorage.setItem(GLOSSARIES, JSON.stringify(ids().concat([id])));
        $('glossaryId').value = '';
        refresh();
      });
      refresh();
    },

    instruction() {
      function refresh() {
        const id = localStorage.getItem(INSTRUCTION);
        $('instructionState').textContent = id ? 'In use: ' + id : 'No instruction in use.';
        $('instructionId').value = id || '';
      }
      $('saveInstruction').addEventListener('click', () => {
        const id = $('instructionId').value.trim();
        if (id) localStorage.setItem(INSTRUCTION, id);
        else localStorage.removeItem(INSTRUCTION);
        refresh();
      });
      $('clearInstruction').addEventListener('click', () => {
        localStorage.removeItem(INSTRUCTION);
        refresh();
      });
      refresh();
    },

    support() {
      Panel.query('clientInfoGet').then((d) => show('clientInfo', d && JSON.stringify(d)));
      Panel.query('exportLocalSnapshot').then((d) => show('snapshot', d === null ? 'Nothing yet.' : JSON.stringify(d).slice(0, 400)));
      $('traceNote').addEventListener('click', () => {
        Panel.post({ action: 'trace', phase: 'support page: the user marked this moment' });
        $('traced').textContent = 'Marked.';
      });
    },
  };

  Panel.frame();
  const setUp = pages[document.body.dataset.page];
  if (setUp) setUp();
  document.body.dataset.ready = 'yes'; // the page answers from here on
})();
