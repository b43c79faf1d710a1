// Event log: a date range with clock and type filters, a page at a time; the printed report;
// a purge that asks the question the server asks; and the daily text logs.
'use strict';

CC.pages.events = function(view) {
  const box = CC.messageBox('events-error');
  const from = CC.el('input#events-from', {value: CC.today(), placeholder: 'YYYY-MM-DD', size: 10});
  const to = CC.el('input#events-to', {value: CC.today(), placeholder: 'YYYY-MM-DD', size: 10});
  const clock = CC.el('input#events-clock', {placeholder: 'any', size: 10});
  const type = CC.el('select#events-type', {}, CC.el('option', {value: ''}, 'any'));
  const size = CC.el('select#events-page-size', {}, [50, 100, 500, 1000].map((n) =>
      CC.el('option', {value: n, selected: n === 100}, String(n))));
  const report = CC.el('a.button#events-report', {download: ''}, 'Report');
  const purge = CC.el('button.danger#events-purge', {type: 'button', hidden: !CC.can('administrator')}, 'Purge…');
  const form = CC.el('form.inline#events-form', {}, CC.field('From', from), CC.field('To', to),
      CC.field('Clock', clock), CC.field('Type', type), CC.field('Per page', size),
      CC.el('button#events-show', {type: 'submit'}, 'Show'), report, purge);
  const pager = CC.el('div.pager');
  const holder = CC.el('div.scroll');
  view.append(CC.el('h1', {}, 'Event log'), form, box, pager, holder);
  let page = 1;
  let open = true;

  const range = () => ({from: from.value.trim(), to: to.value.trim()});
  const updateReport = () => { report.href = '/api/v1/events/report' + CC.query(range()); };

  async function load() {
    updateReport();
    const query = Object.assign(range(), {clock: clock.value.trim(), type: type.value, page, page_size: size.value});
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/events' + CC.query(query)));
    if (!answer || !open) return;
    CC.message(box, '');
    const chosen = type.value;
    type.replaceChildren(CC.el('option', {value: ''}, 'any'),
        (answer.types || []).map((t) => CC.el('option', {value: t, selected: t === chosen}, t)));
    pager.replaceChildren(...CC.pager('events-page', answer, 'events', (p) => { page = p; load(); }));
    holder.replaceChildren(CC.table('events-table', [
      {key: 'counter', label: '#', className: 'num'}, {key: 'time', label: 'Time'}, {key: 'clock', label: 'Clock'},
      {key: 'clock_number', label: 'Clock no.', className: 'num'}, {key: 'type', label: 'Type'},
      {key: 'description', label: 'Description', className: 'wide'},
    ], answer.events, {empty: 'No events in this range.'}));
  }

  form.addEventListener('submit', (event) => {
    event.preventDefault();
    page = 1;
    load();
  });

  // The server answers a purge without confirmation with its question; the operator's yes to that
  // exact question is sent back.
  purge.addEventListener('click', async () => {
    CC.message(box, '');
    const path = '/api/v1/events' + CC.query(range());
    try {
      await CC.api('DELETE', path, {});
      CC.message(box, 'The server purged without asking.', 'info');
      return load();
    } catch (e) {
      if (e.status !== 400 || !/sure\?\s*$/i.test(e.message)) return CC.message(box, e.message, 'error');
      if (!confirm(e.message)) return CC.message(box, 'Nothing purged.', 'info');
    }
    const done = await CC.guard(box, () => CC.api('DELETE', path, {confirm: true}));
    if (done) {
      await load();
      CC.message(box, 'Purged ' + done.purged + ' events.', 'ok');
    }
  });

  view.append(textLogs());
  updateReport();
  load();
  return () => { open = false; };
};

// The daily text logs (screen, debug ...) of one day, each shown as text on request.
function textLogs() {
  const box = CC.messageBox('text-logs-error');
  const date = CC.el('input#text-logs-date', {value: CC.today(), placeholder: 'YYYY-MM-DD', size: 10});
  const list = CC.el('ul.files#text-logs-list');
  const shown = CC.el('pre.log#text-log');
  shown.hidden = true;
  const form = CC.el('form.inline', {}, CC.field('Day', date), CC.el('button#text-logs-show', {type: 'submit'}, 'List'));
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    CC.message(box, '');
    shown.hidden = true;
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/text-logs' + CC.query({date: date.value.trim()})));
    if (!answer) return list.replaceChildren();
    if (!answer.files.length) CC.message(box, 'No text logs of that day.', 'info');
    list.replaceChildren(...answer.files.map((f) => CC.el('li', {},
        CC.el('a', {href: '#', onclick: (e) => { e.preventDefault(); openLog(f.name); }}, f.name),
        CC.el('span.muted', {}, ' ' + f.size + ' bytes'))));
  });
  async function openLog(name) {
    const text = await CC.guard(box, () => CC.api('GET', '/api/v1/text-logs/' + encodeURIComponent(name)));
    if (text === undefined) return;
    shown.textContent = text;
    shown.hidden = false;
  }
  return CC.el('section', {}, CC.el('h2', {}, 'Text logs'), form, box, list, shown);
}
