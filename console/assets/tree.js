// A resource as a person reads it: a list of records as a table, anything else as
// labelled values. A wrapper of one text ({"text": "..."}) shows as its text; masked
// values are marked as such.

import { el } from './api.js';

// A value masked by the service's table: identifiers keep their end, tokens their ends.
export function looksMasked(value) {
  if (typeof value !== 'string') return false;
  // Redact::RedactID keeps at most the last 4 characters; RedactTokens at most 4 at each end.
  const keptEnd = Math.min(4, Math.floor(value.length / 2));
  const idMask = value.length > 1 && /^-+$/.test(value.slice(0, value.length - keptEnd));
  return idMask || /^.{0,4}\*{3,}.{0,4}$/.test(value);
}

function unwrap(value) {
  if (value && typeof value === 'object' && !Array.isArray(value)) {
    const keys = Object.keys(value);
    if (keys.length === 1 && keys[0] === 'text') return value.text;
  }
  return value;
}

function scalar(value) {
  if (looksMasked(value)) return el('span', { class: 'masked', title: 'masked' }, value);
  if (typeof value === 'boolean') return value ? 'yes' : 'no';
  return String(value);
}

// "a.b" -> value, for every leaf of `value` (arrays stay whole).
function flatten(value, prefix = '', out = new Map()) {
  value = unwrap(value);
  if (value && typeof value === 'object' && !Array.isArray(value)) {
    for (const [key, inner] of Object.entries(value)) flatten(inner, prefix ? prefix + '.' + key : key, out);
  } else {
    out.set(prefix, value);
  }
  return out;
}

function cell(value) {
  if (Array.isArray(value)) {
    return el('div', { class: 'nested' }, value.map((item) => {
      const flat = flatten(item);
      if (flat.size === 1 && flat.has('')) return el('div', {}, scalar(flat.get('')));
      return el('div', {}, [...flat].map(([key, inner], i) => [
        i ? ' · ' : '', el('span', { class: 'k' }, key + ' '), Array.isArray(inner) ? cell(inner) : scalar(inner)]));
    }));
  }
  if (value === undefined) return '';
  return scalar(value);
}

// The records of a resource: the one list it holds ({"source": [...]}), or null.
function records(document) {
  const keys = Object.keys(document || {});
  if (keys.length !== 1) return null;
  const list = document[keys[0]];
  return Array.isArray(list) && list.every((item) => item && typeof item === 'object') ? list : null;
}

export function renderResource(document) {
  const list = records(document);
  if (list) {
    if (!list.length) return el('p', { class: 'empty' }, 'Empty.');
    const rows = list.map((item) => flatten(item));
    const columns = [];
    for (const row of rows) for (const key of row.keys()) if (!columns.includes(key)) columns.push(key);
    return el('table', { class: 'grid' },
      el('thead', {}, el('tr', {}, columns.map((key) => el('th', {}, key)))),
      el('tbody', {}, rows.map((row) => el('tr', {}, columns.map((key) => el('td', {}, cell(row.get(key))))))));
  }
  const flat = flatten(document || {});
  if (!flat.size || (flat.size === 1 && flat.has('') )) return el('p', { class: 'empty' }, 'Empty.');
  return el('div', { class: 'kv' }, [...flat].map(([key, value]) => [el('div', { class: 'k' }, key), el('div', {}, cell(value))]));
}
