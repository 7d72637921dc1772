// The clients view: every connection of the Vellmark endpoint, live.

import { el, shortName } from './api.js';

export function renderClients(clients) {
  const body = document.querySelector('#clients-table tbody');
  document.getElementById('clients-empty').hidden = clients.length > 0;
  document.getElementById('client-count').textContent = clients.length;
  body.replaceChildren(...clients.map((client) => el('tr', { 'data-session': client.session },
    el('td', {}, '#' + client.session),
    el('td', {}, client.program || '?'),
    el('td', { class: 'num' }, client.pid),
    el('td', {}, client.user ? client.user + ' (' + client.uid + ')' : 'uid ' + client.uid),
    el('td', {}, (client.connectedAt || '').replace('T', ' ').replace('Z', ' UTC')),
    el('td', { class: 'num' }, client.requests),
    el('td', { class: 'num' }, client.frames),
    el('td', { class: 'num' }, client.acknowledged),
    el('td', {}, Object.entries(client.subscriptions || {}).map(([name, count]) =>
      el('span', { class: 'chip', title: count + ' acknowledged' }, shortName(name) + ' ×' + count))),
    el('td', {}, client.lastFrame || '—'))));
}
