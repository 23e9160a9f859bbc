// SPDX-License-Identifier: Apache-2.0
// The page: a file in, the player out (web/player, as in the HTML report). All of it in this browser.
import { Parley } from "./parley.js";

const element = (id) => document.getElementById(id);
const status = element("status"), progress = element("progress"), audio = element("audio");
// What was opened, in the order in which it is worked on: {name, state, label, sound (a Blob), engine, result, shows, abort}. Each has an engine of
// its own, so that ending one run leaves the results of the others. `state`: waiting, working, done, or what went wrong.
let recordings = [];
let shown; // the one of which the page shows the result
let earlier; // a result of an earlier day, a File that waits for its recording

function say(text, fraction) {
  status.textContent = text;
  progress.hidden = fraction === undefined;
  progress.value = fraction ?? 0;
}

function clear() {
  globalThis.parleyShown?.close();
  globalThis.parleyShown = shown = undefined;
  element("voices").hidden = element("find-again").hidden = true;
  element("player").replaceChildren();
}

// Shows a recording's result with the sound it is about.
async function show(recording) {
  const { result, name, sound } = recording;
  clear();
  shown = recording;
  const known = voices();
  if (known) await result.nameVoices(known).catch((error) => say(error.message));
  const data = JSON.parse(await result.text("json"));
  if (audio.src) URL.revokeObjectURL(audio.src);
  audio.src = URL.createObjectURL(sound);
  audio.dataset.name = name;
  const url = encodeURIComponent(name);
  const media = { url, beside: "./" + url, type: sound.type || "application/octet-stream" };
  globalThis.parleyShown = parleyPlayer(element("player"), { ...data, media, waveform: [...result.waveform] }, audio);
  globalThis.parleyShown.result.onChange(showVoices);
  showVoices();
  element("find-again").hidden = false;
  list();
  if (earlier) await takeEarlier();
  return data;
}

// ---- The recordings, one after the other

function list() {
  element("recordings").hidden = recordings.length < 2;
  element("queue").replaceChildren(...recordings.map((recording) => {
    const item = document.createElement("li"), isDone = recording.state === "done";
    const open = parleyButton(recording.name, () => show(recording).catch((error) => say(error.message)));
    open.disabled = !isDone;
    open.setAttribute("aria-current", recording === shown);
    recording.label = parleyElement("span", "state", isDone ? "" : recording.state);
    const remove = parleyButton("Remove", () => dismiss(recording));
    remove.setAttribute("aria-label", `Remove ${recording.name}`);
    item.append(open, recording.label, remove);
    return item;
  }));
}

function dismiss(recording) {
  if (globalThis.parleyShown?.result.isAtRisk && recording === shown && !confirm("Its corrections are kept nowhere. Remove it?")) return;
  recording.abort?.abort();
  recordings = recordings.filter((r) => r !== recording);
  if (recording === shown) clear();
  recording.engine?.close();
  list();
}

// What is asked of every run.
function asked() {
  return { numSpeakers: element("number").value || undefined, sensitivity: Number(element("sensitivity").value), keepEmbeddings: true };
}

async function work() {
  if (recordings.some((r) => r.state === "working")) return;
  const recording = recordings.find((r) => r.state === "waiting");
  if (!recording) return;
  const { name, sound } = recording, { signal } = (recording.abort = new AbortController());
  recording.state = "working";
  list();
  element("cancel").hidden = false;
  try {
    say("Reading " + name);
    recording.engine = await Parley.load();
    const begin = performance.now();
    const onProgress = (fraction) => {
      say(name, fraction);
      recording.label.textContent = `${Math.round(100 * fraction)} %`;
    };
    recording.result = await recording.engine.diarize(sound, { name, ...asked(), onProgress, signal });
    const elapsed = (performance.now() - begin) / 1000;
    recording.state = "done";
    const { duration } = recording.shows ? await show(recording) : recording.result;
    say(`${recordings.length > 1 ? name + ": took" : "Took"} ${elapsed.toFixed(1)} s, ${Math.round(duration / elapsed)} times as fast as listening.`);
  } catch (error) {
    recording.engine?.close();
    recording.state = signal.aborted ? "cancelled" : error.message || error.name;
    say(signal.aborted ? `${name}: cancelled` : recording.state);
  }
  element("cancel").hidden = true;
  list();
  work();
}
element("cancel").addEventListener("click", () => recordings.find((r) => r.state === "working")?.abort.abort());

// ---- Results of an earlier day, voices, and the same recording again

const isResult = ({ name }) => /\.(json|rttm|csv|eaf|textgrid|srt|vtt)$/i.test(name);

// What was saved earlier, here or by others, becomes what is shown; undo takes it back.
async function takeEarlier() {
  const file = earlier;
  earlier = undefined;
  const read = await shown.engine.read(await file.text(), file.name);
  await globalThis.parleyShown.open(new File([await read.text("json")], file.name));
  read.close();
}

// A file of known voices, as this page or `parley voices` writes it. False if it is none.
async function takeVoices(file) {
  const text = /\.json$/i.test(file.name) ? await file.text() : "";
  if (!/"schema":\s*"parley-voices/.test(text.slice(0, 1000))) return false;
  localStorage.setItem(VOICES, text);
  if (shown) await shown.result.nameVoices(text);
  if (shown) await show(shown);
  say(`This browser knows ${JSON.parse(text).people.map((p) => p.name).join(", ")}.`);
  return true;
}

async function openFiles(files) {
  const sounds = files.filter((file) => !isResult(file)), others = [];
  for (const file of files.filter(isResult)) if (!(await takeVoices(file))) others.push(file);
  earlier = others.at(-1) ?? earlier;
  recordings.push(...sounds.map((sound, i) => ({ name: sound.name, sound, state: "waiting", shows: i === 0 })));
  list();
  if (sounds.length) return work();
  if (!earlier) return;
  if (!globalThis.parleyShown) return say(`${earlier.name}: now the recording, please.`);
  await takeEarlier();
}

// Names that somebody gave go to who speaks most of the time when they did; segments that were corrected by hand keep their speaker.
function carryOver(before, result) {
  const shared = (a, b) => Math.max(0, Math.min(a.end, b.end) - Math.max(a.start, b.start));
  const taken = new Set();
  for (const name of result.names) {
    const own = result.segments.filter((s) => s.speaker === name);
    const talk = before.names.map((old) => [old, before.segments.filter((s) => s.speaker === old)
      .reduce((sum, s) => sum + own.reduce((all, o) => all + shared(s, o), 0), 0)]);
    const [old, seconds] = talk.reduce((best, one) => (one[1] > best[1] ? one : best), ["", 0]);
    if (seconds > 0 && !/^speaker \d+$/.test(old) && !taken.has(old)) taken.add(old), result.rename(name, old);
  }
  for (const pinned of before.segments.filter((s) => s.edited)) {
    const inside = result.segments.map((s, i) => [s, i]).filter(([s]) => shared(pinned, s) > (s.end - s.start) / 2).map(([, i]) => i);
    if (inside.length) result.assign(inside, pinned.speaker);
  }
}

element("find-again").addEventListener("click", async () => {
  try {
    const before = { names: globalThis.parleyShown.result.names, segments: globalThis.parleyShown.result.segments };
    const found = await shown.result.again(asked());
    shown.result.close();
    shown.result = found;
    await show(shown);
    if (!globalThis.parleyShown.result.isChanged) carryOver(before, globalThis.parleyShown.result);
    say(`${found.speakers.length} speakers.`);
  } catch (error) {
    say(error.message);
  }
});

// ---- Known voices, which this browser keeps: the text of a file of voices

const VOICES = "parley-voices";

function voices() {
  return localStorage.getItem(VOICES) ?? "";
}

// Whom the user calls a speaker of the result now.
function nameNow(speaker) {
  const { data, segments } = globalThis.parleyShown.result;
  const own = data.segments.filter((s) => s.speaker === speaker).sort((a, b) => b.end - b.start - (a.end - a.start))[0];
  const [index] = own ? globalThis.parleyShown.result.at((own.start + own.end) / 2) : [];
  return index === undefined ? speaker : segments[index].speaker;
}

// Offers to remember the people who have got a name.
function showVoices() {
  const list = element("people");
  const known = voices() ? JSON.parse(voices()).people : [];
  const named = globalThis.parleyShown.result.data.speakers.map(({ name }, index) => [nameNow(name), index])
    .filter(([name]) => !/^speaker \d+$/.test(name));
  list.replaceChildren(...named.map(([name, index]) => {
    const samples = known.find((k) => k.name === name)?.samples.length ?? 0;
    return parleyButton(samples ? `Remember ${name} from this recording, too` : `Remember the voice of ${name}`, async ({ target }) => {
      try {
        localStorage.setItem(VOICES, await shown.result.remember(name, index, voices()));
        target.disabled = true;
        showVoices();
      } catch (error) {
        say(error.message);
      }
    });
  }));
  element("known").textContent = known.length ? `This browser knows ${known.map((k) => k.name).join(", ")}.` : "";
  for (const id of ["save-voices", "forget-voices"]) element(id).hidden = !known.length;
  element("voices").hidden = !named.length && !known.length;
}
element("save-voices").addEventListener("click", () => parleySave("voices.json", "application/json", voices()));
element("forget-voices").addEventListener("click", () => {
  localStorage.removeItem(VOICES);
  showVoices();
});

// ---- The microphone

let stop; // ends what is being recorded

// 16-bit mono samples as a WAV file.
function wavOf(pieces, rate) {
  const count = pieces.reduce((sum, piece) => sum + piece.length, 0);
  const bytes = new DataView(new ArrayBuffer(44 + 2 * count));
  const put = (at, text) => [...text].forEach((c, i) => bytes.setUint8(at + i, c.charCodeAt(0)));
  put(0, "RIFF");
  bytes.setUint32(4, 36 + 2 * count, true);
  put(8, "WAVEfmt ");
  [[16, 16], [24, rate], [28, 2 * rate], [40, 2 * count]].forEach(([at, value]) => bytes.setUint32(at, value, true));
  [[20, 1], [22, 1], [32, 2], [34, 16]].forEach(([at, value]) => bytes.setUint16(at, value, true));
  put(36, "data");
  let at = 44;
  for (const piece of pieces) for (const sample of piece) bytes.setInt16(at, sample, true), (at += 2);
  return new Blob([bytes], { type: "audio/wav" });
}

async function listen() {
  const button = element("listen"), meter = element("level");
  let context, stream, session, engine;
  try {
    clear();
    say("Waiting for the microphone");
    stream = await navigator.mediaDevices.getUserMedia({
      audio: { channelCount: 1, echoCancellation: false, noiseSuppression: false, autoGainControl: false } });
    engine = await Parley.load();
    context = new AudioContext();
    await context.audioWorklet.addModule("recorder.js");
    const recorder = new AudioWorkletNode(context, "recorder");
    const name = `microphone ${new Date().toISOString().slice(0, 16).replace(":", ".")}`;
    session = await engine.listen({ name, sampleRate: context.sampleRate, ...asked() });
    const pieces = [];
    recorder.port.onmessage = ({ data }) => {
      const piece = Int16Array.from(data, (x) => Math.max(-32768, Math.min(32767, Math.round(x * 32768))));
      pieces.push(piece);
      meter.value = Math.sqrt(data.reduce((most, x) => Math.max(most, Math.abs(x)), 0));
      session.feed(piece).catch((error) => stop?.(error));
    };
    context.createMediaStreamSource(stream).connect(recorder);
    button.textContent = "Stop";
    meter.hidden = false;
    const ended = new Promise((resolve) => { stop = resolve; });
    stream.getAudioTracks()[0].addEventListener("ended", () => stop?.()); // unplugged
    let timeline;
    for (let goesOn = true; goesOn;) {
      goesOn = await Promise.race([ended.then(() => false), new Promise((resolve) => setTimeout(resolve, 1000, true))]);
      const state = await session.update();
      if (!state) continue;
      const data = { recording: name, duration: state.duration, waveform: [...state.waveform], speakers: state.speakers,
                     segments: state.segments.map((s) => ({ ...s, speaker: state.speakers[s.speaker - 1].name })) };
      state.close();
      const result = new ParleyResult(data);
      if (timeline) timeline.become(result);
      else timeline = new ParleyTimeline(result, { seek() {}, select() {} });
      if (!timeline.element.isConnected) element("player").replaceChildren(timeline.element);
      element("player").classList.add("parley");
      timeline.show(Math.max(0, state.duration - 60), state.duration);
      const now = result.at(state.duration - 0.05).map((i) => result.segments[i].speaker).join(", ");
      timeline.place(state.duration, `${parleyClock(state.duration)}, ${now || "nobody"}`);
      say(`${parleyClock(state.duration)} heard. Now: ${now || "nobody"}`);
    }
    recorder.port.onmessage = null; // what comes now is in neither the sound nor the result
    const failure = await ended;
    if (failure) throw failure;
    const sound = wavOf(pieces, context.sampleRate);
    const recording = { name: name + ".wav", sound, state: "done", engine, result: await session.end() };
    session = engine = undefined;
    recordings.push(recording);
    const { duration } = await show(recording);
    say(`${parleyClock(duration)} recorded; nothing of it has left this machine.`);
  } catch (error) {
    const why = { NotAllowedError: "it is not allowed to listen", NotFoundError: "there is none" }[error.name];
    say(`Microphone: ${why ?? error.message}`);
  } finally {
    stop = undefined;
    session?.close();
    engine?.close();
    stream?.getTracks().forEach((track) => track.stop());
    context?.close();
    button.textContent = "Listen to the microphone";
    meter.hidden = true;
  }
}
element("listen").addEventListener("click", () => (stop ? stop() : listen()));

// For tests.
globalThis.parleyRecording = () => shown;

element("file").addEventListener("change", ({ target }) => {
  const files = [...target.files];
  target.value = ""; // so that the same file can be chosen again
  if (files.length) openFiles(files).catch((error) => say(error.message));
});
for (const name of ["dragenter", "dragover", "dragleave", "drop"]) {
  document.addEventListener(name, (event) => {
    event.preventDefault();
    element("drop").classList.toggle("over", name === "dragenter" || name === "dragover");
    if (name === "drop" && event.dataTransfer.files.length) openFiles([...event.dataTransfer.files]).catch((error) => say(error.message));
  });
}
