// SPDX-License-Identifier: Apache-2.0
//! The records as C lays them out, by the header in PARLEY_INCLUDE_DIR or pkg-config's.
use parley_sys::*;
use std::mem::size_of;
use std::process::Command;

fn include_flags() -> Vec<String> {
    if let Ok(folder) = std::env::var("PARLEY_INCLUDE_DIR") {
        return vec![format!("-I{folder}")];
    }
    let asked = Command::new("pkg-config").args(["--cflags", "parley-diarization"]).output().unwrap();
    String::from_utf8(asked.stdout).unwrap().split_whitespace().map(String::from).collect()
}

macro_rules! offset {
    ($record:ty, $field:ident) => {{
        let block = std::mem::MaybeUninit::<$record>::uninit();
        let base = block.as_ptr();
        // SAFETY: the address of a field is computed, nothing is read.
        unsafe { std::ptr::addr_of!((*base).$field) as usize - base as usize }
    }};
}

#[test]
fn records_are_those_of_c() {
    let records = [
        ("parley_segment", "confidence", size_of::<parley_segment>(), offset!(parley_segment, confidence)),
        ("parley_speaker", "similarity", size_of::<parley_speaker>(), offset!(parley_speaker, similarity)),
        ("parley_word", "speaker", size_of::<parley_word>(), offset!(parley_word, speaker)),
        ("parley_format", "media_type", size_of::<parley_format>(), offset!(parley_format, media_type)),
        ("parley_options", "overlap", size_of::<parley_options>(), offset!(parley_options, overlap)),
        ("parley_transcription", "reach", size_of::<parley_transcription>(), offset!(parley_transcription, reach)),
        ("parley_score", "num_found", size_of::<parley_score>(), offset!(parley_score, num_found)),
    ];
    let asserts: String = records
        .iter()
        .map(|(record, field, size, offset)| {
            format!("_Static_assert(sizeof({record}) == {size} && offsetof({record}, {field}) == {offset}, \"{record}\");\n")
        })
        .collect();
    let folder = std::env::temp_dir().join(format!("parley-layout-{}", std::process::id()));
    std::fs::create_dir_all(&folder).unwrap();
    let source = folder.join("layout.c");
    std::fs::write(&source, format!("#include <parley.h>\n{asserts}")).unwrap();
    let compiled = Command::new("cc").args(include_flags()).args(["-std=c11", "-fsyntax-only"]).arg(&source).output();
    std::fs::remove_dir_all(&folder).unwrap();
    let output = compiled.unwrap();
    assert!(output.status.success(), "{}", String::from_utf8_lossy(&output.stderr));
}
