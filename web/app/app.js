// The page: a file in, lanes and player out (web/player, as in the HTML report), exports. All of it in this browser.
import { Parley, decodeAudio } from "./parley.js";

const element = (id) => document.getElementById(id);
const status = element("status"), progress = element("progress"), audio = element("audio");
let engine; // a promise, made with the first file
let shown; // what the player shows, as the tool's JSON has it
let texts = {}; // the same in the formats that the buttons offer

function say(text, fraction) {
  status.textContent = text;
  progress.hidden = fraction === undefined;
  progress.value = fraction ?? 0;
}

async function open(file) {
  try {
    element("exports").hidden = true;
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
    shown = JSON.parse(texts.json);
    answer.close();
    if (audio.src) URL.revokeObjectURL(audio.src);
    audio.src = URL.createObjectURL(file);
    parleyPlayer(element("player"), { ...shown, waveform: [...answer.waveform] }, audio);
    element("exports").hidden = false;
    say(`Took ${elapsed.toFixed(1)} s, ${Math.round(shown.duration / elapsed)} times as fast as listening.`);
  } catch (error) {
    say(`${file.name}: ${error.message || error.name}`);
  }
}

// The text of an export; the buttons save it, tests read it.
globalThis.parleyExport = (format) => texts[format];
globalThis.parleyFormats = () => texts;

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
