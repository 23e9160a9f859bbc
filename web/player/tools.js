// SPDX-License-Identifier: Apache-2.0
// What can be done to the chosen segments, as a row of fields and buttons.
"use strict";

class ParleyTools {
  #result;
  #on;
  #chosen = [];

  // on: {split(), join(), remove(), say(text)}
  constructor(result, on) {
    this.#result = result;
    this.#on = on;
    this.element = parleyElement("div", "tools");
    this.element.setAttribute("role", "group");
    this.element.setAttribute("aria-label", "Chosen segment");
  }

  // The indices of the chosen segments; the last one is shown.
  show(chosen) {
    this.#chosen = chosen;
    const segment = this.#result.segments[chosen.at(-1)];
    this.element.hidden = !segment;
    if (!segment) return;
    const focused = document.activeElement?.dataset.field;
    const fields = {
      who: this.#speakers(segment), start: this.#time(segment, "start"), end: this.#time(segment, "end"),
      split: parleyButton("Split here", this.#on.split), join: parleyButton(chosen.length > 1 ? "Join these" : "Join with next", this.#on.join),
      remove: parleyButton(chosen.length > 1 ? `Delete ${chosen.length}` : "Delete", this.#on.remove), note: this.#note(segment),
    };
    for (const [name, field] of Object.entries(fields)) field.dataset.field = name;
    if (chosen.length > 1) for (const name of ["start", "end", "split", "note"]) fields[name].disabled = true;
    this.element.replaceChildren(fields.who, fields.start, parleyElement("span", "", "to"), fields.end, fields.split, fields.join, fields.remove,
      fields.note);
    if (focused) fields[focused]?.focus({ preventScroll: true });
  }

  #speakers(segment) {
    const who = parleySelect("Speaker of the segment", [...this.#result.names.map((name) => [name, name]), ["", "someone else …"]]);
    who.value = segment.speaker;
    parleyOnChoice(who, () => {
      if (who.value === segment.speaker) return;
      const name = who.value || prompt("Name of the speaker", "");
      if (!name || !this.#result.assign(this.#chosen, name)) who.value = segment.speaker;
    }, true);
    who.addEventListener("keydown", ({ key }) => {
      if (key === "Escape") who.value = segment.speaker;
    });
    return who;
  }

  #time(segment, side) {
    const input = parleyElement("input", "time");
    const label = side === "start" ? "Start of the segment" : "End of the segment";
    input.value = parleyClock(segment[side], 3);
    input.setAttribute("aria-label", label);
    input.addEventListener("change", () => {
      const index = this.#chosen.at(-1), seconds = parleySeconds(input.value), [least, most] = this.#result.limits(index, side);
      const typed = input.value;
      input.value = parleyClock(this.#result.segments[index][side], 3);
      if (Number.isNaN(seconds)) this.#on.say(`“${typed}” is no time; one is written like 1:02:03.450 or 2:03.`);
      else if (parleyMilliseconds(seconds) < parleyMilliseconds(least) || parleyMilliseconds(seconds) > parleyMilliseconds(most))
        this.#on.say(`${label}: it can lie between ${parleyClock(least, 3)} and ${parleyClock(most, 3)}.`);
      else if (this.#result.move(index, side, seconds)) this.#on.say("");
    });
    return input;
  }

  #note(segment) {
    const input = parleyElement("input", "note");
    Object.assign(input, { value: segment.comment ?? "", placeholder: "Note" });
    input.setAttribute("aria-label", "Note on the segment");
    input.addEventListener("change", () => this.#result.comment(this.#chosen.at(-1), input.value));
    return input;
  }
}
