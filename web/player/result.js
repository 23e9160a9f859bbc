// A result that can be corrected: the tool's JSON, what was changed by hand, undo and redo. What was changed stays in the
// browser: a reload loses nothing.
"use strict";

const PARLEY_SHORTEST = 0.05; // seconds: of a segment, when borders move

class ParleyResult {
  #past = [];
  #future = [];
  #listeners = new Set();
  #key;

  // data: what `--format json` writes, and maybe `words`: [{start, end, text, speaker}].
  constructor(data) {
    this.data = data;
    this.original = { names: data.speakers.map((s) => s.name), segments: data.segments };
    this.state = this.original;
    let hash = 0;
    for (const c of JSON.stringify([this.original.names, data.segments])) hash = (31 * hash + c.codePointAt(0)) | 0;
    this.#key = `parley:${data.recording}:${data.duration}:${hash}`;
    try {
      const kept = JSON.parse(localStorage.getItem(this.#key));
      if (kept) this.#past.push(this.original), (this.state = kept);
    } catch {
      // a browser that keeps nothing
    }
  }

  get names() { return this.state.names; }
  get segments() { return this.state.segments; }
  get isChanged() { return this.state !== this.original; }
  get canUndo() { return this.#past.length > 0; }
  get canRedo() { return this.#future.length > 0; }

  onChange(listener) { this.#listeners.add(listener); }

  // [{name, seconds, ...}] in order of appearance.
  get speakers() {
    if (!this.isChanged) return this.data.speakers;
    const seconds = new Map(this.names.map((name) => [name, 0]));
    for (const s of this.segments) seconds.set(s.speaker, seconds.get(s.speaker) + s.end - s.start);
    const known = new Map(this.data.speakers.map((s) => [s.name, s]));
    return this.names.map((name) => ({ ...known.get(name), name, seconds: Math.round(seconds.get(name) * 1000) / 1000 }));
  }

  // Who speaks at a time, the indices of their segments.
  at(seconds) {
    const found = [];
    const { segments } = this;
    for (let i = parleyFirst(segments, (s) => s.start > seconds) - 1; i >= 0 && i >= this.#reach(seconds); i--)
      if (segments[i].end > seconds) found.unshift(i);
    return found;
  }

  // The first segment that may still go on at a time: of all that begin before it, none before this one lasts that long.
  #reach(seconds) {
    if (this.#ends?.of !== this.segments) {
      let latest = 0;
      this.#ends = { of: this.segments, latest: this.segments.map((s) => (latest = Math.max(latest, s.end))) };
    }
    return parleyFirst(this.#ends.latest, (end) => end > seconds);
  }
  #ends;

  // ---- Changes

  #become(state) {
    const spoken = new Set(state.segments.map((s) => s.speaker));
    this.#past.push(this.state);
    this.#future = [];
    this.#set({ names: state.names.filter((name) => spoken.has(name)),
                segments: [...state.segments].sort((a, b) => a.start - b.start) });
  }

  #set(state) {
    this.state = state;
    try {
      if (this.isChanged) localStorage.setItem(this.#key, JSON.stringify(state));
      else localStorage.removeItem(this.#key);
    } catch {
      // no room, or not allowed
    }
    for (const listener of this.#listeners) listener();
  }

  #replace(index, ...segments) {
    return { names: this.names, segments: [...this.segments.slice(0, index), ...segments, ...this.segments.slice(index + 1)] };
  }

  undo() {
    if (!this.canUndo) return;
    this.#future.push(this.state);
    this.#set(this.#past.pop());
  }

  redo() {
    if (!this.canRedo) return;
    this.#past.push(this.state);
    this.#set(this.#future.pop());
  }

  discard() {
    this.#past = [];
    this.#future = [];
    this.#set(this.original);
  }

  // A speaker who is named like another becomes that one.
  rename(from, to) {
    to = to.trim();
    if (!to || to === from || !this.names.includes(from)) return;
    const names = this.names.includes(to) ? this.names : this.names.map((name) => (name === from ? to : name));
    this.#become({ names, segments: this.segments.map((s) => (s.speaker === from ? { ...s, speaker: to, edited: true } : s)) });
  }

  assign(index, name) {
    name = name.trim();
    const segment = this.segments[index];
    if (!name || segment.speaker === name) return;
    const state = this.#replace(index, { ...segment, speaker: name, edited: true });
    this.#become({ ...state, names: this.names.includes(name) ? this.names : [...this.names, name] });
  }

  // False where there is not enough of it on either side.
  split(index, seconds) {
    const segment = this.segments[index], at = parleyMilliseconds(seconds);
    if (at - segment.start < PARLEY_SHORTEST || segment.end - at < PARLEY_SHORTEST) return false;
    this.#become(this.#replace(index, { ...segment, end: at, edited: true }, { ...segment, start: at, edited: true }));
    return true;
  }

  // Where a border of a segment would come to lie: inside of the recording, not over another segment of the same speaker.
  border(index, side, seconds) {
    const segment = this.segments[index];
    const own = this.segments.filter((s) => s.speaker === segment.speaker && s !== segment);
    const before = Math.max(0, ...own.filter((s) => s.end <= segment.start).map((s) => s.end));
    const after = Math.min(this.data.duration, ...own.filter((s) => s.start >= segment.end).map((s) => s.start));
    const [least, most] = side === "start" ? [before, segment.end - PARLEY_SHORTEST] : [segment.start + PARLEY_SHORTEST, after];
    return parleyMilliseconds(Math.min(Math.max(seconds, least), most));
  }

  move(index, side, seconds) {
    const segment = this.segments[index], to = this.border(index, side, seconds);
    if (segment[side] !== to) this.#become(this.#replace(index, { ...segment, [side]: to, edited: true }));
  }

  remove(index) {
    this.#become(this.#replace(index));
  }

  comment(index, text) {
    const { comment, ...segment } = this.segments[index];
    if ((comment ?? "") === text.trim()) return;
    this.#become(this.#replace(index, text.trim() ? { ...segment, edited: true, comment: text.trim() } : segment));
  }
}

function parleyMilliseconds(seconds) {
  return Math.round(seconds * 1000) / 1000;
}

// The first index for which `test` holds, in a list in which it goes on holding; the length if there is none.
function parleyFirst(list, test) {
  let from = 0, to = list.length;
  while (from < to) {
    const middle = (from + to) >> 1;
    if (test(list[middle])) to = middle;
    else from = middle + 1;
  }
  return from;
}
