// SPDX-License-Identifier: Apache-2.0
/** The rate in Hz at which the engine works; other rates are converted to it. */
export declare const SAMPLE_RATE: 16000;

/** A stretch of one speaker. */
export interface Segment {
  /** Seconds from the start of the audio. */
  start: number;
  /** Seconds; the end of the segment's last frame of 32 ms. */
  end: number;
  /** 1, 2, ... in order of appearance. */
  speaker: number;
  /** The probability that the segment's speaker is right. */
  confidence: number;
}

export interface Speaker {
  name: string;
  /** Of speech. */
  seconds: number;
  /** Of unit length. */
  embedding: Float32Array;
}

/** Of a transcript. */
export interface Word {
  /** Seconds from the start of the audio. */
  start: number;
  end: number;
  text: string;
  /** A name; "" where nobody is known to speak. */
  speaker: string;
}

export interface WordOptions {
  /** Seconds as far as which words may lie from a segment (1). */
  reach?: number;
  /** The first and the last word of a sentence, if two share it, are whose part is longer, and do not go with the sentence. */
  byTime?: boolean;
}

export interface Format {
  name: string;
  extension: string;
  purpose: string;
  mediaType: string;
}

/** What can be asked of a run. */
export interface Options {
  /** The recording's name, which formats tell. */
  name?: string;
  /** Hz: 8000, or 16000 and more. */
  sampleRate?: number;
  /** Of the samples, interleaved. */
  numChannels?: number;
  numSpeakers?: number;
  minSpeakers?: number;
  maxSpeakers?: number;
  /** Offline, prune, segment, background. */
  thresholds?: [number, number, number, number];
  channels?: "mix" | "split" | "loudest";
  refine?: boolean;
  /** Seconds. */
  mergeGap?: number;
  minDuration?: number;
  pad?: number;
  speakerPrefix?: string;
  names?: string[];
  /** Whether formats tell these. */
  confidence?: boolean;
  embeddings?: boolean;
  /** Where two speak at once the second has a segment, too. */
  overlap?: boolean;
  /** How much is taken for speech, 0 to 1 (0.5). */
  sensitivity?: number;
  maxDuration?: number;
  /** Known voices, the text of a file of them: speakers who are near enough to one get that name. */
  voices?: string;
  /** The result keeps what again takes, 8 kB for each second. */
  keepEmbeddings?: boolean;
  /** Aborting ends the run, and with it the worker: load another one then. */
  signal?: AbortSignal;
  /** Called with the share that is done, 0 to 1. */
  onProgress?: (fraction: number) => void;
}

export interface Result {
  /** Seconds of audio. */
  duration: number;
  note: string;
  segments: Segment[];
  speakers: Speaker[];
  /** Of a transcript, if one was added. */
  words: Word[];
  /** The loudest sample of every twentieth of a second, 0 to 1. */
  waveform: Float32Array;
  /** In one of the formats, byte for byte what the command line tool writes. */
  bytes(format: string): Promise<Uint8Array>;
  text(format: string): Promise<string>;
  /** Adds the words of a transcript, its text or what its JSON holds, each with its speaker. */
  addWords(transcript: string | object, options?: WordOptions): Promise<void>;
  /** The words in one of transcriptFormats, byte for byte what the command line tool writes. */
  transcript(format?: string): Promise<Uint8Array>;
  /** The same recording with other options, without another pass; the result was made with keepEmbeddings. */
  again(options?: Options): Promise<Result>;
  /** What readEmbeddings takes, 8 kB for each second; the result was made with keepEmbeddings. */
  writeEmbeddings(): Promise<Uint8Array>;
  /** Gives known people their names; the text of a file of voices, as `parley voices` and remember write it. */
  nameVoices(voices: string): Promise<void>;
  /** The voices with a sample of that name added: the speaker of that index, between two times, in seconds, of a result made with
   * keepEmbeddings. */
  remember(name: string, speaker: number, voices?: string, stretch?: { start: number; end: number }): Promise<string>;
  /** Releases what the worker keeps of it. */
  close(): void;
}

/** In browsers alone: decodes what the browser can play to mono samples from -1 to 1 at 16 kHz. */
export declare function decodeAudio(source: Blob | ArrayBuffer): Promise<Float32Array>;

/** A recording that is still going on. */
export interface Session {
  feed(samples: Int16Array | Float32Array): Promise<void>;
  /** What is known so far, null if nothing is new; clustering takes at most that share of the time that passes (0.05). */
  update(share?: number): Promise<Result | null>;
  /** What diarize would give of all samples; closes the session. */
  end(): Promise<Result>;
  close(): void;
}

/** An engine in a worker. */
export declare class Parley {
  /** Starts the worker and loads the model; both lie in the package unless named (the worker in browsers alone). */
  static load(options?: { model?: string | URL; worker?: string | URL }): Promise<Parley>;
  private constructor();
  /** In which results can be written. */
  formats: Format[];
  /** In which their words can be. */
  transcriptFormats: Format[];
  /** A file (in browsers a File or Blob, in Node its path or URL), read in pieces where it is WAV, FLAC, MP3, Ogg or WebM, and else by
   * the browser or by ffmpeg where it is installed; or samples. */
  diarize(source: Blob | URL | string | Int16Array | Float32Array, options?: Options): Promise<Result>;
  /** In Node alone: while the recording is diarized a speech recognizer runs on it, a program and its arguments, of which "{audio}" becomes
   * the path; it prints words with times. */
  transcribe(path: string, command: string[], options?: Options & WordOptions): Promise<Result>;
  /** A result that was written earlier, and maybe corrected: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices, Audacity labels. */
  read(text: string, name?: string): Promise<Result>;
  /** The recording of which a result wrote its embeddings, with other options, without another pass. */
  readEmbeddings(embeddings: Uint8Array, options?: Options): Promise<Result>;
  /** Begins to listen to samples that will come. */
  listen(options?: Options): Promise<Session>;
  /** Ends the worker. */
  close(): void;
}
