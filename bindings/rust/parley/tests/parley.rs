// SPDX-License-Identifier: Apache-2.0
//! Everything that the crate offers, on the sample recording of the folder that PARLEY_SOURCE names, with the model that is installed.
use std::path::{Path, PathBuf};
use std::process::Command;
use std::time::{Duration, Instant};

use parley::{Channels, Diarization, Diarizer, Options, Source, Status, Voices};

fn source() -> PathBuf {
    std::env::var_os("PARLEY_SOURCE").expect("PARLEY_SOURCE names the sources").into()
}

fn sample() -> PathBuf {
    source().join("examples/three-voices.wav")
}

/// The sample's own samples, behind a header of 44 bytes.
fn samples() -> Vec<i16> {
    let bytes = std::fs::read(sample()).unwrap();
    bytes[44..].chunks_exact(2).map(|two| i16::from_le_bytes([two[0], two[1]])).collect()
}

fn diarize(options: &Options) -> (Diarizer, Diarization) {
    let mut diarizer = Diarizer::new().unwrap();
    let result = diarizer.diarize(&sample(), options).unwrap();
    (diarizer, result)
}

/// The command line tool's RTTM, of the sample and of what PARLEY_RECORDINGS lists.
#[test]
fn the_tool_writes_the_same_bytes() {
    let tool = std::env::var_os("PARLEY_TOOL").expect("PARLEY_TOOL names the command line tool");
    let listed = std::env::var_os("PARLEY_RECORDINGS").unwrap_or_default();
    let mut diarizer = Diarizer::new().unwrap();
    let others = std::env::split_paths(&listed).filter(|path| !path.as_os_str().is_empty());
    for recording in std::iter::once(sample()).chain(others) {
        let expected = Command::new(&tool).args(["-q", "-f", "rttm"]).arg(&recording).output().unwrap();
        assert!(expected.status.success());
        let result = diarizer.diarize(&recording, &Options::new()).unwrap();
        assert_eq!(result.bytes("rttm").unwrap(), expected.stdout, "{}", recording.display());
    }
}

#[test]
fn a_result_tells_who_speaks_when() {
    let (diarizer, result) = diarize(&Options::new().names(&["Ann", "Ben", "Cleo"]));
    assert_eq!(diarizer.model().len(), 16);
    assert!((result.duration() - 69.0).abs() < 1.0);
    let speakers: Vec<_> = result.speakers().collect();
    assert_eq!(speakers.iter().map(|s| s.name).collect::<Vec<_>>(), ["Ann", "Ben", "Cleo"]);
    for speaker in &speakers {
        let norm: f32 = speaker.embedding.iter().map(|x| x * x).sum();
        assert!((norm - 1.0).abs() < 1e-4);
    }
    let mut heard = vec![0.0; speakers.len()];
    for segment in result.segments() {
        assert!(segment.start < segment.end && segment.name == speakers[segment.speaker].name);
        assert!((0.0..=1.0).contains(&segment.confidence));
        heard[segment.speaker] += segment.end - segment.start;
    }
    assert!(heard.iter().zip(&speakers).all(|(sum, speaker)| (sum - speaker.seconds).abs() < 0.01));
}

#[test]
fn files_bytes_and_samples_are_the_same() {
    let (mut diarizer, of_file) = diarize(&Options::new());
    let bytes = std::fs::read(sample()).unwrap();
    let samples = samples();
    let segments = |result: &Diarization| result.segments().map(|s| (s.start, s.end, s.speaker)).collect::<Vec<_>>();
    for given in [Source::Bytes(&bytes), Source::Samples { samples: &samples, channels: 1, rate: 16000 }] {
        assert_eq!(segments(&diarizer.diarize(given, &Options::new()).unwrap()), segments(&of_file));
    }
    let model = std::fs::read(source().join("models/parley.zx")).unwrap();
    let again = Diarizer::from_bytes(&model).unwrap().diarize(&sample(), &Options::new()).unwrap();
    assert_eq!(segments(&again), segments(&of_file));
}

#[test]
fn options_are_asked_for_and_refused() {
    let (_, two) = diarize(&Options::new().speakers(2).sensitivity(0.6).merge_gap(0.5));
    assert_eq!(two.speakers().len(), 2);
    let mut diarizer = Diarizer::new().unwrap();
    for wrong in [
        Options::new().sensitivity(7.0),
        Options::new().speakers(2).channels(Channels::Split),
        Options::new().min_speakers(3).max_speakers(2),
        Options::new().speaker_prefix("a\0b"),
    ] {
        assert_eq!(diarizer.diarize(&sample(), &wrong).unwrap_err().status, Status::Invalid, "{wrong:?}");
    }
}

#[test]
fn failures_are_errors() {
    let mut diarizer = Diarizer::new().unwrap();
    assert_eq!(Diarizer::open("/nowhere.zx").unwrap_err().status, Status::Missing);
    assert!(Diarizer::from_bytes(b"no model").is_err());
    let missing = diarizer.diarize("/nowhere.wav", &Options::new()).unwrap_err();
    assert_eq!(missing.status, Status::Missing);
    assert!(missing.to_string().contains("nowhere.wav"));
    let no_audio =
        diarizer.diarize(Path::new(env!("CARGO_MANIFEST_DIR")).join("Cargo.toml").as_path(), &Options::new());
    assert_eq!(no_audio.unwrap_err().status, Status::Invalid);
    for (channels, rate) in [(0, 16000), (3, 16000), (1, 0), (1, u32::MAX)] {
        assert!(diarizer.diarize(Source::Samples { samples: &[0; 16000], channels, rate }, &Options::new()).is_err());
    }
    let result = diarizer.diarize(&sample(), &Options::new()).unwrap();
    assert_eq!(result.bytes("no-such").unwrap_err().status, Status::Invalid);
    assert!(result.text("png").is_err() && result.transcript("text").is_err());
    assert!(diarizer.recluster(&result, &Options::new()).is_err()); // nothing was kept
}

#[test]
fn progress_rises_and_cancels_at_once() {
    let mut diarizer = Diarizer::new().unwrap();
    let mut last = 0.0;
    diarizer
        .diarize_with(&sample(), &Options::new(), |done| {
            assert!(done >= last && done <= 1.0);
            last = done;
            true
        })
        .unwrap();
    assert!(last > 0.9);
    let hours: Vec<i16> = samples().repeat(100);
    let (begun, mut asked) = (Instant::now(), None);
    let cancelled =
        diarizer.diarize_with(Source::Samples { samples: &hours, channels: 1, rate: 16000 }, &Options::new(), |_| {
            asked = asked.or_else(|| (begun.elapsed() > Duration::from_millis(300)).then(Instant::now));
            asked.is_none()
        });
    assert_eq!(cancelled.unwrap_err().status, Status::Cancelled);
    assert!(asked.unwrap().elapsed() < Duration::from_millis(200));
}

#[test]
fn a_panic_in_the_progress_function_comes_out_of_the_call() {
    let mut diarizer = Diarizer::new().unwrap();
    let run = std::panic::AssertUnwindSafe(|| diarizer.diarize_with(&sample(), &Options::new(), |_| panic!("no more")));
    assert_eq!(*std::panic::catch_unwind(run).unwrap_err().downcast::<&str>().unwrap(), "no more");
    assert!(diarizer.diarize(&sample(), &Options::new()).is_ok());
}

#[test]
fn samples_are_heard_as_they_come() {
    let mut diarizer = Diarizer::new().unwrap();
    let samples = samples();
    let mut session = diarizer.listen(1, 16000, &Options::new()).unwrap();
    let mut states = 0;
    for piece in samples.chunks(16000 * 5) {
        session.feed(piece).unwrap();
        states += usize::from(session.update(0.05).unwrap().is_some());
    }
    let heard = session.end().unwrap().text("uem").unwrap();
    assert!(states > 5);
    let whole = Source::Samples { samples: &samples, channels: 1, rate: 16000 };
    assert_eq!(diarizer.diarize(whole, &Options::new()).unwrap().text("uem").unwrap(), heard);
}

#[test]
fn another_number_of_speakers_takes_no_other_pass() {
    let (mut diarizer, result) = diarize(&Options::new().keep_embeddings(true));
    let two = Options::new().speakers(2);
    let again = diarizer.recluster(&result, &two).unwrap();
    let kept = result.write_embeddings().unwrap();
    let from_bytes = diarizer.read_embeddings(&kept, "three-voices.wav", &two).unwrap();
    assert_eq!(from_bytes.text("csv").unwrap(), again.text("csv").unwrap());
    assert!(diarizer.read_embeddings(&kept[1..], "", &two).is_err());
    drop(result); // what both share stays
    assert_eq!(diarizer.recluster(&again, &Options::new()).unwrap().speakers().len(), 3);
}

#[test]
fn known_voices_get_their_names() {
    let (mut diarizer, result) = diarize(&Options::new());
    let mut voices = Voices::default();
    voices.add("Ann", &result, 0, None).unwrap();
    voices.add("Ben", &result, 1, None).unwrap();
    assert!(voices.add("Nobody", &result, 99, None).is_err());
    voices.remove("Ben").unwrap();
    let kept = Voices(voices.0);
    let mut named = diarizer.diarize(&sample(), &Options::new()).unwrap();
    named.name_voices(&kept, None).unwrap();
    assert_eq!(named.speakers().map(|s| s.name).collect::<Vec<_>>(), ["Ann", "speaker 2", "speaker 3"]);
    assert!(named.speakers().next().unwrap().similarity > 0.99);
    assert!(named.name_voices(&Voices("no voices".into()), None).is_err());
}

#[test]
fn words_have_speakers() {
    let (_, mut result) = diarize(&Options::new());
    let captions = "1\n00:00:01,000 --> 00:00:02,000\nHello\n\n2\n00:00:09,000 --> 00:00:10,000\nthere\n";
    result.add_words(captions, 1.0).unwrap();
    let words: Vec<_> = result.words().map(|w| (w.text.to_string(), w.speaker.to_string())).collect();
    assert_eq!(words, [("Hello".into(), "speaker 1".into()), ("there".into(), "speaker 2".into())]);
    assert!(String::from_utf8(result.transcript("srt").unwrap()).unwrap().contains("speaker 2: there"));
    let read = Diarization::read(&result.text("json").unwrap(), "sample.json").unwrap();
    assert_eq!(read.words().len(), 2);
    assert_eq!(read.text("rttm").unwrap(), result.text("rttm").unwrap());
}

#[test]
fn diarizers_and_results_cross_threads() {
    let (mut diarizer, result) = diarize(&Options::new());
    let expected = result.text("rttm").unwrap();
    std::thread::scope(|threads| {
        for _ in 0..3 {
            threads.spawn(|| assert_eq!(result.text("rttm").unwrap(), expected));
        }
        threads.spawn(move || diarizer.diarize(&sample(), &Options::new()).unwrap());
    });
}

#[test]
fn nothing_is_left_behind() {
    let mut resident = Vec::new();
    for _ in 0..12 {
        let (mut diarizer, result) = diarize(&Options::new().keep_embeddings(true));
        diarizer.recluster(&result, &Options::new().speakers(2)).unwrap().bytes("json").unwrap();
        let mut session = diarizer.listen(1, 16000, &Options::new()).unwrap();
        session.feed(&samples()).unwrap();
        let pages = std::fs::read_to_string("/proc/self/statm").unwrap();
        resident.push(pages.split(' ').nth(1).unwrap().parse::<i64>().unwrap() * 4096);
    }
    assert!(resident[11] - resident[3] < 8 << 20, "{resident:?}");
}

#[test]
fn formats_and_versions_are_told() {
    assert!(parley::version().starts_with("1."));
    assert!(parley::formats().any(|f| f.name == "rttm" && f.extension == ".rttm"));
    assert!(parley::transcript_formats().any(|f| f.name == "docx"));
}
