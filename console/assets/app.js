// The console's page: tabs, the live stream from the console (Server-Sent Events), and
// the views it feeds.

import { get, download, el, shortName } from './api.js';
import { Traffic } from './traffic.js';
import { Diagram } from './diagram.js';
import { StoreView } from './store.js';
import { renderClients } from './clients.js';
import { setUpFaults } from './faults.js';

const ROWS = 300;  // frames drawn at most

const $ = (id) => document.getElementById(id);
let dirty = false;
let lastDraw = 0;
let serverDropped = 0;

const traffic = new Traffic(() => schedule());
const diagram = new Diagram($('diagram-head'), $('diagram'), $('diagram-scroll'), $('diagram-empty'), showFrame);
const store = new StoreView();

function schedule() {
  if (dirty) return;
  dirty = true;
  requestAnimationFrame(draw);
}

// Draws at most a few times a second however fast frames come.
function draw(now) {
  if (now - lastDraw < 150) {
    requestAnimationFrame(draw);
    return;
  }
  dirty = false;
  lastDraw = now;
  const frames = traffic.visible(ROWS);
  diagram.render(frames, traffic.filter.session);
  $('frame-count').textContent = traffic.received + ' frames';
  const held = traffic.paused ? ' · ' + traffic.held.length + ' held while paused' : '';
  $('shown-count').textContent = 'showing ' + frames.length + held;
  showDropped();
}

function showDropped() {
  const dropped = serverDropped + traffic.letGo;
  $('dropped').hidden = dropped === 0;
  $('dropped').textContent = dropped + ' dropped';
  $('dropped').title = serverDropped + ' frames dropped by the console because this page fell behind; ' +
    traffic.letGo + ' let go while paused';
}

function row(list, term, value, cls) {
  list.append(el('dt', {}, term), el('dd', cls ? { class: cls } : {}, value));
}

function showFrame(frame) {
  const panel = $('frame-detail');
  const list = el('dl');
  row(list, 'time', frame.time);
  row(list, 'direction', frame.direction === 'in' ? 'client → vellmarkd' : 'vellmarkd → client');
  const client = diagram.known.get(frame.session);
  row(list, 'client', '#' + frame.session + (client ? ' ' + client.program + ' (pid ' + client.pid + ')' : ''));
  row(list, 'kind', frame.kind);
  row(list, 'message', frame.messageId + ' ' + (frame.messageName || ''));
  if (frame.requestNumber !== undefined) row(list, 'request no.', frame.requestNumber);
  row(list, 'payload type', frame.payloadType || '—');
  if (frame.took !== undefined) row(list, frame.role === 'ack' ? 'acknowledged after' : 'took', frame.took.toFixed(3) + ' ms');
  if (frame.error) row(list, 'error', frame.error, 'error');
  if (frame.failed && !frame.error) row(list, 'failed', frame.failed, 'error');
  if (frame.role === 'request' && !frame.pair) row(list, 'answer', 'none yet');
  if (frame.pair) {
    const pair = frame.pair;
    const what = pair.role === 'ack' ? 'its acknowledgement' : pair.role === 'request' ? 'the request' :
      pair.role === 'notification' && frame.role === 'ack' ? 'the update' : 'the answer';
    row(list, 'paired with', el('button', { type: 'button', class: 'link', onclick: () => diagram.select(pair) }, what + ' (' + shortName(pair.messageName) + ')'));
  }
  const payload = typeof frame.payload === 'object' ? JSON.stringify(frame.payload, null, 2) : String(frame.payload);
  panel.replaceChildren(el('h2', {}, frame.kind + ' ' + shortName(frame.messageName)), list,
    el('h2', {}, 'Payload (masked)'), el('pre', { id: 'frame-payload' }, payload));
}

function setStatus(status) {
  const pill = $('link-status');
  pill.className = 'pill ' + (status.watching ? 'on' : 'off');
  pill.textContent = status.watching ? 'vellmarkd connected' : 'vellmarkd away';
  pill.title = status.message || '';
  const lost = Number(status.lost || 0);
  $('lost').hidden = lost === 0;
  $('lost').textContent = 'watch lost ' + lost + '×';
}

function setClients(clients) {
  diagram.setClients(clients);
  renderClients(clients);
  const select = $('filter-client');
  const chosen = select.value;
  select.replaceChildren(el('option', { value: '' }, 'all clients'), ...clients.map((client) =>
    el('option', { value: String(client.session) }, '#' + client.session + ' ' + (client.program || 'client') + ' (pid ' + client.pid + ')')));
  if (chosen && !clients.some((client) => String(client.session) === chosen)) {
    select.append(el('option', { value: chosen }, '#' + chosen + ' (gone)'));
  }
  select.value = chosen;
  schedule();
}

function stream() {
  const events = new EventSource('/api/events');
  events.addEventListener('traffic', (event) => traffic.add(JSON.parse(event.data)));
  events.addEventListener('clients', (event) => setClients(JSON.parse(event.data).clients || []));
  events.addEventListener('status', (event) => setStatus(JSON.parse(event.data)));
  events.addEventListener('dropped', (event) => { serverDropped = Number(event.data); showDropped(); });
  events.addEventListener('error', () => {
    if (events.readyState === EventSource.CLOSED) {
      setStatus({ watching: false, message: 'the console refused the stream (too many pages open?)' });
    } else {
      setStatus({ watching: false, message: 'the console does not answer; trying again' });
    }
  });
}

function tabs() {
  for (const tab of document.querySelectorAll('.tabs button')) {
    tab.addEventListener('click', () => {
      for (const other of document.querySelectorAll('.tabs button')) other.setAttribute('aria-selected', other === tab ? 'true' : 'false');
      for (const view of document.querySelectorAll('.view')) view.classList.toggle('active', view.id === 'view-' + tab.dataset.view);
      if (tab.dataset.view === 'store') store.show(store.current);
      if (tab.dataset.view === 'traffic') schedule();
    });
  }
}

function toolbar() {
  $('filter-client').addEventListener('change', (event) => traffic.setFilter({ session: event.target.value }));
  $('filter-message').addEventListener('change', (event) => traffic.setFilter({ messageId: event.target.value }));
  $('filter-errors').addEventListener('change', (event) => traffic.setFilter({ errorsOnly: event.target.checked }));
  $('pause').addEventListener('click', () => {
    traffic.setPaused(!traffic.paused);
    $('pause').textContent = traffic.paused ? 'Resume' : 'Pause';
  });
  $('clear').addEventListener('click', () => traffic.clear());
  $('save-pcap').addEventListener('click', async () => {
    const shown = traffic.visible(ROWS).map((frame) => frame.seq);
    try {
      await download('/api/capture', JSON.stringify(shown), 'vellmark-traffic.pcapng');
    } catch (error) {
      alert('No capture: ' + error.message);
    }
  });
}

async function start() {
  tabs();
  toolbar();
  const overview = await get('/api/overview');
  if (overview.ok) {
    const { messages, resources } = overview.data;
    traffic.setMessages(messages);
    diagram.messageNames = new Map(messages.map((row) => [row.id, row.name]));
    $('filter-message').append(...messages.filter((row) => row.role !== 'none' && row.role !== 'reserved')
      .map((row) => el('option', { value: String(row.id) }, shortName(row.name) + ' (' + row.id + ')')));
    store.setResources(resources);
    setUpFaults(messages, resources);
  }
  stream();
  schedule();
}

start();
