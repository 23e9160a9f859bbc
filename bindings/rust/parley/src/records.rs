// SPDX-License-Identifier: Apache-2.0
// Written by scripts/gen_options.
//! What results consist of.
use parley_sys as sys;

use crate::error::text;

/// A stretch of one speaker.
#[derive(Clone, Copy, Debug, PartialEq)]
pub struct Segment<'a> {
    /// Seconds from the start of the audio.
    pub start: f64,
    /// Seconds, of the end of its last frame.
    pub end: f64,
    /// Index of the speaker, from 0, in order of appearance.
    pub speaker: usize,
    /// The speaker's.
    pub name: &'a str,
    /// The probability that the speaker is right.
    pub confidence: f64,
}

/// Somebody who is heard.
#[derive(Clone, Copy, Debug, PartialEq)]
pub struct Speaker<'a> {
    /// "speaker 1", or who it is.
    pub name: &'a str,
    /// Of speech.
    pub seconds: f64,
    /// Of unit length: the mean over the speaker's frames.
    pub embedding: &'a [f32],
    /// Cosine with the known voice that gave the name; 0 where none did.
    pub similarity: f64,
}

/// A word of a transcript.
#[derive(Clone, Copy, Debug, PartialEq)]
pub struct Word<'a> {
    /// Seconds from the start of the audio.
    pub start: f64,
    /// Seconds.
    pub end: f64,
    /// What is said.
    pub text: &'a str,
    /// A name; "" where nobody is known to speak.
    pub speaker: &'a str,
}

/// In which a result or its words can be written.
#[derive(Clone, Copy, Debug, PartialEq)]
pub struct Format<'a> {
    /// "rttm".
    pub name: &'a str,
    /// Of files, ".rttm".
    pub extension: &'a str,
    /// A few words.
    pub purpose: &'a str,
    /// "text/plain".
    pub media_type: &'a str,
}

/// Those of results.
pub fn formats() -> impl Iterator<Item = Format<'static>> {
    // SAFETY: constants of the library's, null beyond the last.
    (0..).map_while(|index| unsafe {
        sys::parley_format_at(index).as_ref().map(|f| Format { name: text(f.name), extension: text(f.extension), purpose: text(f.purpose), media_type: text(f.media_type) })
    })
}

/// Those of their words.
pub fn transcript_formats() -> impl Iterator<Item = Format<'static>> {
    // SAFETY: constants of the library's, null beyond the last.
    (0..).map_while(|index| unsafe {
        sys::parley_transcript_format_at(index).as_ref().map(|f| Format { name: text(f.name), extension: text(f.extension), purpose: text(f.purpose), media_type: text(f.media_type) })
    })
}

/// What kind of failure it is.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[non_exhaustive]
pub enum Status {
    /// There is not enough memory.
    OutOfMemory,
    /// A file cannot be opened or ends too early.
    Unreadable,
    /// An argument, an option, a model or a format that makes no sense.
    Invalid,
    /// The run was cancelled.
    Cancelled,
    /// There is no such file.
    Missing,
    /// Anything else.
    Failed,
}

impl Status {
    pub(crate) fn of(status: sys::parley_status) -> Self {
        match status {
            sys::PARLEY_OUT_OF_MEMORY => Status::OutOfMemory,
            sys::PARLEY_UNREADABLE => Status::Unreadable,
            sys::PARLEY_INVALID => Status::Invalid,
            sys::PARLEY_CANCELLED => Status::Cancelled,
            sys::PARLEY_MISSING => Status::Missing,
            _ => Status::Failed,
        }
    }
}
