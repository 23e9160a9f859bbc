// SPDX-License-Identifier: Apache-2.0
//! Finds the dynamic library: in the folder that PARLEY_LIBRARY_DIR names, or by pkg-config.
use std::{env, process::Command};

fn flags_of_pkg_config() -> String {
    let asked = Command::new("pkg-config").args(["--libs", "--keep-system-libs", "parley-diarization >= 1.0"]).output();
    let output = asked.expect("neither pkg-config nor PARLEY_LIBRARY_DIR tells where the library is");
    assert!(output.status.success(), "{}", String::from_utf8_lossy(&output.stderr));
    String::from_utf8(output.stdout).expect("pkg-config writes text")
}

fn main() {
    println!("cargo:rerun-if-env-changed=PARLEY_LIBRARY_DIR");
    println!("cargo:rerun-if-env-changed=PKG_CONFIG_PATH");
    let given = env::var("PARLEY_LIBRARY_DIR").map(|folder| format!("-L{folder} -lparley-diarization"));
    for flag in given.unwrap_or_else(|_| flags_of_pkg_config()).split_whitespace() {
        if let Some(folder) = flag.strip_prefix("-L") {
            println!("cargo:rustc-link-search=native={folder}");
        } else if let Some(name) = flag.strip_prefix("-l") {
            println!("cargo:rustc-link-lib=dylib={name}");
        }
    }
}
