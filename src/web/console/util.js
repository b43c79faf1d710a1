// What every page shares: the API client, a small DOM builder (text only, never HTML from data),
// tables, messages and dates.
'use strict';

const CC = {pages: {}, session: null};

// A refusal or failure of the API, with the API's own message.
class ApiError extends Error {
  constructor(status, message, body) {
    super(message);
    this.status = status;
    this.body = body || {};
  }
}

// Calls the API; answers the parsed JSON (or the text of a text answer). A change carries the
// session's CSRF token. Throws ApiError with the API's {"error"} text.
CC.api = async function(method, path, body) {
  const headers = {};
  const init = {method, headers, credentials: 'same-origin'};
  if (method !== 'GET' && CC.session) headers['X-CSRF-Token'] = CC.session.csrf_token;
  if (body !== undefined) {
    headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  let res;
  try {
    res = await fetch(path, init);
  } catch (e) {
    throw new ApiError(0, 'The server cannot be reached (' + e.message + ').');
  }
  const type = res.headers.get('Content-Type') || '';
  const data = type.includes('json') ? await res.json().catch(() => ({})) : await res.text();
  if (!res.ok) {
    const message = (data && data.error) || ('HTTP ' + res.status + ' ' + res.statusText);
    if (res.status === 401 && path !== '/api/v1/session') CC.sessionEnded(message);
    throw new ApiError(res.status, message, data);
  }
  return data;
};

// el('tag.class#id', {attr: value, onclick: fn}, child, 'text', ...)
CC.el = function(selector, attrs, ...children) {
  const [, tag, rest] = selector.match(/^([a-z0-9]+)(.*)$/i);
  const node = document.createElement(tag);
  for (const part of rest.match(/[.#][^.#]+/g) || []) {
    if (part[0] === '.') node.classList.add(part.slice(1));
    else node.id = part.slice(1);
  }
  for (const [key, value] of Object.entries(attrs || {})) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
    else if (key === 'value') node.value = value;
    else if (key === 'checked') node.checked = !!value;
    else node.setAttribute(key, value === true ? '' : value);
  }
  CC.append(node, children);
  return node;
};

CC.append = function(node, children) {
  for (const child of children.flat()) {
    if (child === undefined || child === null || child === false) continue;
    node.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return node;
};

CC.text = function(value) {
  return value === null || value === undefined ? '' : String(value);
};

// A message line: kind is 'error', 'ok' or 'info'.
CC.message = function(box, text, kind) {
  box.textContent = text || '';
  box.className = 'message ' + (kind || 'info');
  box.hidden = !text;
};

CC.messageBox = function(id) {
  const box = CC.el('p.message', {id, role: 'status'});
  box.hidden = true;
  return box;
};

// Runs an async action, showing its failure (the API's text) in box.
CC.guard = async function(box, action) {
  try {
    return await action();
  } catch (e) {
    CC.message(box, e.message, 'error');
    return undefined;
  }
};

// A table of rows: columns are {key, label, render(row) -> node|text, sort(row) -> value,
// className}. With sortable, a click on a heading sorts by it (again: the other way).
CC.table = function(id, columns, rows, options) {
  options = options || {};
  const table = CC.el('table.grid', {id});
  const head = CC.el('tr');
  const body = CC.el('tbody');
  let sortKey = options.sortKey || null;
  let ascending = true;
  const valueOf = (col, row) => (col.sort ? col.sort(row) : row[col.key]);
  const fill = () => {
    let shown = rows;
    if (sortKey) {
      const col = columns.find((c) => c.key === sortKey);
      shown = rows.slice().sort((a, b) => compare(valueOf(col, a), valueOf(col, b)));
      if (!ascending) shown.reverse();
    }
    const fragment = document.createDocumentFragment();
    for (const row of shown) {
      const tr = CC.el('tr', {class: options.rowClass ? options.rowClass(row) : null});
      for (const col of columns) {
        const cell = col.render ? col.render(row) : CC.text(row[col.key]);
        tr.append(CC.el('td', {class: col.className}, cell));
      }
      fragment.append(tr);
    }
    body.replaceChildren(fragment);
    for (const th of head.children) {
      th.dataset.sorted = th.dataset.key === sortKey ? (ascending ? 'up' : 'down') : '';
    }
  };
  for (const col of columns) {
    const th = CC.el('th', {'data-key': col.key, class: col.className}, col.label);
    if (options.sortable && col.key) {
      th.classList.add('sortable');
      th.addEventListener('click', () => {
        ascending = sortKey === col.key ? !ascending : true;
        sortKey = col.key;
        fill();
      });
    }
    head.append(th);
  }
  table.append(CC.el('thead', {}, head), body);
  if (rows.length === 0) {
    body.append(CC.el('tr', {}, CC.el('td.empty', {colspan: columns.length}, options.empty || 'Nothing to show.')));
  } else {
    fill();
  }
  return table;
};

// Nulls last; numbers as numbers, the rest as text without regard to case.
function compare(a, b) {
  const none = (v) => v === null || v === undefined || v === '';
  if (none(a) || none(b)) return none(a) - none(b);
  if (typeof a === 'number' && typeof b === 'number') return a - b;
  if (typeof a === 'boolean' && typeof b === 'boolean') return a - b;
  return String(a).localeCompare(String(b), undefined, {numeric: true, sensitivity: 'base'});
}

// A labelled field: label text, then the control.
// "‹ Previous  Page 2 of 5 (420 events)  Next ›" under a paged answer; go(page) loads another.
CC.pager = function(id, answer, noun, go) {
  const pages = Math.max(1, Math.ceil(answer.total / answer.page_size));
  return [
    CC.el('button.small', {type: 'button', disabled: answer.page <= 1, onclick: () => go(answer.page - 1)}, '‹ Previous'),
    CC.el('span#' + id, {}, ' Page ' + answer.page + ' of ' + pages + ' (' + answer.total + ' ' + noun + ') '),
    CC.el('button.small', {type: 'button', disabled: answer.page >= pages, onclick: () => go(answer.page + 1)}, 'Next ›'),
  ];
};

CC.field = function(label, control, note) {
  return CC.el('label.field', {}, CC.el('span.label', {}, label), control, note);
};

CC.today = function() {
  const d = new Date();
  const pad = (n) => String(n).padStart(2, '0');
  return d.getFullYear() + '-' + pad(d.getMonth() + 1) + '-' + pad(d.getDate());
};

CC.query = function(params) {
  const q = new URLSearchParams();
  for (const [key, value] of Object.entries(params)) {
    if (value !== '' && value !== null && value !== undefined) q.set(key, value);
  }
  const text = q.toString();
  return text ? '?' + text : '';
};

CC.can = function(role) {
  const order = ['viewer', 'operator', 'administrator'];
  return !!CC.session && order.indexOf(CC.session.role) >= order.indexOf(role);
};

// "last_contact" reads "Last contact".
CC.label = function(key) {
  const text = key.replace(/_/g, ' ');
  return text.charAt(0).toUpperCase() + text.slice(1);
};

// Any JSON value as nested lists and tables, for answers whose shape a page does not fix.
CC.showValue = function(value) {
  if (Array.isArray(value)) {
    if (value.length && value.every((v) => v && typeof v === 'object' && !Array.isArray(v))) {
      const keys = [...new Set(value.flatMap(Object.keys))];
      return CC.table(null, keys.map((k) => ({key: k, label: CC.label(k), render: (r) => CC.showValue(r[k])})), value);
    }
    return value.map((v) => CC.text(typeof v === 'object' ? JSON.stringify(v) : v)).join(', ');
  }
  if (value && typeof value === 'object') {
    const list = CC.el('dl.pairs');
    for (const [key, v] of Object.entries(value)) list.append(CC.el('dt', {}, CC.label(key)), CC.el('dd', {}, CC.showValue(v)));
    return list;
  }
  return typeof value === 'boolean' ? (value ? 'yes' : 'no') : CC.text(value);
};
