// SPDX-License-Identifier: Apache-2.0
// A corrected result as files: byte for byte what the tool writes of the same result (diarization/output-formats), but for the picture.
"use strict";

const PARLEY_WRITERS = {
  text: { label: "Text", extension: ".txt", write: parleyText },
  rttm: { label: "RTTM", extension: ".rttm", write: parleyRttm },
  json: { label: "JSON", extension: ".json", write: parleyJson },
  jsonl: { label: "JSON, one line", extension: ".jsonl", write: parleyJsonLine },
  csv: { label: "CSV", extension: ".csv", write: parleyCsv },
  vtt: { label: "WebVTT", extension: ".vtt", write: parleyVtt },
  srt: { label: "SRT", extension: ".srt", write: parleySrt },
  textgrid: { label: "Praat TextGrid", extension: ".TextGrid", write: parleyTextGrid },
  eaf: { label: "ELAN", extension: ".eaf", write: parleyEaf },
  audacity: { label: "Audacity labels", extension: ".labels.txt", write: parleyAudacity },
  ctm: { label: "CTM", extension: ".ctm", write: parleySpeakerCtm },
  uem: { label: "UEM", extension: ".uem", write: ({ data }) => `${parleyField(data.recording)} 1 0.000 ${data.duration.toFixed(3)}\n` },
  svg: { label: "Drawing (SVG)", extension: ".svg", type: "image/svg+xml", write: parleySvg },
  png: { label: "Picture (PNG)", extension: ".png", type: "image/png", write: parleyPng },
};

const parleyXml = (text) => text.replace(/[\0-\x08\x0b-\x1f]/g, "")
  .replace(/[&<>"]/g, (c) => ({ "&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;" })[c]);
const parleyOneLine = (text) => text.replace(/[\n\r]/g, " ");
const parleyField = (text) => text.replace(/[ \t\n\v\f\r]/g, "_") || "<NA>"; // NIST's are separated by spaces

function parleyCaptionTime(seconds, decimal) {
  const ms = Math.round(seconds * 1000), pad = (value, to) => String(value).padStart(to, "0");
  return [Math.floor(ms / 3600000), Math.floor(ms / 60000) % 60, Math.floor(ms / 1000) % 60].map((v) => pad(v, 2)).join(":") +
    decimal + pad(ms % 1000, 3);
}

function parleyRttm(result) {
  return result.segments.map((s) => `SPEAKER ${parleyField(result.data.recording)} 1 ${s.start.toFixed(3)} ` +
    `${(s.end - s.start).toFixed(3)} <NA> <NA> ${parleyField(s.speaker)} <NA> <NA>\n`).join("");
}

// Numbers as the tool's library has them: whole ones with a point, small ones with an exponent of two digits.
function parleyNumber(value) {
  if (Number.isInteger(value)) return value + ".0";
  return Math.abs(value) < 1e-4 ? value.toExponential().replace(/(e[+-])(\d)$/, "$10$2") : String(value);
}

// A line a value, but for lists of numbers and words, which take one together.
function parleyPrettyJson(value, indent = "") {
  if (typeof value === "number") return parleyNumber(value);
  if (typeof value !== "object") return JSON.stringify(value);
  const inner = indent + " ", isList = Array.isArray(value);
  if (isList && value.length && value.every((v) => typeof v !== "object")) return `[${value.map((v) => parleyPrettyJson(v, inner)).join(", ")}]`;
  const parts = isList ? value.map((v) => parleyPrettyJson(v, inner))
    : Object.entries(value).map(([k, v]) => `${JSON.stringify(k)}: ${parleyPrettyJson(v, inner)}`);
  const [open, close] = isList ? "[]" : "{}";
  return parts.length ? `${open}\n${inner}${parts.join(",\n" + inner)}\n${indent}${close}` : open + close;
}

function parleyEverything(result) {
  const { recording, path, duration, note, schema, model } = result.data, { speakers, segments, words } = result;
  return { schema, recording, path, duration, ...(model ? { model } : {}), speakers, segments, ...(words.length ? { words } : {}), ...(note ? { note } : {}) };
}

function parleyJson(result) {
  return parleyPrettyJson(parleyEverything(result)) + "\n";
}

function parleyJsonLine(result) {
  const dump = (value) => typeof value === "number" ? parleyNumber(value) : typeof value !== "object" ? JSON.stringify(value)
    : Array.isArray(value) ? `[${value.map(dump)}]` : `{${Object.entries(value).map(([k, v]) => `${JSON.stringify(k)}:${dump(v)}`)}}`;
  return dump(parleyEverything(result)) + "\n";
}

const parleyIsSure = (result) => result.segments.some((s) => s.confidence !== undefined);

function parleyText(result) {
  const isSure = parleyIsSure(result);
  return result.segments.map((s) => `${s.start.toFixed(3).padStart(9)} ${s.end.toFixed(3).padStart(9)}  ${s.speaker}` +
    `${isSure ? `  ${parleyFixed(s.confidence ?? 0, 2)}` : ""}\n`).join("");
}

function parleySpeakerCtm(result) {
  const isSure = parleyIsSure(result);
  return result.segments.map((s) => `${parleyField(result.data.recording)} 1 ${s.start.toFixed(3)} ${(s.end - s.start).toFixed(3)} ${parleyField(s.speaker)}` +
    `${isSure ? ` ${parleyFixed(s.confidence ?? 0, 2)}` : ""}\n`).join("");
}

// As C rounds: what lies exactly in the middle goes to the even digit.
function parleyFixed(value, digits) {
  const exact = value.toFixed(60), cut = exact.length - 60 + digits - (digits ? 0 : 1);
  const isMiddle = /^\.?50*$/.test(exact.slice(cut)), lower = exact.slice(0, cut);
  return isMiddle && Number(lower.at(-1)) % 2 === 0 ? lower : value.toFixed(digits);
}

// The timeline as a drawing: text stays text, and what a reader of screens says is there. Points.
function parleySvg({ data: { recording, duration }, names, segments }) {
  const WIDTH = 1200, MARGIN = 16, LANE = 34, AXIS = 34, TITLE = 36, CHARACTER = 7.5, STEPS = [0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400];
  const height = TITLE + LANE * Math.max(1, names.length) + AXIS, bottom = height - AXIS, right = WIDTH - MARGIN, f = parleyFixed;
  const left = Math.min(Math.max(60, ...names.map((name) => CHARACTER * parleyColumns(name))), WIDTH / 3) + 2 * MARGIN;
  const xOf = (seconds) => left + (right - left) * seconds / Math.max(duration, 1e-3);
  const textAt = (x, y, more, text) => `<text x="${f(x, 2)}" y="${f(y, 2)}"${more}>${parleyXml(text)}</text>\n`;
  const tick = STEPS.find((step) => duration / step <= 12) ?? 28800;
  let text = `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${WIDTH} ${height}" font-family="sans-serif" font-size="13" role="img">\n` +
    `<title>${parleyXml(recording)}</title>\n<desc>Who spoke when: ${names.length} speakers in ${parleyClock(duration, 3)}</desc>\n` +
    `<rect width="100%" height="100%" fill="#ffffff"/>\n` + textAt(MARGIN, 24, ' font-size="15" fill="#222222"', `${recording}  ${parleyClock(duration, 3)}`);
  for (let i = 0; i * tick <= duration; i++) {
    const x = Math.round(xOf(i * tick)) + 0.5;
    text += `<path d="M${f(x, 1)} ${TITLE}V${bottom + 4}" stroke="#dddddd"/>\n` + textAt(Math.min(x, right), bottom + 20,
      ` text-anchor="${x > right - 40 ? "end" : "middle"}" fill="#555555"`, parleyClock(i * tick, 3).slice(0, tick < 1 ? -2 : -4));
  }
  names.forEach((name, k) => {
    const top = TITLE + LANE * k;
    text += textAt(MARGIN, top + LANE / 2 + 5, ' fill="#222222"', name) + `<g fill="${PARLEY_COLORS[k % PARLEY_COLORS.length]}">\n` +
      segments.filter((s) => s.speaker === name).map((s) => `<rect x="${f(xOf(s.start), 2)}" y="${f(top + 5, 2)}" ` +
        `width="${f(Math.max(0.5, xOf(s.end) - xOf(s.start)), 2)}" height="${LANE - 10}"/>\n`).join("") + "</g>\n";
  });
  return text + "</svg>\n";
}

// The same as a picture, of the tool's size and with the browser's letters: a promise of a Blob.
async function parleyPng(result) {
  const PIXELS = 2; // a point
  const svg = parleySvg(result), [width, height] = /viewBox="0 0 (\d+) (\d+)"/.exec(svg).slice(1).map((points) => points * PIXELS);
  const image = new Image(width, height); // browsers draw no image of a size that nobody states
  image.src = "data:image/svg+xml," + encodeURIComponent(svg.replace("<svg ", `<svg width="${width}" height="${height}" `));
  await image.decode();
  const canvas = Object.assign(parleyElement("canvas"), { width, height });
  canvas.getContext("2d").drawImage(image, 0, 0);
  return new Promise((resolve, reject) => canvas.toBlob((blob) => (blob ? resolve(blob) : reject(new Error("is too large for a picture."))), "image/png"));
}

function parleyCsv(result) {
  const quoted = (text) => (/[,"\r\n]/.test(text) ? '"' + text.replaceAll('"', '""') + '"' : text);
  const isSure = parleyIsSure(result);
  const row = (s) => [quoted(result.data.recording), s.start.toFixed(3), s.end.toFixed(3), (s.end - s.start).toFixed(3),
                      quoted(s.speaker), ...(isSure ? [(s.confidence ?? 0).toFixed(3)] : [])].join(",") + "\r\n";
  return `recording,start,end,duration,speaker${isSure ? ",confidence" : ""}\r\n` + result.segments.map(row).join("");
}

// Without second speakers, whom captions leave out.
const parleyExclusive = (result) => result.segments.filter((s) => !s.overlap);

function parleyVtt(result) {
  return "WEBVTT\n" + parleyExclusive(result).map((s) => {
    const name = parleyXml(parleyOneLine(s.speaker));
    return `\n${parleyCaptionTime(s.start, ".")} --> ${parleyCaptionTime(s.end, ".")}\n<v ${name}>${name}\n`;
  }).join("");
}

function parleySrt(result) {
  return parleyExclusive(result).map((s, i) => `${i + 1}\n${parleyCaptionTime(s.start, ",")} --> ${parleyCaptionTime(s.end, ",")}\n` +
    `${parleyOneLine(s.speaker)}\n\n`).join("");
}

function parleyAudacity(result) {
  return result.segments.map((s) => `${s.start.toFixed(3)}\t${s.end.toFixed(3)}\t${s.speaker.replace(/[\t\n\r]/g, " ")}\n`).join("");
}

// A tier must be gapless in Praat: what lies between a speaker's segments are intervals without text.
function parleyTextGrid(result) {
  const quoted = (text) => '"' + text.replaceAll('"', '""') + '"';
  const duration = result.data.duration.toFixed(3);
  const tiers = result.names.map((name, k) => {
    const intervals = [];
    let at = "0.000";
    const add = (until, text) => {
      if (Number(until) <= Number(at)) return;
      intervals.push([at, until, text]);
      at = until;
    };
    for (const s of result.segments.filter((s) => s.speaker === name)) {
      add(s.start.toFixed(3), "");
      add(s.end.toFixed(3), name);
    }
    add(duration, "");
    return `    item [${k + 1}]:\n        class = "IntervalTier"\n        name = ${quoted(name)}\n        xmin = 0\n` +
      `        xmax = ${duration}\n        intervals: size = ${intervals.length}\n` +
      intervals.map(([from, to, text], i) => `        intervals [${i + 1}]:\n            xmin = ${from}\n            xmax = ${to}\n` +
        `            text = ${quoted(text)}\n`).join("");
  });
  return `File type = "ooTextFile"\nObject class = "TextGrid"\n\nxmin = 0\nxmax = ${duration}\ntiers? <exists>\n` +
    `size = ${result.names.length}\nitem []:\n${tiers.join("")}`;
}

function parleyEaf(result) {
  const { media } = result.data;
  // Slots come in order of time; annotation n begins at slot 2 n and ends at slot 2 n + 1.
  const slots = result.segments.flatMap((s, n) => [[s.start, 2 * n], [s.end, 2 * n + 1]]).sort((a, b) => a[0] - b[0])
    .map(([seconds, slot]) => `        <TIME_SLOT TIME_SLOT_ID="ts${slot}" TIME_VALUE="${Math.round(seconds * 1000)}"/>\n`);
  const tiers = result.names.map((name) => {
    const shown = parleyXml(name);
    const own = result.segments.map((s, n) => s.speaker !== name ? "" :
      `        <ANNOTATION>\n            <ALIGNABLE_ANNOTATION ANNOTATION_ID="a${n}" TIME_SLOT_REF1="ts${2 * n}" ` +
      `TIME_SLOT_REF2="ts${2 * n + 1}">\n                <ANNOTATION_VALUE>${shown}</ANNOTATION_VALUE>\n` +
      `            </ALIGNABLE_ANNOTATION>\n        </ANNOTATION>\n`);
    return `    <TIER LINGUISTIC_TYPE_REF="default-lt" PARTICIPANT="${shown}" TIER_ID="${shown}">\n${own.join("")}    </TIER>\n`;
  });
  const date = new Date().toISOString().slice(0, 19) + "+00:00";
  return `<?xml version="1.0" encoding="UTF-8"?>
<ANNOTATION_DOCUMENT AUTHOR="parley" DATE="${date}" FORMAT="3.0" VERSION="3.0" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:noNamespaceSchemaLocation="http://www.mpi.nl/tools/elan/EAFv3.0.xsd">
    <HEADER MEDIA_FILE="" TIME_UNITS="milliseconds">
        <MEDIA_DESCRIPTOR MEDIA_URL="${parleyXml(media.url)}" MIME_TYPE="${media.type}" RELATIVE_MEDIA_URL="${parleyXml(media.beside)}"/>
    </HEADER>
    <TIME_ORDER>
${slots.join("")}    </TIME_ORDER>
${tiers.join("")}    <LINGUISTIC_TYPE GRAPHIC_REFERENCES="false" LINGUISTIC_TYPE_ID="default-lt" TIME_ALIGNABLE="true"/>
</ANNOTATION_DOCUMENT>
`;
}
