// SPDX-License-Identifier: Apache-2.0
// Written by scripts/gen_options.
//! Each option, and the words that some take.
use crate::Options;

fn joined<T: ToString>(values: &[T]) -> String {
    values.iter().map(T::to_string).collect::<Vec<_>>().join(",")
}

/// Mix them (default), split (each is a speaker), loudest.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
pub enum Channels {
    /// "mix"
    Mix,
    /// "split"
    Split,
    /// "loudest"
    Loudest,
}

impl Channels {
    fn word(self) -> &'static str {
        match self {
            Channels::Mix => "mix",
            Channels::Split => "split",
            Channels::Loudest => "loudest",
        }
    }
}

/// When ffmpeg reads: auto (what nothing else can), never, always.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
pub enum ViaFfmpeg {
    /// "auto"
    Auto,
    /// "never"
    Never,
    /// "always"
    Always,
}

impl ViaFfmpeg {
    fn word(self) -> &'static str {
        match self {
            ViaFfmpeg::Auto => "auto",
            ViaFfmpeg::Never => "never",
            ViaFfmpeg::Always => "always",
        }
    }
}

impl Options {
    /// Exact number of speakers.
    pub fn speakers(self, value: u32) -> Self {
        self.set("speakers", value)
    }

    /// Minimum number of speakers.
    pub fn min_speakers(self, value: u32) -> Self {
        self.set("min-speakers", value)
    }

    /// Maximum number of speakers.
    pub fn max_speakers(self, value: u32) -> Self {
        self.set("max-speakers", value)
    }

    /// Thresholds: offline (merging), prune, segment, background.
    pub fn threshold(self, value: [f64; 4]) -> Self {
        self.set("threshold", joined(&value))
    }

    /// How much is taken for speech: 0 little, 1 much (0.5).
    pub fn sensitivity(self, value: f64) -> Self {
        self.set("sensitivity", value)
    }

    /// Mix them (default), split (each is a speaker), loudest.
    pub fn channels(self, value: Channels) -> Self {
        self.set("channels", value.word())
    }

    /// Resegmentation.
    pub fn refine(self, value: bool) -> Self {
        self.set("no-refine", u8::from(!value))
    }

    /// Join a speaker's segments that are this close.
    pub fn merge_gap(self, value: f64) -> Self {
        self.set("merge-gap", value)
    }

    /// Drop shorter segments.
    pub fn min_duration(self, value: f64) -> Self {
        self.set("min-duration", value)
    }

    /// Lengthen segments on both sides where there is room.
    pub fn pad(self, value: f64) -> Self {
        self.set("pad", value)
    }

    /// Text before the number of a speaker.
    pub fn speaker_prefix(self, value: &str) -> Self {
        self.set("speaker-prefix", value)
    }

    /// Names of the speakers in the order they are heard.
    pub fn names(self, value: &[&str]) -> Self {
        self.set("names", joined(value))
    }

    /// Write the probability that each speaker is right.
    pub fn confidence(self, value: bool) -> Self {
        self.set("confidence", u8::from(value))
    }

    /// Write speakers' embeddings (JSON).
    pub fn embeddings(self, value: bool) -> Self {
        self.set("embeddings", u8::from(value))
    }

    /// Add the second speaker where two speak at once.
    pub fn overlap(self, value: bool) -> Self {
        self.set("overlap", u8::from(value))
    }

    /// Refuse longer recordings.
    pub fn max_duration(self, value: f64) -> Self {
        self.set("max-duration", value)
    }

    /// When ffmpeg reads: auto (what nothing else can), never, always.
    pub fn via_ffmpeg(self, value: ViaFfmpeg) -> Self {
        self.set("via-ffmpeg", value.word())
    }

    /// Number of threads; 0 (the tool's): one per core.
    pub fn jobs(self, value: u32) -> Self {
        self.set("jobs", value)
    }

    /// Keep what parley_recluster takes.
    pub fn keep_embeddings(self, value: bool) -> Self {
        self.set("keep-embeddings", u8::from(value))
    }
}
