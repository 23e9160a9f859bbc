// SPDX-License-Identifier: Apache-2.0
//! Who spoke when, on your own machine.
//!
//! ```no_run
//! use parley::{Diarizer, Options};
//!
//! let mut diarizer = Diarizer::new()?;
//! let result = diarizer.diarize("meeting.wav", &Options::new())?;
//! for segment in result.segments() {
//!     println!("{:8.2} {:8.2} {}", segment.start, segment.end, segment.name);
//! }
//! # Ok::<(), parley::Error>(())
//! ```
//!
//! A [`Diarizer`] holds a loaded model (about 4 MB) and works for one thread at a time; several run side by side. A
//! [`Diarization`] may be read by any number of threads.
#![deny(missing_docs)]

mod diarization;
mod diarizer;
mod error;
#[rustfmt::skip]
mod option_values;
mod options;
#[rustfmt::skip]
mod records;
mod voices;

pub use diarization::Diarization;
pub use diarizer::{Diarizer, Session, Source};
pub use error::{Error, Result};
pub use option_values::{Channels, ViaFfmpeg};
pub use options::Options;
pub use records::{formats, transcript_formats, Format, Segment, Speaker, Status, Word};
pub use voices::Voices;

/// The version of the library, such as "1.0.0".
pub fn version() -> &'static str {
    // SAFETY: a constant text of the library's.
    unsafe { error::text(parley_sys::parley_version()) }
}
