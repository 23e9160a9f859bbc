// SPDX-License-Identifier: Apache-2.0
//! The C interface of Parley, speaker diarization on your own machine; the crate `parley` is a safe one on top of it.
#![allow(non_camel_case_types)]

#[rustfmt::skip]
mod declarations;
pub use declarations::*;
