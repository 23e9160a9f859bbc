// SPDX-License-Identifier: Apache-2.0
// The engine in a thread of Node's. What the engine's loader and file system look for is what browsers' workers have.
import fs from "node:fs";
import { parentPort } from "node:worker_threads";

globalThis.self = globalThis;
globalThis.importScripts = () => {};
globalThis.location = new URL(import.meta.url);
globalThis.FileReaderSync = class {
  #last = new Uint8Array(); // is taken over at once, so that pieces of one length can share it

  readAsArrayBuffer({ file, start, size }) {
    if (this.#last.length !== size) this.#last = new Uint8Array(size);
    fs.readSync(file, this.#last, 0, size, start);
    return this.#last.buffer;
  }
};

// A file of the disk as a browser's File: its size, and pieces of it.
function opened(path) {
  const file = fs.openSync(path);
  const { size } = fs.fstatSync(file);
  return { file, size, slice: (start, end) => ({ file, start, size: Math.max(0, Math.min(end, size) - start) }) };
}

const { serve } = await import("./engine.js");
const wasmBinary = fs.readFileSync(new URL("./parley-core.wasm", import.meta.url));

parentPort.on("message", async (data) => {
  let file;
  const post = (message, transfer = []) => parentPort.postMessage(message, transfer);
  try {
    if (data.path) file = opened(data.path);
  } catch (error) {
    post({ id: data.id, error: `${data.path}: ${error.code === "ENOENT" ? "there is no such file" : error.message}`, status: 5 });
    return;
  }
  await serve({ ...data, file }, post, { wasmBinary });
  if (file) fs.closeSync(file.file);
});
