// SPDX-License-Identifier: Apache-2.0

package parley

/*
#include <parley.h>
#include <stdlib.h>
*/
import "C"

import (
	"runtime"
	"unsafe"
)

// Result is who spoke when in one recording. Its fields are the caller's own; what the library keeps for writing goes with Close, or
// when nobody has the result any more.
type Result struct {
	Duration float64 // seconds of audio
	Note     string  // what the user should know, or ""
	Segments []Segment
	Speakers []Speaker
	Words    []Word // of a transcript, if one was added
	handle   *C.parley_result
}

// taken makes a result of what a call made, which may be nothing.
func taken(made *C.parley_result, err error) (*Result, error) {
	if err != nil || made == nil {
		return nil, err
	}
	r := &Result{handle: made, Duration: float64(C.parley_result_duration(made)), Note: C.GoString(C.parley_result_note(made))}
	runtime.SetFinalizer(r, func(r *Result) { r.Close() })
	r.takeSpeakers()
	r.takeWords()
	return r, nil
}

func (r *Result) takeSpeakers() {
	r.Speakers, r.Segments = nil, nil
	for i := C.int32_t(0); i < C.parley_result_num_speakers(r.handle); i++ {
		s := C.parley_result_speaker(r.handle, i)
		embedding := make([]float32, s.embedding_size)
		copy(embedding, unsafe.Slice((*float32)(unsafe.Pointer(s.embedding)), s.embedding_size))
		r.Speakers = append(r.Speakers, Speaker{C.GoString(s.name), float64(s.seconds), embedding, float64(s.similarity)})
	}
	for i := C.int32_t(0); i < C.parley_result_num_segments(r.handle); i++ {
		s := C.parley_result_segment(r.handle, i)
		name := r.Speakers[s.speaker].Name
		r.Segments = append(r.Segments, Segment{float64(s.start), float64(s.end), int(s.speaker), name, float64(s.confidence)})
	}
}

func (r *Result) takeWords() {
	r.Words = nil
	for i := C.int32_t(0); i < C.parley_result_num_words(r.handle); i++ {
		w := C.parley_result_word(r.handle, i)
		r.Words = append(r.Words, Word{float64(w.start), float64(w.end), C.GoString(w.text), C.GoString(w.speaker)})
	}
}

// Close releases what the library keeps. It may be called again.
func (r *Result) Close() error {
	C.parley_result_delete(r.handle)
	r.handle = nil
	return nil
}

// Read makes a result of a text that was written earlier, and maybe corrected: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices,
// Audacity labels. name is the text's file, for messages, and the recording's name where the text does not tell it.
func Read(text []byte, name string) (*Result, error) {
	var made *C.parley_result
	err := withTexts(func(kept *texts) C.parley_status {
		return C.parley_read_result(kept.add(string(text)), C.size_t(len(text)), kept.add(name), &made)
	})
	return taken(made, err)
}

func withTexts(function func(*texts) C.parley_status) error {
	var kept texts
	defer kept.free()
	return call(func() C.parley_status { return function(&kept) })
}

// run calls with the result, which lives until the call is over.
func (r *Result) run(function func(*texts) C.parley_status) error {
	if r.handle == nil {
		return ErrClosed
	}
	defer runtime.KeepAlive(r)
	return withTexts(function)
}

// The bytes of the block that a call makes.
func (r *Result) bytes(write func(kept *texts, block **C.char, size *C.size_t) C.parley_status) ([]byte, error) {
	var block *C.char
	var size C.size_t
	err := r.run(func(kept *texts) C.parley_status { return write(kept, &block, &size) })
	defer C.parley_free(unsafe.Pointer(block))
	return C.GoBytes(unsafe.Pointer(block), C.int(size)), err
}

// Write returns the result in one of Formats, byte for byte what the command line tool writes.
func (r *Result) Write(format string) ([]byte, error) {
	return r.bytes(func(kept *texts, block **C.char, size *C.size_t) C.parley_status {
		return C.parley_write_text(r.handle, kept.add(format), block, size)
	})
}

// WriteWords returns the words in one of TranscriptFormats.
func (r *Result) WriteWords(format string) ([]byte, error) {
	return r.bytes(func(kept *texts, block **C.char, size *C.size_t) C.parley_status {
		return C.parley_write_words(r.handle, kept.add(format), block, size)
	})
}

// WriteEmbeddings returns what Diarizer.ReadEmbeddings takes, of a result that has kept its embeddings: 8 kB for each second.
func (r *Result) WriteEmbeddings() ([]byte, error) {
	return r.bytes(func(_ *texts, block **C.char, size *C.size_t) C.parley_status {
		return C.parley_write_embeddings(r.handle, block, size)
	})
}

// AddWords adds a transcript, each word with its speaker: JSON of recognizers, TSV, WebVTT, SRT or CTM. Words outside of all segments are
// the nearest's as far as reach seconds away.
func (r *Result) AddWords(transcript []byte, reach float64) error {
	err := r.run(func(kept *texts) C.parley_status {
		text, size := kept.add(string(transcript)), C.size_t(len(transcript))
		return C.parley_result_add_words(r.handle, text, size, C.double(reach), C.PARLEY_WORDS_WHOLE_SENTENCES)
	})
	r.takeWords()
	return err
}

// NameVoices gives speakers the names of known people who are near enough: a cosine above threshold (0 stands for 0.8). voices is the
// text of a file of voices.
func (r *Result) NameVoices(voices string, threshold float64) error {
	err := r.run(func(kept *texts) C.parley_status {
		return C.parley_result_name_voices(r.handle, kept.add(voices), C.double(threshold))
	})
	if err == nil {
		r.takeSpeakers()
	}
	return err
}

// AddVoice returns a list of voices, of which "" is the empty one, with a sample of name: what a speaker of the result says between two
// times, in seconds, of a result of WithKeepEmbeddings; all of it if end is not behind start.
func AddVoice(voices, name string, r *Result, speaker int, start, end float64) (string, error) {
	var text *C.char
	err := r.run(func(kept *texts) C.parley_status {
		return C.parley_voices_add(kept.add(voices), kept.add(name), r.handle, C.int32_t(speaker), C.double(start), C.double(end), &text)
	})
	defer C.parley_free(unsafe.Pointer(text))
	return C.GoString(text), err
}

// RemoveVoice returns a list of voices without somebody.
func RemoveVoice(voices, name string) (string, error) {
	var text *C.char
	err := withTexts(func(kept *texts) C.parley_status {
		return C.parley_voices_remove(kept.add(voices), kept.add(name), &text)
	})
	defer C.parley_free(unsafe.Pointer(text))
	return C.GoString(text), err
}
