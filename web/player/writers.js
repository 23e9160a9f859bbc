// SPDX-License-Identifier: Apache-2.0
// A corrected result as files: byte for byte what the tool writes of the same result (diarization/output-formats).
"use strict";

const PARLEY_WRITERS = {
  rttm: { label: "RTTM", extension: ".rttm", write: parleyRttm },
  json: { label: "JSON", extension: ".json", write: parleyJson },
  csv: { label: "CSV", extension: ".csv", write: parleyCsv },
  vtt: { label: "WebVTT", extension: ".vtt", write: parleyVtt },
  srt: { label: "SRT", extension: ".srt", write: parleySrt },
  textgrid: { label: "Praat TextGrid", extension: ".TextGrid", write: parleyTextGrid },
  eaf: { label: "ELAN", extension: ".eaf", write: parleyEaf },
  audacity: { label: "Audacity labels", extension: ".labels.txt", write: parleyAudacity },
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

function parleyJson(result) {
  const { recording, path, duration, note, schema, model } = result.data, { speakers, segments, words } = result;
  return parleyPrettyJson({ schema, recording, path, duration, ...(model ? { model } : {}), speakers, segments, ...(words.length ? { words } : {}),
                            ...(note ? { note } : {}) }) + "\n";
}

function parleyCsv(result) {
  const quoted = (text) => (/[,"\r\n]/.test(text) ? '"' + text.replaceAll('"', '""') + '"' : text);
  const isSure = result.segments.some((s) => s.confidence !== undefined);
  const row = (s) => [quoted(result.data.recording), s.start.toFixed(3), s.end.toFixed(3), (s.end - s.start).toFixed(3),
                      quoted(s.speaker), ...(isSure ? [(s.confidence ?? 0).toFixed(3)] : [])].join(",") + "\r\n";
  return `recording,start,end,duration,speaker${isSure ? ",confidence" : ""}\r\n` + result.segments.map(row).join("");
}

function parleyVtt(result) {
  return "WEBVTT\n" + result.segments.map((s) => {
    const name = parleyXml(parleyOneLine(s.speaker));
    return `\n${parleyCaptionTime(s.start, ".")} --> ${parleyCaptionTime(s.end, ".")}\n<v ${name}>${name}\n`;
  }).join("");
}

function parleySrt(result) {
  return result.segments.map((s, i) => `${i + 1}\n${parleyCaptionTime(s.start, ",")} --> ${parleyCaptionTime(s.end, ",")}\n` +
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
