// SPDX-License-Identifier: Apache-2.0
// A corrected transcript as files: byte for byte what `parley convert` writes of the same result (diarization/transcripts).
"use strict";

const PARLEY_TRANSCRIPTS = {
  text: { label: "Text", extension: ".txt", write: (result) => parleyParagraphText(result, (name, time, text) => `${name} (${time}): ${text}\n`) },
  markdown: { label: "Markdown", extension: ".md", write: (result) => parleyParagraphText(result, (name, time, text) => `**${name}** ${time}  \n${text}\n`) },
  docx: { label: "Word", extension: ".docx", write: parleyDocx },
  odt: { label: "LibreOffice", extension: ".odt", write: parleyOdt },
  srt: { label: "SRT", extension: ".srt", write: (result) => parleySubtitles(result, false) },
  vtt: { label: "WebVTT", extension: ".vtt", write: (result) => parleySubtitles(result, true) },
  tei: { label: "TEI", extension: ".xml", write: parleyTei },
  ctm: { label: "CTM", extension: ".ctm", write: parleyCtm },
  stm: { label: "STM", extension: ".stm", write: parleyStm },
};

function parleyParagraphs({ words }) {
  const paragraphs = [];
  words.forEach((word, i) => {
    if (parleyBeginsParagraph(words, i)) paragraphs.push([word]);
    else paragraphs.at(-1).push(word);
  });
  return paragraphs.map((own) => ({ words: own, speaker: own[0].speaker, name: own[0].speaker || "somebody", time: parleyWholeClock(own[0].start),
                                    text: own.map((w) => w.text).join(" ") }));
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

// ---- For programs and corpora

function parleyCtm({ words, data }) {
  return words.map((w) => `${parleyField(data.recording)} 1 ${w.start.toFixed(3)} ${(w.end - w.start).toFixed(3)} ${parleyField(w.text)} NA lex ` +
    `${w.speaker ? parleyField(w.speaker) : "unknown"}\n`).join("");
}

function parleyStm(result) {
  return parleyParagraphs(result).map(({ words, speaker, text }) => `${parleyField(result.data.recording)} 1 ${speaker ? parleyField(speaker) : "unknown"} ` +
    `${words[0].start.toFixed(3)} ${words.at(-1).end.toFixed(3)} ${text}\n`).join("");
}

// Times are points of one timeline, to which words are tied by anchors (ISO 24624).
function parleyTei(result) {
  const people = new Map(), points = [];
  const point = (seconds) => `T${points.push(`    <when xml:id="T${points.length + 1}" interval="${seconds.toFixed(3)}" since="#T0"/>\n`)}`;
  const body = parleyParagraphs(result).map(({ words, speaker, name }) => {
    if (!people.has(speaker)) people.set(speaker, [`P${people.size + 1}`, name]);
    const start = point(words[0].start);
    const text = words.map((w, i) => (i ? `<anchor synch="#${point(w.start)}"/>` : "") + `<w>${parleyXml(w.text)}</w>`).join("");
    return `    <annotationBlock who="#${people.get(speaker)[0]}" start="#${start}" end="#${point(words.at(-1).end)}"><u>${text}</u></annotationBlock>\n`;
  });
  const persons = [...people.values()].map(([id, name]) => `    <person xml:id="${id}"><persName>${parleyXml(name)}</persName></person>\n`);
  return `<?xml version="1.0" encoding="UTF-8"?>
<TEI xmlns="http://www.tei-c.org/ns/1.0">
<teiHeader>
  <fileDesc>
    <titleStmt><title>${parleyXml(result.data.recording)}</title></titleStmt>
    <publicationStmt><p>Transcript with speakers.</p></publicationStmt>
    <sourceDesc><p>A recording.</p></sourceDesc>
  </fileDesc>
  <profileDesc><particDesc>
${persons.join("")}  </particDesc></profileDesc>
</teiHeader>
<text>
  <timeline unit="s" origin="#T0">
    <when xml:id="T0"/>
${points.join("")}  </timeline>
  <body>
${body.join("")}  </body>
</text>
</TEI>
`;
}

// ---- Documents: Office Open XML, OpenDocument

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

function parleyOdt(result) {
  const xml = '<?xml version="1.0" encoding="UTF-8"?>\n', type = "application/vnd.oasis.opendocument.text";
  const space = (prefix, name) => ` xmlns:${prefix}="urn:oasis:names:tc:opendocument:xmlns:${name}:1.0"`;
  const entry = (name) => `<manifest:file-entry manifest:full-path="${name}" manifest:media-type="text/xml"/>`;
  const style = (name, family, properties) => `<style:style style:name="${name}" style:family="${family}">${properties}</style:style>`;
  const body = parleyParagraphs(result).map(({ name, time, text }) => `<text:p text:style-name="turn"><text:span text:style-name="name">${parleyXml(name)}` +
    `</text:span><text:span text:style-name="time"><text:s text:c="2"/>${time}</text:span><text:line-break/>${parleyXml(text)}</text:p>\n`).join("");
  return parleyZip([
    ["mimetype", type],
    ["META-INF/manifest.xml", `${xml}<manifest:manifest${space("manifest", "manifest")} manifest:version="1.2"><manifest:file-entry manifest:full-path="/" ` +
      `manifest:media-type="${type}"/>${entry("content.xml")}${entry("styles.xml")}</manifest:manifest>\n`],
    ["styles.xml", `${xml}<office:document-styles${space("office", "office")} office:version="1.2"/>\n`],
    ["content.xml", `${xml}<office:document-content${space("office", "office")}${space("text", "text")}${space("style", "style")}` +
      `${space("fo", "xsl-fo-compatible")} office:version="1.2"><office:automatic-styles>` +
      style("turn", "paragraph", '<style:paragraph-properties fo:margin-bottom="0.3cm"/>') +
      style("name", "text", '<style:text-properties fo:font-weight="bold"/>') +
      style("time", "text", '<style:text-properties fo:color="#707070"/>') +
      '</office:automatic-styles><office:body><office:text>\n<text:h text:outline-level="1">' +
      `${parleyXml(result.data.recording)}</text:h>\n${body}</office:text></office:body></office:document-content>\n`],
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
