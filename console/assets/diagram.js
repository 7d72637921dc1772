// The sequence diagram: one lane for vellmarkd and one per client, time going down. Each
// request is drawn to its reply with the time it took (the service's lane shows the span),
// each update to its acknowledgement (the client's lane shows the span), errors in red.
// Built with DOM calls, never from markup: payload text stays text.

import { shortName } from './api.js';

const NS = 'http://www.w3.org/2000/svg';
const TIME_W = 104;
const SERVICE_X = TIME_W + 84;
const MAX_GAP = 210;
const MIN_GAP = 150;
const ROW = 30;
const TOP = 10;
const BOX_W = 140;

function svg(tag, attributes = {}, text) {
  const node = document.createElementNS(NS, tag);
  for (const [key, value] of Object.entries(attributes)) node.setAttribute(key, value);
  if (text !== undefined) node.textContent = text;
  return node;
}

function clock(frame) {
  const match = /T(\d\d:\d\d:\d\d\.\d{3})/.exec(frame.time || '');
  return match ? match[1] : '';
}

function ms(value) {
  if (value === undefined) return '';
  return value >= 100 ? value.toFixed(0) + ' ms' : value >= 10 ? value.toFixed(1) + ' ms' : value.toFixed(2) + ' ms';
}

export class Diagram {
  constructor(head, body, scroller, empty, onSelect) {
    this.head = head;
    this.body = body;
    this.scroller = scroller;
    this.empty = empty;
    this.onSelect = onSelect;
    this.selected = null;
    this.clients = new Map();  // session -> {program, pid, user}, connected now
    this.known = new Map();    // the same for every client seen, gone ones too
  }

  setClients(clients) {
    this.clients = new Map(clients.map((client) => [client.session, client]));
    for (const client of clients) this.known.set(client.session, client);
  }

  // Lanes: the connected clients and any client with a frame shown, by session.
  lanes(frames) {
    const sessions = new Set(this.clients.keys());
    for (const frame of frames) sessions.add(frame.session);
    const ordered = [...sessions].sort((a, b) => a - b);
    return this.place(ordered);
  }

  // Lanes share the width there is, neither crowded nor far apart.
  place(sessions) {
    const room = (this.scroller.clientWidth - SERVICE_X - BOX_W / 2 - 10) / Math.max(sessions.length, 1);
    this.gap = Math.max(MIN_GAP, Math.min(MAX_GAP, room));
    return new Map(sessions.map((session, i) => [session, SERVICE_X + (i + 1) * this.gap]));
  }

  render(frames, filterSession) {
    const atBottom = this.scroller.scrollTop + this.scroller.clientHeight >= this.scroller.scrollHeight - 40;
    let lanes = this.lanes(frames);
    if (filterSession !== '') lanes = this.place([Number(filterSession)]);
    const width = Math.max(SERVICE_X + lanes.size * this.gap + BOX_W / 2 + 10, this.scroller.clientWidth);
    const height = TOP * 2 + frames.length * ROW;
    this.drawHead(lanes, width);
    this.body.replaceChildren();
    this.body.setAttribute('width', width);
    this.body.setAttribute('height', Math.max(height, this.scroller.clientHeight - 4));
    this.empty.hidden = frames.length > 0;

    const rows = new Map(frames.map((frame, i) => [frame, TOP + i * ROW + ROW / 2]));
    const bottom = Math.max(height, this.scroller.clientHeight - 4);
    const spans = svg('g');
    const lines = svg('g');
    const arrows = svg('g');
    this.body.append(lines, spans, arrows);

    lines.append(svg('line', { class: 'lane-line service', x1: SERVICE_X, y1: 0, x2: SERVICE_X, y2: bottom }));
    for (const x of lanes.values()) {
      lines.append(svg('line', { class: 'lane-line', x1: x, y1: 0, x2: x, y2: bottom }));
    }

    for (const frame of frames) {
      const y = rows.get(frame);
      const clientX = lanes.get(frame.session);
      if (clientX === undefined) continue;
      this.drawSpan(spans, frame, y, rows, clientX, bottom);
      arrows.append(this.drawFrame(frame, y, clientX, width));
    }
    if (atBottom) this.scroller.scrollTop = this.scroller.scrollHeight;
  }

  drawHead(lanes, width) {
    this.head.replaceChildren();
    this.head.setAttribute('width', width);
    this.head.append(svg('text', { class: 'time', x: 12, y: 32 }, 'time (UTC)'));
    this.head.append(svg('rect', { class: 'lane-box service', x: SERVICE_X - BOX_W / 2, y: 7, width: BOX_W, height: 40, rx: 7 }));
    this.head.append(svg('text', { class: 'lane-title service-title', x: SERVICE_X, y: 24, 'text-anchor': 'middle' }, 'vellmarkd'));
    this.head.append(svg('text', { class: 'lane-sub service-sub', x: SERVICE_X, y: 39, 'text-anchor': 'middle' }, 'Vellmark endpoint'));
    for (const [session, x] of lanes) {
      const connected = this.clients.has(session);
      const client = this.known.get(session);
      const group = svg('g', { class: 'lane', 'data-session': session });
      group.append(svg('rect', { class: 'lane-box' + (connected ? '' : ' gone'), x: x - BOX_W / 2, y: 7, width: BOX_W, height: 40, rx: 7 }));
      const name = client && client.program ? client.program : 'client';
      group.append(svg('text', { class: 'lane-title', x, y: 24, 'text-anchor': 'middle' }, '#' + session + ' ' + name));
      const who = client ? 'pid ' + client.pid + (client.user ? ' · ' + client.user : '') : '';
      const sub = connected ? who : who ? who + ' · gone' : 'gone';
      group.append(svg('text', { class: 'lane-sub', x, y: 39, 'text-anchor': 'middle' }, sub));
      this.head.append(group);
    }
  }

  // The span a frame opens: a request until its reply (or until now), an update until its
  // acknowledgement.
  drawSpan(group, frame, y, rows, clientX, bottom) {
    if (frame.role === 'request') {
      const info = frame.pair;
      const end = info && rows.has(info) ? rows.get(info) : info ? null : bottom;
      if (end === null) return;
      const cls = frame.failed ? 'activation failed' : info ? 'activation' : 'activation waiting';
      group.append(svg('rect', { class: cls, x: SERVICE_X - 5, y, width: 10, height: Math.max(end - y, 3), rx: 2 }));
    } else if (frame.role === 'notification' && frame.pair && rows.has(frame.pair) && frame.pair.role === 'ack') {
      const end = rows.get(frame.pair);
      group.append(svg('rect', { class: 'ack-span', x: clientX - 4, y, width: 8, height: Math.max(end - y, 3), rx: 2 }));
    }
  }

  drawFrame(frame, y, clientX, width) {
    const inbound = frame.direction === 'in';
    const from = inbound ? clientX : SERVICE_X;
    const to = inbound ? SERVICE_X : clientX;
    const role = frame.role;
    const failed = frame.error || (role === 'request' && frame.failed);
    const group = svg('g', {
      class: 'frame ' + role + (frame.error ? ' error' : '') + (this.selected === frame ? ' selected' : ''),
      'data-seq': frame.seq, 'data-session': frame.session, 'data-kind': frame.kind,
      'data-message': frame.messageName || '',
    });
    if (frame.error) group.setAttribute('data-error', frame.error);
    group.append(svg('rect', { class: 'hit', x: 0, y: y - ROW / 2, width, height: ROW }));
    group.append(svg('text', { class: 'time', x: 12, y: y + 4 }, clock(frame)));
    const end = from < to ? to - 8 : to + 8;
    group.append(svg('line', { x1: from + (from < to ? 6 : -6), y1: y, x2: end, y2: y }));
    const dir = from < to ? 1 : -1;
    group.append(svg('path', { class: 'head', d: `M${to - dir * 1} ${y} l${-dir * 9} -4.5 v9 z` }));

    let label = shortName(frame.messageName) || 'id ' + frame.messageId;
    if (role === 'ack') label = 'ack ' + shortName(this.nameOf(frame.ackOf));
    if (frame.requestNumber !== undefined) label += ' #' + frame.requestNumber;
    if (frame.error) label += ' — ' + frame.error;
    const middle = (from + to) / 2;
    group.append(svg('text', { class: 'label', x: middle, y: y - 5, 'text-anchor': 'middle' }, label));
    if (frame.took !== undefined) {
      group.append(svg('text', { class: 'took', x: middle, y: y + 13, 'text-anchor': 'middle' }, ms(frame.took)));
    }
    if (failed) {
      const markX = role === 'request' ? SERVICE_X + 14 : to + (dir > 0 ? -16 : 16);
      group.append(svg('circle', { class: 'error-mark', cx: markX, cy: y, r: 6.5 }));
      group.append(svg('text', { class: 'error-mark-text', x: markX, y: y + 3.5, 'text-anchor': 'middle' }, '!'));
    }
    group.addEventListener('click', () => this.select(frame));
    return group;
  }

  nameOf(id) {
    return this.messageNames ? this.messageNames.get(id) || String(id) : String(id);
  }

  select(frame) {
    this.selected = frame;
    for (const node of this.body.querySelectorAll('.frame.selected')) node.classList.remove('selected');
    const node = this.body.querySelector(`.frame[data-seq="${frame.seq}"]`);
    if (node) node.classList.add('selected');
    this.onSelect(frame);
  }
}
