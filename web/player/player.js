// SPDX-License-Identifier: Apache-2.0
// The player: who spoke when over time, shares of talk time, the list of segments, and tools to correct them; all follow one
// <audio>. Used by the page that `parley --format html` writes and by the page in the browser.
"use strict";

function parleyButton(text, action, className) {
  const button = parleyElement("button", className, text);
  button.type = "button";
  button.addEventListener("click", action);
  return button;
}

function parleySelect(label, options) {
  const select = parleyElement("select");
  select.setAttribute("aria-label", label);
  select.append(...options.map(([value, text]) => new Option(text, value)));
  return select;
}

// Calls `take` when something is chosen: by a pointer at once, with the keyboard once Enter is pressed, not on every arrow, and if `atLeaving`
// when the field is left.
function parleyOnChoice(select, take, atLeaving = false) {
  let byKeys = false;
  const done = () => {
    byKeys = false;
    take();
  };
  select.addEventListener("keydown", ({ key }) => {
    byKeys = true;
    if (key === "Enter") done();
  });
  select.addEventListener("pointerdown", () => { byKeys = false; });
  select.addEventListener("change", () => byKeys || done());
  if (atLeaving) select.addEventListener("blur", () => byKeys && select.isConnected && done());
}

function parleySave(name, type, content) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([content], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

// Fills `root`. data: what `--format json` writes, and `waveform`: peaks from 0 to 1 over the whole duration; `media`: {url, type,
// beside}; maybe `words`. audio: an <audio> element, or null when there is nothing to play; `why` says then, why.
function parleyPlayer(root, data, audio, why = "") {
  const player = new ParleyPlayer(root, data, audio, why);
  return {
    seek: (seconds, listen) => player.seek(seconds, listen), result: player.result, timeline: player.timeline,
    write: (name) => player.changes.write(name), open: (file) => player.changes.open(file), close: () => player.close(),
  };
}

class ParleyPlayer {
  #root;
  #audio;
  #duration;
  #position = 0;
  #chosen = []; // segments, the last one is shown
  #last; // the segment that was revealed last while playing
  #marked; // seconds at which a new segment begins

  constructor(root, data, audio, why) {
    this.#root = root;
    this.#audio = audio;
    this.#duration = Math.max(data.duration, 0.001);
    this.result = new ParleyResult(data);
    this.#build(data, why);
    this.result.onChange(() => this.#update());
    if (audio) this.#follow();
    document.addEventListener("keydown", this.#keys);
    this.#update();
  }

  close() {
    document.removeEventListener("keydown", this.#keys);
    this.list.close();
    this.changes.close();
    this.result.close();
  }

  // ---- What there is

  #build(data, why) {
    const { result } = this;
    this.#root.replaceChildren();
    this.#root.classList.add("parley");
    this.about = parleyElement("p", "about");
    this.silence = parleyElement("p", "why", why);
    this.silence.hidden = !why;
    this.silence.setAttribute("role", "status");
    this.spoken = parleyElement("p", "unseen"); // what has changed, for screen readers
    this.spoken.setAttribute("aria-live", "polite");
    this.timeline = new ParleyTimeline(result, {
      seek: (seconds, listen) => this.seek(seconds, listen), select: (index) => this.select(index < 0 ? [] : [index]),
      add: (start, end, name) => result.add(start, end, name),
    });
    this.tools = new ParleyTools(result, { split: () => this.#split(), join: () => this.#join(), remove: () => this.#remove(), say: (text) => this.say(text) });
    this.changes = new ParleyChanges(result, (text) => this.say(text));
    this.people = new ParleyPeople(result);
    this.stage = parleyElement("section", "stage");
    this.stage.setAttribute("aria-label", "Player");
    this.stage.append(this.#controls(), this.silence, this.timeline.element, this.tools.element);
    const help = parleyElement("details", "hint");
    help.append(parleyElement("summary", "", "Keys"), parleyKeys(this.#audio !== null, result.original.words.length > 0));
    this.help = help;
    new ResizeObserver(() => this.#root.style.setProperty("--stage", this.stage.offsetHeight + "px")).observe(this.stage);
    this.#root.append(parleyElement("h1", "", data.recording), this.about, this.stage, this.changes.element, this.people.element, this.#lists(), help, this.spoken);
  }

  #controls() {
    const controls = parleyElement("div", "controls");
    this.play = parleyButton("Play", () => this.#toggle(), "play");
    this.clock = parleyElement("span", "clock");
    this.speaking = parleyElement("span", "speaking");
    const more = parleyElement("details", "playing");
    more.append(parleyElement("summary", "", "More"));
    const box = (label, checked) => {
      const line = parleyElement("label", "follow");
      const input = Object.assign(parleyElement("input"), { type: "checkbox", checked });
      line.append(input, " " + label);
      more.append(line);
      return input;
    };
    const zoom = (text, label, action) => {
      const button = parleyButton(text, action);
      button.setAttribute("aria-label", label);
      button.title = label;
      return button;
    };
    const zooms = parleyElement("span", "zooms");
    zooms.append(zoom("−", "Zoom out", () => this.timeline.zoom(1 / 2, this.#position)), zoom("+", "Zoom in", () => this.timeline.zoom(2, this.#position)),
      zoom("All", "All of the recording", () => this.timeline.show(0, this.#duration)));
    this.speed = parleySelect("Speed", [0.5, 0.75, 1, 1.25, 1.5, 2, 3].map((speed) => [speed, speed + "×"]));
    this.speed.value = "1";
    this.speed.addEventListener("change", () => this.#pace());
    this.play.hidden = this.speed.hidden = more.hidden = !this.#audio;
    controls.append(this.play, this.clock, this.speaking, zooms, this.speed, more);
    this.skip = box("Skip silence", false);
    this.loop = box("Repeat the segment", false);
    this.back = box("Two seconds back on pause", false);
    this.follow = box("Follow", true);
    const volume = parleyElement("label", "follow", "Volume ");
    this.volume = Object.assign(parleyElement("input"), { type: "range", min: 0, max: 1, step: 0.1, value: 1 });
    this.volume.addEventListener("input", () => this.#louder(0));
    volume.append(this.volume);
    more.append(volume);
    return controls;
  }

  #lists() {
    this.list = new ParleyList(this.result, { choose: (index, listen, more) => this.#choose(index, listen, more) });
    this.transcript = this.result.original.words.length ? new ParleyTranscript(this.result, { seek: (seconds, listen) => this.seek(seconds, listen) }) : null;
    const lists = parleyElement("section", "lists");
    lists.setAttribute("aria-label", this.transcript ? "Transcript and segments" : "Segments");
    if (!this.transcript) {
      lists.append(parleyElement("h2", "", "Segments"), this.list.element);
      return lists;
    }
    const tabs = parleyElement("div", "tabs");
    const show = (words) => {
      this.transcript.element.hidden = !words;
      this.list.element.hidden = words;
      [...tabs.children].forEach((tab, i) => tab.setAttribute("aria-pressed", (i === 0) === words));
      this.list.render();
    };
    tabs.append(parleyButton("Transcript", () => show(true)), parleyButton("Segments", () => show(false)));
    lists.append(tabs, this.transcript.element, this.list.element);
    show(true);
    return lists;
  }

  #update() {
    const { result } = this, count = result.names.length, { duration, note } = result.data;
    this.about.textContent = `${parleyClock(duration)}, ${count} speaker${count === 1 ? "" : "s"}${note ? ". " + note : ""}`;
    this.#chosen = this.#chosen.filter((i) => i < result.segments.length);
    const focused = document.activeElement?.closest?.(".row")?.dataset.index;
    this.timeline.update();
    this.timeline.select(this.#chosen.at(-1) ?? -1);
    this.list.update(this.timeline.color);
    this.transcript?.update(this.timeline.color);
    this.people.update(this.timeline.color);
    this.tools.show(this.#chosen);
    this.changes.update();
    this.#show(this.#position);
    if (focused !== undefined) this.list.focus(Math.min(Number(focused), result.segments.length - 1));
  }

  say(text) {
    this.silence.textContent = text;
    this.silence.hidden = !text;
  }

  // ---- Correcting

  select(indices) {
    this.#chosen = indices;
    this.timeline.select(indices.at(-1) ?? -1);
    this.list.show(this.result.at(this.#position), indices);
    this.tools.show(indices);
  }

  // A correction, told to those who do not see it.
  #announce(done, text) {
    if (done) this.spoken.textContent = text;
    return done;
  }

  #split() {
    const { result } = this, chosen = this.#chosen.at(-1), within = result.segments[chosen];
    const index = within && within.start < this.#position && this.#position < within.end ? chosen : result.at(this.#position)[0];
    if (index === undefined || !this.#announce(result.split(index, this.#position), `Split at ${parleyClock(this.#position, 1)}.`))
      this.say("Move to where the segment is to be split.");
    else this.say("");
  }

  #join() {
    const [first] = this.#chosen;
    const indices = this.#chosen.length > 1 ? this.#chosen : [first, first + 1];
    if (first === undefined || !this.#announce(this.result.change("join", indices), "Joined.")) return;
    this.select([Math.min(...indices)]);
  }

  #remove() {
    if (!this.#chosen.length) return;
    const [first] = this.#chosen, indices = this.#chosen;
    this.#chosen = [];
    if (this.#announce(this.result.remove(indices), `Deleted ${indices.length}.`) && document.activeElement === document.body) this.list.focus(Math.max(0, first - 1));
  }

  // To the number of a speaker goes what is chosen, or else what plays.
  #give(number) {
    const name = this.result.names[number], indices = this.#chosen.length ? this.#chosen : this.result.at(this.#position).slice(0, 1);
    if (name && this.#announce(this.result.assign(indices, name), `Now ${name}.`)) this.select(indices);
  }

  // From one press of its key to the next somebody speaks: whoever was chosen last, or the first.
  #mark() {
    if (this.#marked === undefined) {
      this.#marked = this.#position;
      this.say(`A segment begins at ${parleyClock(this.#position, 1)}; the key again ends it.`);
      return;
    }
    const [start, end] = [this.#marked, this.#position].sort((a, b) => a - b);
    this.#marked = undefined;
    const name = this.result.segments[this.#chosen.at(-1)]?.speaker ?? this.result.names[0] ?? "speaker 1";
    if (!this.#announce(this.result.add(start, end, name), `Added for ${name}.`)) return this.say("A segment takes some time: move on before it ends.");
    this.say("");
    this.select([this.result.segments.findIndex((s) => s.start === parleyMilliseconds(start) && s.speaker === name)]);
  }

  // ---- Playing

  #show(seconds, plays = false) {
    const { result } = this;
    this.#position = Math.min(Math.max(seconds, 0), this.#duration);
    const now = result.at(this.#position), at = parleyClock(this.#position, 1);
    const names = now.map((i) => result.segments[i].speaker).join(", ");
    this.clock.textContent = at + " / " + parleyClock(this.#duration, 1);
    if (this.speaking.textContent !== names) this.speaking.textContent = names;
    this.speaking.style.setProperty("--dot", now.length ? this.timeline.color.get(result.segments[now[0]].speaker) : "transparent");
    this.timeline.place(this.#position, `${at} of ${parleyClock(this.#duration, 1)}${names ? ", " + names : ""}`);
    this.list.show(now, this.#chosen);
    const moved = this.transcript?.show(this.#position);
    if (!plays) return;
    this.#guide(now);
    if (!this.follow.checked) return;
    this.timeline.reveal(this.#position, true);
    const covered = this.stage.getBoundingClientRect().bottom;
    if (this.transcript && !this.transcript.element.hidden) {
      if (moved) this.transcript.reveal(covered);
    } else if (now.length && now[0] !== this.#last) {
      this.list.reveal(now[0], covered);
    }
    this.#last = now[0];
  }

  // Where the sound goes on: to the beginning of a segment that is repeated, to the next one over a silence.
  #guide(now) {
    const { segments } = this.result, chosen = segments[this.#chosen.at(-1)];
    if (this.loop.checked && chosen) {
      if (this.#position < chosen.start - 0.2 || this.#position >= chosen.end) this.#audio.currentTime = chosen.start;
    } else if (this.skip.checked && !now.length) {
      const next = segments[parleyFirst(segments, (s) => s.start > this.#position)];
      if (next && next.start - this.#position > 0.5) this.#audio.currentTime = next.start - 0.2;
    }
  }

  seek(seconds, listen) {
    this.#show(seconds);
    this.timeline.reveal(this.#position);
    if (!this.#audio) return;
    this.#audio.currentTime = this.#position;
    if (listen) this.#start();
  }

  // `more`: beside those that are chosen.
  #choose(index, listen, more) {
    const others = this.#chosen.filter((i) => i !== index);
    this.select(more ? (others.length < this.#chosen.length ? others : [...others, index]) : [index]);
    if (more) return;
    this.list.reveal(index, this.stage.getBoundingClientRect().bottom);
    this.seek(this.result.segments[index].start, listen);
  }

  #start() {
    this.#audio.play().catch(() => {}); // interrupted by a pause; a file that cannot be played tells so itself
  }

  #toggle() {
    if (!this.#audio) return;
    if (this.#audio.paused) return this.#start();
    this.#audio.pause();
    if (this.back.checked) this.seek(this.#position - 2);
  }

  #pace(by = 0) {
    if (by) this.speed.selectedIndex = Math.min(Math.max(this.speed.selectedIndex + by, 0), this.speed.options.length - 1);
    if (this.#audio) this.#audio.playbackRate = Number(this.speed.value);
  }

  #louder(by) {
    this.volume.value = Number(this.volume.value) + by;
    if (this.#audio) this.#audio.volume = Number(this.volume.value);
  }

  #follow() {
    const audio = this.#audio;
    const tick = () => {
      this.#show(audio.currentTime, true);
      if (!audio.paused) requestAnimationFrame(tick);
    };
    audio.addEventListener("play", () => { this.play.textContent = "Pause"; tick(); });
    audio.addEventListener("pause", () => { this.play.textContent = "Play"; });
    audio.addEventListener("seeked", () => this.#show(audio.currentTime));
    audio.addEventListener("error", () =>
      this.say(`The sound cannot be played: the browser does not find ${audio.dataset.name ?? "it"} or does not know its format.`));
  }

  // ---- Keys

  // Of one segment to the next or back; what plays now counts as begun a second ago.
  #step(by) {
    const { segments } = this.result;
    const next = parleyFirst(segments, (s) => s.start > this.#position + 0.01);
    const index = by > 0 ? next : parleyFirst(segments, (s) => s.start >= this.#position - 1) - 1;
    if (segments[index]) this.#choose(index, false);
  }

  // To where a speaker speaks next.
  #visit(number) {
    const { segments, names } = this.result;
    const own = segments.map((_, i) => i).filter((i) => segments[i].speaker === names[number]);
    const next = own.find((i) => segments[i].start > this.#position + 0.01) ?? own[0];
    if (next !== undefined) this.#choose(next, true);
  }

  #actions = {
    " ": () => this.#toggle(),
    ArrowRight: () => this.seek(this.#position + 5),
    ArrowLeft: () => this.seek(this.#position - 5),
    ",": () => this.seek(this.#position - 2),
    ".": () => this.seek(this.#position + 2),
    "<": () => this.#pace(-1),
    ">": () => this.#pace(1),
    "[": () => this.#louder(-0.1),
    "]": () => this.#louder(0.1),
    k: () => { this.skip.checked = !this.skip.checked; },
    b: () => { this.back.checked = !this.back.checked; },
    l: () => { this.loop.checked = !this.loop.checked; },
    n: () => this.#step(1),
    p: () => this.#step(-1),
    "+": () => this.timeline.zoom(1.5, this.#position),
    "=": () => this.timeline.zoom(1.5, this.#position),
    "-": () => this.timeline.zoom(1 / 1.5, this.#position),
    0: () => this.timeline.show(0, this.#duration),
    a: () => this.#mark(),
    j: () => this.#join(),
    s: () => this.#split(),
    Enter: () => this.#split(),
    Delete: () => this.#remove(),
    Escape: () => { this.#marked = undefined; this.say(""); this.select([]); },
    "?": () => { this.help.open = !this.help.open; if (this.help.open) this.help.scrollIntoView({ block: "nearest" }); },
  };
  static SLIDES = { ArrowUp: 5, ArrowDown: -5, PageUp: 60, PageDown: -60, Home: -Infinity, End: Infinity };

  #actionOf({ key, code, target, ctrlKey, metaKey, shiftKey }) {
    const { result } = this;
    if (ctrlKey || metaKey) {
      if (key.toLowerCase() === "z") return () => (shiftKey ? result.redo() : result.undo());
      return { y: () => result.redo(), s: () => this.changes.saveAgain() }[key];
    }
    if ((key === " " || key === "Enter") && target.closest("button, summary, input")) return undefined; // which the browser presses
    if (target === this.timeline.slider && key in ParleyPlayer.SLIDES) return () => this.seek(Math.min(this.#position + ParleyPlayer.SLIDES[key], this.#duration));
    const digit = /^Digit([1-9])$/.exec(code)?.[1];
    if (digit) return () => (shiftKey ? this.#visit(digit - 1) : this.#give(digit - 1));
    return this.#actions[key];
  }

  #keys = (event) => {
    if (event.target.closest("input:not([type=checkbox]), textarea, select, [contenteditable]") || event.altKey) return;
    const action = this.#actionOf(event);
    if (!action) return;
    action();
    event.preventDefault();
  };
}

function parleyKeys(plays, hasWords) {
  const table = parleyElement("dl");
  const rows = [
    ...(plays ? [["space", "play, pause"], ["< >", "slower, faster"], ["[ ]", "softer, louder"], ["l", "repeat the chosen segment"], ["k", "skip silence"],
               ["b", "two seconds back on a pause"]] : []),
    ["← →", "5 s back, on; on the waveform ↑ ↓, page up, page down, home and end as well"], [", .", "2 s back, on"],
    ["n p", "next, previous segment; in the list ↑ ↓, space plays"], ["1 … 9", "give the chosen segments to a speaker"],
    ["shift 1 … 9", "a speaker's next segment"], ["a", "begin, end a new segment here; or drag over a lane with shift"], ["s enter", "split the segment here"],
    ["j", "join the chosen segments, or one with the next"], ["delete", "remove the chosen segments"],
    ["ctrl click", "choose one more"], ["ctrl z, ctrl y", "undo, redo"], ["ctrl s", "save, into the same file again where the browser can"], ["+ − 0", "zoom in, out, show all; so does the wheel with ctrl"], ["?", "this list"],
    ...(hasWords ? [["double click", "correct a word; there, shift enter begins a paragraph before it, backspace at its beginning joins it with the one before"]] : []),
  ];
  for (const [keys, what] of rows) {
    const term = parleyElement("dt");
    for (const key of keys.split(" ")) term.append(parleyElement("kbd", "", key), " ");
    table.append(term, parleyElement("dd", "", what));
  }
  return table;
}
