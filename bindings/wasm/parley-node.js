// SPDX-License-Identifier: Apache-2.0
// Who spoke when, in Node: the engine in a thread, files by their paths.
//
//   import { Parley } from "parley";
//   const parley = await Parley.load();
//   const result = await parley.diarize("meeting.wav");
//   console.log(await result.text("text"));
//   parley.close();
import { spawn } from "node:child_process";
import { readFile } from "node:fs/promises";
import { fileURLToPath } from "node:url";
import { Worker } from "node:worker_threads";

import { Client, SAMPLE_RATE } from "./client.js";

export { SAMPLE_RATE };

// A thread as a browser's Worker.
function started() {
  const thread = new Worker(new URL("./worker-node.js", import.meta.url));
  const worker = { postMessage: (...message) => thread.postMessage(...message), terminate: () => thread.terminate() };
  thread.on("message", (data) => worker.onmessage?.({ data }));
  thread.on("error", (error) => worker.onerror?.({ message: error.message }));
  return worker;
}

// Formats that hold sound themselves and name no other files: those of diarization/input/readers.cpp.
const FORMATS = "aac,ac3,aiff,amr,amrnb,amrwb,ape,asf,au,avi,caf,dts,eac3,flac,flv,gsm,loas,matroska,mov,mp3,mpeg,mpegts,ogg,rm,truehd,tta,voc,w64,wav,wv";

// What ffmpeg makes of a file, as the tool uses it: this one file, no playlists, no network. Fails without ffmpeg or without audio.
function viaFfmpeg(path, signal) {
  return new Promise((resolve, reject) => {
    const fail = () => reject(new Error("ffmpeg is not installed or does not read it either"));
    const child = spawn("ffmpeg", ["-nostdin", "-v", "quiet", "-protocol_whitelist", "file,pipe", "-format_whitelist", FORMATS,
                                   "-i", "file:" + path, "-map", "0:a:0", "-vn", "-ac", "1", "-ar", String(SAMPLE_RATE), "-f", "s16le", "pipe:1"],
                        { stdio: ["ignore", "pipe", "ignore"], signal });
    const pieces = [];
    child.on("error", fail);
    child.stdout.on("data", (piece) => pieces.push(piece));
    child.on("close", () => {
      const bytes = Buffer.concat(pieces);
      const samples = new Int16Array(bytes.length >> 1);
      for (let i = 0; i < samples.length; i++) samples[i] = bytes.readInt16LE(2 * i);
      if (samples.length) resolve(samples);
      else fail();
    });
  });
}

// What a program prints, run without a shell. Fails with the last line of what it complains of.
function outputOf([program, ...words], signal) {
  return new Promise((resolve, reject) => {
    const child = spawn(program, words, { stdio: ["ignore", "pipe", "pipe"], signal });
    let output = "", complaint = "";
    child.stdout.on("data", (piece) => (output += piece));
    child.stderr.on("data", (piece) => (complaint = (complaint + piece).slice(-2000)));
    child.on("error", (error) => reject(error.code === "ENOENT" ? new Error(`${program} is not installed`) : error));
    child.on("close", (status) => (status === 0 ? resolve(output)
      : reject(new Error(`${program}: exit status ${status}: ${complaint.trim().split("\n").at(-1)}`))));
  });
}

export class Parley extends Client {
  // Starts a thread and loads the engine and the model, by default the one of the package.
  static async load({ model = new URL("./parley.zx", import.meta.url) } = {}) {
    return this.start(started(), new Uint8Array(await readFile(model)));
  }

  // A path or a file's URL, read in pieces by the engine's own readers (WAV, FLAC, MP3, Ogg, WebM), else by ffmpeg if it is there; or
  // samples.
  async diarize(source, options = {}) {
    if (typeof source !== "string" && !(source instanceof URL)) return this.diarizeSamples(source, options);
    const path = source instanceof URL ? fileURLToPath(source) : source;
    return this.diarizeFile({ path }, options.name ?? path, options, () => viaFfmpeg(path, options.signal));
  }

  // Who said what: while the recording is diarized a speech recognizer runs on it, a program and its arguments, of which "{audio}" becomes
  // the recording's path; it prints words with times in a format that addWords takes.
  async transcribe(path, command, { reach, byTime, ...options } = {}) {
    const words = command.map((word) => word.replaceAll("{audio}", path));
    const [result, transcript] = await Promise.all([this.diarize(path, { ...options, keepEmbeddings: true }), outputOf(words, options.signal)]);
    await result.addWords(transcript, { reach, byTime });
    return result;
  }
}
