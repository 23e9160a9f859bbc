// Who spoke when, in the browser: the engine in a worker, audio decoded by the browser, nothing sent anywhere.
//
//   import { Parley, decodeAudio } from "./parley.js";
//   const parley = await Parley.load();
//   const segments = await parley.diarize(await decodeAudio(file), { onProgress: (fraction) => ... });

export const SAMPLE_RATE = 16000;

// The audio of a Blob, or of the bytes of a file, in any format that the browser plays: mono samples from -1 to 1 at 16 kHz.
export async function decodeAudio(source) {
  const bytes = source instanceof Blob ? await source.arrayBuffer() : source;
  const audio = await new OfflineAudioContext(1, 1, SAMPLE_RATE).decodeAudioData(bytes);
  const mono = audio.getChannelData(0).slice();
  for (let c = 1; c < audio.numberOfChannels; c++) {
    const channel = audio.getChannelData(c);
    for (let i = 0; i < mono.length; i++) mono[i] += channel[i];
  }
  if (audio.numberOfChannels > 1) for (let i = 0; i < mono.length; i++) mono[i] /= audio.numberOfChannels;
  return mono;
}

function toInt16(samples) {
  if (samples instanceof Int16Array) return samples.slice();
  return Int16Array.from(samples, (x) => Math.max(-32768, Math.min(32767, Math.round(x * 32768))));
}

export class Parley {
  // Starts a worker and loads the engine and the model, by default from beside this file.
  static load({ model = new URL("./parley.zx", import.meta.url), worker = new URL("./worker.js", import.meta.url) } = {}) {
    return new Promise((resolve, reject) => {
      const thread = new Worker(worker, { type: "module" });
      thread.onerror = (event) => reject(new Error(event.message || "the worker could not be started"));
      thread.onmessage = ({ data }) => (data.opened ? resolve(new Parley(thread)) : reject(new Error(data.error)));
      thread.postMessage({ open: String(model) });
    });
  }

  #worker;
  #calls = new Map();
  #next = 1;

  constructor(worker) {
    this.#worker = worker;
    worker.onmessage = ({ data }) => {
      const call = this.#calls.get(data.id);
      if (!call) return;
      if (data.progress !== undefined) {
        call.onProgress?.(data.progress);
        return;
      }
      this.#calls.delete(data.id);
      if (data.error !== undefined) call.reject(new Error(data.error));
      else call.resolve(data.segments);
    };
    worker.onerror = (event) => {
      for (const call of this.#calls.values()) call.reject(new Error(event.message || "the worker failed"));
      this.#calls.clear();
    };
  }

  // Samples at 16 kHz, mono: an Int16Array, or floats from -1 to 1. Resolves to [{start, end, speaker}], in seconds and
  // numbers from 1 in order of appearance. Calls are answered one after the other.
  diarize(samples, { onProgress } = {}) {
    return new Promise((resolve, reject) => {
      const id = this.#next++;
      this.#calls.set(id, { resolve, reject, onProgress });
      const pcm = toInt16(samples);
      this.#worker.postMessage({ id, samples: pcm }, [pcm.buffer]);
    });
  }

  // Ends the worker; calls that are under way fail.
  close() {
    this.#worker.terminate();
    for (const call of this.#calls.values()) call.reject(new Error("closed"));
    this.#calls.clear();
  }
}
