// SPDX-License-Identifier: Apache-2.0
//! Finds the dynamic library: in the folder that PARLEY_LIBRARY_DIR names, or by pkg-config.
use std::env;
use std::process::Command;

fn main() {
    println!("cargo:rerun-if-env-changed=PARLEY_LIBRARY_DIR");
    println!("cargo:rerun-if-env-changed=PKG_CONFIG_PATH");
    if let Some(folder) = env::var_os("PARLEY_LIBRARY_DIR") {
        println!("cargo:rustc-link-search=native={}", folder.to_string_lossy());
        println!("cargo:rustc-link-lib=dylib=parley-diarization");
        return;
    }
    let tool = env::var("PKG_CONFIG").unwrap_or_else(|_| "pkg-config".into());
    let asked = Command::new(&tool).args(["--libs", "--keep-system-libs", "parley-diarization >= 1.0"]).output();
    let flags = match asked {
        Ok(output) if output.status.success() => String::from_utf8_lossy(&output.stdout).into_owned(),
        Ok(output) => panic!("{}", String::from_utf8_lossy(&output.stderr)),
        Err(error) => panic!("{tool}: {error}; or set PARLEY_LIBRARY_DIR to the library's folder"),
    };
    for flag in flags.split_whitespace() {
        if let Some(folder) = flag.strip_prefix("-L") {
            println!("cargo:rustc-link-search=native={folder}");
        } else if let Some(name) = flag.strip_prefix("-l") {
            println!("cargo:rustc-link-lib=dylib={name}");
        }
    }
}
