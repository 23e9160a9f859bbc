// SPDX-License-Identifier: Apache-2.0
//! Failures, and the texts of the C interface.
use std::ffi::{CStr, CString};
use std::fmt;
use std::os::raw::{c_char, c_void};

use parley_sys as sys;

use crate::Status;

/// A failure.
#[derive(Clone, Debug, PartialEq, Eq)]
#[non_exhaustive]
pub struct Error {
    /// What kind of failure it is.
    pub status: Status,
    /// What is wrong, in a sentence.
    pub message: String,
    /// What the engine said about it, a line each; may be empty.
    pub details: String,
}

/// What everything that can fail returns.
pub type Result<T> = std::result::Result<T, Error>;

impl Error {
    pub(crate) fn invalid(message: &str) -> Self {
        Error { status: Status::Invalid, message: message.into(), details: String::new() }
    }
}

impl fmt::Display for Error {
    fn fmt(&self, formatter: &mut fmt::Formatter<'_>) -> fmt::Result {
        formatter.write_str(&self.message)
    }
}

impl std::error::Error for Error {}

/// The calling thread's failure, if the status is one.
pub(crate) fn check(status: sys::parley_status) -> Result<()> {
    if status == sys::PARLEY_OK {
        return Ok(());
    }
    // SAFETY: both are texts of this thread's, valid until its next call.
    let (message, details) = unsafe { (text(sys::parley_message()), text(sys::parley_details())) };
    Err(Error { status: Status::of(status), message: message.into(), details: details.into() })
}

/// A text of the library's, which is UTF-8.
///
/// # Safety
/// The text is zero-terminated and lives as long as `'a`.
pub(crate) unsafe fn text<'a>(address: *const c_char) -> &'a str {
    std::str::from_utf8(CStr::from_ptr(address).to_bytes()).unwrap_or("")
}

/// A text as C takes it.
pub(crate) fn c_text(text: &str) -> Result<CString> {
    CString::new(text).map_err(|_| Error::invalid("a text has a zero in it"))
}

/// The bytes of a block that the library handed out, which is released.
///
/// # Safety
/// The block has `size` bytes.
pub(crate) unsafe fn taken(block: *mut c_char, size: usize) -> Vec<u8> {
    let bytes = std::slice::from_raw_parts(block as *const u8, size).to_vec();
    sys::parley_free(block as *mut c_void);
    bytes
}
