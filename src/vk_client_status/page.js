'use strict';
(() => {
  const table = document.querySelector('#all table');
  const body = table.tBodies[0];
  const rows = [...body.rows].map((tr) => ({tr, classes: [...tr.classList], text: tr.textContent.toLowerCase()}));
  const sick = [...document.querySelectorAll('.sick')].map((el) => ({el, text: el.textContent.toLowerCase()}));
  const groups = [...document.querySelectorAll('#failing details')];
  const failing = document.querySelector('#failing');
  const box = document.querySelector('#filter');
  const told = document.querySelector('#told');
  const tiles = [];
  let states = '';

  const show = () => {
    const words = box.value.toLowerCase().split(/\s+/).filter(Boolean);
    const fits = (text) => words.every((word) => text.includes(word));
    let count = 0;
    for (const {tr, classes, text} of rows) {
      const yes = fits(text) && (!states || classes.some((one) => states.includes(one)));
      if (tr.hidden === yes) tr.hidden = !yes;
      if (yes) count++;
    }
    for (const {el, text} of sick) el.hidden = !fits(text);
    for (const group of groups) group.hidden = !group.querySelector('.sick:not([hidden])');
    if (groups.length) failing.hidden = groups.every((group) => group.hidden);
    told.value = count === rows.length ? `${count} clients` : `${count} of ${rows.length} clients`;
  };
  const keep = () => {
    const query = new URLSearchParams();
    if (box.value) query.set('q', box.value);
    if (states) query.set('state', states);
    try { history.replaceState(null, '', query.size ? '#' + query : location.pathname + location.search); } catch { /* not from a file */ }
  };
  const press = (wanted) => {
    states = wanted;
    for (const {button, value} of tiles) button.setAttribute('aria-pressed', value === states);
  };

  for (const li of document.querySelectorAll('.tiles li')) {
    const button = document.createElement('button');
    button.type = 'button';
    button.append(...li.firstElementChild.childNodes);
    li.firstElementChild.replaceWith(button);
    const value = li.dataset.states;
    tiles.push({button, value});
    button.setAttribute('aria-pressed', 'false');
    button.addEventListener('click', () => { press(states === value ? '' : value); show(); keep(); });
  }

  const collator = new Intl.Collator(undefined, {numeric: true});
  const heads = [...table.tHead.rows[0].cells];
  const original = rows.slice();
  heads.forEach((th, column) => {
    if (th.dataset.fixed !== undefined) return;
    const button = document.createElement('button');
    button.type = 'button';
    button.append(...th.childNodes);
    th.append(button);
    button.addEventListener('click', () => {
      const next = {none: 'ascending', ascending: 'descending', descending: 'none'}[th.getAttribute('aria-sort') || 'none'];
      for (const other of heads) other.removeAttribute('aria-sort');
      if (next !== 'none') th.setAttribute('aria-sort', next);
      const sign = next === 'descending' ? -1 : 1;
      const value = (row) => row.tr.cells[column].textContent;
      const sorted = next === 'none' ? original : original.map((row) => [value(row), row])
        .sort((a, b) => (a[0] === '') - (b[0] === '') || sign * collator.compare(a[0], b[0])).map((pair) => pair[1]);
      body.append(...sorted.map((row) => row.tr));
    });
  });

  if (navigator.clipboard)
    for (const code of document.querySelectorAll('.cure code')) {
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = 'copy';
      button.addEventListener('click', () => navigator.clipboard.writeText(code.dataset.run || code.textContent)
        .then(() => { button.textContent = 'copied'; setTimeout(() => { button.textContent = 'copy'; }, 1500); }, () => {}));
      code.after(button);
    }

  let waiting = 0;
  box.addEventListener('input', () => {
    cancelAnimationFrame(waiting);
    waiting = requestAnimationFrame(() => { show(); keep(); });
  });
  document.addEventListener('keydown', (event) => {
    if (event.key === '/' && !/^(input|textarea)$/i.test(event.target.tagName)) { event.preventDefault(); box.focus(); }
    if (event.key === 'Escape' && event.target === box) { box.value = ''; show(); keep(); }
  });
  const read = () => {
    const query = new URLSearchParams(location.hash.slice(1));
    box.value = query.get('q') || '';
    press(query.get('state') || '');
    show();
  };
  addEventListener('hashchange', () => { if (/^#(q|state)=|^$/.test(location.hash)) read(); });
  document.documentElement.classList.add('js');
  read();
})();
