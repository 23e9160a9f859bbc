// SPDX-License-Identifier: Apache-2.0
// A result that can be corrected: the tool's JSON, what a person did to it, undo and redo. The history stays in the browser, where every
// window of this result goes on with it: a reload loses nothing, and neither does a second window.
"use strict";

class ParleyResult {
  #states; // the original and what each step made of it
  #steps = []; // [name of an edit, ...its arguments]
  #done = 0; // of the steps, those that were not undone
  #listeners = new Set();
  #key;
  #stored = null; // as it was last read or written
  #saved = 0; // steps in the file that was saved last

  // data: what `--format json` writes; maybe `words`: [{start, end, text, speaker}].
  constructor(data) {
    this.data = data;
    this.original = { names: data.speakers.map((s) => s.name), segments: data.segments, words: data.words ?? [] };
    this.#states = [this.original];
    let hash = 0;
    for (const c of JSON.stringify([this.original.names, data.segments])) hash = (31 * hash + c.codePointAt(0)) | 0;
    this.#key = `parley:${data.recording}:${data.duration}:${hash}`;
    this.isKept = true; // by the browser
    this.#takeView();
    this.#take();
  }

  // From then on `listener` is called after every change; of what another window has changed, too.
  onChange(listener) {
    if (!this.#listeners.size) addEventListener("storage", this.#onStorage);
    this.#listeners.add(listener);
  }
  #onStorage = ({ key }) => {
    if (key === this.#key + ":view") this.#takeView();
    if (key === this.#key + ":view" || ((key === this.#key || key === null) && this.#take())) this.#emit();
  };

  close() {
    removeEventListener("storage", this.#onStorage);
  }

  // ---- How it is shown: colours of one's choice and who is hidden, which change nothing of the result

  #view = { colors: {}, hidden: [] };

  #takeView() {
    try {
      this.#view = { ...this.#view, ...JSON.parse(localStorage.getItem(this.#key + ":view") ?? "{}") };
    } catch {
      // a browser that keeps nothing, or what is no view
    }
  }

  #showAs(view) {
    this.#view = { ...this.#view, ...view };
    try {
      localStorage.setItem(this.#key + ":view", JSON.stringify(this.#view));
    } catch {
      // it lasts as long as the page then
    }
    this.#emit();
  }

  colorOf(name) { return this.#view.colors[name] ?? PARLEY_COLORS[Math.max(0, this.names.indexOf(name)) % PARLEY_COLORS.length]; }
  paint(name, color) { this.#showAs({ colors: { ...this.#view.colors, [name]: color } }); }
  isHidden(name) { return this.#view.hidden.includes(name); }
  hide(name, hides) { this.#showAs({ hidden: [...this.#view.hidden.filter((n) => n !== name), ...(hides ? [name] : [])] }); }

  // Names and the indices of segments that are not hidden.
  get shownNames() { return this.names.filter((name) => !this.isHidden(name)); }
  get shown() { return this.segments.map((_, i) => i).filter((i) => !this.isHidden(this.segments[i].speaker)); }

  get state() { return this.#states[this.#done]; }
  get names() { return this.state.names; }
  get segments() { return this.state.segments; }
  get words() { return this.state.words; }
  get isChanged() { return this.#done > 0; }
  get canUndo() { return this.#done > 0; }
  get canRedo() { return this.#done < this.#steps.length; }
  // Whether leaving the page would lose something.
  get isAtRisk() { return !this.isKept && this.#done !== this.#saved; }

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

  // ---- The history

  // Goes on with what the browser keeps. False if it is what this window knows.
  #take() {
    let stored;
    try {
      stored = localStorage.getItem(this.#key);
    } catch {
      return false; // a browser that keeps nothing
    }
    if (stored === this.#stored) return false;
    this.#stored = stored;
    if (stored === null) return false; // taken away by somebody: this window still has it
    const { steps, done } = this.#read(stored);
    let same = 0; // what this window has made already
    while (same < steps.length && JSON.stringify(steps[same]) === JSON.stringify(this.#steps[same])) same++;
    this.#states.length = same + 1;
    for (const [name, ...rest] of steps.slice(same))
      this.#states.push(PARLEY_EDITS[name]?.(this.#states.at(-1), ...rest) ?? this.#states.at(-1));
    this.#steps = steps;
    this.#done = Math.min(done, steps.length);
    return true;
  }

  // Earlier versions kept a state; what cannot be read is no history.
  #read(stored) {
    try {
      const kept = JSON.parse(stored);
      if (Array.isArray(kept.steps)) return kept;
      return { steps: [["become", { words: this.original.words, ...kept }]], done: 1 };
    } catch {
      return { steps: [], done: 0 };
    }
  }

  #keep() {
    const text = this.#steps.length ? JSON.stringify({ steps: this.#steps, done: this.#done }) : null;
    try {
      if (text) localStorage.setItem(this.#key, text);
      else localStorage.removeItem(this.#key);
      this.isKept = localStorage.getItem(this.#key) === text;
      this.#stored = text;
    } catch {
      this.isKept = false; // no room, or not allowed
    }
    this.#emit();
  }

  #emit() {
    for (const listener of this.#listeners) listener();
  }

  // Makes a step, one of PARLEY_EDITS. False if it changes nothing.
  change(name, ...rest) {
    this.#take(); // another window may have told of it too late
    const next = PARLEY_EDITS[name](this.state, ...rest);
    if (!next) return false;
    this.#steps = [...this.#steps.slice(0, this.#done), [name, ...rest]];
    this.#states = [...this.#states.slice(0, ++this.#done), next];
    this.#keep();
    return true;
  }

  undo() {
    this.#take();
    if (!this.canUndo) return;
    this.#done--;
    this.#keep();
  }

  redo() {
    this.#take();
    if (!this.canRedo) return;
    this.#done++;
    this.#keep();
  }

  // Back to what was found; redo takes it back.
  discard() {
    this.#done = 0;
    this.#keep();
  }

  // A file holds it all now.
  saved() {
    this.#saved = this.#done;
  }

  // Who has a colour of one's choice keeps it.
  rename(from, to) {
    const color = this.#view.colors[from], name = to.trim(), isNew = !this.names.includes(name);
    const renames = this.change("rename", from, name);
    if (renames && color && isNew) this.paint(name, color);
    return renames;
  }
  assign(indices, name) { return this.change("assign", [indices].flat(), name.trim()); }
  split(index, seconds) { return this.change("split", index, parleyMilliseconds(seconds)); }
  remove(indices) { return this.change("remove", [indices].flat()); }
  comment(index, text) { return this.change("comment", index, text.trim()); }

  // Between which times a border of a segment can lie: inside of the recording, not over another segment of the same speaker.
  limits(index, side) {
    const segment = this.segments[index];
    const own = this.segments.filter((s) => s.speaker === segment.speaker && s !== segment);
    const before = Math.max(0, ...own.filter((s) => s.end <= segment.start).map((s) => s.end));
    const after = Math.min(this.data.duration, ...own.filter((s) => s.start >= segment.end).map((s) => s.start));
    return side === "start" ? [before, segment.end - PARLEY_SHORTEST] : [segment.start + PARLEY_SHORTEST, after];
  }

  // Where it would come to lie.
  border(index, side, seconds) {
    const [least, most] = this.limits(index, side);
    return parleyMilliseconds(Math.min(Math.max(seconds, least), most));
  }

  move(index, side, seconds) { return this.change("move", index, side, this.border(index, side, seconds)); }

  add(start, end, name) {
    const { duration } = this.data;
    return this.change("add", parleyMilliseconds(Math.max(0, start)), parleyMilliseconds(Math.min(end, duration)), name.trim());
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

// "1:02:03.5", "2:03,25", "7": seconds, or NaN for anything else.
function parleySeconds(text) {
  const parts = text.trim().replace(",", ".").split(":");
  const fits = parts.length <= 3 && parts.every((part, i) => /^\d+(\.\d*)?$/.test(part) && (i === parts.length - 1 || !part.includes(".")));
  return fits ? parts.reduce((sum, part) => 60 * sum + Number(part), 0) : NaN;
}
