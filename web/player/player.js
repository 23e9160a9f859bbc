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

function parleySave(name, type, text) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([text], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

// Fills `root`. data: what `--format json` writes, and `waveform`: peaks from 0 to 1 over the whole duration; `media`: {url, type,
// beside}; maybe `words`. audio: an <audio> element, or null when there is nothing to play; `why` says then, why.
function parleyPlayer(root, data, audio, why = "") {
  const result = new ParleyResult(data);
  const duration = Math.max(data.duration, 0.001);
  let position = 0, selected = -1;

  // ---- What there is

  root.replaceChildren();
  root.classList.add("parley");
  const about = parleyElement("p", "about");
  root.append(parleyElement("h1", "", data.recording), about);
  const stage = parleyElement("section", "stage");
  stage.setAttribute("aria-label", "Player");
  const controls = parleyElement("div", "controls");
  const play = parleyButton("Play", () => toggle(), "play");
  const clock = parleyElement("span", "clock");
  const speaking = parleyElement("span", "speaking");
  const following = parleyElement("label", "follow");
  const follow = parleyElement("input");
  Object.assign(follow, { type: "checkbox", checked: true });
  following.append(follow, " Follow");
  const zooms = parleyElement("span", "zooms");
  const zoom = (text, label, action) => {
    const button = parleyButton(text, action);
    button.setAttribute("aria-label", label);
    button.title = label;
    return button;
  };
  zooms.append(zoom("−", "Zoom out", () => timeline.zoom(1 / 2, position)), zoom("+", "Zoom in", () => timeline.zoom(2, position)),
    zoom("All", "All of the recording", () => timeline.show(0, duration)));
  controls.append(play, clock, speaking, zooms, following);
  play.hidden = following.hidden = !audio;
  const silence = parleyElement("p", "why", why);
  silence.hidden = !why;
  silence.setAttribute("role", "status");
  const timeline = new ParleyTimeline(result, { seek, select: (index) => select(index) });
  const tools = parleyElement("div", "tools");
  stage.append(controls, silence, timeline.element, tools);
  const shares = parleyElement("ul", "shares");
  const people = parleyElement("section", "people");
  people.setAttribute("aria-label", "Speakers");
  people.append(parleyElement("h2", "", "Speakers"), shares);
  const list = new ParleyList(result, { choose });
  const transcript = data.words?.length ? new ParleyTranscript(result, { seek }) : null;
  const lists = parleyElement("section", "lists");
  lists.setAttribute("aria-label", transcript ? "Transcript and segments" : "Segments");
  if (transcript) {
    const tabs = parleyElement("div", "tabs");
    const showTab = (words) => {
      transcript.element.hidden = !words;
      list.element.hidden = words;
      [...tabs.children].forEach((tab, i) => tab.setAttribute("aria-pressed", (i === 0) === words));
      list.render();
    };
    tabs.append(parleyButton("Transcript", () => showTab(true)), parleyButton("Segments", () => showTab(false)));
    lists.append(tabs, transcript.element, list.element);
    showTab(true);
  } else {
    lists.append(parleyElement("h2", "", "Segments"), list.element);
  }
  const changes = parleyElement("section", "changes");
  changes.setAttribute("aria-label", "Changes and files");
  const undo = parleyButton("Undo", () => result.undo());
  const redo = parleyButton("Redo", () => result.redo());
  const discard = parleyButton("Discard all changes", () => result.discard());
  const kept = parleyElement("span", "hint");
  const format = parleySelect("Format of the file", Object.entries(PARLEY_WRITERS).map(([name, { label }]) => [name, label]));
  const save = parleyButton("Save as", () => {
    const { extension, write } = PARLEY_WRITERS[format.value];
    parleySave(data.recording + extension, "text/plain", write(result));
  });
  changes.append(save, format, undo, redo, discard, kept);
  const help = parleyElement("details", "hint");
  help.append(parleyElement("summary", "", "Keys"), parleyKeys(audio !== null));
  root.append(stage, changes, people, lists, help);

  // ---- Correcting

  function select(index) {
    selected = index;
    timeline.select(index);
    list.show(result.at(position), selected);
    showTools();
  }

  function showTools() {
    const segment = result.segments[selected];
    tools.hidden = !segment;
    if (!segment) return;
    const who = parleySelect("Speaker of the segment", [...result.names.map((name) => [name, name]), ["", "someone else …"]]);
    who.value = segment.speaker;
    who.addEventListener("change", () => {
      const name = who.value || prompt("Name of the speaker", "");
      if (name) result.assign(selected, name);
      else who.value = segment.speaker;
    });
    const time = (side) => {
      const input = parleyElement("input", "time");
      input.value = parleyClock(segment[side], 3);
      input.setAttribute("aria-label", side === "start" ? "Start of the segment" : "End of the segment");
      input.addEventListener("change", () => {
        const seconds = input.value.split(":").reduce((sum, part) => 60 * sum + Number(part), 0);
        if (Number.isFinite(seconds)) result.move(selected, side, seconds);
        input.value = parleyClock(result.segments[selected][side], 3);
      });
      return input;
    };
    const comment = parleyElement("input", "note");
    Object.assign(comment, { value: segment.comment ?? "", placeholder: "Note" });
    comment.setAttribute("aria-label", "Note on the segment");
    comment.addEventListener("change", () => result.comment(selected, comment.value));
    tools.replaceChildren(who, time("start"), parleyElement("span", "", "to"), time("end"), parleyButton("Split here", split),
      parleyButton("Delete", remove), comment);
  }

  function split() {
    const within = result.segments[selected];
    const index = within && within.start < position && position < within.end ? selected : result.at(position)[0];
    if (index === undefined || !result.split(index, position)) say("Move to where the segment is to be split.");
  }

  function remove() {
    if (!result.segments[selected]) return;
    const index = selected;
    selected = -1;
    result.remove(index);
  }

  function showShares() {
    const { speakers } = result;
    const talk = speakers.reduce((sum, s) => sum + s.seconds, 0) || 1;
    shares.replaceChildren(...speakers.map((speaker) => {
      const item = parleyElement("li");
      const name = parleyButton(speaker.name, () => {
        const input = parleyElement("input");
        input.value = speaker.name;
        input.setAttribute("aria-label", `New name of ${speaker.name}`);
        let ends = false;
        const end = (takes) => {
          if (ends) return;
          ends = true;
          if (takes) result.rename(speaker.name, input.value);
          if (input.isConnected) input.replaceWith(name);
        };
        input.addEventListener("keydown", (event) => {
          if (event.key === "Enter" || event.key === "Escape") end(event.key === "Enter");
        });
        input.addEventListener("blur", () => end(true));
        name.replaceWith(input);
        input.select();
      }, "name");
      name.title = "Rename";
      const dot = parleyElement("span", "dot");
      dot.style.background = timeline.color.get(speaker.name);
      name.prepend(dot);
      const bar = parleyElement("span", "bar");
      const fill = parleyElement("i");
      fill.style.width = (100 * speaker.seconds / talk) + "%";
      fill.style.background = timeline.color.get(speaker.name);
      bar.append(fill);
      const merge = parleySelect(`Merge ${speaker.name} into`, [["", "is really …"],
        ...speakers.filter((s) => s !== speaker).map((s) => [s.name, s.name])]);
      merge.addEventListener("change", () => result.rename(speaker.name, merge.value));
      merge.disabled = speakers.length < 2;
      item.append(name, bar, parleyElement("span", "amount", `${parleyClock(speaker.seconds)}, ${Math.round(100 * speaker.seconds / talk)} %`),
        merge);
      return item;
    }));
  }

  function update() {
    const count = result.names.length;
    about.textContent = `${parleyClock(data.duration)}, ${count} speaker${count === 1 ? "" : "s"}${data.note ? ". " + data.note : ""}`;
    if (selected >= result.segments.length) selected = -1;
    timeline.update();
    timeline.select(selected);
    list.update(timeline.color);
    transcript?.update(timeline.color);
    showShares();
    showTools();
    undo.disabled = !result.canUndo;
    redo.disabled = !result.canRedo;
    discard.hidden = !result.isChanged;
    kept.textContent = result.isChanged ? "Changed by hand; kept in this browser." : "";
    show(position);
  }
  result.onChange(update);

  // ---- Playing

  function say(text) {
    silence.textContent = text;
    silence.hidden = !text;
  }

  function show(seconds, plays = false) {
    position = Math.min(Math.max(seconds, 0), duration);
    const now = result.at(position);
    const names = now.map((i) => result.segments[i].speaker).join(", ");
    clock.textContent = parleyClock(position, 1) + " / " + parleyClock(duration, 1);
    if (speaking.textContent !== names) speaking.textContent = names;
    speaking.style.setProperty("--dot", now.length ? timeline.color.get(result.segments[now[0]].speaker) : "transparent");
    timeline.place(position, `${parleyClock(position, 1)} of ${parleyClock(duration, 1)}${names ? ", " + names : ""}`);
    list.show(now, selected);
    const moved = transcript?.show(position);
    if (!plays || !follow.checked) return;
    timeline.reveal(position, true);
    const covered = stage.getBoundingClientRect().bottom;
    if (transcript && !transcript.element.hidden) {
      if (moved) transcript.reveal(covered);
    } else if (now.length && now[0] !== show.last) {
      list.reveal(now[0], covered);
    }
    show.last = now[0];
  }

  function seek(seconds, listen) {
    show(seconds);
    timeline.reveal(position);
    if (!audio) return;
    audio.currentTime = position;
    if (listen) start();
  }

  function choose(index, listen) {
    select(index);
    list.reveal(index, stage.getBoundingClientRect().bottom);
    seek(result.segments[index].start, listen);
  }

  function start() {
    audio.play().catch(() => {}); // interrupted by a pause; a file that cannot be played tells so itself
  }
  function toggle() {
    if (audio) audio.paused ? start() : audio.pause();
  }
  function tick() {
    show(audio.currentTime, true);
    if (!audio.paused) requestAnimationFrame(tick);
  }
  if (audio) {
    audio.addEventListener("play", () => { play.textContent = "Pause"; tick(); });
    audio.addEventListener("pause", () => { play.textContent = "Play"; });
    audio.addEventListener("seeked", () => show(audio.currentTime));
    audio.addEventListener("error", () => say(`The sound cannot be played: the browser does not find ${audio.dataset.name ?? "it"} or does not know its format.`));
  }

  // ---- Keys

  // Of one segment to the next or back; what plays now counts as begun a second ago.
  function step(by) {
    const { segments } = result;
    const next = parleyFirst(segments, (s) => s.start > position + 0.01);
    const index = by > 0 ? next : parleyFirst(segments, (s) => s.start >= position - 1) - 1;
    if (segments[index]) choose(index, false);
  }

  const actions = {
    " ": toggle,
    ArrowRight: () => seek(position + 5),
    ArrowLeft: () => seek(position - 5),
    n: () => step(1),
    p: () => step(-1),
    "+": () => timeline.zoom(1.5, position),
    "=": () => timeline.zoom(1.5, position),
    "-": () => timeline.zoom(1 / 1.5, position),
    0: () => timeline.show(0, duration),
    s: split,
    Delete: remove,
    Escape: () => select(-1),
  };
  const slides = { ArrowUp: 5, ArrowDown: -5, PageUp: 60, PageDown: -60, Home: -duration, End: duration };
  const keys = (event) => {
    const { key, target } = event;
    if (target.closest("input:not([type=checkbox]), textarea, select") || event.altKey) return;
    let action;
    if (event.ctrlKey || event.metaKey) {
      if (key.toLowerCase() === "z") action = () => (event.shiftKey ? result.redo() : result.undo());
      else if (key === "y") action = () => result.redo();
    } else if (key === " " && target.closest("button, summary, input")) {
      return; // which the browser presses
    } else if (target === timeline.slider && key in slides) {
      action = () => seek(position + slides[key]);
    } else if (/^[1-9]$/.test(key)) {
      const name = result.names[key - 1];
      const own = result.segments.map((s, i) => i).filter((i) => result.segments[i].speaker === name);
      const next = own.find((i) => result.segments[i].start > position + 0.01) ?? own[0];
      action = () => next !== undefined && choose(next, true);
    } else {
      action = actions[key];
    }
    if (!action) return;
    action();
    event.preventDefault();
  };
  document.addEventListener("keydown", keys);

  update();
  return {
    seek, result, timeline,
    write: (name) => PARLEY_WRITERS[name].write(result),
    close() {
      document.removeEventListener("keydown", keys);
      list.close();
    },
  };
}

function parleyKeys(plays) {
  const table = parleyElement("dl");
  const rows = [
    ...(plays ? [["space", "play, pause"]] : []),
    ["← →", "5 s back, on; on the waveform ↑ ↓, page up, page down, home and end as well"],
    ["n p", "next, previous segment"], ["1 … 9", "a speaker's next segment"], ["+ − 0", "zoom in, out, show all; so does the wheel"],
    ["s", "split the segment here"], ["delete", "remove the chosen segment"], ["ctrl z, ctrl y", "undo, redo"],
  ];
  for (const [keys, what] of rows) {
    const term = parleyElement("dt");
    for (const key of keys.split(" ")) term.append(parleyElement("kbd", "", key), " ");
    table.append(term, parleyElement("dd", "", what));
  }
  return table;
}
