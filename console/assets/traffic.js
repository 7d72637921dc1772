// The traffic as the diagram draws it: every frame the console streams, paired (a request
// with its response, an update with its acknowledgement, a request with the error
// notification that fails it), filtered and paused as the page asks. Frames beyond what
// the page keeps are let go, oldest first.

const KEPT = 4000;        // frames the page keeps
const HELD = 4000;        // frames held while paused; more are let go and counted
const ACK_ID = 13;        // VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED

// Microseconds since 1970 from an RFC 3339 time with microseconds.
function micros(time) {
  const match = /^(.*T\d\d:\d\d:\d\d)(?:\.(\d+))?Z$/.exec(time || '');
  if (!match) return Date.now() * 1000;
  const fraction = (match[2] || '0').padEnd(6, '0').slice(0, 6);
  return Date.parse(match[1] + 'Z') * 1000 + Number(fraction);
}

// The error a frame carries, as text, or null.
function errorOf(frame, messages) {
  const payload = frame.payload;
  if (frame.payloadType === 'Error' && payload && typeof payload === 'object') {
    return describeError(payload);
  }
  const info = messages.get(frame.messageId);
  if (info && info.role === 'error notification') {
    return payload && typeof payload === 'object' ? describeError(payload) : 'error';
  }
  if (payload && typeof payload === 'object') {
    if (payload.error) return describeError(payload.error);
    if (payload.success === false) return 'failed';
  }
  return null;
}

function describeError(error) {
  const parts = [];
  if (error.code !== undefined) parts.push('code ' + error.code);
  if (error.subcode !== undefined) parts.push('subcode ' + error.subcode);
  const head = parts.join(', ');
  return error.message ? (head ? head + ': ' : '') + error.message : head || 'error';
}

export class Traffic {
  constructor(onChange) {
    this.onChange = onChange;
    this.frames = [];
    this.held = [];
    this.letGo = 0;
    this.paused = false;
    this.filter = { session: '', messageId: '', errorsOnly: false };
    this.messages = new Map();   // id -> row of the message table
    this.pendingRequests = new Map();  // "session:number" -> request
    this.pendingUpdates = new Map();   // "session:id" -> [notification, ...]
    this.received = 0;
  }

  setMessages(rows) {
    this.messages = new Map(rows.map((row) => [row.id, row]));
  }

  // Frames from the stream, in the order the service saw them.
  add(frames) {
    this.received += frames.length;
    for (const frame of frames) this.prepare(frame);
    if (this.paused) {
      this.held.push(...frames);
      if (this.held.length > HELD) {
        this.letGo += this.held.length - HELD;
        this.held.splice(0, this.held.length - HELD);
      }
    } else {
      this.keep(frames);
    }
    this.onChange();
  }

  keep(frames) {
    this.frames.push(...frames);
    if (this.frames.length > KEPT) this.frames.splice(0, this.frames.length - KEPT);
  }

  // Pairs `frame` with what it answers.
  prepare(frame) {
    frame.at = micros(frame.time);
    frame.error = errorOf(frame, this.messages);
    const info = this.messages.get(frame.messageId);
    if (frame.kind === 'request') {
      frame.role = 'request';
      this.pendingRequests.set(frame.session + ':' + frame.requestNumber, frame);
    } else if (frame.kind === 'response') {
      frame.role = 'response';
      const key = frame.session + ':' + frame.requestNumber;
      const request = this.pendingRequests.get(key);
      if (request) {
        this.pendingRequests.delete(key);
        this.link(request, frame);
        if (frame.error) request.failed = frame.error;
      }
    } else if (frame.kind === 'notification' && info && info.role === 'error notification') {
      frame.role = 'notification';
      // The oldest open request of this client whose failures come back under this identifier.
      for (const [key, request] of this.pendingRequests) {
        const asked = this.messages.get(request.messageId);
        if (request.session === frame.session && asked && asked.errorId === frame.messageId) {
          this.pendingRequests.delete(key);
          this.link(request, frame);
          request.failed = frame.error || 'error';
          break;
        }
      }
    } else if (frame.kind === 'notification') {
      frame.role = 'notification';
      const key = frame.session + ':' + frame.messageId;
      if (!this.pendingUpdates.has(key)) this.pendingUpdates.set(key, []);
      const queue = this.pendingUpdates.get(key);
      queue.push(frame);
      if (queue.length > 256) queue.shift();
    } else if (frame.kind === 'one-way' && frame.messageId === ACK_ID) {
      frame.role = 'ack';
      const acked = frame.payload && frame.payload.messageId;
      const id = typeof acked === 'number' ? acked : this.idOfName(acked);
      frame.ackOf = id;
      const queue = this.pendingUpdates.get(frame.session + ':' + id);
      if (queue && queue.length) this.link(queue.shift(), frame);
    } else {
      frame.role = 'oneway';
    }
  }

  idOfName(name) {
    for (const [id, row] of this.messages) if (row.name === name) return id;
    return undefined;
  }

  link(first, second) {
    first.pair = second;
    second.pair = first;
    second.took = (second.at - first.at) / 1000;
  }

  setPaused(paused) {
    this.paused = paused;
    if (!paused && this.held.length) {
      this.keep(this.held);
      this.held = [];
    }
    this.onChange();
  }

  clear() {
    this.frames = [];
    this.held = [];
    this.onChange();
  }

  setFilter(filter) {
    Object.assign(this.filter, filter);
    this.onChange();
  }

  matches(frame) {
    const { session, messageId, errorsOnly } = this.filter;
    if (session !== '' && String(frame.session) !== session) return false;
    if (messageId !== '') {
      const id = Number(messageId);
      if (frame.messageId !== id && frame.ackOf !== id) return false;
    }
    if (errorsOnly && !frame.error && !frame.failed) return false;
    return true;
  }

  // The frames the diagram shows, oldest first, at most `limit`.
  visible(limit) {
    const shown = [];
    for (let i = this.frames.length - 1; i >= 0 && shown.length < limit; --i) {
      if (this.matches(this.frames[i])) shown.push(this.frames[i]);
    }
    return shown.reverse();
  }
}
