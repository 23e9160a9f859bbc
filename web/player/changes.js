// SPDX-License-Identifier: Apache-2.0
// Undo and redo, files, and whether what was done is safe.
"use strict";

class ParleyChanges {
  #result;
  #say;
  #formats; // name: {label, extension, type, write}
  #file; // {name, handle}: what was saved last, where the browser lets a page write files

  // say(text): tells the user something.
  constructor(result, say) {
    this.#result = result;
    this.#say = say;
    this.element = parleyElement("section", "changes");
    this.element.setAttribute("aria-label", "Changes and files");
    this.undo = parleyButton("Undo", () => result.undo());
    this.redo = parleyButton("Redo", () => result.redo());
    this.discard = parleyButton("Discard all changes", () => result.discard());
    this.kept = parleyElement("span", "hint");
    this.kept.setAttribute("role", "status");
    const transcripts = Object.entries(PARLEY_TRANSCRIPTS).map(([name, format]) =>
      [`words-${name}`, { ...format, label: `Transcript: ${format.label}` }]);
    const page = ["page", { label: "Page (HTML)", extension: ".html", type: "text/html", write: parleyPage }];
    this.#formats = new Map([...(result.original.words.length ? transcripts : []), ...Object.entries(PARLEY_WRITERS),
                             ...(document.getElementById("data") ? [page] : [])]);
    this.format = parleySelect("Format of the file", [...this.#formats].map(([name, { label }]) => [name, label]));
    const file = parleyElement("input");
    Object.assign(file, { type: "file", accept: ".json,.rttm", hidden: true });
    file.addEventListener("change", () => file.files.length && this.open(file.files[0]));
    this.again = parleyButton("", () => this.saveAgain());
    this.again.hidden = true;
    this.element.append(this.undo, this.redo, parleyButton("Save as", () => this.save(this.format.value)), this.format, this.again,
      parleyButton("Open a result", () => file.click()), file, this.discard, this.kept);
    addEventListener("beforeunload", this.#leaving);
  }

  close() {
    removeEventListener("beforeunload", this.#leaving);
  }
  #leaving = (event) => this.#result.isAtRisk && event.preventDefault();

  update() {
    const result = this.#result;
    this.undo.disabled = !result.canUndo;
    this.redo.disabled = !result.canRedo;
    this.discard.hidden = !result.isChanged;
    this.kept.classList.toggle("warning", result.isAtRisk);
    this.kept.textContent = !result.isChanged ? "" : result.isKept ? "Changed by hand; kept in this browser."
      : "Changed by hand. This browser keeps nothing: save a file before you leave.";
  }

  // A text, or bytes, or a promise of them.
  write(name) {
    return this.#formats.get(name).write(this.#result);
  }

  // Into a file that is chosen, where the browser asks for one; else into a download.
  async save(name) {
    const { label, extension, type = "text/plain" } = this.#formats.get(name), suggestedName = this.#result.data.recording + extension;
    try {
      const handle = await globalThis.showSaveFilePicker?.({ suggestedName, types: [{ description: label, accept: { [type]: [/\.\w+$/.exec(extension)[0]] } }] });
      if (handle) return await this.#put(name, handle);
    } catch (error) {
      if (error.name === "AbortError") return; // nobody chose one
    }
    try {
      parleySave(suggestedName, type, await this.write(name));
      this.#settle(name);
    } catch (error) {
      this.#say(`${suggestedName}: ${error.message}`);
    }
  }

  // Into the same file once more; the first time as save does.
  async saveAgain() {
    if (!this.#file) return this.save(this.format.value);
    await this.#put(this.#file.name, this.#file.handle).catch((error) => this.#say(`${this.#file.handle.name}: ${error.message}`));
  }

  async #put(name, handle) {
    const file = await handle.createWritable();
    await file.write(await this.write(name));
    await file.close();
    this.#file = { name, handle };
    this.again.textContent = `Save ${handle.name}`;
    this.again.hidden = false;
    this.#settle(name);
  }

  #settle(name) {
    if (name !== "json" && name !== "page") return; // others do not hold everything
    this.#result.saved();
    this.update();
  }

  // A result of this recording that was saved earlier, as JSON or RTTM, becomes what there is; undo takes it back.
  async open(file) {
    try {
      this.#result.change("become", parleyStateOf(await file.text(), this.#result));
      this.#say("");
    } catch (error) {
      this.#say(`${file.name}: ${error.message}`);
    }
  }
}

// {names, segments, words} of a text. Throws what is wrong with it.
function parleyStateOf(text, result) {
  const lines = text.split(/\r?\n/).map((line) => line.split(/\s+/)).filter(([type]) => type === "SPEAKER");
  const isJson = /^\s*\{/.test(text);
  if (!isJson && !lines.length) throw new Error("is no result: JSON and RTTM can be opened here.");
  const data = isJson ? JSON.parse(text) : { segments: lines.map((f) => ({ start: Number(f[3]), end: parleyMilliseconds(Number(f[3]) + Number(f[4])), speaker: f[7] })) };
  const times = (entries) => entries.every((e) => e.start >= 0 && e.end >= e.start);
  if (!Array.isArray(data.segments) || !times(data.segments) || !times(data.words ?? [])) throw new Error("is no result of this program.");
  const segments = [...data.segments].sort((a, b) => a.start - b.start);
  if (segments.some((s) => s.start > result.data.duration)) throw new Error("is about a longer recording.");
  const words = data.words ?? parleyGiveWords(result.original.words, segments, [{ start: 0, end: result.data.duration }]);
  return { names: [...new Set([...(data.speakers ?? []).map((s) => s.name), ...segments.map((s) => s.speaker)])].filter((name) => segments.some((s) => s.speaker === name)),
           segments, words };
}

// This page with the corrected result in the place of the one it came with, and all else as it is.
function parleyPage(result) {
  const { speakers, segments, words } = result;
  const copy = document.documentElement.cloneNode(true);
  copy.querySelector("#player").replaceChildren();
  copy.querySelector("#player").className = "";
  const data = { ...result.data, speakers, segments, ...(words.length ? { words } : {}) };
  copy.querySelector("#data").textContent = JSON.stringify(data).replaceAll("<", "\\u003c");
  return "<!DOCTYPE html>\n" + copy.outerHTML + "\n";
}
