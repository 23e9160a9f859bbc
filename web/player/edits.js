// SPDX-License-Identifier: Apache-2.0
// What a person does to a result, as functions from one state ({names, segments, words}) to the next: null where nothing changes. Each is
// called by its name and arguments that JSON can hold, so that a list of them is a history.
"use strict";

const PARLEY_SHORTEST = 0.05; // seconds: of a segment

// Words take the speaker of the segment in which their middle lies, those of a stretch that was changed alone. Where a second speaker was
// found they are the first's.
function parleyGiveWords(words, segments, stretches, preferred) {
  return words.map((word) => {
    const middle = (word.start + word.end) / 2;
    const covers = (s) => s.start <= middle && middle < s.end;
    if (!stretches.some(covers)) return word;
    const there = segments.filter(covers), first = there.filter((s) => !s.overlap);
    const own = first.length ? first : there;
    const speaker = (own.find((s) => s.speaker === preferred) ?? own[0])?.speaker ?? "";
    return speaker === word.speaker ? word : { ...word, speaker };
  });
}

// Segments in the place of others; the words of all these stretches follow.
function parleyReplaced(state, indices, added, preferred) {
  const gone = indices.map((i) => state.segments[i]);
  const kept = state.segments.filter((_, i) => !indices.includes(i));
  const segments = [...kept, ...added].sort((a, b) => a.start - b.start);
  const names = [...state.names, ...added.map((s) => s.speaker).filter((name) => !state.names.includes(name))];
  const words = parleyGiveWords(state.words, segments, [...gone, ...added], preferred ?? added[0]?.speaker);
  const spoken = new Set([...segments.map((s) => s.speaker), ...words.map((w) => w.speaker)]);
  return { names: names.filter((name) => spoken.has(name)), segments, words };
}

// What is read together: words of one speaker without a pause of five seconds, unless somebody has said otherwise.
function parleyBeginsParagraph(words, i) {
  return i === 0 || words[i].speaker !== words[i - 1].speaker || (words[i].paragraph ?? words[i].start - words[i - 1].end > 5);
}

const PARLEY_EDITS = {
  // Another state as a whole: a result that was opened.
  become: (_, state) => state,

  // A speaker who is named like another becomes that one.
  rename(state, from, to) {
    if (!to || to === from || !state.names.includes(from)) return null;
    const renamed = (entry) => (entry.speaker === from ? { ...entry, speaker: to } : entry);
    return { names: [...new Set(state.names.map((name) => (name === from ? to : name)))],
             segments: state.segments.map((s) => (s.speaker === from ? { ...s, speaker: to, edited: true } : s)),
             words: state.words.map(renamed) };
  },

  assign(state, indices, name) {
    const changed = indices.filter((i) => state.segments[i] && state.segments[i].speaker !== name);
    if (!name || !changed.length) return null;
    return parleyReplaced(state, changed, changed.map((i) => ({ ...state.segments[i], speaker: name, edited: true })), name);
  },

  split(state, index, at) {
    const segment = state.segments[index];
    if (!segment || at - segment.start < PARLEY_SHORTEST || segment.end - at < PARLEY_SHORTEST) return null;
    return parleyReplaced(state, [index], [{ ...segment, end: at, edited: true }, { ...segment, start: at, edited: true }]);
  },

  move(state, index, side, to) {
    const segment = state.segments[index];
    if (!segment || segment[side] === to) return null;
    return parleyReplaced(state, [index], [{ ...segment, [side]: to, edited: true }]);
  },

  remove(state, indices) {
    return indices.some((i) => state.segments[i]) ? parleyReplaced(state, indices, []) : null;
  },

  add(state, start, end, name) {
    return name && end - start >= PARLEY_SHORTEST ? parleyReplaced(state, [], [{ start, end, speaker: name, edited: true }]) : null;
  },

  // Several become one, from the first's start to the last's end, with the first's speaker.
  join(state, indices) {
    const joined = indices.map((i) => state.segments[i]).filter(Boolean).sort((a, b) => a.start - b.start);
    if (joined.length < 2) return null;
    const comment = joined.map((s) => s.comment).filter(Boolean).join("; ");
    const { confidence, overlap, ...first } = joined[0];
    const end = Math.max(...joined.map((s) => s.end)), isOverlap = joined.every((s) => s.overlap);
    return parleyReplaced(state, indices, [{ ...first, end, ...(isOverlap ? { overlap } : {}), edited: true, ...(comment ? { comment } : {}) }]);
  },

  // Everybody with less than so many seconds goes to whoever speaks nearest.
  fold(state, seconds) {
    const talk = new Map(state.names.map((name) => [name, 0]));
    for (const s of state.segments) talk.set(s.speaker, talk.get(s.speaker) + s.end - s.start);
    const stays = (s) => talk.get(s.speaker) >= seconds;
    const staying = state.segments.filter(stays);
    const away = (a, b) => Math.max(0, b.start - a.end, a.start - b.end);
    if (!staying.length || staying.length === state.segments.length) return null;
    let next = state;
    state.segments.forEach((s, i) => {
      if (stays(s)) return;
      const nearest = staying.reduce((best, other) => (away(s, other) < away(s, best) ? other : best));
      next = PARLEY_EDITS.assign(next, [i], nearest.speaker) ?? next;
    });
    return next;
  },

  comment(state, index, text) {
    const { comment, ...segment } = state.segments[index] ?? {};
    if (segment.start === undefined || (comment ?? "") === text) return null;
    return { ...state, segments: state.segments.with(index, text ? { ...segment, edited: true, comment: text } : segment) };
  },

  // A paragraph begins with a word, or goes on with it: then its words are those of whoever speaks before.
  paragraph(state, index, begins) {
    const word = state.words[index], before = state.words[index - 1];
    if (!word || !before || begins === parleyBeginsParagraph(state.words, index)) return null;
    if (begins) return { ...state, words: state.words.with(index, { ...word, paragraph: true }) };
    let end = index + 1;
    while (end < state.words.length && !parleyBeginsParagraph(state.words, end)) end++;
    return { ...state, words: state.words.map((w, i) => (i < index || i >= end ? w : { ...w, speaker: before.speaker, ...(i === index ? { paragraph: false } : {}) })) };
  },

  // What was understood otherwise; nothing takes the word out.
  word(state, index, text) {
    const word = state.words[index];
    if (!word || word.text === text) return null;
    return { ...state, words: text ? state.words.with(index, { ...word, text }) : state.words.toSpliced(index, 1) };
  },
};
