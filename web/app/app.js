// The page: a file in, lanes and player out (web/player, as in the HTML report), exports. All of it in this browser.
import { Parley, SAMPLE_RATE, decodeAudio } from "./parley.js";

const element = (id) => document.getElementById(id);
const status = element("status"), progress = element("progress"), audio = element("audio");
let engine; // a promise, made with the first file
let shown; // what the player shows, as the tool's JSON has it

function say(text, fraction) {
  status.textContent = text;
  progress.hidden = fraction === undefined;
  progress.value = fraction ?? 0;
}

// Peaks from 0 to 1 of equal parts of the audio.
function peaksOf(samples, count = 1000) {
  return Array.from({ length: count }, (_, i) => {
    let peak = 0;
    const end = Math.floor(((i + 1) * samples.length) / count);
    for (let k = Math.floor((i * samples.length) / count); k < end; k++) peak = Math.max(peak, Math.abs(samples[k]));
    return Math.round(Math.min(peak, 1) * 1000) / 1000;
  });
}

function toData(name, samples, segments) {
  const seconds = new Map();
  for (const s of segments) seconds.set(s.speaker, (seconds.get(s.speaker) ?? 0) + s.end - s.start);
  const nameOf = (speaker) => "speaker " + speaker;
  return {
    schema: "parley-diarization-1",
    recording: name.replace(/\.[^.]*$/, ""),
    path: name,
    duration: Math.round((samples.length / SAMPLE_RATE) * 1000) / 1000,
    speakers: [...seconds.keys()].sort((a, b) => a - b)
      .map((k) => ({ name: nameOf(k), seconds: Math.round(seconds.get(k) * 1000) / 1000 })),
    segments: segments.map((s) => ({ start: s.start, end: s.end, speaker: nameOf(s.speaker) })),
  };
}

async function open(file) {
  try {
    element("exports").hidden = true;
    say("Decoding " + file.name);
    const samples = await decodeAudio(file);
    engine ??= Parley.load();
    const loaded = await engine.catch((error) => {
      engine = undefined; // the next file tries again
      throw error;
    });
    const begin = performance.now();
    const segments = await loaded.diarize(samples, { onProgress: (fraction) => say("Listening", fraction) });
    const elapsed = (performance.now() - begin) / 1000;
    shown = toData(file.name, samples, segments);
    if (audio.src) URL.revokeObjectURL(audio.src);
    audio.src = URL.createObjectURL(file);
    parleyPlayer(element("player"), { ...shown, waveform: peaksOf(samples) }, audio);
    element("exports").hidden = false;
    say(`Took ${elapsed.toFixed(1)} s, ${Math.round(shown.duration / elapsed)} times as fast as listening.`);
  } catch (error) {
    say(`${file.name}: ${error.message || error.name}`);
  }
}

const srtTime = (seconds) => {
  const ms = Math.round(seconds * 1000);
  const pad = (value, digits = 2) => String(value).padStart(digits, "0");
  return `${pad(Math.floor(ms / 3600000))}:${pad(Math.floor(ms / 60000) % 60)}:${pad(Math.floor(ms / 1000) % 60)},${pad(ms % 1000, 3)}`;
};

const FORMATS = {
  rttm: (data) => data.segments.map((s) => `SPEAKER ${data.recording.replace(/\s/g, "_")} 1 ${s.start.toFixed(3)} ` +
    `${(s.end - s.start).toFixed(3)} <NA> <NA> ${s.speaker.replace(/\s/g, "_")} <NA> <NA>\n`).join(""),
  json: (data) => JSON.stringify(data, null, 1) + "\n",
  srt: (data) => data.segments.map((s, i) => `${i + 1}\n${srtTime(s.start)} --> ${srtTime(s.end)}\n${s.speaker}\n\n`).join(""),
};

// The text of an export; the buttons save it, tests read it.
globalThis.parleyExport = (format) => FORMATS[format](shown);

element("exports").addEventListener("click", ({ target }) => {
  const format = target.dataset.format;
  if (!format) return;
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([parleyExport(format)], { type: "text/plain" }));
  link.download = `${shown.recording}.${format}`;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
});

element("file").addEventListener("change", ({ target }) => target.files.length && open(target.files[0]));
for (const name of ["dragenter", "dragover", "dragleave", "drop"]) {
  document.addEventListener(name, (event) => {
    event.preventDefault();
    element("drop").classList.toggle("over", name === "dragenter" || name === "dragover");
    if (name === "drop" && event.dataTransfer.files.length) open(event.dataTransfer.files[0]);
  });
}
