// Terminals: every terminal of the site in a sortable table, an offline one marked, and a page
// per terminal with its recent calls.
'use strict';

(function() {
  const alarm = (t) => t.offline === true || (t.offline === undefined && t.overdue === true);

  function stateCell(t) {
    if (alarm(t)) {
      const after = t.expected_interval_minutes ? ' (no call for ' + t.expected_interval_minutes + ' min)' : '';
      return CC.el('span.badge.bad', {title: 'Expected to call' + after}, 'OFFLINE');
    }
    if (t.last_failed) return CC.el('span.badge.warn', {}, 'last call failed');
    return t.last_contact ? CC.el('span.badge.ok', {}, 'ok') : CC.el('span.badge', {}, 'no call yet');
  }

  function badInput(t) {
    if (!t.bad_input) return null;
    return Object.values(t.bad_input).reduce((sum, n) => sum + (n || 0), 0);
  }

  const columns = [
    {key: 'state', label: 'State', render: stateCell, sort: (t) => (alarm(t) ? 0 : t.last_failed ? 1 : 2)},
    {key: 'name', label: 'Name', render: (t) => CC.el('a', {href: '#/terminals/' + encodeURIComponent(t.name)}, t.name)},
    {key: 'known_as', label: 'Known as'},
    {key: 'family', label: 'Family'},
    {key: 'company', label: 'Company'},
    {key: 'call_time', label: 'Call time'},
    {key: 'last_contact', label: 'Last contact'},
    {key: 'last_event', label: 'Last event', className: 'wrap'},
    {key: 'punches_today', label: 'Punches today', className: 'num'},
    {key: 'punches_last_24h', label: 'Last 24 h', className: 'num'},
    {key: 'punches_waiting', label: 'Waiting', className: 'num'},
    {key: 'bad_input', label: 'Bad input', className: 'num', render: (t) => CC.text(badInput(t)), sort: badInput},
  ];

  CC.pages.terminals = function(view, name) {
    if (name) return terminalPage(view, name);
    const box = CC.messageBox('terminals-error');
    const summary = CC.el('p.summary#terminals-summary');
    const filter = CC.el('input#terminals-filter', {type: 'search', placeholder: 'Filter by name, company or event'});
    const holder = CC.el('div.scroll');
    view.append(CC.el('h1', {}, 'Terminals'), CC.el('div.toolbar', {}, filter,
        CC.el('button', {type: 'button', onclick: () => load()}, 'Refresh')), summary, box, holder);
    let all = [];
    let wanted = true;

    function render() {
      const words = filter.value.trim().toLowerCase();
      const rows = !words ? all : all.filter((t) =>
          [t.name, t.known_as, t.company, t.last_event].some((v) => CC.text(v).toLowerCase().includes(words)));
      const table = CC.table('terminals-table', columns, rows,
          {sortable: true, sortKey: 'name', rowClass: (t) => (alarm(t) ? 'alarm' : null), empty: 'No terminals.'});
      holder.replaceChildren(table);
      table.dataset.rendered = String(rows.length);
      performance.mark('terminals-rendered');
    }

    async function load() {
      const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/terminals'));
      if (!answer || !wanted) return;
      CC.message(box, '');
      all = answer.terminals;
      const offline = all.filter(alarm).length;
      summary.replaceChildren(all.length + ' terminals, ', offline
          ? CC.el('strong.alarm-text', {}, offline + ' offline') : '0 offline', ' — as of ' + answer.time);
      render();
    }

    filter.addEventListener('input', render);
    load();
    return () => { wanted = false; };
  };

  function terminalPage(view, name) {
    const box = CC.messageBox('terminal-error');
    const details = CC.el('div#terminal-details');
    const calls = CC.el('div.scroll');
    view.append(CC.el('p.crumb', {}, CC.el('a', {href: '#/terminals'}, 'Terminals'), ' / ', name),
        CC.el('h1', {}, name), box, details, CC.el('h2', {}, 'Recent calls'), calls);
    CC.guard(box, async () => {
      const t = await CC.api('GET', '/api/v1/terminals/' + encodeURIComponent(name));
      const shown = Object.assign({}, t);
      delete shown.recent_calls;
      details.replaceChildren(CC.el('p', {}, stateCell(t)), CC.showValue(shown));
      calls.replaceChildren(CC.table('terminal-calls', [
        {key: 'time', label: 'Time'}, {key: 'type', label: 'Type'}, {key: 'description', label: 'Description'},
      ], t.recent_calls || [], {empty: 'No calls in the event log.'}));
    });
  }
})();
