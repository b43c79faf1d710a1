// Poll list: the locations the lines call, added, edited, selected for polling and removed.
'use strict';

CC.pages['poll-list'] = function(view) {
  const box = CC.messageBox('poll-error');
  const holder = CC.el('div.scroll');
  const canEdit = CC.can('operator');
  const name = CC.el('input#poll-name', {maxlength: 50, required: true});
  const address = CC.el('input#poll-address', {placeholder: 'phone or host:port'});
  const callTime = CC.el('input#poll-call-time', {placeholder: 'HH:MM', size: 6, pattern: '[0-9]{1,2}:[0-9]{2}'});
  const selected = CC.el('input#poll-selected', {type: 'checkbox', checked: true});
  const save = CC.el('button#poll-save', {type: 'submit', disabled: !canEdit}, 'Add');
  const cancel = CC.el('button.quiet', {type: 'button', hidden: true, onclick: () => edit(null)}, 'Cancel');
  const form = CC.el('form.inline#poll-form', {}, CC.field('Name', name), CC.field('Address', address),
      CC.field('Call time', callTime), CC.el('label.check', {}, selected, 'Selected'), save, cancel);
  view.append(CC.el('h1', {}, 'Poll list'), form, box, holder);
  if (!canEdit) CC.message(box, 'Operators keep the poll list; you may look.', 'info');
  let editing = null;  // the location being edited, or null when adding
  let open = true;

  function edit(location) {
    editing = location;
    name.value = location ? location.name : '';
    address.value = location ? CC.text(location.address) : '';
    callTime.value = location ? CC.text(location.call_time) : '';
    selected.checked = location ? location.selected : true;
    save.textContent = location ? 'Save ' + location.name : 'Add';
    cancel.hidden = !location;
    if (location) name.focus();
  }

  const body = (l) => ({name: l.name, address: l.address, call_time: l.call_time || null, selected: l.selected});

  async function change(method, path, payload, done) {
    CC.message(box, '');
    const answer = await CC.guard(box, () => CC.api(method, path, payload));
    if (answer === undefined) return;
    CC.message(box, done, 'ok');
    await load();
  }

  const columns = [
    {key: 'selected', label: 'Selected', render: (l) => CC.el('input', {type: 'checkbox', checked: l.selected,
      disabled: !canEdit, 'aria-label': 'Select ' + l.name,
      onchange: (e) => change('PUT', '/api/v1/poll-list/' + l.id, Object.assign(body(l), {selected: e.target.checked}),
          (e.target.checked ? 'Selected ' : 'Deselected ') + l.name + '.')})},
    {key: 'id', label: 'ID', className: 'num'},
    {key: 'name', label: 'Name'},
    {key: 'address', label: 'Address'},
    {key: 'call_time', label: 'Call time'},
    {key: null, label: '', render: (l) => [
      CC.el('button.small', {type: 'button', disabled: !canEdit, onclick: () => edit(l)}, 'Edit'), ' ',
      CC.el('button.small.danger', {type: 'button', disabled: !canEdit, onclick: () => {
        if (confirm('Remove ' + l.name + ' from the poll list?')) {
          change('DELETE', '/api/v1/poll-list/' + l.id, undefined, 'Removed ' + l.name + '.');
        }
      }}, 'Remove')]},
  ];

  async function load() {
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/poll-list'));
    if (!answer || !open) return;
    holder.replaceChildren(CC.table('poll-table', columns, answer.locations,
        {sortable: true, sortKey: 'name', empty: 'The poll list is empty.'}));
  }

  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const payload = {name: name.value.trim(), address: address.value.trim(),
      call_time: callTime.value.trim() || null, selected: selected.checked};
    const was = editing;
    if (was) await change('PUT', '/api/v1/poll-list/' + was.id, payload, 'Saved ' + payload.name + '.');
    else await change('POST', '/api/v1/poll-list', payload, 'Added ' + payload.name + '.');
    if (!box.classList.contains('error')) edit(null);
  });

  load();
  return () => { open = false; };
};
