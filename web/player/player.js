// The player: waveform, a lane a speaker, shares of talk time, the list of segments; all follow one <audio>.
// Used by the page that `parley --format html` writes and by the page in the browser.
"use strict";

const PARLEY_COLORS = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00", "#9a8f00", "#7a7a7a"];

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

// Fills `root`. data: what `--format json` writes, and `waveform`: peaks from 0 to 1 over the whole duration. audio: an
// <audio> element, or null when there is nothing to play.
function parleyPlayer(root, data, audio) {
  const color = new Map(data.speakers.map((s, i) => [s.name, PARLEY_COLORS[i % PARLEY_COLORS.length]]));
  const duration = Math.max(data.duration, 0.001);
  const place = (seconds) => (100 * seconds / duration) + "%";
  root.replaceChildren();
  root.classList.add("parley");
  root.append(parleyElement("h1", "", data.recording));
  const people = data.speakers.length === 1 ? "1 speaker" : data.speakers.length + " speakers";
  root.append(parleyElement("p", "about", parleyClock(data.duration) + ", " + people + (data.note ? ". " + data.note : "")));

  const controls = parleyElement("div", "controls");
  const play = parleyElement("button", "play", "Play");
  play.type = "button";
  const clock = parleyElement("span", "clock", parleyClock(0, 1) + " / " + parleyClock(duration, 1));
  const speaking = parleyElement("span", "speaking");
  speaking.setAttribute("aria-live", "polite");
  controls.append(play, clock, speaking);
  root.append(controls);
  play.hidden = !audio;

  const board = parleyElement("div", "board");
  board.tabIndex = 0;
  board.setAttribute("role", "slider");
  board.setAttribute("aria-label", "Position in the recording");
  board.setAttribute("aria-valuemin", "0");
  board.setAttribute("aria-valuemax", duration.toFixed(1));
  const wave = parleyElement("canvas");
  const cursor = parleyElement("div", "cursor");
  board.append(wave, cursor);
  const parts = [];
  for (const speaker of data.speakers) {
    const lane = parleyElement("div", "lane");
    lane.dataset.speaker = speaker.name;
    lane.append(parleyElement("span", "name", speaker.name));
    for (const segment of data.segments.filter((s) => s.speaker === speaker.name)) {
      const part = parleyElement("div", "part");
      part.style.left = place(segment.start);
      part.style.width = place(segment.end - segment.start);
      part.style.background = color.get(speaker.name);
      part.title = `${speaker.name}, ${parleyClock(segment.start, 1)} to ${parleyClock(segment.end, 1)}`;
      parts.push([segment, part]);
      lane.append(part);
    }
    board.append(lane);
  }
  root.append(board);

  const shares = parleyElement("ul", "shares");
  const talk = data.speakers.reduce((sum, s) => sum + s.seconds, 0) || 1;
  for (const speaker of data.speakers) {
    const item = parleyElement("li");
    const bar = parleyElement("span", "bar");
    const fill = parleyElement("i");
    fill.style.width = (100 * speaker.seconds / talk) + "%";
    fill.style.background = color.get(speaker.name);
    bar.append(fill);
    item.append(parleyElement("span", "", speaker.name), bar,
      parleyElement("span", "amount", `${parleyClock(speaker.seconds)}, ${Math.round(100 * speaker.seconds / talk)} %`));
    shares.append(item);
  }
  root.append(shares);
  if (audio) {
    const hint = parleyElement("p", "hint");
    hint.innerHTML = "<kbd>space</kbd> plays and pauses, <kbd>←</kbd> <kbd>→</kbd> move by 5 s, <kbd>↑</kbd> <kbd>↓</kbd> " +
      "by a segment, <kbd>1</kbd> to <kbd>9</kbd> go to a speaker's next segment";
    root.append(hint);
  }

  const table = parleyElement("table");
  const head = parleyElement("tr");
  for (const title of ["Start", "End", "Speaker"]) head.append(parleyElement("th", "", title));
  head.append(parleyElement("th", "confidence", "Confidence"));
  const header = parleyElement("thead");
  header.append(head);
  const body = parleyElement("tbody");
  const rows = data.segments.map((segment) => {
    const row = parleyElement("tr");
    row.append(parleyElement("td", "", parleyClock(segment.start, 1)), parleyElement("td", "", parleyClock(segment.end, 1)));
    const who = parleyElement("td");
    const dot = parleyElement("span", "dot");
    dot.style.background = color.get(segment.speaker);
    who.append(dot, segment.speaker);
    row.append(who, parleyElement("td", "confidence", segment.confidence === undefined ? "" : segment.confidence.toFixed(2)));
    row.addEventListener("click", () => seek(segment.start, true));
    body.append(row);
    return row;
  });
  table.append(header, body);
  root.append(table);

  let position = 0;
  function show(seconds) {
    position = Math.min(Math.max(seconds, 0), duration);
    cursor.style.left = place(position);
    clock.textContent = parleyClock(position, 1) + " / " + parleyClock(duration, 1);
    board.setAttribute("aria-valuenow", position.toFixed(1));
    const now = data.segments.filter((s) => s.start <= position && position < s.end);
    const names = now.map((s) => s.speaker).join(", ");
    if (speaking.textContent !== names) speaking.textContent = names;
    speaking.style.color = now.length ? color.get(now[0].speaker) : "";
    for (const [segment, part] of parts) part.classList.toggle("now", now.includes(segment));
    rows.forEach((row, i) => row.classList.toggle("now", now.includes(data.segments[i])));
  }
  function seek(seconds, listen) {
    show(seconds);
    if (!audio) return;
    audio.currentTime = position;
    if (listen) start();
  }
  function start() {
    audio.play().catch(() => {});  // interrupted by a pause; a file that cannot be played tells so itself
  }
  function toggle() {
    if (audio) audio.paused ? start() : audio.pause();
  }
  function follow() {
    show(audio.currentTime);
    if (!audio.paused) requestAnimationFrame(follow);
  }
  const at = (event) => {
    const box = board.getBoundingClientRect();
    return duration * (event.clientX - box.left) / box.width;
  };
  board.addEventListener("click", (event) => seek(at(event), true));
  play.addEventListener("click", toggle);
  if (audio) {
    audio.addEventListener("play", () => { play.textContent = "Pause"; follow(); });
    audio.addEventListener("pause", () => { play.textContent = "Play"; });
    audio.addEventListener("seeked", () => show(audio.currentTime));
    audio.addEventListener("error", () => { speaking.textContent = "The browser cannot play this file."; });
  }
  const keys = (event) => {
    if (event.target.closest("input, textarea, select") || event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === " " && event.target.closest("button")) return;  // which the browser presses
    const starts = data.segments.map((s) => s.start);
    if (event.key === " ") toggle();
    else if (event.key === "ArrowRight") seek(position + 5);
    else if (event.key === "ArrowLeft") seek(position - 5);
    else if (event.key === "ArrowDown") seek(starts.find((s) => s > position + 0.01) ?? position);
    else if (event.key === "ArrowUp") seek(starts.filter((s) => s < position - 1).pop() ?? 0);
    else if (/^[1-9]$/.test(event.key)) {
      const own = data.segments.filter((s) => s.speaker === data.speakers[event.key - 1]?.name);
      const next = own.find((s) => s.start > position + 0.01) ?? own[0];
      if (next) seek(next.start, true);
    } else return;
    event.preventDefault();
  };
  document.addEventListener("keydown", keys);

  function drawWave() {
    const ratio = window.devicePixelRatio || 1;
    const width = Math.max(1, Math.round(board.clientWidth * ratio)), height = Math.round(72 * ratio);
    wave.width = width;
    wave.height = height;
    const context = wave.getContext("2d");
    context.fillStyle = getComputedStyle(root).getPropertyValue("--wave");
    const peaks = data.waveform || [];
    for (let x = 0; x < width; x++) {
      const from = Math.floor(x * peaks.length / width), to = Math.max(from + 1, Math.floor((x + 1) * peaks.length / width));
      let peak = 0;
      for (let i = from; i < to && i < peaks.length; i++) peak = Math.max(peak, peaks[i]);
      const tall = Math.max(1, Math.sqrt(peak) * (height - 8));
      context.fillRect(x, (height - tall) / 2, 1, tall);
    }
  }
  new ResizeObserver(drawWave).observe(board);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawWave);
  show(0);
  return { seek, close: () => document.removeEventListener("keydown", keys) };
}
