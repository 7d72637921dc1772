// Calls of the console's own API. The token travels in the cookie the first visit set,
// so nothing here handles it.

// What the server answered: {ok, status, data} with data parsed from JSON when it is JSON.
async function call(method, path, body) {
  const init = { method, credentials: 'same-origin', headers: {} };
  if (body !== undefined) {
    init.body = typeof body === 'string' ? body : JSON.stringify(body);
    init.headers['Content-Type'] = 'application/json';
  }
  let response;
  try {
    response = await fetch(path, init);
  } catch (error) {
    return { ok: false, status: 0, data: { error: 'the console does not answer: ' + error.message } };
  }
  const text = await response.text();
  let data = text;
  try { data = JSON.parse(text); } catch { /* not JSON: kept as text */ }
  return { ok: response.ok, status: response.status, data };
}

export const get = (path) => call('GET', path);
export const post = (path, body) => call('POST', path, body);
export const put = (path, body) => call('PUT', path, body);

// The error text of a failed call.
export function problem(result) {
  if (result.data && typeof result.data === 'object' && result.data.error) return result.data.error;
  if (typeof result.data === 'string' && result.data) return result.data;
  return 'HTTP ' + result.status;
}

// Saves what a POST of `body` to `path` answers as a file called `name`.
export async function download(path, body, name) {
  const response = await fetch(path, {
    method: 'POST', credentials: 'same-origin', body,
    headers: { 'Content-Type': 'application/json' },
  });
  if (!response.ok) {
    const text = await response.text();
    let why = text;
    try { why = JSON.parse(text).error; } catch { /* text as it is */ }
    throw new Error(why || 'HTTP ' + response.status);
  }
  const url = URL.createObjectURL(await response.blob());
  const link = document.createElement('a');
  link.href = url;
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(url), 10000);
}

// A short name for a message identifier: VELLMARK_MESSAGE_GET_SOURCES -> GET_SOURCES.
export const shortName = (name) => (name || '').replace(/^VELLMARK_MESSAGE_/, '');

// Creates an element: el('td', {class: 'num'}, 'text', child...).
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key === 'class') node.className = value;
    else if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
    else node.setAttribute(key, value === true ? '' : value);
  }
  for (const child of children.flat(Infinity)) {
    if (child === undefined || child === null) continue;
    node.append(child instanceof Node ? child : String(child));
  }
  return node;
}
