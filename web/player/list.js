// SPDX-License-Identifier: Apache-2.0
// The segments as a list of any length, of which only what is in view exists, and the words of a transcript.
"use strict";

class ParleyList {
  static ROW = 36; // pixels

  #result;
  #on;
  #rows = new Map(); // index of a segment: element
  #shown = []; // indices of the segments that have a row
  #now = new Set();
  #selected = []; // the last one first among them
  #color;
  #whole = false; // all of it, for paper

  // on: {choose(index, listen, more)}
  constructor(result, on) {
    this.#result = result;
    this.#on = on;
    this.element = parleyElement("div", "list");
    this.element.setAttribute("role", "listbox");
    this.element.setAttribute("aria-multiselectable", "true");
    this.element.setAttribute("aria-label", "Segments");
    this.element.addEventListener("click", (event) => {
      const row = event.target.closest(".row");
      if (row) this.#on.choose(Number(row.dataset.index), true, event.ctrlKey || event.metaKey || event.shiftKey);
    });
    this.element.addEventListener("keydown", (event) => this.#key(event));
    this.render = this.render.bind(this);
    addEventListener("scroll", this.render, { passive: true });
    addEventListener("resize", this.render);
    this.paper = [() => this.#print(true), () => this.#print(false)];
    addEventListener("beforeprint", this.paper[0]);
    addEventListener("afterprint", this.paper[1]);
  }

  close() {
    removeEventListener("scroll", this.render);
    removeEventListener("resize", this.render);
    removeEventListener("beforeprint", this.paper[0]);
    removeEventListener("afterprint", this.paper[1]);
  }

  update(color) {
    this.#color = color;
    this.#rows.clear();
    this.element.replaceChildren();
    this.#shown = this.#result.shown;
    this.element.style.height = this.#shown.length * ParleyList.ROW + "px";
    this.render();
  }

  #print(whole) {
    this.#whole = whole;
    this.render();
  }

  // The rows in view and some more; one that has the focus stays.
  render() {
    if (!this.element.isConnected) return;
    const { ROW } = ParleyList, count = this.#shown.length;
    const top = -this.element.getBoundingClientRect().top;
    const first = this.#whole ? 0 : Math.max(0, Math.floor(top / ROW) - 10);
    const last = this.#whole ? count : Math.min(count, Math.max(10, Math.ceil((top + innerHeight) / ROW) + 10));
    const inView = new Set(this.#shown.slice(first, last));
    for (const [index, row] of this.#rows) {
      if (inView.has(index) || row === document.activeElement) continue;
      row.remove();
      this.#rows.delete(index);
    }
    const added = document.createDocumentFragment();
    for (let place = first; place < last; place++) if (!this.#rows.has(this.#shown[place])) added.append(this.#row(this.#shown[place], place));
    this.element.append(added);
    this.#mark();
  }

  #row(index, place) {
    const segment = this.#result.segments[index];
    const row = parleyElement("div", "row");
    row.setAttribute("role", "option");
    row.setAttribute("aria-posinset", place + 1);
    row.setAttribute("aria-setsize", this.#shown.length);
    row.dataset.index = index;
    row.style.top = place * ParleyList.ROW + "px";
    const dot = parleyElement("span", "dot");
    dot.style.background = this.#color.get(segment.speaker);
    const sure = segment.edited ? "by hand" : segment.confidence === undefined ? "" : segment.confidence.toFixed(2);
    row.append(parleyElement("span", "time", parleyClock(segment.start, 1)), parleyElement("span", "time", parleyClock(segment.end, 1)),
      dot, parleyElement("span", "who", segment.speaker), parleyElement("span", "comment", segment.comment ?? ""),
      parleyElement("span", "sure", sure));
    this.#rows.set(index, row);
    return row;
  }

  // Which segments are spoken now, and which are chosen.
  show(now, selected) {
    if (selected.join() === this.#selected.join() && now.length === this.#now.size && now.every((i) => this.#now.has(i))) return;
    this.#now = new Set(now);
    this.#selected = selected;
    this.#mark();
  }

  #mark() {
    const last = this.#selected.at(-1);
    const reachable = this.#rows.has(last) ? last : Math.min(...this.#rows.keys());
    for (const [index, row] of this.#rows) {
      row.classList.toggle("now", this.#now.has(index));
      row.setAttribute("aria-selected", this.#selected.includes(index));
      row.tabIndex = index === reachable ? 0 : -1;
    }
  }

  // Scrolls so that a row can be seen below what sticks to the top.
  reveal(index, covered) {
    const { ROW } = ParleyList;
    const at = this.element.getBoundingClientRect().top + parleyFirst(this.#shown, (i) => i >= index) * ROW;
    if (at >= covered && at + ROW <= innerHeight) return;
    scrollBy({ top: at - covered - (innerHeight - covered) / 3 });
    this.render();
  }

  focus(index) {
    this.render();
    this.#rows.get(index)?.focus({ preventScroll: true });
  }

  #key(event) {
    const row = event.target.closest(".row");
    if (!row || event.ctrlKey || event.metaKey || event.altKey) return;
    const index = Number(row.dataset.index), place = parleyFirst(this.#shown, (i) => i >= index), last = this.#shown.length - 1;
    const to = { ArrowDown: place + 1, ArrowUp: place - 1, PageDown: place + 10, PageUp: place - 10, Home: 0, End: last }[event.key];
    if (to !== undefined) {
      const next = this.#shown[Math.min(Math.max(to, 0), last)];
      this.#on.choose(next, false);
      this.focus(next);
    } else if (event.key === " ") {
      this.#on.choose(index, true);
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }
}

// A transcript as paragraphs by speaker. Far away ones are laid out when they come near.
class ParleyTranscript {
  #result;
  #elements = [];
  #now = -1;
  #found = [];
  #at = -1;

  // on: {seek(seconds, listen)}
  constructor(result, on) {
    this.#result = result;
    this.element = parleyElement("div", "words");
    this.search = parleyElement("input", "search");
    Object.assign(this.search, { type: "search", placeholder: "Find in the transcript" });
    this.search.setAttribute("aria-label", "Find in the transcript");
    this.count = parleyElement("span", "count");
    this.count.setAttribute("role", "status");
    const bar = parleyElement("div", "find");
    bar.append(this.search, this.count);
    this.text = parleyElement("div", "text");
    this.element.append(bar, this.text);
    this.search.addEventListener("input", () => this.#find());
    this.search.addEventListener("keydown", (event) => {
      if (event.key === "Enter") this.#step(event.shiftKey ? -1 : 1);
    });
    this.text.addEventListener("click", (event) => {
      const word = event.target.closest("[data-word]");
      if (word && !word.isContentEditable) on.seek(this.#words[word.dataset.word].start, true);
    });
    this.text.addEventListener("dblclick", (event) => {
      const word = event.target.closest("[data-word]");
      if (word) this.#edit(word);
    });
  }

  get #words() { return this.#result.words; }

  // A word that was understood otherwise is written anew in its place; its times stay.
  #edit(element) {
    const index = Number(element.dataset.word), before = this.#words[index].text;
    element.contentEditable = "plaintext-only";
    element.setAttribute("role", "textbox");
    element.setAttribute("aria-label", `Instead of ${before}`);
    element.focus();
    getSelection().selectAllChildren(element);
    let ends = false;
    const end = (takes) => {
      if (ends) return;
      ends = true;
      element.removeAttribute("contenteditable");
      element.removeAttribute("role");
      if (!takes || !this.#result.change("word", index, element.textContent.trim().replace(/\s+/g, " "))) element.textContent = before;
    };
    element.addEventListener("keydown", (event) => {
      const atBegin = getSelection().isCollapsed && getSelection().anchorOffset === 0;
      const paragraph = (event.key === "Enter" && event.shiftKey) || (event.key === "Backspace" && atBegin);
      if (!paragraph && event.key !== "Enter" && event.key !== "Escape") return;
      event.preventDefault();
      event.stopPropagation();
      end(event.key === "Enter");
      if (paragraph) this.#result.change("paragraph", index, event.key === "Enter");
    });
    element.addEventListener("blur", () => end(true), { once: true });
  }

  update(color) {
    this.#elements = [];
    this.#now = -1;
    this.text.replaceChildren();
    let speaker, paragraph, length = 0;
    this.#words.forEach((word, index) => {
      if (this.#result.isHidden(word.speaker)) return this.#elements.push(undefined);
      const who = word.speaker || "somebody", begins = parleyBeginsParagraph(this.#words, index);
      if (begins || length > 150) {
        paragraph = parleyElement("p");
        if (!this.text.lastChild || who !== speaker) {
          const name = parleyElement("b", "who", who);
          const dot = parleyElement("span", "dot");
          dot.style.background = color.get(who) ?? "";
          name.prepend(dot);
          paragraph.append(name, " ");
        }
        paragraph.append(parleyElement("span", "time", parleyClock(word.start)), " ");
        this.text.append(paragraph);
        speaker = who;
        length = 0;
      }
      const element = parleyElement("span", "", word.text.trim());
      element.dataset.word = index;
      paragraph.append(element, " ");
      this.#elements.push(element);
      length++;
    });
    this.#find();
  }

  show(seconds) {
    const index = parleyFirst(this.#words, (word) => word.start > seconds) - 1;
    const now = index >= 0 && seconds < this.#words[index].end + 0.3 ? index : -1;
    if (now === this.#now) return false;
    this.#elements[this.#now]?.classList.remove("now");
    this.#elements[now]?.classList.add("now");
    this.#now = now;
    return now >= 0;
  }

  reveal(covered) {
    const box = this.#elements[this.#now]?.getBoundingClientRect();
    if (box && (box.top < covered || box.bottom > innerHeight)) scrollBy({ top: box.top - covered - (innerHeight - covered) / 3 });
  }

  // Words one after the other that begin with what is looked for; the last may be half of one.
  #find() {
    for (const element of this.text.querySelectorAll(".found")) element.classList.remove("found", "at");
    const plain = (text) => text.toLowerCase().replace(/[^\p{L}\p{N}]+/gu, "");
    const wanted = this.search.value.split(/\s+/).map(plain).filter(Boolean);
    const words = wanted.length ? this.#words.map((word) => plain(word.text)) : [];
    const fits = (k, i) => (i + 1 < wanted.length ? words[k] === wanted[i] : words[k]?.startsWith(wanted[i]));
    this.#found = words.map((_, k) => k).filter((k) => this.#elements[k] && wanted.every((_, i) => fits(k + i, i)));
    for (const k of this.#found) wanted.forEach((_, i) => this.#elements[k + i]?.classList.add("found"));
    this.#at = -1;
    this.count.textContent = !wanted.length ? "" : this.#found.length ? `${this.#found.length} found` : "not found";
    if (this.#found.length) this.#step(1);
  }

  #step(by) {
    if (!this.#found.length) return;
    this.#elements[this.#found[this.#at]]?.classList.remove("at");
    this.#at = (this.#at + by + this.#found.length) % this.#found.length;
    const element = this.#elements[this.#found[this.#at]];
    element.classList.add("at");
    element.scrollIntoView({ block: "center" });
    this.count.textContent = `${this.#at + 1} of ${this.#found.length}`;
  }
}
