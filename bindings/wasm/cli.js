#!/usr/bin/env node
// SPDX-License-Identifier: Apache-2.0
// npx parley meeting.wav: the small command. The tool of the project (parley) does much more.
import { writeFile } from "node:fs/promises";
import { parseArgs } from "node:util";

import { Parley } from "./parley-node.js";

const USAGE = `Usage: parley [-f FORMAT] [-n SPEAKERS] [-o FILE] AUDIO

Says who spoke when. FORMAT: text (the default), rttm, json, srt, vtt, csv, textgrid, html and so on.`;

async function main() {
  const { values, positionals } = parseArgs({
    allowPositionals: true,
    options: { format: { type: "string", short: "f", default: "text" }, speakers: { type: "string", short: "n" },
               output: { type: "string", short: "o" }, help: { type: "boolean", short: "h" } } });
  if (values.help || positionals.length !== 1) {
    (values.help ? console.log : console.error)(USAGE);
    return values.help ? 0 : 2;
  }
  const parley = await Parley.load();
  try {
    if (!parley.formats.some(({ name }) => name === values.format)) throw new Error(`unknown format ${values.format}`);
    const result = await parley.diarize(positionals[0], { numSpeakers: values.speakers });
    const bytes = await result.bytes(values.format);
    if (values.output) await writeFile(values.output, bytes);
    else process.stdout.write(bytes);
    if (result.note) console.error(`parley: ${result.note}`);
    return 0;
  } finally {
    parley.close();
  }
}

try {
  process.exitCode = await main();
} catch (error) {
  console.error(`parley: ${error.message}`);
  process.exitCode = error.code?.startsWith("ERR_PARSE_ARGS") ? 2 : 1;
}
