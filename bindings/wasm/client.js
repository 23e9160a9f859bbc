// SPDX-License-Identifier: Apache-2.0
// Who spoke when, in JavaScript: what the front ends for browsers (parley.js) and for Node (parley-node.js) have in common.

export const SAMPLE_RATE = 16000;
const UNREADABLE = 2, INVALID = 3; // statuses of the engine: damage, and what it does not know

function toInt16(samples) {
  if (samples instanceof Int16Array) return samples.slice();
  return Int16Array.from(samples, (x) => Math.max(-32768, Math.min(32767, Math.round(x * 32768))));
}

// The options of a run as the library names them, with texts for values.
function optionsOf(given) {
  const other = { numSpeakers: "speakers", thresholds: "threshold" };
  const found = [];
  for (const [key, value] of Object.entries(given)) {
    if (value === undefined || value === null || (value === false && key !== "refine")) continue;
    if (key === "refine") {
      if (!value) found.push(["no-refine", "1"]);
      continue;
    }
    const name = other[key] ?? key.replace(/[A-Z]/g, (letter) => "-" + letter.toLowerCase());
    found.push([name, value === true ? "1" : Array.isArray(value) ? value.join(",") : String(value)]);
  }
  return found;
}

// Who spoke when in a recording.
class Result {
  #parley;
  #number;

  constructor(parley, { result, duration, note, segments, speakers, words, waveform }) {
    this.#parley = parley;
    this.#number = result;
    Object.assign(this, { duration, note, segments, speakers, words, waveform });
  }

  // The result in one of parley.formats, byte for byte what the command line tool writes.
  async bytes(format) {
    return (await this.#parley.ask({ write: format, result: this.#number })).bytes;
  }

  async text(format) {
    return new TextDecoder().decode(await this.bytes(format));
  }

  // Adds the words of a transcript, a text or what its JSON holds, each with its speaker; words outside of all segments, but within
  // `reach` seconds, are those of whom they sound like (of a result made with keepEmbeddings) or of the nearest.
  async addWords(transcript, { reach = 1, byTime = false } = {}) {
    const text = typeof transcript === "string" ? transcript : JSON.stringify(transcript);
    const { segments, speakers, words } = await this.#parley.ask({ words: { transcript: text, reach, byTime }, result: this.#number });
    Object.assign(this, { segments, speakers, words });
  }

  // The words in one of parley.transcriptFormats, byte for byte what the command line tool writes.
  async transcript(format = "text") {
    return (await this.#parley.ask({ transcript: format, result: this.#number })).bytes;
  }

  // Gives known people their names; voices: the text of a file of voices (parley voices, or what remember gave).
  async nameVoices(voices) {
    Object.assign(this, await this.#parley.ask({ name: voices, result: this.#number }));
  }

  // The voices, a text, with a sample of `name` added: what the speaker of that index says between `start` and `end`, in seconds, of a
  // result made with keepEmbeddings; without these all of it.
  async remember(name, speaker, voices = "", { start = 0, end = 0 } = {}) {
    return (await this.#parley.ask({ remember: { voices, name, speaker, start, end }, result: this.#number })).voices;
  }

  // The same recording with other options (numSpeakers, sensitivity, names ...), without another pass; the result was made with
  // keepEmbeddings.
  async again(options = {}) {
    return new Result(this.#parley, await this.#parley.ask({ again: optionsOf(options), result: this.#number }));
  }

  // What parley.readEmbeddings takes, 8 kB for each second, of a result made with keepEmbeddings.
  async writeEmbeddings() {
    return (await this.#parley.ask({ keep: true, result: this.#number })).bytes;
  }

  // Releases what the worker keeps of it.
  close() {
    this.#parley.send({ release: this.#number });
  }
}

// The result with the names of known people.
async function named(result, voices) {
  if (voices) await result.nameVoices(voices);
  return result;
}

// A recording that is still going on.
class Session {
  #parley;
  #number;
  #voices;

  constructor(parley, number, voices) {
    this.#parley = parley;
    this.#number = number;
    this.#voices = voices;
  }

  // Samples as diarize takes them.
  async feed(samples) {
    const pcm = toInt16(samples);
    await this.#parley.ask({ feed: pcm, session: this.#number }, undefined, [pcm.buffer]);
  }

  // The result about what was heard so far, null if nothing is new. Speakers keep their numbers. Clustering takes at most `share` of
  // the time that passes.
  async update(share = 0.05) {
    const reply = await this.#parley.ask({ update: share, session: this.#number });
    return reply.result ? named(new Result(this.#parley, reply), this.#voices) : null;
  }

  // The result that diarize would give of all samples; the session is closed then.
  async end() {
    return named(new Result(this.#parley, await this.#parley.ask({ end: this.#number })), this.#voices);
  }

  close() {
    this.#parley.send({ leave: this.#number });
  }
}

export class Client {
  // `thread`: a browser's Worker, or what looks like one. Resolves once it knows the model, a Uint8Array.
  static start(thread, model) {
    return new Promise((resolve, reject) => {
      thread.onerror = (event) => reject(new Error(event.message || "the worker could not be started"));
      thread.onmessage = ({ data }) => (data.opened ? resolve(new this(thread, data.opened, data.transcripts)) : reject(new Error(data.error)));
      thread.postMessage({ open: model });
    });
  }

  #worker;
  #calls = new Map();
  #next = 1;

  constructor(worker, formats, transcriptFormats) {
    this.#worker = worker;
    Object.assign(this, { formats, transcriptFormats }); // [{name, extension, purpose, mediaType}]
    worker.onmessage = ({ data }) => {
      const call = this.#calls.get(data.id);
      if (!call) return;
      if (data.progress !== undefined) {
        call.onProgress?.(data.progress);
        return;
      }
      this.#calls.delete(data.id);
      if (data.error !== undefined) call.reject(Object.assign(new Error(data.error), { status: data.status }));
      else call.resolve(data);
    };
    worker.onerror = (event) => this.#failAll(new Error(event.message || "the worker failed"));
  }

  #failAll(reason) {
    for (const call of this.#calls.values()) call.reject(reason);
    this.#calls.clear();
  }

  // For Result: a message to the worker, with and without a reply.
  ask(message, onProgress, transfer = []) {
    return new Promise((resolve, reject) => {
      const id = this.#next++;
      this.#calls.set(id, { resolve, reject, onProgress });
      this.#worker.postMessage({ id, ...message }, transfer);
    });
  }

  send(message) {
    this.#worker.postMessage(message);
  }

  // Samples: an Int16Array, or floats from -1 to 1, with several channels interleaved. Resolves to a result. Calls are answered one
  // after the other. A run cannot hear anybody: aborting `signal` ends the worker, and with it all calls.
  async diarizeSamples(samples, { onProgress, signal, name = "recording", sampleRate = SAMPLE_RATE, numChannels = 1, voices, ...options } = {}) {
    const pcm = toInt16(samples);
    const message = { samples: pcm, channels: numChannels, rate: sampleRate, name, options: optionsOf(options) };
    return named(await this.run(message, onProgress, signal, [pcm.buffer]), voices);
  }

  // For the front ends: a file, read by the engine's own readers, in pieces, or, where these find nothing, turned to samples by `decode`, which
  // fails with what to say of it. `place`: how the worker finds the file.
  async diarizeFile(place, name, { onProgress, signal, ...options }, decode) {
    const { sampleRate, numChannels, name: _, voices, ...asked } = options; // the first three a file has itself
    const refusal = (error) => {
      if (error.status !== UNREADABLE && error.status !== INVALID) throw error;
      return error;
    };
    const found = await this.run({ ...place, name, options: optionsOf(asked) }, onProgress, signal).catch(refusal);
    if (found instanceof Result) return named(found, voices);
    const samples = await decode().catch((error) => {
      throw new Error(`${found.message} (${error.message})`);
    });
    return this.diarizeSamples(samples, { ...options, onProgress, signal, name });
  }

  // A message that a result is the reply to.
  async run(message, onProgress, signal, transfer) {
    signal?.throwIfAborted();
    const stop = () => this.close(signal.reason);
    signal?.addEventListener("abort", stop, { once: true });
    try {
      return new Result(this, await this.ask(message, onProgress, transfer));
    } finally {
      signal?.removeEventListener("abort", stop);
    }
  }

  // A result that was written earlier, and maybe corrected (JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices, Audacity labels), from
  // the text of its file.
  async read(text, name = "result") {
    return new Result(this, await this.ask({ read: text, name }));
  }

  // The recording of which a result wrote its embeddings, with other options (numSpeakers, sensitivity, names ...), without another pass.
  async readEmbeddings(embeddings, { name = "recording", voices, ...options } = {}) {
    return named(new Result(this, await this.ask({ embeddings, name, options: optionsOf(options) })), voices);
  }

  // Begins to listen to samples that will come.
  async listen({ name = "recording", sampleRate = SAMPLE_RATE, numChannels = 1, voices, ...options } = {}) {
    const asked = { channels: numChannels, rate: sampleRate, name, options: optionsOf(options) };
    return new Session(this, (await this.ask({ listen: asked })).session, voices);
  }

  // Ends the worker; calls that are under way fail.
  close(reason = new Error("closed")) {
    this.#worker.terminate();
    this.#failAll(reason);
  }
}
