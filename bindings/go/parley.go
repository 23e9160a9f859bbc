// SPDX-License-Identifier: Apache-2.0

// Package parley tells who spoke when, on your own machine.
//
//	diarizer, err := parley.Open("")
//	if err != nil {
//		return err
//	}
//	defer diarizer.Close()
//	result, err := diarizer.DiarizeFile(ctx, "meeting.wav", parley.WithSpeakers(2))
//
// A Diarizer holds a loaded model (about 4 MB). It may be shared between goroutines, which then take turns; for work side by side
// give each its own. The library is found by pkg-config (parley-diarization).
package parley

/*
#cgo pkg-config: parley-diarization
#include <parley.h>
#include <stdlib.h>

extern int parleyReport(void *context, double done);
*/
import "C"

import (
	"context"
	"encoding/binary"
	"errors"
	"fmt"
	"io"
	"runtime"
	"runtime/cgo"
	"strings"
	"sync"
	"unsafe"
)

// Error is a failure, with a sentence that says what is wrong.
type Error struct {
	Status  Status
	Message string
	Details string // what the engine said about it, a line each; may be empty
}

func (e *Error) Error() string { return "parley: " + e.Message }

// Is makes errors.Is(err, context.Canceled) hold for what was cancelled.
func (e *Error) Is(target error) bool {
	return e.Status == Cancelled && target == context.Canceled
}

// ErrClosed is what a closed Diarizer, Session or Result returns.
var ErrClosed = errors.New("parley: closed")

// call runs a function of the library's on one thread, where its message is kept.
func call(function func() C.parley_status) error {
	runtime.LockOSThread()
	defer runtime.UnlockOSThread()
	if status := function(); status != C.PARLEY_OK {
		return &Error{Status(status), C.GoString(C.parley_message()), C.GoString(C.parley_details())}
	}
	return nil
}

// Version is the library's, such as "1.0.0".
func Version() string { return C.GoString(C.parley_version()) }

// texts are copies of strings and bytes for C, and their release.
type texts []unsafe.Pointer

func (t *texts) add(text string) *C.char {
	copied := C.CString(text)
	*t = append(*t, unsafe.Pointer(copied))
	return copied
}

func (t *texts) addBytes(bytes []byte) unsafe.Pointer {
	copied := C.CBytes(bytes)
	*t = append(*t, copied)
	return copied
}

func (t *texts) free() {
	for _, copied := range *t {
		C.free(copied)
	}
}

// Option sets what is asked of a run.
type Option struct {
	name, value string
	progress    func(done float64)
}

// WithProgress: the function is called with the share that is done, from 0 to 1, never falling.
func WithProgress(progress func(done float64)) Option { return Option{progress: progress} }

// record fills a record of options in C's memory, since the library keeps addresses of the texts in it.
func record(asked []Option, kept *texts, w *watch) (*C.parley_options, error) {
	options := (*C.parley_options)(C.malloc(C.sizeof_parley_options))
	*kept = append(*kept, unsafe.Pointer(options))
	C.parley_options_init(options, C.sizeof_parley_options)
	for _, o := range asked {
		if o.progress != nil {
			w.progress = o.progress
			continue
		}
		if strings.ContainsRune(o.value, 0) {
			return nil, &Error{Status: Invalid, Message: o.name + " has a zero in it"}
		}
		name, value := kept.add(o.name), kept.add(o.value)
		if err := call(func() C.parley_status { return C.parley_options_set(options, name, value) }); err != nil {
			return nil, err
		}
	}
	return options, nil
}

// Diarizer is a loaded model, ready for any number of recordings, one at a time.
type Diarizer struct {
	mutex  sync.Mutex
	handle *C.parley_diarizer
}

// Open loads a model file; "" stands for the one that is installed with the library, or that $PARLEY_MODEL names.
func Open(model string) (*Diarizer, error) {
	d := &Diarizer{}
	err := withTexts(func(kept *texts) C.parley_status {
		if model == "" {
			return C.parley_open(nil, &d.handle)
		}
		return C.parley_open(kept.add(model), &d.handle)
	})
	if err != nil {
		return nil, err
	}
	runtime.SetFinalizer(d, func(d *Diarizer) { d.Close() })
	return d, nil
}

// Close releases the model. It may be called again.
func (d *Diarizer) Close() error {
	d.mutex.Lock()
	defer d.mutex.Unlock()
	C.parley_close(d.handle)
	d.handle = nil
	return nil
}

// Model names the model: embeddings of two models cannot be compared.
func (d *Diarizer) Model() string {
	d.mutex.Lock()
	defer d.mutex.Unlock()
	return C.GoString(C.parley_model(d.handle))
}

var report = C.parley_progress(C.parleyReport)

type watch struct {
	ctx      context.Context
	progress func(float64)
}

//export parleyReport
func parleyReport(handle unsafe.Pointer, done C.double) C.int {
	w := (*cgo.Handle)(handle).Value().(*watch)
	if w.ctx.Err() != nil {
		return 0
	}
	w.progress(float64(done))
	return 1
}

// watched runs a function of the library's that reports its progress and ends when the context does.
func (d *Diarizer) watched(ctx context.Context, asked []Option,
	work func(kept *texts, options *C.parley_options, context unsafe.Pointer) C.parley_status) error {
	d.mutex.Lock()
	defer d.mutex.Unlock()
	if d.handle == nil {
		return ErrClosed
	}
	if err := ctx.Err(); err != nil {
		return err
	}
	var kept texts
	defer kept.free()
	w := &watch{ctx, func(float64) {}}
	options, err := record(asked, &kept, w)
	if err != nil {
		return err
	}
	handle := cgo.NewHandle(w)
	defer handle.Delete()
	err = call(func() C.parley_status { return work(&kept, options, unsafe.Pointer(&handle)) })
	if err != nil && ctx.Err() != nil && errors.Is(err, context.Canceled) {
		return ctx.Err()
	}
	return err
}

// DiarizeFile finds out who spoke when in an audio file. When the context is done, the run ends with its error.
func (d *Diarizer) DiarizeFile(ctx context.Context, path string, options ...Option) (*Result, error) {
	var made *C.parley_result
	err := d.watched(ctx, options, func(kept *texts, o *C.parley_options, context unsafe.Pointer) C.parley_status {
		return C.parley_diarize_file(d.handle, kept.add(path), o, report, context, &made)
	})
	return taken(made, err)
}

// Diarize does the same of the bytes of an audio file, which are read to their end; name stands for its path.
func (d *Diarizer) Diarize(ctx context.Context, file io.Reader, name string, options ...Option) (*Result, error) {
	content, err := io.ReadAll(file)
	if err != nil {
		return nil, err
	}
	var made *C.parley_result
	err = d.watched(ctx, options, func(kept *texts, o *C.parley_options, context unsafe.Pointer) C.parley_status {
		return C.parley_diarize_memory(d.handle, kept.addBytes(content), C.size_t(len(content)), kept.add(name), o, report, context, &made)
	})
	return taken(made, err)
}

func samplesOf(samples []int16) *C.int16_t {
	if len(samples) == 0 {
		return (*C.int16_t)(unsafe.Pointer(new(int16)))
	}
	return (*C.int16_t)(unsafe.Pointer(&samples[0]))
}

func framesOf(samples []int16, channels int) (C.int64_t, error) {
	if channels < 1 || len(samples)%channels != 0 {
		return 0, &Error{Status: Invalid, Message: fmt.Sprintf("%d samples are not those of %d channels", len(samples), channels)}
	}
	return C.int64_t(len(samples) / channels), nil
}

// DiarizeSamples does the same of samples of 16 bits, of all channels in turn, at a rate of 8000 or of 16000 Hz and more.
func (d *Diarizer) DiarizeSamples(ctx context.Context, samples []int16, channels, rate int, options ...Option) (*Result, error) {
	frames, err := framesOf(samples, channels)
	if err != nil {
		return nil, err
	}
	var made *C.parley_result
	err = d.watched(ctx, options, func(kept *texts, o *C.parley_options, context unsafe.Pointer) C.parley_status {
		return C.parley_diarize_samples(d.handle, samplesOf(samples), frames, C.int32_t(channels), C.int32_t(rate),
			kept.add("recording"), o, report, context, &made)
	})
	return taken(made, err)
}

// Recluster gives the same recording with other options, from the embeddings that a result of WithKeepEmbeddings has kept: without
// another pass.
func (d *Diarizer) Recluster(result *Result, options ...Option) (*Result, error) {
	var made *C.parley_result
	err := d.watched(context.Background(), options, func(_ *texts, o *C.parley_options, _ unsafe.Pointer) C.parley_status {
		return C.parley_recluster(d.handle, result.handle, o, &made)
	})
	runtime.KeepAlive(result)
	return taken(made, err)
}

// ReadEmbeddings is Recluster of what Result.WriteEmbeddings gave; name is the recording's.
func (d *Diarizer) ReadEmbeddings(embeddings []byte, name string, options ...Option) (*Result, error) {
	var made *C.parley_result
	err := d.watched(context.Background(), options, func(kept *texts, o *C.parley_options, _ unsafe.Pointer) C.parley_status {
		bytes := kept.addBytes(embeddings)
		return C.parley_read_embeddings(d.handle, bytes, C.size_t(len(embeddings)), kept.add(name), o, &made)
	})
	return taken(made, err)
}

// Session is a recording that is still going on; while it lasts its Diarizer may work on others, in turns.
type Session struct {
	diarizer *Diarizer
	handle   *C.parley_session
	channels int
}

// Listen begins to listen to samples that will come.
func (d *Diarizer) Listen(channels, rate int, options ...Option) (*Session, error) {
	s := &Session{diarizer: d, channels: channels}
	err := d.watched(context.Background(), options, func(kept *texts, o *C.parley_options, _ unsafe.Pointer) C.parley_status {
		return C.parley_listen(d.handle, kept.add("recording"), C.int32_t(channels), C.int32_t(rate), o, &s.handle)
	})
	if err != nil {
		return nil, err
	}
	runtime.SetFinalizer(s, func(s *Session) { s.Close() })
	return s, nil
}

func (s *Session) run(work func() C.parley_status) error {
	s.diarizer.mutex.Lock()
	defer s.diarizer.mutex.Unlock()
	if s.handle == nil || s.diarizer.handle == nil {
		return ErrClosed
	}
	return call(work)
}

// Feed takes samples, of all channels in turn.
func (s *Session) Feed(samples []int16) error {
	frames, err := framesOf(samples, s.channels)
	if err != nil {
		return err
	}
	return s.run(func() C.parley_status { return C.parley_session_feed(s.handle, samplesOf(samples), frames) })
}

// Update returns what is known so far, nil if nothing is new. Speakers keep their names from one result to the next; clustering takes
// at most share of the time that passes (0.05: a twentieth of a core).
func (s *Session) Update(share float64) (*Result, error) {
	var made *C.parley_result
	err := s.run(func() C.parley_status { return C.parley_session_update(s.handle, C.double(share), &made) })
	return taken(made, err)
}

// End returns what diarizing all samples at once would.
func (s *Session) End() (*Result, error) {
	var made *C.parley_result
	err := s.run(func() C.parley_status { return C.parley_session_end(s.handle, &made) })
	return taken(made, err)
}

// Close releases the session. It may be called again.
func (s *Session) Close() error {
	s.diarizer.mutex.Lock()
	defer s.diarizer.mutex.Unlock()
	C.parley_session_delete(s.handle)
	s.handle = nil
	return nil
}

// ListenTo reads samples of 16 bits, little endian, of one channel until their end, and reports what is known after every second. It
// returns what diarizing all of them at once would.
func (d *Diarizer) ListenTo(ctx context.Context, samples io.Reader, rate int, report func(*Result), options ...Option) (*Result, error) {
	session, err := d.Listen(1, rate, options...)
	if err != nil {
		return nil, err
	}
	defer session.Close()
	second := make([]byte, 2*rate)
	for {
		size, ended := io.ReadFull(samples, second)
		if err := ctx.Err(); err != nil {
			return nil, err
		}
		piece := make([]int16, size/2)
		for i := range piece {
			piece[i] = int16(binary.LittleEndian.Uint16(second[2*i:]))
		}
		if err := session.Feed(piece); err != nil {
			return nil, err
		}
		if ended == io.EOF || ended == io.ErrUnexpectedEOF {
			return session.End()
		}
		if ended != nil {
			return nil, ended
		}
		state, err := session.Update(0.05)
		if err != nil {
			return nil, err
		}
		if state != nil && report != nil {
			report(state)
		}
	}
}
