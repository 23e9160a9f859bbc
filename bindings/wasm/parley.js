// SPDX-License-Identifier: Apache-2.0
// Who spoke when, in the browser: the engine in a worker, nothing sent anywhere.
//
//   import { Parley } from "parley";
//   const parley = await Parley.load();
//   const result = await parley.diarize(file, { onProgress: (fraction) => ... });
//   for (const { start, end, speaker } of result.segments) ...
//   const rttm = await result.text("rttm");
import { Client, SAMPLE_RATE } from "./client.js";

export { SAMPLE_RATE };

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

export class Parley extends Client {
  // Starts a worker and loads the engine and the model, by default from beside this file.
  static async load({ model, worker } = {}) {
    const reply = await fetch(model ?? new URL("./parley.zx", import.meta.url));
    if (!reply.ok) throw new Error(`the model could not be loaded: ${reply.status}`);
    const bytes = new Uint8Array(await reply.arrayBuffer());
    // Written so that bundlers see what it refers to.
    const thread = worker ? new Worker(worker, { type: "module" }) : new Worker(new URL("./worker.js", import.meta.url), { type: "module" });
    return this.start(thread, bytes);
  }

  // A Blob or File, read by the engine's own readers (WAV, FLAC, MP3, Ogg, WebM) in pieces, else by the browser at once; or samples.
  async diarize(source, options = {}) {
    if (!(source instanceof Blob)) return this.diarizeSamples(source, options);
    return this.diarizeFile({ file: source }, options.name ?? source.name ?? "recording", options, () =>
      decodeAudio(source).catch(() => {
        throw new Error("this browser does not play it either");
      }));
  }
}
