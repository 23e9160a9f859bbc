// The engine in a thread of its own, so that pages stay responsive. Messages in: {open: URL of the model},
// {id, samples: Int16Array, channels, rate, name, options: [[name, text]]}, {id, write: format, answer}, {release: answer}.
// Messages out: {opened: formats}, {id, progress}, {id, answer, ...}, {id, bytes}, {id, error}.
import createCore from "./parley-core.js";

const OPTIONS_SIZE = 1024; // bytes: room for the record of options, which is filled by name alone
let core, diarizer, current;
const results = new Map(); // number of an answer: address
let next = 1;

// Runs `work` with the addresses of texts, which are released behind it.
function withTexts(texts, work) {
  const addresses = texts.map((text) => {
    const size = core.lengthBytesUTF8(text) + 1;
    const address = core._malloc(size);
    core.stringToUTF8(text, address, size);
    return address;
  });
  try {
    return work(...addresses);
  } finally {
    addresses.forEach((address) => core._free(address));
  }
}

function check(status) {
  if (status === 0) return;
  const error = new Error(core.UTF8ToString(core._parley_message()));
  error.status = status;
  throw error;
}

const text = (address) => core.UTF8ToString(core.HEAP32[address >> 2]);

function formats() {
  const found = [];
  for (let at; (at = core._parley_format_at(found.length)) !== 0; )
    found.push({ name: text(at), extension: text(at + 4), purpose: text(at + 8), mediaType: text(at + 12) });
  return found;
}

async function open(url) {
  const reply = await fetch(url);
  if (!reply.ok) throw new Error(`the model could not be loaded: ${reply.status}`);
  core = await createCore({ print: () => {}, onProgress: (fraction) => postMessage({ id: current, progress: fraction }) });
  const model = new Uint8Array(await reply.arrayBuffer());
  const bytes = core._malloc(model.length + 4);
  core.HEAPU8.set(model, bytes + 4);
  check(core._parley_open_memory(bytes + 4, model.length, bytes));
  diarizer = core.HEAP32[bytes >> 2];
  core._free(bytes);
}

// What the page gets to see of an answer, which stays here.
function shown(result) {
  const record = core._malloc(32);
  const segments = [], speakers = [];
  const round = (seconds) => Math.round(seconds * 1000) / 1000;
  for (let i = 0; i < core._parley_result_num_segments(result); i++) {
    core._parley_result_segment(record, result, i);
    const [start, end] = core.HEAPF64.subarray(record >> 3, (record >> 3) + 2);
    segments.push({ start: round(start), end: round(end), speaker: core.HEAP32[(record + 16) >> 2] + 1,
                    confidence: core.HEAPF64[(record + 24) >> 3] });
  }
  for (let i = 0; i < core._parley_result_num_speakers(result); i++) {
    core._parley_result_speaker(record, result, i);
    const embedding = core.HEAP32[(record + 16) >> 2] >> 2;
    speakers.push({ name: text(record), seconds: round(core.HEAPF64[(record + 8) >> 3]),
                    embedding: core.HEAPF32.slice(embedding, embedding + core.HEAP32[(record + 20) >> 2]) });
  }
  const peaks = core._parley_result_waveform(result, record, 0) >> 2;
  const waveform = core.HEAPF32.slice(peaks, peaks + core.HEAP32[record >> 2]);
  core._free(record);
  return { duration: core._parley_result_duration(result), note: core.UTF8ToString(core._parley_result_note(result)), segments,
           speakers, waveform };
}

function run({ samples, channels, rate, name, options }) {
  const pcm = core._malloc(samples.length * 2 + 2);
  const record = core._malloc(OPTIONS_SIZE), out = core._malloc(4);
  const texts = [name, ...options.flat()];
  try {
    if (!pcm) throw new Error("there is not enough memory");
    core.HEAP16.set(samples, pcm >> 1);
    core._parley_options_init(record);
    return withTexts(texts, (recording, ...pairs) => {
      for (let i = 0; i < pairs.length; i += 2) check(core._parley_options_set(record, pairs[i], pairs[i + 1]));
      check(core._parley_run(diarizer, pcm, samples.length / channels, channels, rate, recording, record, out));
      const result = core.HEAP32[out >> 2];
      const number = next++;
      results.set(number, result);
      return { answer: number, ...shown(result) };
    });
  } finally {
    [pcm, record, out].forEach((address) => core._free(address));
  }
}

function write(number, format) {
  const result = results.get(number);
  if (result === undefined) throw new Error("the answer was closed");
  const out = core._malloc(8);
  try {
    withTexts([format], (name) => check(core._parley_write_text(result, name, out, out + 4)));
    const [address, size] = core.HEAPU32.subarray(out >> 2, (out >> 2) + 2);
    const bytes = core.HEAPU8.slice(address, address + size);
    core._parley_free(address);
    return bytes;
  } finally {
    core._free(out);
  }
}

onmessage = async ({ data }) => {
  try {
    if (data.open) {
      await open(data.open);
      postMessage({ opened: formats() });
    } else if (data.release) {
      core._parley_result_delete(results.get(data.release) ?? 0);
      results.delete(data.release);
    } else if (data.write) {
      const bytes = write(data.answer, data.write);
      postMessage({ id: data.id, bytes }, [bytes.buffer]);
    } else {
      current = data.id;
      postMessage({ id: data.id, ...run(data) });
    }
  } catch (error) {
    postMessage({ id: data.id, error: error.message });
  }
};
