// The "What's new" of whats_new.cpp, in Rust through velcan's C interface (no crate needed).
//   whats_new_rs INSTALLED_VERSION [FILE]
use std::ffi::{CStr, CString};
use std::os::raw::{c_char, c_int, c_void};
use std::process::exit;

#[allow(non_camel_case_types)]
type velcan_history = c_void;

#[link(name = "velcan")]
extern "C" {
    fn velcan_last_error() -> *const c_char;
    fn velcan_version_is_valid(text: *const c_char) -> c_int;
    fn velcan_history_read_file(path: *const c_char, history: *mut *mut velcan_history) -> c_int;
    fn velcan_history_newer_than(
        history: *const velcan_history,
        installed: *const c_char,
        newer: *mut *mut velcan_history,
    ) -> c_int;
    fn velcan_history_free(history: *mut velcan_history);
    fn velcan_history_count(history: *const velcan_history) -> usize;
    fn velcan_history_newest(history: *const velcan_history) -> c_int;
    fn velcan_history_number(history: *const velcan_history, index: usize) -> *const c_char;
    fn velcan_history_date(history: *const velcan_history, index: usize) -> *const c_char;
    fn velcan_history_description_count(history: *const velcan_history, index: usize) -> usize;
    fn velcan_history_description(
        history: *const velcan_history,
        index: usize,
        d: usize,
    ) -> *const c_char;
}

// A text the library owns, as long as its history lives.
fn text<'a>(p: *const c_char) -> &'a str {
    unsafe { CStr::from_ptr(p) }.to_str().unwrap_or("")
}

fn main() {
    let args: Vec<String> = std::env::args().collect();
    let installed = args.get(1).map_or("4.1.0", |s| s.as_str());
    let path = args.get(2).map_or("version-history.xml", |s| s.as_str());
    let installed_c = CString::new(installed).unwrap();
    let path_c = CString::new(path).unwrap();
    unsafe {
        let mut history = std::ptr::null_mut();
        let mut news = std::ptr::null_mut();
        if velcan_history_read_file(path_c.as_ptr(), &mut history) != 0
            || velcan_history_newer_than(history, installed_c.as_ptr(), &mut news) != 0
        {
            eprintln!("{}", text(velcan_last_error()));
            velcan_history_free(history);
            exit(if velcan_version_is_valid(installed_c.as_ptr()) == 1 { 1 } else { 2 });
        }
        if velcan_history_count(news) == 0 {
            println!("{} is the newest version.", installed);
        } else {
            let newest = velcan_history_newest(news) as usize;
            println!("What's new from {} to {}:", installed, text(velcan_history_number(news, newest)));
        }
        for i in 0..velcan_history_count(news) {
            println!("\n{} ({})", text(velcan_history_number(news, i)), text(velcan_history_date(news, i)));
            for d in 0..velcan_history_description_count(news, i) {
                // Each run of blanks and line breaks one space, as the C++ example folds them.
                let words: Vec<&str> = text(velcan_history_description(news, i, d))
                    .split(|c| matches!(c, ' ' | '\t' | '\r' | '\n'))
                    .filter(|w| !w.is_empty())
                    .collect();
                println!("  - {}", words.join(" "));
            }
        }
        velcan_history_free(news);
        velcan_history_free(history);
    }
}
