// SPDX-License-Identifier: Apache-2.0
// The recording over time: an overview of all of it, and of the part in view an axis, the waveform and a lane a speaker.
// Only what is in view is drawn, and playing moves nothing but the cursors.
"use strict";

// Told apart by people with any kind of colour vision; none comes twice before the 17th speaker.
const PARLEY_COLORS = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00", "#9a8f00", "#7a7a7a",
                       "#004c76", "#a06800", "#00573f", "#8a3d67", "#1f7fae", "#8f3b00", "#5c5600", "#454545"];
const PARLEY_STEPS = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200]; // seconds between ticks

function parleyClock(seconds, digits = 0) {
  const scale = 10 ** digits;
  const whole = Math.round(Math.max(0, seconds) * scale) / scale;
  const h = Math.floor(whole / 3600), m = Math.floor(whole / 60) % 60, s = (whole % 60).toFixed(digits);
  const pad = (text, to) => String(text).padStart(to, "0");
  return (h ? h + ":" + pad(m, 2) : m) + ":" + pad(s, digits ? digits + 3 : 2);
}

function parleyElement(name, className, text) {
  const element = document.createElement(name);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

// A name of which, where it is cut off, the number at its end stays in sight.
function parleyName(name) {
  const [, head, number] = /^(.*?)(\s*\d*)$/s.exec(name);
  const whole = parleyElement("span", "cut");
  whole.append(parleyElement("span", "", head), parleyElement("span", "", number));
  return whole;
}

class ParleyTimeline {
  static AXIS = 22; // pixels
  static WAVE = 56;
  static LANE = 26;
  static GRIP = 7; // from a border that can be dragged

  #result;
  #on;
  #from = 0;
  #to;
  #lanes = new Map(); // name: its segments with their indices, by start
  #selected = -1;
  #dragged = null; // {index, side, to}
  #drawn = null; // a segment that is being added: {name, from, to}
  #pointers = new Map();
  #gesture = null;
  #due = false;

  // on: {seek(seconds, listen), select(index)}, and where segments can be added {add(start, end, name)}
  constructor(result, on) {
    this.#result = result;
    this.#on = on;
    this.duration = Math.max(result.data.duration, 0.001);
    this.#to = this.duration;
    this.element = parleyElement("div", "timeline");
    this.overview = parleyElement("div", "overview");
    this.overview.append(parleyElement("canvas"), parleyElement("div", "cursor"));
    this.overview.setAttribute("aria-hidden", "true"); // keys and the slider do the same
    this.slider = parleyElement("div", "slider");
    this.slider.tabIndex = 0;
    for (const [name, value] of Object.entries({ role: "slider", "aria-label": "Position in the recording", "aria-valuemin": "0",
                                                 "aria-valuemax": this.duration.toFixed(1) })) this.slider.setAttribute(name, value);
    this.slider.append(parleyElement("canvas"));
    this.board = parleyElement("div", "board");
    this.scroller = parleyElement("div", "lanes");
    this.scroller.tabIndex = 0; // many lanes scroll
    this.scroller.setAttribute("role", "group");
    this.scroller.setAttribute("aria-label", "Lanes of the speakers");
    this.labels = parleyElement("div", "labels");
    this.plot = parleyElement("div", "plot");
    this.plot.append(parleyElement("canvas"));
    this.scroller.append(this.labels, this.plot);
    this.cursor = parleyElement("div", "cursor");
    this.board.append(this.slider, this.scroller, this.cursor);
    this.element.append(this.overview, this.board);
    this.#listen();
    this.update();
  }

  // Another result, about more of the same recording.
  become(result) {
    this.#result = result;
    this.duration = Math.max(result.data.duration, 0.001);
    this.slider.setAttribute("aria-valuemax", this.duration.toFixed(1));
    this.update();
  }

  // After the result has changed.
  update() {
    this.color = new Map(this.#result.names.map((name) => [name, this.#result.colorOf(name)]));
    this.#lanes = new Map(this.#result.shownNames.map((name) => [name, []]));
    this.#result.segments.forEach((segment, index) => this.#lanes.get(segment.speaker)?.push({ segment, index }));
    this.labels.replaceChildren(...this.#result.shownNames.map((name) => {
      const label = parleyElement("div", "label");
      const dot = parleyElement("span", "dot");
      dot.style.background = this.color.get(name);
      label.append(dot, parleyName(name));
      label.title = name;
      return label;
    }));
    this.redraw();
  }

  select(index) {
    this.#selected = index;
    this.redraw();
  }

  get view() { return [this.#from, this.#to]; }

  // Shows a stretch of seconds, as far as there is one.
  show(from, to) {
    const span = Math.min(this.duration, Math.max(to - from, Math.min(1, this.duration)));
    this.#from = Math.min(Math.max(0, from), this.duration - span);
    this.#to = this.#from + span;
    this.redraw();
  }

  zoom(factor, around = (this.#from + this.#to) / 2) {
    this.show(around - (around - this.#from) / factor, around + (this.#to - around) / factor);
  }

  // Moves the view to a place that lies outside of it, or, while playing, near its end.
  reveal(seconds, plays = false) {
    const span = this.#to - this.#from;
    if (seconds < this.#from || seconds >= this.#to - (plays && span < this.duration ? 0.05 * span : 0))
      this.show(seconds - 0.1 * span, seconds + 0.9 * span);
  }

  place(seconds, text) {
    this.position = seconds;
    this.#placeCursors();
    this.slider.setAttribute("aria-valuenow", seconds.toFixed(1));
    this.slider.setAttribute("aria-valuetext", text);
  }

  redraw() {
    if (this.#due) return;
    this.#due = true;
    requestAnimationFrame(() => {
      this.#due = false;
      this.#draw();
    });
  }

  // ---- Drawing

  get #width() { return this.plot.clientWidth; }
  #x(seconds) { return (seconds - this.#from) / (this.#to - this.#from) * this.#width; }
  #seconds(event) {
    const box = this.plot.getBoundingClientRect();
    return this.#from + (event.clientX - box.left) / box.width * (this.#to - this.#from);
  }

  #placeCursors() {
    const x = this.#x(this.position ?? 0), left = this.plot.offsetLeft;
    this.cursor.style.transform = `translateX(${left + x}px)`;
    this.cursor.hidden = x < 0 || x > this.#width;
    this.overview.lastChild.style.transform = `translateX(${(this.position ?? 0) / this.duration * this.overview.clientWidth}px)`;
  }

  // A canvas of a size in CSS pixels, cleared.
  #open(canvas, width, height) {
    const ratio = window.devicePixelRatio || 1;
    canvas.width = Math.max(1, Math.round(width * ratio));
    canvas.height = Math.max(1, Math.round(height * ratio));
    canvas.style.width = width + "px";
    canvas.style.height = height + "px";
    const context = canvas.getContext("2d");
    context.scale(ratio, ratio);
    return context;
  }

  #draw() {
    const style = getComputedStyle(this.element);
    const color = Object.fromEntries(["wave", "line", "quiet", "cursor", "ink", "card"].map((n) => [n, style.getPropertyValue("--" + n)]));
    this.slider.style.marginLeft = this.plot.offsetLeft + "px";
    this.slider.style.width = this.#width + "px";
    this.#drawHead(color, style.fontFamily);
    this.#drawLanes(color);
    this.#drawOverview(color);
    this.#placeCursors();
  }

  #drawHead(color, family) {
    const { AXIS, WAVE } = ParleyTimeline, width = this.#width, span = this.#to - this.#from;
    const context = this.#open(this.slider.firstChild, width, AXIS + WAVE);
    const step = PARLEY_STEPS.find((s) => s / span * width >= 80) ?? PARLEY_STEPS.at(-1);
    context.font = `11px ${family}`;
    context.textBaseline = "middle";
    for (let k = Math.ceil(this.#from / step); k * step <= this.#to; k++) {
      const x = Math.round(this.#x(k * step));
      context.fillStyle = color.line;
      context.fillRect(x, 0, 1, AXIS + WAVE);
      context.fillStyle = color.quiet;
      const text = parleyClock(k * step, step < 1 ? 1 : 0);
      if (x + 4 + context.measureText(text).width < width) context.fillText(text, x + 4, AXIS / 2);
    }
    const peaks = this.#result.data.waveform ?? [], rate = peaks.length / this.duration;
    context.fillStyle = color.wave;
    for (let x = 0; x < width; x++) {
      const from = Math.floor((this.#from + x / width * span) * rate);
      const to = Math.max(from + 1, Math.floor((this.#from + (x + 1) / width * span) * rate));
      let peak = 0;
      for (let i = from; i < to && i < peaks.length; i++) peak = Math.max(peak, peaks[i]);
      const tall = Math.max(1, Math.sqrt(peak) * (WAVE - 6));
      context.fillRect(x, AXIS + (WAVE - tall) / 2, 1, tall);
    }
  }

  // The segments of a lane in view, as stretches of pixels; what falls onto the same pixel is drawn once.
  *#stretches(own, from, to, scale) {
    let drawn = -1;
    for (let i = parleyFirst(own, (s) => s.segment.end > from); i < own.length && own[i].segment.start < to; i++) {
      const { start, end } = this.#shown(own[i]);
      const left = (start - from) * scale, right = Math.max((end - from) * scale, left + 1);
      if (right <= drawn) continue;
      drawn = Math.ceil(right);
      yield [own[i].index, left, right];
    }
  }

  // A segment as it would be if what is dragged were let go.
  #shown({ segment, index }) {
    return this.#dragged?.index === index ? { ...segment, [this.#dragged.side]: this.#dragged.to } : segment;
  }

  #drawLanes(color) {
    const { LANE } = ParleyTimeline, width = this.#width;
    const context = this.#open(this.plot.firstChild, width, Math.max(1, this.#lanes.size) * LANE);
    let top = 0;
    for (const [name, own] of this.#lanes) {
      context.fillStyle = color.line;
      context.fillRect(0, top, width, 1);
      context.fillStyle = this.color.get(name);
      for (const [index, left, right] of this.#stretches(own, this.#from, this.#to, width / (this.#to - this.#from))) {
        context.fillRect(left, top + 5, right - left, LANE - 9);
        if (index !== this.#selected) continue;
        context.strokeStyle = color.ink;
        context.lineWidth = 2;
        context.strokeRect(left, top + 4, right - left, LANE - 7);
      }
      if (this.#drawn?.name === name) {
        const [left, right] = [this.#x(this.#drawn.from), this.#x(this.#drawn.to)];
        context.fillRect(Math.min(left, right), top + 5, Math.abs(right - left), LANE - 9);
      }
      top += LANE;
    }
  }

  #drawOverview(color) {
    const width = this.overview.clientWidth, height = 30, scale = width / this.duration;
    const context = this.#open(this.overview.firstChild, width, height);
    const tall = Math.max(1, (height - 4) / Math.max(1, this.#lanes.size));
    let top = 2;
    for (const [name, own] of this.#lanes) {
      context.fillStyle = this.color.get(name);
      for (const [, left, right] of this.#stretches(own, 0, this.duration, scale)) context.fillRect(left, top, right - left, tall);
      top += tall;
    }
    if (this.#to - this.#from >= this.duration) return;
    context.globalAlpha = 0.65;
    context.fillStyle = color.card;
    context.fillRect(0, 0, this.#from * scale, height);
    context.fillRect(this.#to * scale, 0, width, height);
    context.globalAlpha = 1;
    context.strokeStyle = color.cursor;
    context.lineWidth = 2;
    context.strokeRect(this.#from * scale, 1, Math.max(3, (this.#to - this.#from) * scale), height - 2);
  }

  // ---- Pointers

  // Whose lane lies below a pointer.
  #laneAt(event) {
    return this.#result.shownNames[Math.floor((event.clientY - this.plot.getBoundingClientRect().top) / ParleyTimeline.LANE)];
  }

  // The segment below a pointer, or -1.
  #hit(event) {
    const own = this.#lanes.get(this.#laneAt(event));
    const seconds = this.#seconds(event), slack = 2 / this.#width * (this.#to - this.#from);
    return own?.find(({ segment }) => segment.start - slack <= seconds && seconds <= segment.end + slack)?.index ?? -1;
  }

  // The border of the selected segment at a pointer, or nothing.
  #grip(event) {
    const segment = this.#result.segments[this.#selected];
    if (!segment) return undefined;
    const box = this.plot.getBoundingClientRect(), x = event.clientX - box.left;
    const lane = Math.floor((event.clientY - box.top) / ParleyTimeline.LANE);
    if (lane !== this.#result.shownNames.indexOf(segment.speaker)) return undefined;
    return ["start", "end"].find((side) => Math.abs(x - this.#x(segment[side])) <= ParleyTimeline.GRIP);
  }

  #listen() {
    new ResizeObserver(() => this.redraw()).observe(this.board);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.redraw());
    new MutationObserver(() => this.redraw()).observe(document.documentElement, { attributeFilter: ["data-theme"] });
    for (const area of [this.slider, this.plot]) {
      area.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
      area.addEventListener("pointerdown", (event) => this.#down(event, area));
      area.addEventListener("pointermove", (event) => this.#move(event, area));
      for (const name of ["pointerup", "pointercancel"]) area.addEventListener(name, (event) => this.#up(event, area));
    }
    const pan = (event) => {
      if (!(event.buttons & 1)) return;
      const box = this.overview.getBoundingClientRect(), span = this.#to - this.#from;
      const middle = (event.clientX - box.left) / box.width * this.duration;
      if (span < this.duration) this.show(middle - span / 2, middle + span / 2);
      else this.#on.seek(Math.min(Math.max(middle, 0), this.duration), false);
    };
    this.overview.addEventListener("pointerdown", (event) => {
      this.overview.setPointerCapture(event.pointerId);
      pan(event);
    });
    this.overview.addEventListener("pointermove", pan);
  }

  // With ctrl up and down zooms around the pointer, sideways (or with shift) moves; all else scrolls the page.
  #wheel(event) {
    if (!event.ctrlKey && !event.shiftKey && Math.abs(event.deltaX) <= Math.abs(event.deltaY)) return;
    const across = event.shiftKey ? event.deltaY || event.deltaX : event.deltaX;
    const unit = event.deltaMode === 1 ? 30 : 1;
    if (Math.abs(across) > Math.abs(event.shiftKey ? 0 : event.deltaY)) {
      const shift = across * unit / this.#width * (this.#to - this.#from);
      this.show(this.#from + shift, this.#to + shift);
    } else {
      const pinches = Math.abs(event.deltaY) < 50; // on a touchpad, in small steps
      this.zoom(Math.exp(-event.deltaY * unit * (pinches ? 0.01 : 0.002)), this.#seconds(event));
    }
    event.preventDefault();
  }

  #down(event, area) {
    if (event.button > 0) return;
    this.#pointers.set(event.pointerId, event.clientX);
    area.setPointerCapture(event.pointerId);
    const side = area === this.plot && this.#grip(event);
    const name = event.shiftKey && area === this.plot && this.#on.add ? this.#laneAt(event) : undefined;
    if (name) this.#drawn = { name, from: this.#seconds(event), to: this.#seconds(event) };
    else if (side) this.#dragged = { index: this.#selected, side, to: this.#result.segments[this.#selected][side] };
    this.#gesture = { x: event.clientX, from: this.#from, to: this.#to, moved: false };
  }

  #move(event, area) {
    if (!this.#pointers.has(event.pointerId)) {
      if (area === this.plot) this.#hover(event);
      return;
    }
    const before = [...this.#pointers.values()];
    this.#pointers.set(event.pointerId, event.clientX);
    if (this.#pointers.size === 2) { // a pinch
      const now = [...this.#pointers.values()];
      const apart = (xs) => Math.max(20, Math.abs(xs[0] - xs[1]));
      this.zoom(apart(now) / apart(before), this.#seconds({ clientX: (now[0] + now[1]) / 2 }));
      this.#gesture.moved = true;
    } else if (this.#drawn) {
      this.#drawn.to = this.#seconds(event);
      this.#gesture.moved = true;
      this.redraw();
    } else if (this.#dragged) {
      this.#dragged.to = this.#result.border(this.#dragged.index, this.#dragged.side, this.#seconds(event));
      this.#gesture.moved = true;
      this.redraw();
    } else if (this.#gesture.moved || Math.abs(event.clientX - this.#gesture.x) > 4) {
      this.#gesture.moved = true;
      const shift = (this.#gesture.x - event.clientX) / this.#width * (this.#gesture.to - this.#gesture.from);
      if (this.#to - this.#from < this.duration) this.show(this.#gesture.from + shift, this.#gesture.to + shift);
    }
  }

  #up(event, area) {
    if (!this.#pointers.delete(event.pointerId)) return;
    const dragged = this.#dragged, drawn = this.#drawn;
    this.#dragged = this.#drawn = null;
    if (drawn && this.#gesture.moved) this.#on.add(Math.min(drawn.from, drawn.to), Math.max(drawn.from, drawn.to), drawn.name);
    else if (dragged && this.#gesture.moved) this.#result.move(dragged.index, dragged.side, dragged.to);
    else if (!this.#gesture.moved && event.type === "pointerup") {
      if (area === this.plot) this.#on.select(this.#hit(event));
      this.#on.seek(this.#seconds(event), area === this.slider);
    }
  }

  #hover(event) {
    const index = this.#hit(event), segment = this.#result.segments[index];
    this.plot.style.cursor = this.#grip(event) ? "ew-resize" : segment ? "pointer" : "";
    this.plot.title = segment ? `${segment.speaker}, ${parleyClock(segment.start, 1)} to ${parleyClock(segment.end, 1)}` +
      (segment.comment ? `: ${segment.comment}` : "") : "";
  }
}
