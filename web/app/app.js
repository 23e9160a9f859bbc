// The page: a file in, the player out (web/player, as in the HTML report). All of it in this browser.
import { Parley, decodeAudio } from "./parley.js";

const element = (id) => document.getElementById(id);
const status = element("status"), progress = element("progress"), audio = element("audio");
let engine; // a promise, made with the first file
let texts = {}; // the answer in every format that the engine writes, but as a page

function say(text, fraction) {
  status.textContent = text;
  progress.hidden = fraction === undefined;
  progress.value = fraction ?? 0;
}

async function open(file) {
  try {
    globalThis.parleyShown?.close();
    element("player").replaceChildren();
    say("Decoding " + file.name);
    const samples = await decodeAudio(file);
    engine ??= Parley.load();
    const loaded = await engine.catch((error) => {
      engine = undefined; // the next file tries again
      throw error;
    });
    const begin = performance.now();
    const answer = await loaded.diarize(samples, { name: file.name, onProgress: (fraction) => say("Listening", fraction) });
    const elapsed = (performance.now() - begin) / 1000;
    texts = {};
    for (const { name } of loaded.formats) if (name !== "html") texts[name] = await answer.text(name);
    const shown = JSON.parse(texts.json);
    answer.close();
    if (audio.src) URL.revokeObjectURL(audio.src);
    audio.src = URL.createObjectURL(file);
    audio.dataset.name = file.name;
    const name = encodeURIComponent(file.name);
    const media = { url: name, beside: "./" + name, type: "application/octet-stream" };
    globalThis.parleyShown = parleyPlayer(element("player"), { ...shown, media, waveform: [...answer.waveform] }, audio);
    say(`Took ${elapsed.toFixed(1)} s, ${Math.round(shown.duration / elapsed)} times as fast as listening.`);
  } catch (error) {
    say(`${file.name}: ${error.message || error.name}`);
  }
}

// For tests.
globalThis.parleyFormats = () => texts;

element("file").addEventListener("change", ({ target }) => target.files.length && open(target.files[0]));
for (const name of ["dragenter", "dragover", "dragleave", "drop"]) {
  document.addEventListener(name, (event) => {
    event.preventDefault();
    element("drop").classList.toggle("over", name === "dragenter" || name === "dragover");
    if (name === "drop" && event.dataTransfer.files.length) open(event.dataTransfer.files[0]);
  });
}
