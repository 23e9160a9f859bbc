// The engine in a thread of its own, so that pages stay responsive. Messages in: {open: URL of the model},
// {id, samples: Int16Array at 16 kHz}. Messages out: {opened: true}, {id, progress}, {id, segments}, {id, error}.
import createCore from "./parley-core.js";

const FRAME = 512 / 16000; // seconds; the C interface gives the start of a segment's last frame
let core, engine, current;

async function open(url) {
  const reply = await fetch(url);
  if (!reply.ok) throw new Error(`the model could not be loaded: ${reply.status}`);
  core = await createCore({
    print: () => {}, // notices of failures: the messages come with the error
    onProgress: (fraction) => postMessage({ id: current, progress: fraction }),
  });
  core.FS.writeFile("/parley.zx", new Uint8Array(await reply.arrayBuffer()));
  engine = core._parley_open();
  if (!engine) throw new Error(core.UTF8ToString(core._parley_messages()));
}

function run(samples) {
  const bytes = samples.length * 2;
  const pcm = core._malloc(bytes + 4);
  if (!pcm) throw new Error("out of memory");
  try {
    const out = pcm + ((bytes + 3) & ~3); // the address of the records goes behind the samples
    core.HEAP16.set(samples, pcm >> 1);
    const count = core._parley_run(engine, pcm, samples.length, out);
    if (count < 0) throw new Error(core.UTF8ToString(core._parley_messages()) || `status ${-count}`);
    const records = core.HEAP32[out >> 2];
    const segments = [];
    for (let i = 0; i < count; i++) {
      const at = (records >> 2) + 3 * i;
      const speaker = core.HEAP32[at + 2];
      if (speaker === 0) continue;
      const round = (seconds) => Math.round(seconds * 1000) / 1000;
      segments.push({ start: round(core.HEAPF32[at]), end: round(core.HEAPF32[at + 1] + FRAME), speaker });
    }
    core._free(records);
    return segments;
  } finally {
    core._free(pcm);
  }
}

onmessage = async ({ data }) => {
  try {
    if (data.open) {
      await open(data.open);
      postMessage({ opened: true });
    } else {
      current = data.id;
      postMessage({ id: data.id, segments: run(data.samples) });
    }
  } catch (error) {
    postMessage({ id: data.id, error: error.message });
  }
};
