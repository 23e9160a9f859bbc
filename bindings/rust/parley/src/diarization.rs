// SPDX-License-Identifier: Apache-2.0
//! The result: who spoke when in one recording.
use std::os::raw::c_char;
use std::path::Path;
use std::ptr::{null_mut, NonNull};

use parley_sys as sys;

use crate::error::{c_text, check, taken, text, Error, Result};
use crate::{Segment, Speaker, Voices, Word};

type Writer = unsafe extern "C" fn(*const sys::parley_result, *const c_char, *mut *mut c_char, *mut usize) -> i32;

/// Who spoke when in one recording.
#[derive(Debug)]
pub struct Diarization {
    handle: NonNull<sys::parley_result>,
}

// SAFETY: a result belongs to no thread, and what all may call at once reads only.
unsafe impl Send for Diarization {}
unsafe impl Sync for Diarization {}

impl Drop for Diarization {
    fn drop(&mut self) {
        // SAFETY: it is ours, and nobody has it afterwards.
        unsafe { sys::parley_result_delete(self.handle.as_ptr()) }
    }
}

// Every call below passes a handle that lives, and texts that outlive the call; what is borrowed lives as long as the
// result, which a method that changes it takes exclusively.
impl Diarization {
    /// Takes what a call made.
    pub(crate) fn made(call: impl FnOnce(*mut *mut sys::parley_result) -> sys::parley_status) -> Result<Self> {
        Self::perhaps_made(call)?.ok_or_else(|| Error::invalid("nothing was made"))
    }

    pub(crate) fn perhaps_made(
        call: impl FnOnce(*mut *mut sys::parley_result) -> sys::parley_status,
    ) -> Result<Option<Self>> {
        let mut made = null_mut();
        check(call(&mut made))?;
        Ok(NonNull::new(made).map(|handle| Diarization { handle }))
    }

    pub(crate) fn address(&self) -> *mut sys::parley_result {
        self.handle.as_ptr()
    }

    /// A result that was written earlier, and maybe corrected: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices, Audacity
    /// labels. `name` is the text's file, for messages, and the recording's name where the text does not tell it.
    pub fn read(text: &str, name: &str) -> Result<Self> {
        let (address, name) = (text.as_ptr() as *const c_char, c_text(name)?);
        Self::made(|made| unsafe { sys::parley_read_result(address, text.len(), name.as_ptr(), made) })
    }

    /// Seconds of audio.
    pub fn duration(&self) -> f64 {
        unsafe { sys::parley_result_duration(self.address()) }
    }

    /// What the user should know, or "".
    pub fn note(&self) -> &str {
        unsafe { text(sys::parley_result_note(self.address())) }
    }

    /// The segments in order of time.
    pub fn segments(&self) -> impl ExactSizeIterator<Item = Segment<'_>> {
        (0..unsafe { sys::parley_result_num_segments(self.address()) }).map(move |index| {
            let s = unsafe { sys::parley_result_segment(self.address(), index) };
            let name = unsafe { text(sys::parley_result_speaker(self.address(), s.speaker).name) };
            Segment { start: s.start, end: s.end, speaker: s.speaker as usize, name, confidence: s.confidence }
        })
    }

    /// The speakers in order of appearance.
    pub fn speakers(&self) -> impl ExactSizeIterator<Item = Speaker<'_>> {
        (0..unsafe { sys::parley_result_num_speakers(self.address()) }).map(move |index| unsafe {
            let s = sys::parley_result_speaker(self.address(), index);
            let embedding = match s.embedding_size {
                0 => &[],
                size => std::slice::from_raw_parts(s.embedding, size as usize),
            };
            Speaker { name: text(s.name), seconds: s.seconds, embedding, similarity: s.similarity }
        })
    }

    /// The words of a transcript, if one was added, in order of time.
    pub fn words(&self) -> impl ExactSizeIterator<Item = Word<'_>> {
        (0..unsafe { sys::parley_result_num_words(self.address()) }).map(move |index| unsafe {
            let w = sys::parley_result_word(self.address(), index);
            Word { start: w.start, end: w.end, text: text(w.text), speaker: text(w.speaker) }
        })
    }

    fn written(&self, format: &str, write: Writer) -> Result<Vec<u8>> {
        let format = c_text(format)?;
        handed_out(|block, size| unsafe { write(self.address(), format.as_ptr(), block, size) })
    }

    /// The result in one of [`formats`](crate::formats), byte for byte what the command line tool writes.
    pub fn bytes(&self, format: &str) -> Result<Vec<u8>> {
        self.written(format, sys::parley_write_text)
    }

    /// The same of a format that is text.
    pub fn text(&self, format: &str) -> Result<String> {
        String::from_utf8(self.bytes(format)?).map_err(|_| Error::invalid("the format is no text"))
    }

    /// The words in one of [`transcript_formats`](crate::transcript_formats).
    pub fn transcript(&self, format: &str) -> Result<Vec<u8>> {
        self.written(format, sys::parley_write_words)
    }

    /// What [`Diarizer::read_embeddings`](crate::Diarizer::read_embeddings) takes, of a result that has kept its embeddings: 8 kB for
    /// each second.
    pub fn write_embeddings(&self) -> Result<Vec<u8>> {
        handed_out(|block, size| unsafe { sys::parley_write_embeddings(self.address(), block, size) })
    }

    /// Adds a transcript, each word with its speaker: JSON of recognizers, TSV, WebVTT, SRT or CTM. Words outside of all segments
    /// are the nearest's as far as `reach` seconds away.
    pub fn add_words(&mut self, transcript: &str, reach: f64) -> Result<()> {
        let (address, rule) = (transcript.as_ptr() as *const c_char, sys::PARLEY_WORDS_WHOLE_SENTENCES);
        check(unsafe { sys::parley_result_add_words(self.address(), address, transcript.len(), reach, rule) })
    }

    /// Gives speakers the names of known people who are near enough: a cosine above `threshold`, 0.8 for none.
    pub fn name_voices(&mut self, voices: &Voices, threshold: Option<f64>) -> Result<()> {
        let list = c_text(&voices.0)?;
        check(unsafe { sys::parley_result_name_voices(self.address(), list.as_ptr(), threshold.unwrap_or(0.0)) })
    }
}

/// The bytes of the block that a call makes.
fn handed_out(call: impl FnOnce(*mut *mut c_char, *mut usize) -> sys::parley_status) -> Result<Vec<u8>> {
    let (mut block, mut size) = (null_mut(), 0);
    check(call(&mut block, &mut size))?;
    Ok(unsafe { taken(block, size) })
}

/// A path as the library takes it, which is UTF-8 on Windows and the system's own bytes elsewhere.
pub(crate) fn c_path(path: &Path) -> Result<std::ffi::CString> {
    #[cfg(unix)]
    let bytes = std::os::unix::ffi::OsStrExt::as_bytes(path.as_os_str()).to_vec();
    #[cfg(not(unix))]
    let bytes = path.to_str().ok_or_else(|| Error::invalid("a path that is no text"))?.as_bytes().to_vec();
    std::ffi::CString::new(bytes).map_err(|_| Error::invalid("a path has a zero in it"))
}
