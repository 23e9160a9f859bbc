// SPDX-License-Identifier: Apache-2.0
// A corrected transcript as files: byte for byte what `parley convert` writes of the same result (diarization/transcripts).
"use strict";

const PARLEY_TRANSCRIPTS = {
  text: { label: "Text", extension: ".txt", write: (result) => parleyParagraphText(result, (name, time, text) => `${name} (${time}): ${text}\n`) },
  markdown: { label: "Markdown", extension: ".md", write: (result) => parleyParagraphText(result, (name, time, text) => `**${name}** ${time}  \n${text}\n`) },
  docx: { label: "Word", extension: ".docx", write: parleyDocx },
  srt: { label: "SRT", extension: ".srt", write: (result) => parleySubtitles(result, false) },
  vtt: { label: "WebVTT", extension: ".vtt", write: (result) => parleySubtitles(result, true) },
};

// What is read together: words of one speaker without a pause of five seconds.
function parleyParagraphs({ words }) {
  const paragraphs = [];
  words.forEach((word, i) => {
    const goesOn = i > 0 && word.speaker === words[i - 1].speaker && word.start - words[i - 1].end <= 5;
    if (goesOn) paragraphs.at(-1).push(word);
    else paragraphs.push([word]);
  });
  return paragraphs.map((own) => ({ name: own[0].speaker || "somebody", time: parleyWholeClock(own[0].start), text: own.map((w) => w.text).join(" ") }));
}

// 1:02:03, of the milliseconds' clock without them.
function parleyWholeClock(seconds) {
  return parleyClock(Math.floor(Math.round(seconds * 1000) / 1000));
}

function parleyParagraphText(result, write) {
  return parleyParagraphs(result).map(({ name, time, text }) => write(name, time, text)).join("\n");
}

// ---- Subtitles: at most two lines of 42 characters, of one speaker, as long on the screen as reading takes

function parleyColumns(text) {
  let columns = 0;
  for (const c of text) columns += /[\p{Mn}\p{Me}\p{Cf}]/u.test(c) ? 0 : /[\u1100-\u115f\u2e80-\u303e\u3041-\ua4cf\uac00-\ud7a3\uf900-\ufaff\ufe30-\ufe6f\uff00-\uff60\uffe0-\uffe6\u{1f300}-\u{1f64f}\u{1f900}-\u{1f9ff}\u{20000}-\u{3fffd}]/u.test(c) ? 2 : 1;
  return columns;
}

function parleySubtitles({ words }, vtt) {
  const LINE = 42, PACE = 17, SHORTEST = 1, LONGEST = 7, PAUSE = 1.5;
  const columns = words.map((w) => parleyColumns(w.text));
  const nameWidth = (i) => (vtt || !words[i].speaker ? 0 : parleyColumns(words[i].speaker) + 2);
  const width = (first, last) => columns.slice(first, last).reduce((sum, c) => sum + c, Math.max(0, last - first - 1));
  const inTwoLines = (first, last) => {
    const name = nameWidth(first);
    let best = { first, middle: last, last, longest: name + width(first, last) };
    for (let middle = first + 1; best.longest > LINE && middle < last; middle++) {
      const longest = Math.max(name + width(first, middle), width(middle, last));
      if (middle > first + 1 && longest > best.longest) break;
      if (longest < best.longest) best = { first, middle, last, longest };
    }
    return best;
  };
  const latestEnd = (first) => {
    let i = first + 1;
    while (i < words.length && words[i].speaker === words[first].speaker && words[i].start - words[i - 1].end <= PAUSE &&
           words[i].end - words[first].start <= LONGEST && inTwoLines(first, i + 1).longest <= LINE) i++;
    return i;
  };
  const bestEnd = (first, latest) => {
    if (latest === words.length || words[latest].speaker !== words[first].speaker) return latest;
    for (const marks of [".?!", ",;:"])
      for (let i = latest; i > first + Math.floor((latest - first) / 2); i--) if (marks.includes(words[i - 1].text.at(-1))) return i;
    return latest;
  };
  const subtitles = [];
  for (let first = 0; first < words.length; first = subtitles.at(-1).last) {
    const own = inTwoLines(first, bestEnd(first, latestEnd(first)));
    subtitles.push({ ...own, start: words[first].start, end: Math.max(...words.slice(first, own.last).map((w) => w.end)) });
  }
  const joined = (first, last) => words.slice(first, last).map((w) => w.text).join(" ");
  const decimal = vtt ? "." : ",";
  return (vtt ? "WEBVTT\n" : "") + subtitles.map((s, i) => {
    const wanted = s.start + Math.min(Math.max((width(s.first, s.last) + nameWidth(s.first)) / PACE, SHORTEST), LONGEST);
    const end = Math.max(s.end, Math.min(wanted, subtitles[i + 1]?.start ?? wanted));
    const lines = joined(s.first, s.middle) + (s.middle < s.last ? "\n" + joined(s.middle, s.last) : "");
    const { speaker } = words[s.first];
    const shown = !speaker ? (vtt ? parleyXml(lines) : lines) : vtt ? `<v ${parleyXml(speaker)}>${parleyXml(lines)}` : `${speaker}: ${lines}`;
    return `${vtt ? "\n" : i + 1 + "\n"}${parleyCaptionTime(s.start, decimal)} --> ${parleyCaptionTime(end, decimal)}\n${shown}${vtt ? "\n" : "\n\n"}`;
  }).join("");
}

// ---- Office Open XML

function parleyDocx(result) {
  const run = (properties, text) => `<w:r><w:rPr>${properties}</w:rPr><w:t xml:space="preserve">${text}</w:t></w:r>`;
  const body = parleyParagraphs(result).map(({ name, time, text }) =>
    `<w:p><w:pPr><w:spacing w:after="160"/></w:pPr>${run("<w:b/>", parleyXml(name))}${run('<w:color w:val="707070"/>', "  " + time)}` +
    `<w:r><w:br/></w:r>${run("", parleyXml(text))}</w:p>\n`).join("");
  const xml = '<?xml version="1.0" encoding="UTF-8"?>\n';
  const types = "application/vnd.openxmlformats-", schemas = "http://schemas.openxmlformats.org/";
  return parleyZip([
    ["[Content_Types].xml", `${xml}<Types xmlns="${schemas}package/2006/content-types"><Default Extension="rels" ContentType="${types}` +
      `package.relationships+xml"/><Override PartName="/word/document.xml" ContentType="${types}officedocument.wordprocessingml.document.main+xml"/></Types>\n`],
    ["_rels/.rels", `${xml}<Relationships xmlns="${schemas}package/2006/relationships"><Relationship Id="rId1" Type="${schemas}` +
      'officeDocument/2006/relationships/officeDocument" Target="word/document.xml"/></Relationships>\n'],
    ["word/document.xml", `${xml}<w:document xmlns:w="${schemas}wordprocessingml/2006/main"><w:body>\n<w:p>` +
      `${run('<w:b/><w:sz w:val="32"/>', parleyXml(result.data.recording))}</w:p>\n${body}</w:body></w:document>\n`],
  ]);
}

function parleyCrc(bytes) {
  parleyCrc.table ??= Uint32Array.from({ length: 256 }, (_, i) => {
    for (let bit = 0; bit < 8; bit++) i = (i >>> 1) ^ (i & 1 ? 0xedb88320 : 0);
    return i;
  });
  let crc = -1;
  for (const byte of bytes) crc = parleyCrc.table[(crc ^ byte) & 255] ^ (crc >>> 8);
  return ~crc >>> 0;
}

// An archive of files that are stored as they are.
function parleyZip(files) {
  const numbers = (...values) => values.flatMap(([size, value]) => Array.from({ length: size }, (_, i) => Math.floor(value / 256 ** i) % 256));
  const archive = [], directory = [];
  let at = 0;
  const put = (...parts) => parts.forEach((part) => { archive.push(Uint8Array.from(part)); at += part.length; });
  for (const [name, text] of files) {
    const [title, content] = [name, text].map((t) => new TextEncoder().encode(t));
    const fields = numbers([2, 20], [2, 2048], [2, 0], [2, 0], [2, 33], [4, parleyCrc(content)], [4, content.length], [4, content.length],
                           [2, title.length], [2, 0]);
    directory.push(...numbers([4, 0x02014b50], [2, 20]), ...fields, ...numbers([2, 0], [2, 0], [2, 0], [4, 0], [4, at]), ...title);
    put(numbers([4, 0x04034b50]), fields, title, content);
  }
  const start = at;
  put(directory, numbers([4, 0x06054b50], [4, 0], [2, files.length], [2, files.length], [4, directory.length], [4, start], [2, 0]));
  return new Uint8Array(archive.flatMap((part) => [...part]));
}
