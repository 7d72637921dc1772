// The store view: each resource as a table, masked; an editor that checks a new value
// against the schema and saves it; the redacted export and a seed from a file.

import { get, post, put, problem, el } from './api.js';
import { renderResource } from './tree.js';

export class StoreView {
  constructor() {
    this.list = document.getElementById('resource-list');
    this.title = document.getElementById('resource-title');
    this.view = document.getElementById('store-view');
    this.editor = document.getElementById('store-editor');
    this.json = document.getElementById('store-json');
    this.state = document.getElementById('json-state');
    this.message = document.getElementById('store-message');
    this.current = null;
    document.getElementById('store-reload').addEventListener('click', () => this.show(this.current));
    document.getElementById('store-edit').addEventListener('click', () => this.edit());
    document.getElementById('store-cancel').addEventListener('click', () => this.closeEditor());
    document.getElementById('store-check').addEventListener('click', () => this.check());
    document.getElementById('store-save').addEventListener('click', () => this.save());
    document.getElementById('seed-file').addEventListener('change', (event) => this.seed(event.target));
    this.json.addEventListener('input', () => this.syntax());
  }

  setResources(resources) {
    this.list.replaceChildren(...resources.map((resource) =>
      el('button', { type: 'button', 'data-resource': resource.name, onclick: () => this.show(resource.name) }, resource.name)));
    if (!this.current && resources.length) this.current = resources[0].name;
  }

  say(text, ok) {
    this.message.hidden = !text;
    this.message.textContent = text || '';
    this.message.className = 'message ' + (ok ? 'ok' : 'bad');
  }

  async show(name) {
    if (!name) return;
    this.current = name;
    for (const button of this.list.querySelectorAll('button')) {
      button.setAttribute('aria-current', button.dataset.resource === name ? 'true' : 'false');
    }
    this.title.textContent = name;
    this.closeEditor();
    const result = await get('/api/store/' + name);
    if (this.current !== name) return;
    if (!result.ok) {
      this.view.replaceChildren();
      this.say('Cannot read ' + name + ': ' + problem(result), false);
      return;
    }
    this.document = result.data;
    this.view.replaceChildren(renderResource(result.data));
  }

  edit() {
    this.say('');
    this.json.value = JSON.stringify(this.document || {}, null, 2);
    this.editor.hidden = false;
    this.view.hidden = true;
    this.syntax();
    this.json.focus();
  }

  closeEditor() {
    this.editor.hidden = true;
    this.view.hidden = false;
  }

  // JSON syntax, checked as the text changes; the schema is checked by the service's rules.
  syntax() {
    try {
      JSON.parse(this.json.value);
      this.json.classList.remove('invalid');
      this.state.textContent = 'JSON is well formed';
      return true;
    } catch (error) {
      this.json.classList.add('invalid');
      this.state.textContent = error.message;
      return false;
    }
  }

  async check() {
    if (!this.syntax()) return this.say('Not JSON: ' + this.state.textContent, false);
    const result = await post('/api/store/' + this.current + '/check', this.json.value);
    this.say(result.ok ? 'Valid ' + this.current + ': nothing was saved yet.' : problem(result), result.ok);
  }

  async save() {
    if (!this.syntax()) return this.say('Not JSON: ' + this.state.textContent, false);
    const result = await put('/api/store/' + this.current, this.json.value);
    if (!result.ok) return this.say('Not saved: ' + problem(result), false);
    const name = this.current;
    await this.show(name);
    this.say('Saved ' + name + '; vellmarkd told its clients.', true);
  }

  async seed(input) {
    const file = input.files && input.files[0];
    input.value = '';
    if (!file) return;
    if (!confirm('Seeding replaces the whole store with ' + file.name + '. Go on?')) return;
    const result = await post('/api/seed', await file.text());
    if (!result.ok) return this.say('Not seeded: ' + problem(result), false);
    await this.show(this.current);
    this.say('Store seeded from ' + file.name + '.', true);
  }
}
