// SPDX-License-Identifier: Apache-2.0
// Hands the samples of the first input's first channel to the page, a few times a second.
class Recorder extends AudioWorkletProcessor {
  #held = [];
  #count = 0;

  process([[samples]]) {
    if (samples) {
      this.#held.push(samples.slice());
      this.#count += samples.length;
    }
    if (this.#count >= sampleRate / 5) {
      const all = new Float32Array(this.#count);
      let at = 0;
      for (const part of this.#held) {
        all.set(part, at);
        at += part.length;
      }
      this.port.postMessage(all, [all.buffer]);
      this.#held = [];
      this.#count = 0;
    }
    return true;
  }
}
registerProcessor("recorder", Recorder);
