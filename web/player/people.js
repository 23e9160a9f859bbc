// SPDX-License-Identifier: Apache-2.0
// The speakers: shares of talk time, names, who is really somebody else.
"use strict";

class ParleyPeople {
  #result;
  #byTime = false;

  constructor(result) {
    this.#result = result;
    this.element = parleyElement("section", "people");
    this.element.setAttribute("aria-label", "Speakers");
    this.list = parleyElement("ul", "shares");
    const sort = parleyElement("label");
    const box = parleyElement("input");
    box.type = "checkbox";
    box.addEventListener("change", () => {
      this.#byTime = box.checked;
      this.update(this.#color);
    });
    sort.append(box, " Most talk first");
    this.fold = parleyElement("label", "", "");
    this.seconds = parleyElement("input", "time");
    Object.assign(this.seconds, { type: "number", min: 1, value: 5 });
    this.seconds.setAttribute("aria-label", "Seconds of talk");
    this.fold.append("Whoever says less than ", this.seconds, " s: ", parleyButton("give to neighbours", () => this.#result.change("fold", Number(this.seconds.value))));
    const options = parleyElement("div", "hint options");
    options.append(sort, this.fold);
    this.element.append(parleyElement("h2", "", "Speakers"), this.list, options);
  }
  #color = new Map();

  update(color) {
    this.#color = color;
    const speakers = [...this.#result.speakers];
    if (this.#byTime) speakers.sort((a, b) => b.seconds - a.seconds);
    const talk = speakers.reduce((sum, s) => sum + s.seconds, 0) || 1;
    const focused = document.activeElement?.closest?.(".shares li") ? document.activeElement.dataset.person : undefined;
    this.list.replaceChildren(...speakers.map((speaker) => this.#row(speaker, speakers, talk)));
    this.fold.hidden = speakers.length < 3;
    if (focused !== undefined) [...this.list.querySelectorAll(".name")].find((n) => n.dataset.person === focused)?.focus({ preventScroll: true });
  }

  #row(speaker, speakers, talk) {
    const item = parleyElement("li");
    const name = parleyButton("", () => this.#edit(name, speaker.name), "name");
    name.append(parleyName(speaker.name));
    name.title = "Rename";
    name.dataset.person = speaker.name;
    const color = Object.assign(parleyElement("input", "color"), { type: "color", value: this.#color.get(speaker.name), title: "Colour" });
    color.setAttribute("aria-label", `Colour of ${speaker.name}`);
    color.addEventListener("change", () => this.#result.paint(speaker.name, color.value));
    const isHidden = this.#result.isHidden(speaker.name);
    const hide = parleyButton(isHidden ? "Show" : "Hide", () => this.#result.hide(speaker.name, !isHidden), "hide");
    hide.setAttribute("aria-label", `${hide.textContent} ${speaker.name}`);
    item.classList.toggle("hidden-speaker", isHidden);
    const bar = parleyElement("span", "bar");
    const fill = parleyElement("i");
    fill.style.width = (100 * speaker.seconds / talk) + "%";
    fill.style.background = this.#color.get(speaker.name);
    bar.append(fill);
    const merge = parleySelect(`Merge ${speaker.name} into`, [["", "is really …"],
      ...speakers.filter((s) => s !== speaker).map((s) => [s.name, s.name])]);
    parleyOnChoice(merge, () => merge.value && this.#result.rename(speaker.name, merge.value));
    merge.disabled = speakers.length < 2;
    item.append(color, name, bar, parleyElement("span", "amount", `${parleyClock(speaker.seconds)}, ${Math.round(100 * speaker.seconds / talk)} %`), merge, hide);
    return item;
  }

  // A field in the place of a name.
  #edit(button, old) {
    const input = parleyElement("input");
    input.value = old;
    input.dataset.person = old;
    input.setAttribute("aria-label", `New name of ${old}`);
    let ends = false;
    const end = (takes) => {
      if (ends) return;
      ends = true;
      if (takes) {
        input.dataset.person = input.value.trim();
        this.#result.rename(old, input.value);
      }
      if (input.isConnected) input.replaceWith(button);
    };
    input.addEventListener("keydown", (event) => {
      if (event.key === "Enter" || event.key === "Escape") end(event.key === "Enter");
    });
    input.addEventListener("blur", () => end(true));
    button.replaceWith(input);
    input.select();
  }
}
