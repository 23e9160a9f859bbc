// SPDX-License-Identifier: Apache-2.0
//! People who are known from earlier recordings.
use std::os::raw::c_char;
use std::ptr::null_mut;

use parley_sys as sys;

use crate::error::{c_text, check, taken, Error, Result};
use crate::Diarization;

/// Voices of people, as the text that their file holds, here, from the tool and in other languages; "" for nobody.
#[derive(Clone, Debug, Default, PartialEq, Eq)]
pub struct Voices(pub String);

impl Voices {
    fn replaced(&mut self, call: impl FnOnce(*const c_char, *mut *mut c_char) -> i32) -> Result<()> {
        let (before, mut after) = (c_text(&self.0)?, null_mut());
        check(call(before.as_ptr(), &mut after))?;
        self.0 = owned(after)?;
        Ok(())
    }

    /// Adds a sample of `name`: what the speaker of that index says between two times, in seconds, of a result with
    /// [`keep_embeddings`](crate::Options::keep_embeddings); all of it for none.
    pub fn add(&mut self, name: &str, result: &Diarization, speaker: usize, stretch: Option<(f64, f64)>) -> Result<()> {
        let (name, (start, end)) = (c_text(name)?, stretch.unwrap_or((0.0, 0.0)));
        let index = i32::try_from(speaker).map_err(|_| Error::invalid("there is no such speaker"))?;
        self.replaced(|before, after| unsafe {
            sys::parley_voices_add(before, name.as_ptr(), result.address(), index, start, end, after)
        })
    }

    /// Takes somebody out.
    pub fn remove(&mut self, name: &str) -> Result<()> {
        let name = c_text(name)?;
        self.replaced(|before, after| unsafe { sys::parley_voices_remove(before, name.as_ptr(), after) })
    }
}

/// A text that the library handed out.
fn owned(block: *mut c_char) -> Result<String> {
    // SAFETY: zero-terminated, and released here alone.
    let bytes = unsafe { taken(block, std::ffi::CStr::from_ptr(block).to_bytes().len()) };
    String::from_utf8(bytes).map_err(|_| Error::invalid("a text that is none"))
}
