// SPDX-License-Identifier: Apache-2.0
//! What can be asked of a run; the options themselves are in option_values.rs.
use std::ffi::CString;
use std::mem::{size_of, MaybeUninit};

use parley_sys as sys;

use crate::error::{c_text, check, Result};

/// What can be asked of a run, by methods that each set one option.
///
/// ```
/// use parley::{Channels, Options};
/// let options = Options::new().speakers(2).sensitivity(0.6).channels(Channels::Split);
/// ```
#[derive(Clone, Debug, Default, PartialEq)]
pub struct Options {
    values: Vec<(&'static str, String)>,
}

impl Options {
    /// The defaults.
    pub fn new() -> Self {
        Self::default()
    }

    pub(crate) fn set(mut self, name: &'static str, value: impl ToString) -> Self {
        self.values.push((name, value.to_string()));
        self
    }

    pub(crate) fn record(&self) -> Result<Record> {
        let mut options = MaybeUninit::<sys::parley_options>::uninit();
        // SAFETY: the function writes all of the record.
        let mut options = unsafe {
            sys::parley_options_init(options.as_mut_ptr(), size_of::<sys::parley_options>());
            options.assume_init()
        };
        let mut texts = Vec::new();
        for (name, value) in &self.values {
            let (name, value) = (c_text(name)?, c_text(value)?);
            // SAFETY: the text that the record refers to is kept beside it.
            check(unsafe { sys::parley_options_set(&mut options, name.as_ptr(), value.as_ptr()) })?;
            texts.push(value);
        }
        Ok(Record { options, _texts: texts })
    }
}

/// Options as C takes them, with the texts that they refer to.
pub(crate) struct Record {
    options: sys::parley_options,
    _texts: Vec<CString>,
}

impl Record {
    pub(crate) fn address(&self) -> *const sys::parley_options {
        &self.options
    }
}
