/** The rate in Hz at which the engine works. */
export declare const SAMPLE_RATE: 16000;

/** A stretch of one speaker. */
export interface Segment {
  /** Seconds from the start of the audio. */
  start: number;
  /** Seconds; the end of the segment's last frame of 32 ms. */
  end: number;
  /** 1, 2, ... in order of appearance. */
  speaker: number;
}

/** Decodes what the browser can play to mono samples from -1 to 1 at 16 kHz. */
export declare function decodeAudio(source: Blob | ArrayBuffer): Promise<Float32Array>;

/** An engine in a worker. */
export declare class Parley {
  /** Starts the worker and loads the model; both lie beside this file unless named. */
  static load(options?: { model?: string | URL; worker?: string | URL }): Promise<Parley>;
  private constructor(worker: Worker);
  /** Mono samples at 16 kHz, 512 or more; progress goes from 0 to 1. */
  diarize(samples: Int16Array | Float32Array, options?: { onProgress?: (fraction: number) => void }): Promise<Segment[]>;
  /** Ends the worker. */
  close(): void;
}
