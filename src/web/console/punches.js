// Companies & punches: the company registry, a company's punches filtered by badge and dates a
// page at a time (or all as CSV), and an employee's hours as a terminal would be told them.
'use strict';

CC.pages.punches = function(view) {
  const box = CC.messageBox('punches-error');
  const companies = CC.el('div.scroll#companies');
  const company = CC.el('select#punches-company', {}, CC.el('option', {value: ''}, 'any'));
  const badge = CC.el('input#punches-badge', {size: 8, inputmode: 'numeric'});
  const from = CC.el('input#punches-from', {placeholder: 'YYYY-MM-DD', size: 10});
  const to = CC.el('input#punches-to', {placeholder: 'YYYY-MM-DD', size: 10});
  const csv = CC.el('a.button#punches-csv', {download: ''}, 'CSV');
  const hoursButton = CC.el('button#punches-hours', {type: 'button'}, 'Employee hours');
  const employeesButton = CC.el('button#employees-show', {type: 'button'}, 'Employees');
  const form = CC.el('form.inline#punches-form', {}, CC.field('Company', company), CC.field('Badge', badge),
      CC.field('From', from), CC.field('To', to), CC.el('button#punches-show', {type: 'submit'}, 'Show'),
      csv, employeesButton, hoursButton);
  const hours = CC.el('div#employee-hours');
  const pager = CC.el('div.pager');
  const holder = CC.el('div.scroll');
  view.append(CC.el('h1', {}, 'Companies & punches'), companies, CC.el('h2', {}, 'Punches'), form, box, hours,
      pager, holder);
  let page = 1;
  let open = true;

  const filters = () => ({company: company.value, badge: badge.value.trim(), from: from.value.trim(), to: to.value.trim()});
  const updateCsv = () => { csv.href = '/api/v1/punches' + CC.query(Object.assign(filters(), {format: 'csv'})); };

  async function loadCompanies() {
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/companies'));
    if (!answer || !open) return;
    companies.replaceChildren(CC.table('companies-table', [
      {key: 'name', label: 'Company'}, {key: 'clock', label: 'Clock'}, {key: 'directory', label: 'Directory'},
      {key: 'database', label: 'Database'}, {key: 'pay_period', label: 'Pay period', render: (c) => CC.showValue(c.pay_period)},
    ], answer.companies, {sortable: true, sortKey: 'name', empty: 'No companies.'}));
    const chosen = company.value;
    company.replaceChildren(CC.el('option', {value: ''}, 'any'),
        ...answer.companies.map((c) => CC.el('option', {value: c.name, selected: c.name === chosen}, c.name)));
  }

  async function load() {
    updateCsv();
    const query = Object.assign(filters(), {page, page_size: 100});
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/punches' + CC.query(query)));
    if (!answer || !open) return;
    CC.message(box, '');
    pager.replaceChildren(...CC.pager('punches-page', answer, 'punches', (p) => { page = p; load(); }));
    holder.replaceChildren(CC.table('punches-table', [
      {key: 'id', label: 'ID', className: 'num'}, {key: 'badge', label: 'Badge', className: 'num'},
      {key: 'punch_type', label: 'Type'}, {key: 'department', label: 'Dept'}, {key: 'job', label: 'Job'},
      {key: 'date_in', label: 'Date in'}, {key: 'time_in', label: 'Time in'},
      {key: 'date_out', label: 'Date out'}, {key: 'time_out', label: 'Time out'},
      {key: 'amount', label: 'Amount', className: 'num'},
    ], answer.punches, {empty: 'No punches match.'}));
  }

  form.addEventListener('submit', (event) => {
    event.preventDefault();
    page = 1;
    load();
  });
  form.addEventListener('input', updateCsv);

  // The chosen company's employees, the first thousand (as the terminals' validation table has them).
  employeesButton.addEventListener('click', async () => {
    CC.message(box, '');
    hours.replaceChildren();
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/employees' +
        CC.query({company: company.value, page_size: 1000})));
    if (!answer || !open) return;
    hours.replaceChildren(CC.el('h3', {}, 'Employees of ' + answer.company + ' (' + answer.total + ')'),
        CC.table('employees-table', [
          {key: 'badge', label: 'Badge', className: 'num'}, {key: 'name', label: 'Name'},
          {key: 'home_department', label: 'Home dept'}, {key: 'default_job', label: 'Default job'},
          {key: 'active', label: 'Active', render: (e) => (e.active ? 'yes' : 'no')},
        ], answer.employees, {sortable: true, sortKey: 'badge', empty: 'No employees.'}));
  });

  hoursButton.addEventListener('click', async () => {
    CC.message(box, '');
    hours.replaceChildren();
    const answer = await CC.guard(box, () => CC.api('GET', '/api/v1/employee-hours' +
        CC.query({company: company.value, badge: badge.value.trim()})));
    if (answer) hours.replaceChildren(CC.el('h3', {}, 'Hours of badge ' + badge.value.trim()), CC.showValue(answer));
  });

  updateCsv();
  loadCompanies();
  return () => { open = false; };
};
