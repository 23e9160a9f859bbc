// SPDX-License-Identifier: Apache-2.0
// The engine behind messages, in a thread of its own, so that pages stay responsive. Messages in: {open: bytes of the model},
// {id, samples: Int16Array, channels, rate, name, options: [[name, text]]}, {id, file: File, name, options},
// {id, write: format, result}, {id, again: options, result}, {release: result}; {id, words: {transcript, reach, byTime}, result},
// {id, transcript: format, result}, {id, read: text, name}; {id, keep: true, result}, {id, embeddings: Uint8Array, name, options};
// while it is recorded {id, listen: {channels, rate, name, options}}, {id, feed: Int16Array, session}, {id, update: share, session},
// {id, end: session}, {leave: session}; known voices {id, name: voices, result}, {id, remember: {voices, name, speaker}, result}.
// Messages out: {opened: formats, transcripts: formats}, {id, progress}, {id, result, ...}, {id, result: 0} for nothing new, {id, session}, {id, bytes},
// {id, voices}, {id, error, status}.
import createCore from "./parley-core.js";

const OPTIONS_SIZE = 1024; // bytes: room for the record of options, which is filled by name alone
let core, diarizer, current; // current: the call whose progress is told
const results = new Map(); // number of a result: address
const sessions = new Map(); // number of a session: {address, channels}
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

function formats(table) {
  const found = [];
  for (let at; (at = table(found.length)) !== 0; )
    found.push({ name: text(at), extension: text(at + 4), purpose: text(at + 8), mediaType: text(at + 12) });
  return found;
}

async function open(model, module, post) {
  core = await createCore({ ...module, print: () => {}, onProgress: (fraction) => post({ id: current, progress: fraction }) });
  readInBlocks(core.WORKERFS);
  const bytes = core._malloc(model.length + 4);
  core.HEAPU8.set(model, bytes + 4);
  check(core._parley_open_memory(bytes + 4, model.length, bytes));
  diarizer = core.HEAP32[bytes >> 2];
  core._free(bytes);
}

// What the page gets to see of a result, which stays here.
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
  const words = [];
  for (let i = 0; i < core._parley_result_num_words(result); i++) {
    core._parley_result_word(record, result, i);
    const [start, end] = core.HEAPF64.subarray(record >> 3, (record >> 3) + 2);
    words.push({ start: round(start), end: round(end), text: text(record + 16), speaker: text(record + 20) });
  }
  const peaks = core._parley_result_waveform(result, record, 0) >> 2;
  const waveform = core.HEAPF32.slice(peaks, peaks + core.HEAP32[record >> 2]);
  core._free(record);
  return { duration: core._parley_result_duration(result), note: core.UTF8ToString(core._parley_result_note(result)), segments,
           speakers, words, waveform };
}

// Calls `work` with the addresses of the name, of the options' record and of room for what is made.
function withOptions(name, options, work) {
  const record = core._malloc(OPTIONS_SIZE), out = core._malloc(4);
  try {
    core._parley_options_init(record, OPTIONS_SIZE);
    return withTexts([name, ...options.flat()], (recording, ...pairs) => {
      for (let i = 0; i < pairs.length; i += 2) check(core._parley_options_set(record, pairs[i], pairs[i + 1]));
      return work(recording, record, out);
    });
  } finally {
    [record, out].forEach((address) => core._free(address));
  }
}

// Calls `work` with the address of a copy of an Int16Array or a Uint8Array.
function withCopy(values, work) {
  const copy = core._malloc(values.byteLength + 1);
  if (!copy) throw new Error("there is not enough memory");
  try {
    core.HEAPU8.set(new Uint8Array(values.buffer, values.byteOffset, values.byteLength), copy);
    return work(copy);
  } finally {
    core._free(copy);
  }
}

function kept(result) {
  const number = next++;
  results.set(number, result);
  return { result: number, ...shown(result) };
}

// C's library reads a kilobyte at a time, and each read of a Blob goes through the browser: so four megabytes come at once.
function readInBlocks(files) {
  const BLOCK = 1 << 22;
  let kept = { bytes: new Uint8Array(0) };
  files.stream_ops.read = ({ node }, buffer, offset, length, position) => {
    if (position >= node.size) return 0;
    if (kept.node !== node || position < kept.from || position >= kept.from + kept.bytes.length) {
      const from = position - (position % BLOCK), blob = node.contents.slice(from, Math.min(from + BLOCK, node.size));
      kept = { node, from, bytes: new Uint8Array(files.reader.readAsArrayBuffer(blob)) };
    }
    const piece = kept.bytes.subarray(position - kept.from, position - kept.from + length);
    buffer.set(piece, offset);
    return piece.length;
  };
}

// A file is read in pieces while it is decoded: nothing of it is held but samples at 16 kHz. `file`: what a File is, size and slice.
function runFile({ file, name, options }) {
  const FOLDER = "/in", path = `${FOLDER}/recording`;
  if (!core.FS.analyzePath(FOLDER).exists) core.FS.mkdir(FOLDER);
  core.FS.mount(core.WORKERFS, { blobs: [{ name: "recording", data: file }] }, FOLDER);
  try {
    return withOptions(name, options, (recording, record, out) => withTexts([path], (place) => {
      check(core._parley_run_file(diarizer, place, record, out));
      const result = core.HEAP32[out >> 2];
      check(core._parley_result_rename(result, recording));
      return kept(result);
    }));
  } catch (error) {
    error.message = error.message.replaceAll(path, name);
    throw error;
  } finally {
    core.FS.unmount(FOLDER);
  }
}

function run({ samples, channels, rate, name, options }) {
  return withCopy(samples, (pcm) => withOptions(name, options, (recording, record, out) => {
    check(core._parley_run(diarizer, pcm, samples.length / channels, channels, rate, recording, record, out));
    return kept(core.HEAP32[out >> 2]);
  }));
}

// The same recording with other options, from what the result has kept.
function again({ result, again: options }) {
  return withOptions("", options, (_, record, out) => {
    check(core._parley_recluster(diarizer, resultOf(result), record, out));
    return kept(core.HEAP32[out >> 2]);
  });
}

// The same from what a result has kept, as bytes.
function readEmbeddings({ embeddings, name, options }) {
  return withCopy(embeddings, (bytes) => withOptions(name, options, (recording, record, out) => {
    check(core._parley_read_embeddings(diarizer, bytes, embeddings.length, recording, record, out));
    return kept(core.HEAP32[out >> 2]);
  }));
}

// ---- While it is recorded

function listen({ channels, rate, name, options }) {
  return withOptions(name, options, (recording, record, out) => {
    check(core._parley_listen(diarizer, recording, channels, rate, record, out));
    const number = next++;
    sessions.set(number, { address: core.HEAP32[out >> 2], channels });
    return { session: number };
  });
}

function session(number) {
  const found = sessions.get(number);
  if (!found) throw new Error("the session was closed");
  return found;
}

// What a call of a session makes: a result, or nothing new.
function made(call) {
  const out = core._malloc(4);
  try {
    check(call(out));
    const result = core.HEAP32[out >> 2];
    return result ? kept(result) : { result: 0 };
  } finally {
    core._free(out);
  }
}

function leave(number) {
  core._parley_session_delete(sessions.get(number)?.address ?? 0);
  sessions.delete(number);
}

// The bytes that `call` writes of a result.
function written(number, call) {
  const result = resultOf(number);
  const out = core._malloc(8);
  try {
    check(call(result, out, out + 4));
    const [address, size] = core.HEAPU32.subarray(out >> 2, (out >> 2) + 2);
    const bytes = core.HEAPU8.slice(address, address + size);
    core._parley_free(address);
    return bytes;
  } finally {
    core._free(out);
  }
}

// `call`: parley_write_text or parley_write_words.
function formatted(number, call, format) {
  return withTexts([format], (name) => written(number, (result, block, size) => call(result, name, block, size)));
}

function addWords(number, { transcript, reach, byTime }) {
  const result = resultOf(number);
  withTexts([transcript], (words) => check(core._parley_result_add_words(result, words, core.lengthBytesUTF8(transcript), reach, byTime ? 1 : 0)));
  return shown(result);
}

function read(text, name) {
  return withTexts([text, name], (start, file) => made((out) => core._parley_read_result(start, core.lengthBytesUTF8(text), file, out)));
}

// ---- Known voices

function resultOf(number) {
  const result = results.get(number);
  if (result === undefined) throw new Error("the result was closed");
  return result;
}

function name(number, voices) {
  const result = resultOf(number);
  withTexts([voices], (text) => check(core._parley_result_name_voices(result, text, 0)));
  return shown(result);
}

function remember(number, { voices, name, speaker, start = 0, end = 0 }) {
  const out = core._malloc(4);
  try {
    withTexts([voices, name], (list, person) => check(core._parley_voices_add(list, person, resultOf(number), speaker, start, end, out)));
    const address = core.HEAP32[out >> 2];
    const added = core.UTF8ToString(address);
    core._parley_free(address);
    return { voices: added };
  } finally {
    core._free(out);
  }
}

// Does what a message asks for and replies by `post(message, what goes over instead of being copied)`. `module`: what the engine's
// loader needs to know of its place.
export async function serve(data, post, module = {}) {
  try {
    if (data.open) {
      await open(data.open, module, post);
      post({ opened: formats(core._parley_format_at), transcripts: formats(core._parley_transcript_format_at) });
    } else if (data.release) {
      core._parley_result_delete(results.get(data.release) ?? 0);
      results.delete(data.release);
    } else if (data.listen) {
      post({ id: data.id, ...listen(data.listen) });
    } else if (data.feed) {
      const { address, channels } = session(data.session);
      withCopy(data.feed, (pcm) => check(core._parley_session_feed(address, pcm, data.feed.length / channels)));
      post({ id: data.id });
    } else if (data.update !== undefined) {
      post({ id: data.id, ...made((out) => core._parley_session_update(session(data.session).address, data.update, out)) });
    } else if (data.end) {
      post({ id: data.id, ...made((out) => core._parley_session_end(session(data.end).address, out)) });
      leave(data.end);
    } else if (data.leave) {
      leave(data.leave);
    } else if (data.name !== undefined && data.result) { // of a result, not of a recording
      post({ id: data.id, ...name(data.result, data.name) });
    } else if (data.again) {
      post({ id: data.id, ...again(data) });
    } else if (data.remember) {
      post({ id: data.id, ...remember(data.result, data.remember) });
    } else if (data.write || data.transcript || data.keep) {
      const bytes = data.keep ? written(data.result, core._parley_write_embeddings)
        : data.write ? formatted(data.result, core._parley_write_text, data.write)
        : formatted(data.result, core._parley_write_words, data.transcript);
      post({ id: data.id, bytes }, [bytes.buffer]);
    } else if (data.embeddings) {
      post({ id: data.id, ...readEmbeddings(data) });
    } else if (data.words) {
      post({ id: data.id, ...addWords(data.result, data.words) });
    } else if (data.read !== undefined) {
      post({ id: data.id, ...read(data.read, data.name) });
    } else {
      current = data.id;
      post({ id: data.id, ...(data.file ? runFile(data) : run(data)) });
    }
  } catch (error) {
    post({ id: data.id, error: error.message, status: error.status });
  }
}
