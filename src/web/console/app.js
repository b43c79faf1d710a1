// The console's frame: the session, the login page, and the hash routes (#/terminals,
// #/terminals/NAME ...) that show one page at a time.
'use strict';

(function() {
  const view = document.getElementById('view');
  let leave = null;  // the shown page's clean-up (closes its live stream)
  let wanted = null;  // where to go after a login

  CC.sessionEnded = function(message) {
    CC.session = null;
    if (location.hash !== '#/login') {
      wanted = location.hash;
      CC.loginMessage = message;
      location.hash = '#/login';
    }
  };

  function showFrame() {
    const top = document.getElementById('top');
    top.hidden = !CC.session;
    document.getElementById('who').textContent =
        CC.session ? CC.session.name + ' (' + CC.session.role + ')' : '';
  }

  function loginPage() {
    const name = CC.el('input#login-name', {name: 'name', autocomplete: 'username', required: true, autofocus: true});
    const password = CC.el('input#login-password', {type: 'password', name: 'password', autocomplete: 'current-password', required: true});
    const box = CC.messageBox('login-error');
    if (CC.loginMessage) CC.message(box, CC.loginMessage, 'error');
    CC.loginMessage = null;
    const form = CC.el('form.login#login-form', {}, CC.el('h1', {}, 'clockcomm console'),
        CC.field('Name', name), CC.field('Password', password), box,
        CC.el('button#login-submit', {type: 'submit'}, 'Log in'));
    form.addEventListener('submit', async (event) => {
      event.preventDefault();
      CC.message(box, '');
      const session = await CC.guard(box, () =>
          CC.api('POST', '/api/v1/session', {name: name.value, password: password.value}));
      if (!session) {
        password.value = '';
        password.focus();
        return;
      }
      CC.session = session;
      location.hash = wanted && wanted !== '#/login' ? wanted : '#/terminals';
      wanted = null;
    });
    view.append(form);
    name.focus();
  }

  function route() {
    const hash = location.hash || '#/terminals';
    const parts = hash.replace(/^#\/?/, '').split('/').map(decodeURIComponent);
    return {page: parts[0] || 'terminals', arg: parts.slice(1).join('/')};
  }

  async function show() {
    if (leave) leave();
    leave = null;
    view.replaceChildren();
    const {page, arg} = route();
    if (page !== 'login' && !CC.session) {
      try {
        CC.session = await CC.api('GET', '/api/v1/session');
      } catch (e) {
        if (!CC.session) {
          wanted = location.hash;
          location.hash = '#/login';
          return;
        }
      }
    }
    showFrame();
    if (page === 'login') return loginPage();
    for (const link of document.querySelectorAll('#nav a')) {
      link.classList.toggle('current', link.dataset.page === page);
    }
    const render = CC.pages[page];
    if (!render) {
      view.append(CC.el('h1', {}, 'No such page'), CC.el('p', {}, 'Choose a page above.'));
      return;
    }
    document.title = 'clockcomm — ' + (document.querySelector('#nav a.current') || {}).textContent;
    leave = render(view, arg) || null;
  }

  document.getElementById('logout').addEventListener('click', async () => {
    try {
      await CC.api('DELETE', '/api/v1/session');
    } catch (e) {
      // The session may have ended already; the login page is shown either way.
    }
    CC.session = null;
    wanted = null;
    location.hash = '#/login';
  });

  window.addEventListener('hashchange', show);
  show();
})();
