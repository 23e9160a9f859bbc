// SPDX-License-Identifier: Apache-2.0
//! A model at work: on recordings, and on what is still recorded.
use std::any::Any;
use std::os::raw::{c_int, c_void};
use std::panic::{catch_unwind, resume_unwind, AssertUnwindSafe};
use std::path::Path;
use std::ptr::{null, null_mut, NonNull};

use parley_sys as sys;

use crate::{diarization::c_path, error::*, Diarization, Options};

/// What is diarized.
#[derive(Clone, Copy, Debug)]
pub enum Source<'a> {
    /// An audio file.
    File(&'a Path),
    /// The bytes of one.
    Bytes(&'a [u8]),
    /// Samples of 16 bits, of all channels in turn.
    Samples {
        /// As many of each channel.
        samples: &'a [i16],
        /// 1 to 64.
        channels: u16,
        /// Hz: 8000, or 16000 and more.
        rate: u32,
    },
}

impl<'a, P: AsRef<Path> + ?Sized> From<&'a P> for Source<'a> {
    fn from(path: &'a P) -> Self {
        Source::File(path.as_ref())
    }
}

/// A loaded model, ready for any number of recordings, one at a time.
#[derive(Debug)]
pub struct Diarizer {
    handle: NonNull<sys::parley_diarizer>,
}

// SAFETY: a diarizer belongs to no thread; that it works for one at a time is what `&mut self` says.
unsafe impl Send for Diarizer {}

impl Drop for Diarizer {
    fn drop(&mut self) {
        // SAFETY: it is ours, and nobody has it afterwards.
        unsafe { sys::parley_close(self.handle.as_ptr()) }
    }
}

// Every call below passes handles that live, and texts, samples and options that outlive the call.
impl Diarizer {
    /// Loads the model that is installed with the library, or the one that `$PARLEY_MODEL` names.
    pub fn new() -> Result<Self> {
        Self::made(|opened| unsafe { sys::parley_open(null(), opened) })
    }

    /// Loads a model file.
    pub fn open(model: impl AsRef<Path>) -> Result<Self> {
        let path = c_path(model.as_ref())?;
        Self::made(|opened| unsafe { sys::parley_open(path.as_ptr(), opened) })
    }

    /// Loads the bytes of a model file.
    pub fn from_bytes(model: &[u8]) -> Result<Self> {
        Self::made(|opened| unsafe { sys::parley_open_memory(model.as_ptr() as *const c_void, model.len(), opened) })
    }

    fn made(call: impl FnOnce(*mut *mut sys::parley_diarizer) -> i32) -> Result<Self> {
        let mut opened = null_mut();
        check(call(&mut opened))?;
        NonNull::new(opened).map(|handle| Diarizer { handle }).ok_or_else(|| Error::invalid("no model was opened"))
    }

    /// Names the model: embeddings of two models cannot be compared.
    pub fn model(&self) -> &str {
        unsafe { text(sys::parley_model(self.handle.as_ptr())) }
    }

    /// Finds out who spoke when: `diarizer.diarize("meeting.wav", &Options::new())`.
    pub fn diarize<'a>(&mut self, source: impl Into<Source<'a>>, options: &Options) -> Result<Diarization> {
        self.diarize_with(source, options, |_| true)
    }

    /// The same, with a function that is called with the share that is done, from 0 to 1; when it returns false the run ends with
    /// [`Status::Cancelled`](crate::Status::Cancelled).
    pub fn diarize_with<'a>(
        &mut self, source: impl Into<Source<'a>>, options: &Options, progress: impl FnMut(f64) -> bool,
    ) -> Result<Diarization> {
        let (own, record, name) = (self.handle.as_ptr(), options.record()?, c_text("recording")?);
        let (asked, name) = (record.address(), name.as_ptr());
        match source.into() {
            Source::File(path) => {
                let path = c_path(path)?;
                watched(progress, |call, context, made| unsafe {
                    sys::parley_diarize_file(own, path.as_ptr(), asked, call, context, made)
                })
            }
            Source::Bytes(bytes) => watched(progress, |call, context, made| unsafe {
                let file = bytes.as_ptr() as *const c_void;
                sys::parley_diarize_memory(own, file, bytes.len(), name, asked, call, context, made)
            }),
            Source::Samples { samples, channels, rate } => {
                let (frames, rate, values) = (frames_of(samples, channels)?, rate_of(rate)?, samples.as_ptr());
                watched(progress, |call, context, made| unsafe {
                    let channels = channels.into();
                    sys::parley_diarize_samples(own, values, frames, channels, rate, name, asked, call, context, made)
                })
            }
        }
    }

    /// The same recording with other options, from the embeddings that `result` has kept
    /// ([`Options::keep_embeddings`]): without another pass.
    pub fn recluster(&mut self, result: &Diarization, options: &Options) -> Result<Diarization> {
        let record = options.record()?;
        let own = self.handle.as_ptr();
        Diarization::made(|made| unsafe { sys::parley_recluster(own, result.address(), record.address(), made) })
    }

    /// The same from what [`Diarization::write_embeddings`] gave; `name` is the recording's.
    pub fn read_embeddings(&mut self, bytes: &[u8], name: &str, options: &Options) -> Result<Diarization> {
        let (record, name, start) = (options.record()?, c_text(name)?, bytes.as_ptr() as *const c_void);
        let own = self.handle.as_ptr();
        Diarization::made(|made| unsafe {
            sys::parley_read_embeddings(own, start, bytes.len(), name.as_ptr(), record.address(), made)
        })
    }

    /// Begins to listen to samples that will come, of `channels` channels at `rate` Hz.
    pub fn listen(&mut self, channels: u16, rate: u32, options: &Options) -> Result<Session<'_>> {
        let (record, name) = (options.record()?, c_text("recording")?);
        let (own, rate) = (self.handle.as_ptr(), rate_of(rate)?);
        let mut begun = null_mut();
        check(unsafe { sys::parley_listen(own, name.as_ptr(), channels.into(), rate, record.address(), &mut begun) })?;
        let handle = NonNull::new(begun).ok_or_else(|| Error::invalid("no session was begun"))?;
        Ok(Session { handle, channels, _diarizer: self })
    }
}

/// A recording that is still going on; it has its diarizer to itself.
#[derive(Debug)]
pub struct Session<'a> {
    handle: NonNull<sys::parley_session>,
    channels: u16,
    _diarizer: &'a mut Diarizer,
}

// SAFETY: as of the diarizer.
unsafe impl Send for Session<'_> {}

impl Drop for Session<'_> {
    fn drop(&mut self) {
        // SAFETY: it is ours, and nobody has it afterwards.
        unsafe { sys::parley_session_delete(self.handle.as_ptr()) }
    }
}

impl Session<'_> {
    /// Takes samples, of all channels in turn.
    pub fn feed(&mut self, samples: &[i16]) -> Result<()> {
        let frames = frames_of(samples, self.channels)?;
        check(unsafe { sys::parley_session_feed(self.handle.as_ptr(), samples.as_ptr(), frames) })
    }

    /// What is known so far, none if nothing is new. Speakers keep their names from one result to the next; clustering takes at
    /// most `share` of the time that passes (0.05: a twentieth of a core).
    pub fn update(&mut self, share: f64) -> Result<Option<Diarization>> {
        Diarization::perhaps_made(|made| unsafe { sys::parley_session_update(self.handle.as_ptr(), share, made) })
    }

    /// What diarizing all samples at once would give.
    pub fn end(self) -> Result<Diarization> {
        Diarization::made(|made| unsafe { sys::parley_session_end(self.handle.as_ptr(), made) })
    }
}

fn frames_of(samples: &[i16], channels: u16) -> Result<i64> {
    match channels {
        0 => Err(Error::invalid("there are no channels")),
        n if samples.len() % usize::from(n) != 0 => Err(Error::invalid("the channels have different lengths")),
        n => Ok((samples.len() / usize::from(n)) as i64),
    }
}

fn rate_of(rate: u32) -> Result<i32> {
    i32::try_from(rate).map_err(|_| Error::invalid("a rate that is none"))
}

/// A progress function on its way through C, which no panic may cross.
struct Watch<F> {
    progress: F,
    panic: Option<Box<dyn Any + Send>>,
}

unsafe extern "C" fn report<F: FnMut(f64) -> bool>(context: *mut c_void, done: f64) -> c_int {
    let watch = &mut *(context as *mut Watch<F>);
    let progress = &mut watch.progress;
    match catch_unwind(AssertUnwindSafe(|| progress(done))) {
        Ok(goes_on) => goes_on.into(),
        Err(panic) => {
            watch.panic = Some(panic);
            0
        }
    }
}

fn watched<F: FnMut(f64) -> bool>(
    progress: F,
    work: impl FnOnce(sys::parley_progress, *mut c_void, *mut *mut sys::parley_result) -> sys::parley_status,
) -> Result<Diarization> {
    let mut watch = Watch { progress, panic: None };
    let context = &mut watch as *mut Watch<F> as *mut c_void;
    let result = Diarization::made(|made| work(Some(report::<F>), context, made));
    match watch.panic {
        Some(panic) => resume_unwind(panic),
        None => result,
    }
}
