'use strict';
(() => {
  const at = (id) => document.getElementById(id);
  const table = document.querySelector('#all table');
  const body = table.tBodies[0];
  const heads = [...table.tHead.rows[0].cells];
  const rows = [...body.rows].map((tr) => ({tr, classes: [...tr.classList], text: tr.textContent.toLowerCase()}));
  const cards = [...document.querySelectorAll('.cards article')].map((card) => ({
    card, count: card.querySelector('h3 b'), text: card.textContent.toLowerCase(),
    clients: [...card.querySelectorAll('li')].map((li) => ({li, row: rows[li.id.slice(1)], text: li.textContent.toLowerCase()})),
  }));
  const groupings = [...document.querySelectorAll('.bars')].map((section) => {
    const column = heads.findIndex((th) => th.textContent === section.dataset.column);
    const bars = [...section.querySelectorAll('dt')].map((dt) => ({dt, dd: dt.nextElementSibling, name: dt.textContent}));
    const known = new Map(bars.map((bar) => [bar.name, bar]));
    const barOf = (row) => known.get((row.tr.cells[column].textContent.trim() || 'unknown').replace(/ SP .*/, '')) || known.get('others');
    return column < 0 ? {bars: [], of: []} : {bars, of: rows.map(barOf)};
  });
  const box = at('filter');
  const told = at('told');
  const tiles = [];
  let state = '';

  const clients = (count) => count === 1 ? '1 client' : `${count} clients`;
  const show = () => {
    const words = box.value.toLowerCase().split(/\s+/).filter(Boolean);
    const fits = (text) => words.every((word) => text.includes(word));
    const inState = (row) => !state || row.classes.some((one) => state.includes(one));
    let count = 0;
    for (const row of rows) {
      row.fits = inState(row) && fits(row.text);
      if (row.tr.hidden === row.fits) row.tr.hidden = !row.fits;
      if (row.fits) count++;
    }
    for (const {card, count: number, text, clients: list} of cards) {
      const whole = words.length > 0 && fits(text.slice(0, 2000));
      let shown = 0;
      for (const {li, row, text: own} of list) {
        li.hidden = !(inState(row) && (row.fits || fits(own) || (whole && list.length === 1)));
        shown += !li.hidden;
      }
      card.hidden = shown === 0;
      number.textContent = clients(shown);
    }
    for (const section of document.querySelectorAll('.cards'))
      section.hidden = [...section.querySelectorAll('article')].every((card) => card.hidden);
    for (const {bars, of} of groupings) {
      for (const bar of bars) bar.count = bar.failing = 0;
      rows.forEach((row, i) => {
        if (!row.fits || !of[i]) return;
        of[i].count++;
        of[i].failing += row.classes[0] === 'f';
      });
      const most = Math.max(1, ...bars.map((bar) => bar.count));
      for (const {dt, dd, count: all, failing} of bars) {
        const [bad, good] = dd.querySelectorAll('hr');
        dt.hidden = dd.hidden = all === 0;
        bad.style.setProperty('--w', `${failing * 100 / most}%`);
        good.style.setProperty('--w', `${(all - failing) * 100 / most}%`);
        dd.querySelector('b').textContent = all;
        dd.querySelector('i').textContent = failing ? `${failing} failing` : '\u00a0';
      }
    }
    told.value = count === rows.length ? clients(count) : `${count} of ${clients(rows.length)}`;
  };
  const keep = () => {
    const query = new URLSearchParams();
    if (box.value) query.set('q', box.value);
    if (state) query.set('state', state);
    try { history.replaceState(null, '', query.size ? '#' + query : location.pathname + location.search); } catch { /* not from a file */ }
  };
  const press = (wanted) => {
    state = wanted;
    for (const {button, value} of tiles) button.setAttribute('aria-pressed', value === state);
  };
  const button = (...content) => {
    const made = document.createElement('button');
    made.type = 'button';
    made.append(...content);
    return made;
  };

  for (const li of document.querySelectorAll('.tiles li')) {
    const tile = button(...li.firstElementChild.childNodes);
    const value = li.dataset.state;
    li.firstElementChild.replaceWith(tile);
    tiles.push({button: tile, value});
    tile.addEventListener('click', () => { press(state === value ? '' : value); show(); keep(); });
  }

  const collator = new Intl.Collator(undefined, {numeric: true});
  heads.forEach((th, column) => {
    if (th.dataset.fixed !== undefined) return;
    const sort = button(...th.childNodes);
    th.append(sort);
    sort.addEventListener('click', () => {
      const next = {none: 'ascending', ascending: 'descending', descending: 'none'}[th.getAttribute('aria-sort') || 'none'];
      for (const other of heads) other.removeAttribute('aria-sort');
      if (next !== 'none') th.setAttribute('aria-sort', next);
      const sign = next === 'descending' ? -1 : 1;
      const value = (row) => row.tr.cells[column].textContent;
      const sorted = next === 'none' ? rows : rows.map((row) => [value(row), row])
        .sort((a, b) => (a[0] === '') - (b[0] === '') || sign * collator.compare(a[0], b[0])).map((pair) => pair[1]);
      body.append(...sorted.map((row) => row.tr));
    });
  });

  if (navigator.clipboard)
    for (const code of document.querySelectorAll('.run code')) {
      const copy = button('copy');
      copy.addEventListener('click', () => navigator.clipboard.writeText(code.dataset.run || code.textContent)
        .then(() => { copy.textContent = 'copied'; setTimeout(() => { copy.textContent = 'copy'; }, 1500); }, () => {}));
      code.after(copy);
    }

  const grow = () => {
    const written = Date.parse(at('written').dateTime);
    const next = Date.parse(at('next').dateTime);
    const minutes = Math.floor((Date.now() - written) / 60000);
    const age = minutes < 1 ? 'just now' : minutes < 60 ? `${minutes} min ago` : minutes < 2880 ? `${Math.floor(minutes / 60)} h ago` : `${Math.floor(minutes / 1440)} d ago`;
    at('age').textContent = ` (${age})`;
    const late = Date.now() > next + (next - written) / 10;
    document.documentElement.classList.toggle('old', late);
    at('late').hidden = !late;
    if (late) at('late').textContent = `This page is old: written ${age}, the next was due by ${at('next').textContent}. See why on the backup server.`;
  };
  grow();
  setInterval(grow, 30000);

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
