// Lines: each line's state and counters, the buttons Host, Poll now and End, and the live screen
// (the lines' screen messages as they are written, through an EventSource).
'use strict';

(function() {
  const kKeptLines = 500;  // the screen keeps the newest lines only

  const badTotal = (l) => (l.bad_input ? Object.values(l.bad_input).reduce((s, n) => s + (n || 0), 0) : null);
  const columns = [
    {key: 'name', label: 'Line'},
    {key: 'kind', label: 'Kind'},
    {key: 'mode', label: 'Mode', render: (l) => CC.el('span.badge' + (l.mode === 'idle' ? '' : '.ok'), {}, CC.text(l.mode))},
    {key: 'state', label: 'State'},
    {key: 'clock', label: 'In call with', render: (l) => (l.in_call ? CC.text(l.clock) || 'a terminal' : '')},
    {key: 'calls', label: 'Calls', className: 'num'},
    {key: 'good_calls', label: 'Good', className: 'num'},
    {key: 'punches', label: 'Punches', className: 'num'},
    {key: 'bad_input', label: 'Bad input', className: 'num', render: (l) => CC.text(badTotal(l))},
    {key: 'status', label: 'Status'},
  ];

  CC.pages.lines = function(view) {
    const box = CC.messageBox('lines-error');
    const holder = CC.el('div.scroll#lines-holder');
    const status = CC.el('p.status#screen-status');
    const screen = CC.el('pre.screen#screen', {'aria-live': 'polite'});
    const screenBox = CC.messageBox('screen-error');
    const canDrive = CC.can('operator');
    const button = (id, label, action) => CC.el('button#' + id, {type: 'button', disabled: !canDrive,
      title: canDrive ? null : 'Operators drive the lines', onclick: () => drive(action)}, label);
    view.append(CC.el('h1', {}, 'Lines'),
        CC.el('div.toolbar', {}, button('line-host', 'Host', 'host'), button('line-poll', 'Poll now', 'poll'),
            button('line-end', 'End', 'end')),
        box, holder, CC.el('h2', {}, 'Screen'), status, screenBox, screen);
    let open = true;
    let lastSeq = -1;

    async function load() {
      const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/lines'));
      if (!answer || !open) return;
      holder.replaceChildren(CC.table('lines-table', columns, answer.lines, {empty: 'No lines.'}));
      if (!answer.controllable) {
        CC.message(box, 'This server runs without lines: start it with `clockcomm serve --host` to drive them here.', 'info');
      }
    }

    async function drive(action) {
      CC.message(box, '');
      const body = action === 'poll' ? {locations: []} : undefined;
      const done = await CC.guard(box, () => CC.api('POST', '/api/v1/lines/' + action, body));
      if (done !== undefined) {
        CC.message(box, {host: 'Host mode started.', poll: 'Polling started.', end: 'End sent.'}[action], 'ok');
        load();
      }
    }

    function addLine(text) {
      screen.append(text + '\n');
      while (screen.childNodes.length > kKeptLines) screen.firstChild.remove();
      screen.scrollTop = screen.scrollHeight;
    }

    const stream = new EventSource('/api/v1/screen');
    stream.addEventListener('line', (event) => {
      const data = JSON.parse(event.data);
      if (typeof data.seq === 'number') {
        if (data.seq <= lastSeq) return;  // the backlog again after a reconnect
        lastSeq = data.seq;
      }
      addLine(data.line);
    });
    stream.addEventListener('status', (event) => {
      let text = event.data;
      try {
        const data = JSON.parse(event.data);
        text = data.status || data.line || data.text || event.data;
      } catch (e) {
        // a plain text status
      }
      status.textContent = text;
      load();
    });
    stream.addEventListener('open', () => CC.message(screenBox, ''));
    stream.addEventListener('error', () => {
      if (stream.readyState !== EventSource.CLOSED) {
        CC.message(screenBox, 'The live screen lost the server; reconnecting…', 'info');
        return;
      }
      explain();
    });

    // The stream was refused: ask once more to show the API's reason.
    async function explain() {
      const abort = new AbortController();
      try {
        const res = await fetch('/api/v1/screen', {credentials: 'same-origin', signal: abort.signal});
        if (res.ok) {
          CC.message(screenBox, 'The live screen ended; open this page again to resume.', 'info');
          return;
        }
        const data = await res.json().catch(() => ({}));
        CC.message(screenBox, 'Live screen unavailable: ' + (data.error || 'HTTP ' + res.status), 'error');
      } catch (e) {
        CC.message(screenBox, 'Live screen unavailable: ' + e.message, 'error');
      } finally {
        abort.abort();
      }
    }

    load();
    const refresh = setInterval(load, 10000);
    return () => {
      open = false;
      stream.close();
      clearInterval(refresh);
    };
  };
})();
