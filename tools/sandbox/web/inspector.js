// The sandbox inspector page. The server decodes and flags everything; this page keeps what
// the event stream tells it and draws it. Every text from the network goes in through
// textContent, never as markup.
'use strict';

const state = {
  fetches: new Map(),   // id -> fetch entry
  beacons: new Map(),   // id -> beacon entry
  ads: new Map(),       // serving id -> checklist
  order: [],            // timeline ids in arrival order
  slots: {},            // slot id -> simulation
  selected: null,
};

const $ = (id) => document.getElementById(id);

function el(tag, props, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(props || {})) {
    if (value === undefined || value === null) continue;
    if (key === 'class') node.className = value;
    else if (key === 'text') node.textContent = value;
    else if (key.startsWith('data-')) node.setAttribute(key, value);
    else node[key] = value;
  }
  for (const child of children) {
    if (child === null || child === undefined || child === false) continue;
    node.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return node;
}

function clock(ms) {
  const d = new Date(ms);
  const pad = (n, w = 2) => String(n).padStart(w, '0');
  return `${pad(d.getUTCHours())}:${pad(d.getUTCMinutes())}:${pad(d.getUTCSeconds())}.${pad(d.getUTCMilliseconds(), 3)}`;
}

function entryOf(id) {
  return state.fetches.get(id) || state.beacons.get(id) || null;
}

// ---- the feed ---------------------------------------------------------------------------

function resetState() {
  state.fetches.clear();
  state.beacons.clear();
  state.ads.clear();
  state.order = [];
  state.selected = null;
  $('timeline').replaceChildren();
  $('detail').replaceChildren(el('p', { class: 'hint', text: 'Choose a row of the timeline to see it decoded.' }));
}

function applySnapshot(snapshot) {
  resetState();
  $('server').textContent = snapshot.baseUrl || '';
  // Fetches and beacons arrive on one clock; merge them back into one timeline.
  const items = [...snapshot.fetches, ...snapshot.beacons];
  items.sort((a, b) => a.timeMs - b.timeMs || (a.kind === b.kind ? 0 : a.kind === 'fetch' ? -1 : 1));
  for (const ad of snapshot.ads) state.ads.set(ad.id, ad);
  for (const item of items) addEntry(item, false);
  setSlots(snapshot.slots || {});
  refresh();
}

function addEntry(entry, live = true) {
  (entry.kind === 'fetch' ? state.fetches : state.beacons).set(entry.id, entry);
  state.order.push(entry.id);
  // Follow the newest rows unless the reader scrolled back to look at older ones.
  const box = $('timeline').parentElement;
  const following = box.scrollTop + box.clientHeight >= box.scrollHeight - 40;
  $('timeline').append(row(entry));
  if (live) refresh();
  if (following) box.scrollTop = box.scrollHeight;
}

function connect() {
  const source = new EventSource('/sandbox/inspector/events');
  const on = (type, handler) => source.addEventListener(type, (e) => handler(JSON.parse(e.data)));
  source.onopen = () => setConnection('live', 'live');
  source.onerror = () => setConnection('lost', 'reconnecting…');
  on('snapshot', applySnapshot);
  on('fetch', (entry) => addEntry(entry));
  on('beacon', (entry) => addEntry(entry));
  on('ad', (ad) => { state.ads.set(ad.id, ad); renderAds(); refreshSelected(); });
  on('slots', (slots) => { setSlots(slots); });
  on('reset', () => { resetState(); refresh(); });
}

function setConnection(stateName, text) {
  const node = $('connection');
  node.dataset.state = stateName;
  node.textContent = text;
}

// ---- timeline ---------------------------------------------------------------------------

function fetchOutcome(f) {
  if (f.status === 0) return 'no answer';
  const ads = f.ads.length;
  let what = `HTTP ${f.status}`;
  if (f.answerJson === null) what += f.answer === '' ? ', empty body' : ', not JSON';
  else if (ads) what += `, ${ads} ad${ads === 1 ? '' : 's'}`;
  else if (f.answerJson && f.answerJson.data === undefined) what += ', no data';
  else what += ', no ads';
  return what;
}

function fetchFailed(f) {
  return f.status === 0 || f.status >= 400 || f.ads.length === 0;
}

function row(entry) {
  const flags = entry.kind === 'beacon' ? entry.flags : [];
  const li = el('li', {
    'data-id': entry.id,
    'data-kind': entry.kind,
    'data-slot': entry.slot,
    'data-ad': entry.kind === 'beacon' ? entry.adId : entry.ads.map((a) => a.adId).join(' '),
    'data-event': entry.kind === 'beacon' ? entry.event : 'ad fetch',
    'data-flags': flags.map((f) => f.code).join(' '),
    class: flags.length ? 'flagged' : '',
  });
  li.append(el('span', { class: 'time', text: clock(entry.timeMs) }));
  li.append(el('span', { class: `kind ${entry.kind}`, text: entry.kind === 'fetch' ? 'fetch' : entry.method }));
  const summary = el('span', { class: 'summary' });
  if (entry.kind === 'fetch') {
    summary.append(el('span', { class: 'event', text: `ad fetch ${entry.slot || '(no slot)'}` }), ' → ',
      el('span', { class: fetchFailed(entry) ? 'status-bad' : '', text: fetchOutcome(entry) }));
  } else {
    summary.append(el('span', { class: 'event', text: entry.event }), ' ',
      el('span', { class: 'sub', text: `${entry.adId || '?'} · ${entry.slot || '?'}` }));
    for (const f of flags) summary.append(el('span', { class: 'flag', title: f.text, text: f.title }));
  }
  li.append(summary);
  li.addEventListener('click', () => select(entry.id));
  return li;
}

function select(id) {
  state.selected = id;
  for (const li of $('timeline').children) li.classList.toggle('selected', li.dataset.id === id);
  refreshSelected();
}

function refreshSelected() {
  const entry = state.selected && entryOf(state.selected);
  if (!entry) return;
  $('detail').replaceChildren(entry.kind === 'fetch' ? fetchDetail(entry) : beaconDetail(entry));
}

// ---- details ----------------------------------------------------------------------------

function tree(value, name) {
  if (value !== null && typeof value === 'object') {
    const isArray = Array.isArray(value);
    const keys = Object.keys(value);
    const details = el('details', { open: true });
    const label = isArray ? `[${keys.length}]` : `{${keys.length}}`;
    details.append(el('summary', {}, name !== undefined ? el('span', { class: 'key', text: `${name}: ` }) : null, label));
    for (const key of keys) details.append(tree(value[key], isArray ? Number(key) : key));
    return details;
  }
  const cls = typeof value === 'string' ? 'str' : typeof value === 'number' ? 'num' : 'lit';
  const text = typeof value === 'string' ? JSON.stringify(value) : String(value);
  return el('div', { class: 'leaf' }, name !== undefined ? el('span', { class: 'key', text: `${name}: ` }) : null,
    el('span', { class: cls, text }));
}

function jsonOrText(parsed, text) {
  if (parsed !== null && parsed !== undefined) return el('div', { class: 'tree' }, tree(parsed));
  if (text === '' || text === undefined) return el('p', { class: 'hint', text: '(no bytes)' });
  return el('pre', { class: 'rawtext', text });
}

function paramsTable(params) {
  const keys = Object.keys(params || {});
  if (!keys.length) return el('p', { class: 'hint', text: '(none)' });
  const table = el('table', {}, el('tr', {}, el('th', { text: 'name' }), el('th', { text: 'value' })));
  for (const key of keys) table.append(el('tr', {}, el('td', { class: 'raw', text: key }), el('td', { class: 'raw', text: params[key] })));
  return table;
}

function fetchDetail(f) {
  const box = el('div', { 'data-detail': f.id });
  box.append(el('h3', { text: `Ad fetch for ${f.slot || '(no slot)'}` }));
  box.append(el('p', { class: 'url mono', text: `POST ${f.url}` }));
  box.append(el('p', {}, 'Answer: ', el('strong', { class: fetchFailed(f) ? 'status-bad' : '', text: fetchOutcome(f) })));
  if (f.ads.length) {
    box.append(el('p', {}, 'Served: ', f.ads.map((a) => a.adId).join(', ')));
  }
  box.append(el('h4', { text: 'Query' }), paramsTable(f.params));
  box.append(el('h4', { text: 'Request body' }), jsonOrText(f.bodyJson, f.body));
  box.append(el('h4', { text: `Answer body (HTTP ${f.status || '—'})` }), f.status === 0
    ? el('p', { class: 'hint', text: 'The sandbox held this request and never answered.' })
    : jsonOrText(f.answerJson, f.answer));
  return box;
}

function beaconDetail(b) {
  const box = el('div', { 'data-detail': b.id });
  box.append(el('h3', { text: `${b.event} — ${b.adId || '?'} (${b.slot || '?'})` }));
  box.append(el('p', { class: 'url mono', text: `${b.method} ${b.url}` }));
  box.append(el('p', {}, `Track type ${b.trackType}, received ${new Date(b.timeMs).toISOString()}`));
  if (b.flags.length) {
    const list = el('ul', { class: 'flags' });
    for (const f of b.flags) list.append(el('li', { 'data-flag': f.code }, el('strong', { text: f.title }), `: ${f.text}`));
    box.append(el('h4', { text: 'What is wrong' }), list);
  }
  box.append(el('h4', { text: 'Macro values' }));
  if (!b.macros.length) {
    box.append(el('p', { class: 'hint', text: '(no macros in this URL)' }));
  } else {
    const table = el('table', { class: 'macros' }, el('tr', {},
      el('th', { text: 'macro' }), el('th', { text: 'in' }), el('th', { text: 'sent' }), el('th', { text: 'means' })));
    for (const m of b.macros) {
      table.append(el('tr', { class: m.state, 'data-macro': m.macro, 'data-state': m.state },
        el('td', { class: 'raw', text: m.macro }), el('td', { text: m.where }),
        el('td', { class: 'raw', text: m.raw }), el('td', { class: 'decoded', text: m.text })));
    }
    box.append(table);
  }
  box.append(el('h4', { text: 'Query' }), paramsTable(b.params));
  if (b.method !== 'GET' || b.body) {
    box.append(el('h4', { text: `Body${b.contentType ? ` (${b.contentType})` : ''}` }), jsonOrText(b.bodyJson, b.body));
  }
  const ad = b.serving && state.ads.get(b.serving);
  if (ad) box.append(el('h4', { text: 'This ad so far' }), adCard(ad));
  return box;
}

// ---- per-ad checklist -------------------------------------------------------------------

function adCard(ad) {
  const card = el('div', { class: 'ad', 'data-serving': ad.id, 'data-ad': ad.adId, 'data-slot': ad.slot });
  card.append(el('header', {}, el('span', { class: 'title', text: ad.adId }),
    el('span', { class: 'sub', text: `${ad.slot} · served ${clock(ad.timeMs)} (${ad.fetch})` })));
  const list = el('ul');
  for (const e of ad.events) {
    const times = e.sent.length;
    const stateName = times === 0 ? 'never' : times === 1 ? 'sent' : 'twice';
    const mark = stateName === 'never' ? '–' : stateName === 'sent' ? '✓' : '⚠';
    const when = times === 0 ? (e.hasUrl ? 'never came' : '') : e.sent.map((s) => clock(s.timeMs)).join(', ')
      + (times > 1 ? ` (${times}×)` : '');
    list.append(el('li', { class: stateName, 'data-event': e.event, 'data-state': stateName },
      el('span', { class: 'mark', text: mark }), el('span', { text: e.event }), el('span', { class: 'when', text: when })));
  }
  card.append(list);
  return card;
}

function renderAds() {
  const box = $('ads');
  box.replaceChildren();
  const list = [...state.ads.values()].reverse();  // the newest first
  if (!list.length) box.append(el('p', { class: 'hint', text: 'No ad served yet.' }));
  for (const ad of list) box.append(adCard(ad));
  applyFilters();
}

// ---- filters ----------------------------------------------------------------------------

function fillSelect(select, values) {
  const current = select.value;
  const first = select.options[0];
  select.replaceChildren(first);
  for (const v of [...values].sort()) select.append(el('option', { value: v, text: v }));
  select.value = values.has(current) ? current : '';
}

function refreshFilterOptions() {
  const slots = new Set(Object.keys(state.slots));
  const ads = new Set();
  const events = new Set(['ad fetch']);
  for (const f of state.fetches.values()) { if (f.slot) slots.add(f.slot); for (const a of f.ads) ads.add(a.adId); }
  for (const b of state.beacons.values()) { if (b.slot) slots.add(b.slot); if (b.adId) ads.add(b.adId); events.add(b.event); }
  fillSelect($('filter-slot'), slots);
  fillSelect($('filter-ad'), ads);
  fillSelect($('filter-event'), events);
}

function applyFilters() {
  const slot = $('filter-slot').value;
  const ad = $('filter-ad').value;
  const event = $('filter-event').value;
  const flagged = $('filter-flagged').checked;
  let shown = 0;
  for (const li of $('timeline').children) {
    const d = li.dataset;
    const visible = (!slot || d.slot === slot) && (!ad || d.ad.split(' ').includes(ad)) &&
      (!event || d.event === event) && (!flagged || d.flags !== '');
    li.classList.toggle('hidden', !visible);
    if (visible) ++shown;
  }
  for (const card of $('ads').children) {
    if (!card.dataset.serving) continue;
    card.classList.toggle('hidden', (slot && card.dataset.slot !== slot) || (ad && card.dataset.ad !== ad));
  }
  const total = state.order.length;
  $('shown').textContent = shown === total ? '' : `${shown} of ${total} shown`;
  $('empty').hidden = total !== 0;
}

function refresh() {
  refreshFilterOptions();
  renderAds();
  let flagged = 0;
  for (const b of state.beacons.values()) if (b.flags.length) ++flagged;
  $('counts').textContent = `${state.fetches.size} fetches · ${state.beacons.size} beacons · ${flagged} flagged`;
  refreshSelected();
}

// ---- control panel ----------------------------------------------------------------------

const presets = {
  normal: { status: 200, delayMs: 0, noAnswer: false, body: 'ads', code: 0 },
  delay: { status: 200, delayMs: 4000, noAnswer: false, body: 'ads', code: 0 },
  noanswer: { status: 200, delayMs: 0, noAnswer: true, body: 'ads', code: 0 },
  // A failing server answers with an error envelope, not with ads.
  http500: { status: 500, delayMs: 0, noAnswer: false, body: 'nodata', code: 500 },
  malformed: { status: 200, delayMs: 0, noAnswer: false, body: 'malformed', code: 0 },
  empty: { status: 200, delayMs: 0, noAnswer: false, body: 'noads', code: 0 },
};

function describeSimulation(sim) {
  if (!sim) return '';
  const parts = [];
  if (sim.noAnswer) parts.push('never answers');
  else parts.push(`HTTP ${sim.status}`, `body ${sim.body}`);
  if (sim.delayMs) parts.push(`after ${sim.delayMs} ms`);
  if (sim.code) parts.push(`code ${sim.code}`);
  return parts.join(', ') + (sim.changed ? ' (changed here)' : '');
}

function setSlots(slots) {
  state.slots = slots;
  const select = $('control-slot');
  const current = select.value;
  select.replaceChildren();
  for (const id of Object.keys(slots).sort()) select.append(el('option', { value: id, text: id }));
  if (current && slots[current]) select.value = current;
  showSlot();
  refreshFilterOptions();
  applyFilters();
}

function showSlot() {
  const sim = state.slots[$('control-slot').value];
  $('control-current').textContent = sim ? `Now: ${describeSimulation(sim)}` : '';
  if (!sim) return;
  $('control-status').value = sim.status;
  $('control-delay').value = sim.delayMs;
  $('control-noanswer').checked = sim.noAnswer;
  $('control-body').value = sim.body;
  $('control-code').value = sim.code;
}

function message(text, ok) {
  const node = $('control-message');
  node.textContent = text;
  node.className = `message ${ok ? 'ok' : 'error'}`;
}

async function sendSimulation(method, body) {
  const slot = $('control-slot').value;
  if (!slot) return;
  const url = `/sandbox/slots/${encodeURIComponent(slot)}/simulate`;
  try {
    const res = await fetch(url, { method, headers: { 'Content-Type': 'application/json' }, body: body === undefined ? undefined : JSON.stringify(body) });
    const answer = await res.json().catch(() => ({}));
    if (!res.ok) return message(answer.error || `HTTP ${res.status}`, false);
    state.slots[slot] = answer;
    showSlot();
    message(`${slot}: ${describeSimulation(answer)}`, true);
  } catch (e) {
    message(`The sandbox did not answer: ${e.message}`, false);
  }
}

function formSimulation() {
  const number = (id) => {
    const text = $(id).value.trim();
    return text === '' || Number.isNaN(Number(text)) ? text : Number(text);
  };
  return {
    status: number('control-status'),
    delayMs: number('control-delay'),
    noAnswer: $('control-noanswer').checked,
    body: $('control-body').value,
    code: number('control-code'),
  };
}

// ---- start ------------------------------------------------------------------------------

function start() {
  for (const id of ['filter-slot', 'filter-ad', 'filter-event', 'filter-flagged']) $(id).addEventListener('change', applyFilters);
  $('control-slot').addEventListener('change', showSlot);
  $('control').addEventListener('submit', (e) => { e.preventDefault(); sendSimulation('PUT', formSimulation()); });
  $('control-reset').addEventListener('click', () => sendSimulation('DELETE'));
  for (const button of document.querySelectorAll('[data-preset]')) {
    button.addEventListener('click', () => sendSimulation('PUT', presets[button.dataset.preset]));
  }
  $('clear').addEventListener('click', () => fetch('/sandbox/records/clear', { method: 'POST' }));
  refresh();
  connect();
}

start();
