// Settings: the communications settings as a form (a refused value's message beside its field)
// and the three rule files, each edited as text (a refused line named and selected).
'use strict';

(function() {
  // "terminal_count" and "TerminalCount" both read "Terminal Count".
  const words = (key) => key.replace(/_/g, ' ').replace(/([a-z])([A-Z])/g, '$1 $2')
      .replace(/\b\w/g, (c) => c.toUpperCase());

  function choiceOf(item) {
    if (item && typeof item === 'object') {
      const value = item.value ?? item.id ?? item.name;
      return {value: String(value), label: CC.text(item.label ?? item.text ?? item.name ?? value)};
    }
    return {value: String(item), label: String(item)};
  }

  function control(key, value, choices) {
    const id = 'setting-' + key;
    if (choices) {
      return CC.el('select#' + id, {name: key}, choices.map(choiceOf).map((c) =>
          CC.el('option', {value: c.value, selected: c.value === String(value)}, c.label)));
    }
    if (typeof value === 'boolean') return CC.el('input#' + id, {type: 'checkbox', name: key, checked: value});
    return CC.el('input#' + id, {name: key, value: CC.text(value), size: typeof value === 'number' ? 8 : 30});
  }

  // The value a control holds, in the type the server gave.
  function read(input, original, choices) {
    if (input.type === 'checkbox') return input.checked;
    if (typeof original === 'number' && /^-?\d+$/.test(input.value.trim())) return Number(input.value.trim());
    if (choices) {
      const item = choices.find((c) => choiceOf(c).value === input.value);
      const raw = item && typeof item === 'object' ? (item.value ?? item.id ?? item.name) : item;
      if (raw !== undefined) return raw;
    }
    return input.value;
  }

  CC.pages.settings = function(view) {
    const box = CC.messageBox('settings-error');
    const summary = CC.el('p.summary#settings-summary');
    const form = CC.el('form.settings#settings-form');
    const admin = CC.can('administrator');
    view.append(CC.el('h1', {}, 'Settings'), summary, box, form, ruleFiles(admin));
    if (!admin) CC.message(box, 'Administrators change the settings; you may look.', 'info');
    let current = {};
    let choices = {};
    let open = true;

    function show(answer) {
      current = answer.settings;
      choices = answer.choices || {};
      summary.textContent = answer.summary || '';
      const rows = Object.entries(current).map(([key, value]) => CC.el('div.setting', {},
          CC.el('label', {for: 'setting-' + key}, words(key)), control(key, value, choices[key]),
          CC.el('span.refusal', {id: 'refusal-' + key})));
      form.replaceChildren(...rows, CC.el('div.actions', {},
          CC.el('button#settings-save', {type: 'submit', disabled: !admin}, 'Save settings')));
    }

    // The field a refusal is about: named by the answer, else the changed field whose words the
    // message names, else the only changed field.
    function refusedField(error, changed) {
      if (error.body && error.body.field && error.body.field in current) return error.body.field;
      const text = error.message.toLowerCase();
      const named = Object.keys(current).filter((k) => text.includes(words(k).toLowerCase()))
          .sort((a, b) => b.length - a.length);
      if (named.length) return named[0];
      const keys = Object.keys(changed);
      return keys.length === 1 ? keys[0] : null;
    }

    form.addEventListener('submit', async (event) => {
      event.preventDefault();
      CC.message(box, '');
      for (const note of form.querySelectorAll('.refusal')) note.textContent = '';
      for (const input of form.querySelectorAll('.invalid')) input.classList.remove('invalid');
      const changed = {};
      for (const [key, value] of Object.entries(current)) {
        const input = form.elements[key];
        const now = read(input, value, choices[key]);
        if (String(now) !== String(value)) changed[key] = now;
      }
      if (!Object.keys(changed).length) return CC.message(box, 'Nothing changed.', 'info');
      try {
        show(await CC.api('PUT', '/api/v1/settings', {settings: changed}));
        // The lines read the settings when they start, and serve starts them once.
        CC.message(box, 'Saved: ' + Object.keys(changed).map(words).join(', ') +
          '. A running serve, host or auto uses them once it is started again.', 'ok');
      } catch (e) {
        const key = e.status === 400 ? refusedField(e, changed) : null;
        if (key) {
          document.getElementById('refusal-' + key).textContent = e.message;
          form.elements[key].classList.add('invalid');
          form.elements[key].focus();
          CC.message(box, 'Nothing was saved.', 'error');
        } else {
          CC.message(box, e.message, 'error');
        }
      }
    });

    CC.guard(box, async () => {
      const answer = await CC.api('GET', '/api/v1/settings');
      if (open) show(answer);
    });
    return () => { open = false; };
  };

  function ruleFiles(admin) {
    const box = CC.messageBox('rules-error');
    const tabs = CC.el('div.tabs#rule-files');
    const text = CC.el('textarea#rule-text', {rows: 14, spellcheck: 'false', disabled: true,
      placeholder: 'Choose a file above.'});
    const save = CC.el('button#rule-save', {type: 'button', disabled: true}, 'Save');
    let name = null;

    async function openFile(file) {
      CC.message(box, '');
      const answer = file.exists === false ? {text: ''}
          : await CC.guard(box, () => CC.api('GET', '/api/v1/rule-files/' + encodeURIComponent(file.name)));
      if (!answer) return;
      name = file.name;
      text.value = answer.text;
      text.disabled = !admin;
      save.disabled = !admin;
      save.textContent = 'Save ' + name;
      for (const tab of tabs.children) tab.classList.toggle('current', tab.dataset.name === name);
    }

    // Selects line n (from 1) of the text, so that the refused line is the one highlighted.
    function selectLine(n) {
      const lines = text.value.split('\n');
      const start = lines.slice(0, n - 1).reduce((sum, l) => sum + l.length + 1, 0);
      text.focus();
      text.setSelectionRange(start, start + (lines[n - 1] || '').length);
    }

    save.addEventListener('click', async () => {
      CC.message(box, '');
      try {
        await CC.api('PUT', '/api/v1/rule-files/' + encodeURIComponent(name), {text: text.value});
        CC.message(box, 'Saved ' + name + '.', 'ok');
      } catch (e) {
        const line = e.body && Number.isInteger(e.body.line) ? e.body.line : null;
        const quoted = line ? ' (line ' + line + ' reads "' + (text.value.split('\n')[line - 1] || '') + '")' : '';
        CC.message(box, e.message + quoted + '. Nothing was saved.', 'error');
        if (line) selectLine(line);
      }
    });

    CC.guard(box, async () => {
      const answer = await CC.api('GET', '/api/v1/rule-files');
      tabs.replaceChildren(...answer.files.map((f) => CC.el('button.tab', {type: 'button', 'data-name': f.name,
        onclick: () => openFile(f)}, f.name, f.exists ? '' : ' (new)')));
    });
    return CC.el('section', {}, CC.el('h2', {}, 'Rule files'), tabs, box, text,
        CC.el('div.actions', {}, save));
  }
})();
