// SPDX-License-Identifier: Apache-2.0
// Written by scripts/gen_options.
//! The C interface of Parley; its header, parley.h, says what each function does.
use std::os::raw::{c_char, c_int, c_void};

pub type parley_status = i32;
pub type parley_progress = Option<unsafe extern "C" fn(context: *mut c_void, done: f64) -> c_int>;
pub type parley_sink = Option<unsafe extern "C" fn(context: *mut c_void, data: *const c_char, size: usize) -> c_int>;

pub const PARLEY_OK: i32 = 0;
pub const PARLEY_OUT_OF_MEMORY: i32 = 1;
pub const PARLEY_UNREADABLE: i32 = 2;
pub const PARLEY_INVALID: i32 = 3;
pub const PARLEY_CANCELLED: i32 = 4;
pub const PARLEY_MISSING: i32 = 5;
pub const PARLEY_FAILED: i32 = 7;
pub const PARLEY_MAX_CHANNELS: i32 = 64;
pub const PARLEY_MAX_JOBS: i32 = 64;
pub const PARLEY_WORDS_WHOLE_SENTENCES: i32 = 0;
pub const PARLEY_WORDS_BY_TIME: i32 = 1;

#[repr(C)]
pub struct parley_diarizer {
    _private: [u8; 0],
}

#[repr(C)]
pub struct parley_result {
    _private: [u8; 0],
}

#[repr(C)]
pub struct parley_session {
    _private: [u8; 0],
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_options {
    pub size: usize,
    pub min_speakers: i32,
    pub max_speakers: i32,
    pub thresholds: [f64; 4],
    pub channels: i32,
    pub refine: i32,
    pub merge_gap: f64,
    pub min_duration: f64,
    pub pad: f64,
    pub speaker_prefix: *const c_char,
    pub names: *const c_char,
    pub confidence: i32,
    pub embeddings: i32,
    pub max_duration: f64,
    pub sensitivity: f64,
    pub via_ffmpeg: i32,
    pub jobs: i32,
    pub keep_embeddings: i32,
    pub overlap: i32,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_option {
    pub name: *const c_char,
    pub value: *const c_char,
    pub purpose: *const c_char,
    pub minimum: f64,
    pub maximum: f64,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_segment {
    pub start: f64,
    pub end: f64,
    pub speaker: i32,
    pub confidence: f64,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_speaker {
    pub name: *const c_char,
    pub seconds: f64,
    pub embedding: *const f32,
    pub embedding_size: i32,
    pub similarity: f64,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_format {
    pub name: *const c_char,
    pub extension: *const c_char,
    pub purpose: *const c_char,
    pub media_type: *const c_char,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_terminal {
    pub columns: i32,
    pub colors: i32,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_turn {
    pub start: f64,
    pub end: f64,
    pub speaker: *const c_char,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_word {
    pub start: f64,
    pub end: f64,
    pub text: *const c_char,
    pub speaker: *const c_char,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_recognizer {
    pub name: *const c_char,
    pub command: *const c_char,
    pub output: *const c_char,
    pub longest: f64,
    pub takes_a_core: i32,
    pub remedy: *const c_char,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_transcription {
    pub size: usize,
    pub recognizer: *const c_char,
    pub arguments: *const *const c_char,
    pub num_arguments: i32,
    pub time_limit: f64,
    pub by_turn: i32,
    pub rule: i32,
    pub reach: f64,
}

#[repr(C)]
#[derive(Clone, Copy)]
pub struct parley_score {
    pub speech: f64,
    pub missed: f64,
    pub false_alarm: f64,
    pub confusion: f64,
    pub jaccard_errors: f64,
    pub num_speakers: i32,
    pub num_found: i32,
}

extern "C" {
    pub fn parley_message() -> *const c_char;
    pub fn parley_details() -> *const c_char;
    pub fn parley_version() -> *const c_char;
    pub fn parley_options_init(options: *mut parley_options, size: usize);
    pub fn parley_option_at(index: i32) -> *const parley_option;
    pub fn parley_options_set(options: *mut parley_options, name: *const c_char, value: *const c_char) -> parley_status;
    pub fn parley_options_check(options: *const parley_options) -> parley_status;
    pub fn parley_find_model(path: *mut *mut c_char) -> parley_status;
    pub fn parley_open(model_path: *const c_char, diarizer: *mut *mut parley_diarizer) -> parley_status;
    pub fn parley_open_memory(model: *const c_void, size: usize, diarizer: *mut *mut parley_diarizer) -> parley_status;
    pub fn parley_model(diarizer: *const parley_diarizer) -> *const c_char;
    pub fn parley_close(diarizer: *mut parley_diarizer);
    pub fn parley_diarize_file(diarizer: *mut parley_diarizer, path: *const c_char, options: *const parley_options, progress: parley_progress, context: *mut c_void, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_diarize_memory(diarizer: *mut parley_diarizer, file: *const c_void, size: usize, name: *const c_char, options: *const parley_options, progress: parley_progress, context: *mut c_void, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_diarize_samples(diarizer: *mut parley_diarizer, samples: *const i16, num_frames: i64, num_channels: i32, rate: i32, name: *const c_char, options: *const parley_options, progress: parley_progress, context: *mut c_void, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_listen(diarizer: *mut parley_diarizer, name: *const c_char, num_channels: i32, rate: i32, options: *const parley_options, session: *mut *mut parley_session) -> parley_status;
    pub fn parley_session_feed(session: *mut parley_session, samples: *const i16, num_frames: i64) -> parley_status;
    pub fn parley_session_update(session: *mut parley_session, share: f64, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_session_end(session: *mut parley_session, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_session_delete(session: *mut parley_session);
    pub fn parley_recluster(diarizer: *mut parley_diarizer, result: *const parley_result, options: *const parley_options, again: *mut *mut parley_result) -> parley_status;
    pub fn parley_write_embeddings(result: *const parley_result, bytes: *mut *mut c_char, size: *mut usize) -> parley_status;
    pub fn parley_read_embeddings(diarizer: *mut parley_diarizer, bytes: *const c_void, size: usize, path: *const c_char, options: *const parley_options, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_result_delete(result: *mut parley_result);
    pub fn parley_result_duration(result: *const parley_result) -> f64;
    pub fn parley_result_num_segments(result: *const parley_result) -> i32;
    pub fn parley_result_num_speakers(result: *const parley_result) -> i32;
    pub fn parley_result_segment(result: *const parley_result, index: i32) -> parley_segment;
    pub fn parley_result_speaker(result: *const parley_result, index: i32) -> parley_speaker;
    pub fn parley_result_waveform(result: *const parley_result, count: *mut i32, rate: *mut i32) -> *const f32;
    pub fn parley_result_note(result: *const parley_result) -> *const c_char;
    pub fn parley_result_rename(result: *mut parley_result, path: *const c_char) -> parley_status;
    pub fn parley_result_link_audio(result: *mut parley_result, url: *const c_char, embedded: i64) -> parley_status;
    pub fn parley_url_of_path(path: *const c_char, url: *mut *mut c_char) -> parley_status;
    pub fn parley_read_result(text: *const c_char, size: usize, name: *const c_char, result: *mut *mut parley_result) -> parley_status;
    pub fn parley_result_read_audio(diarizer: *mut parley_diarizer, result: *mut parley_result, path: *const c_char, options: *const parley_options, progress: parley_progress, context: *mut c_void) -> parley_status;
    pub fn parley_result_model(result: *const parley_result) -> *const c_char;
    pub fn parley_result_path(result: *const parley_result) -> *const c_char;
    pub fn parley_format_at(index: i32) -> *const parley_format;
    pub fn parley_write(result: *const parley_result, format: *const c_char, terminal: *const parley_terminal, sink: parley_sink, context: *mut c_void) -> parley_status;
    pub fn parley_write_text(result: *const parley_result, format: *const c_char, text: *mut *mut c_char, size: *mut usize) -> parley_status;
    pub fn parley_free(block: *mut c_void);
    pub fn parley_clock(seconds: f64, text: *mut c_char);
    pub fn parley_color(speaker: i32) -> *const c_char;
    pub fn parley_assign(transcript: *const c_char, size: usize, turns: *const parley_turn, num_turns: i32, reach: f64, format: *const c_char, text: *mut *mut c_char, text_size: *mut usize) -> parley_status;
    pub fn parley_result_add_words(result: *mut parley_result, transcript: *const c_char, size: usize, reach: f64, rule: i32) -> parley_status;
    pub fn parley_result_assign(result: *const parley_result, transcript: *const c_char, size: usize, reach: f64, text: *mut *mut c_char, text_size: *mut usize) -> parley_status;
    pub fn parley_result_num_words(result: *const parley_result) -> i32;
    pub fn parley_result_word(result: *const parley_result, index: i32) -> parley_word;
    pub fn parley_recognizer_at(index: i32) -> *const parley_recognizer;
    pub fn parley_transcription_init(how: *mut parley_transcription, size: usize);
    pub fn parley_transcribe(diarizer: *mut parley_diarizer, result: *mut parley_result, path: *const c_char, how: *const parley_transcription, options: *const parley_options, progress: parley_progress, context: *mut c_void) -> parley_status;
    pub fn parley_transcript_format_at(index: i32) -> *const parley_format;
    pub fn parley_write_words(result: *const parley_result, format: *const c_char, text: *mut *mut c_char, size: *mut usize) -> parley_status;
    pub fn parley_read_rttm(text: *const c_char, size: usize, name: *const c_char, turns: *mut *mut parley_turn, num_turns: *mut i32) -> parley_status;
    pub fn parley_match(first: *const f32, num_first: i32, second: *const f32, num_second: i32, dimension: i32, threshold: f64, matches: *mut i32, cosines: *mut f64) -> parley_status;
    pub fn parley_voices_add(voices: *const c_char, name: *const c_char, result: *const parley_result, speaker: i32, start: f64, end: f64, text: *mut *mut c_char) -> parley_status;
    pub fn parley_voices_remove(voices: *const c_char, name: *const c_char, text: *mut *mut c_char) -> parley_status;
    pub fn parley_voices_at(voices: *const c_char, index: i32, name: *mut *mut c_char, num_samples: *mut i32) -> parley_status;
    pub fn parley_voices_sample_at(voices: *const c_char, index: i32, sample: i32, seconds: *mut f64, date: *mut c_char, source: *mut *mut c_char) -> parley_status;
    pub fn parley_result_name_voices(result: *mut parley_result, voices: *const c_char, threshold: f64) -> parley_status;
    pub fn parley_score_turns(reference: *const parley_turn, num_reference: i32, hypothesis: *const parley_turn, num_hypothesis: i32, parts: *const f64, num_parts: i32, collar: f64, skip_overlap: i32, score: *mut parley_score) -> parley_status;
    pub fn parley_score_text(reference: *const c_char, reference_name: *const c_char, hypothesis: *const c_char, hypothesis_name: *const c_char, uem: *const c_char, collars: *const f64, num_collars: i32, skip_overlap: i32, each: i32, text: *mut *mut c_char) -> parley_status;
}
