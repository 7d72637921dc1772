// The faults and load view: each form sends one admin command and shows the service's
// answer as it came.

import { post, problem, el, shortName } from './api.js';

async function command(form, request) {
  const answer = form.querySelector('pre.answer');
  const button = form.querySelector('button[type="submit"]');
  button.disabled = true;
  answer.hidden = false;
  answer.className = 'answer';
  answer.textContent = 'asking vellmarkd…';
  const result = await post('/api/command', request);
  button.disabled = false;
  const reply = result.data && typeof result.data === 'object' ? result.data : {};
  let text;
  if (result.ok) {
    text = 'vellmarkd: ok';
    if (reply.json) {
      try { text += '\n' + JSON.stringify(JSON.parse(reply.json), null, 2); } catch { text += '\n' + reply.json; }
    }
  } else {
    text = reply.error ? 'vellmarkd refused: ' + reply.error : problem(result);
  }
  answer.textContent = text;
  answer.className = 'answer ' + (result.ok ? 'ok' : 'bad');
  return result.ok && reply.json ? JSON.parse(reply.json) : null;
}

function number(form, name) {
  const value = form.elements[name].value;
  return value === '' ? undefined : Number(value);
}

export function setUpFaults(messages, resources) {
  const requests = messages.filter((row) => row.role === 'request');
  const failSelect = document.getElementById('fail-message');
  failSelect.replaceChildren(...requests.map((row) =>
    el('option', { value: row.id, 'data-error-path': row.errorInReply || row.errorId ? 'yes' : 'no' },
      shortName(row.name) + ' (' + row.id + ')')));
  const delaySelect = document.getElementById('delay-message');
  delaySelect.append(...requests.map((row) => el('option', { value: row.id }, shortName(row.name))));
  document.getElementById('push-resource').replaceChildren(...resources
    .filter((resource) => resource.updateId && resource.name !== 'association')
    .map((resource) => el('option', { value: resource.name }, resource.name)));

  const fail = document.getElementById('form-fail');
  fail.addEventListener('submit', (event) => {
    event.preventDefault();
    const failNext = { messageId: Number(fail.elements.messageId.value), count: number(fail, 'count') };
    if (fail.elements.mode.value === 'error') {
      failNext.error = { code: number(fail, 'code'), message: fail.elements.message.value };
      const subcode = number(fail, 'subcode');
      if (subcode !== undefined) failNext.error.subcode = subcode;
    }
    command(fail, { failNext });
  });

  const delay = document.getElementById('form-delay');
  delay.addEventListener('submit', (event) => {
    event.preventDefault();
    command(delay, { delay: { milliseconds: number(delay, 'milliseconds'), messageId: Number(delay.elements.messageId.value) } });
  });
  document.getElementById('delay-stop').addEventListener('click', () => command(delay, { delay: { milliseconds: 0 } }));

  const push = document.getElementById('form-push');
  push.addEventListener('submit', (event) => {
    event.preventDefault();
    command(push, { push: { resource: push.elements.resource.value, count: number(push, 'count'), window: number(push, 'window') } });
  });

  const drop = document.getElementById('form-drop');
  drop.addEventListener('submit', (event) => {
    event.preventDefault();
    command(drop, { dropConnections: true });
  });

  const acks = document.getElementById('form-acks');
  acks.addEventListener('submit', async (event) => {
    event.preventDefault();
    const report = await command(acks, { listAcknowledgements: true });
    const table = acks.querySelector('.answer-table');
    if (!report) return table.replaceChildren();
    acks.querySelector('pre.answer').hidden = true;
    table.replaceChildren(el('table', { class: 'grid' },
      el('thead', {}, el('tr', {}, el('th', {}, 'Update'), el('th', { class: 'num' }, 'Acknowledged'))),
      el('tbody', {}, (report.counts || []).map((row) =>
        el('tr', {}, el('td', {}, shortName(row.messageName)), el('td', { class: 'num' }, row.count))))));
  });
}
