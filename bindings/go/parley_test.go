// SPDX-License-Identifier: Apache-2.0

package parley

import (
	"bytes"
	"context"
	"encoding/binary"
	"errors"
	"os"
	"os/exec"
	"path/filepath"
	"reflect"
	"runtime"
	"strconv"
	"strings"
	"sync"
	"testing"
	"time"
)

var (
	source = os.Getenv("PARLEY_SOURCE") // the sources' folder; the model is the one that is installed
	sample = filepath.Join(source, "examples/three-voices.wav")
	ctx    = context.Background()
)

func open(t *testing.T) *Diarizer {
	t.Helper()
	d, err := Open("")
	if err != nil {
		t.Fatal(err)
	}
	t.Cleanup(func() { d.Close() })
	return d
}

func diarize(t *testing.T, d *Diarizer, options ...Option) *Result {
	t.Helper()
	r, err := d.DiarizeFile(ctx, sample, options...)
	if err != nil {
		t.Fatal(err)
	}
	t.Cleanup(func() { r.Close() })
	return r
}

// The sample's own samples, behind a header of 44 bytes.
func samples(t *testing.T) []int16 {
	t.Helper()
	content, err := os.ReadFile(sample)
	if err != nil {
		t.Fatal(err)
	}
	all := make([]int16, (len(content)-44)/2)
	for i := range all {
		all[i] = int16(binary.LittleEndian.Uint16(content[44+2*i:]))
	}
	return all
}

func expectStatus(t *testing.T, err error, status Status) {
	t.Helper()
	var failure *Error
	if !errors.As(err, &failure) || failure.Status != status || len(failure.Message) < 10 {
		t.Errorf("%v, expected status %d", err, status)
	}
}

// The command line tool's RTTM, of the sample and of what PARLEY_RECORDINGS lists.
func TestTheToolWritesTheSameBytes(t *testing.T) {
	d := open(t)
	for _, recording := range append([]string{sample}, filepath.SplitList(os.Getenv("PARLEY_RECORDINGS"))...) {
		expected, err := exec.Command(os.Getenv("PARLEY_TOOL"), "-q", "-f", "rttm", recording).Output()
		if err != nil {
			t.Fatal(err)
		}
		r, err := d.DiarizeFile(ctx, recording)
		if err != nil {
			t.Fatal(err)
		}
		if written, err := r.Write("rttm"); err != nil || !bytes.Equal(written, expected) {
			t.Errorf("%s: %v", recording, err)
		}
		r.Close()
	}
}

func TestAResultTellsWhoSpeaksWhen(t *testing.T) {
	d := open(t)
	r := diarize(t, d, WithNames("Ann", "Ben", "Cleo"))
	if len(d.Model()) != 16 || r.Duration < 68 || r.Duration > 70 || len(r.Speakers) != 3 || len(r.Segments) < 5 {
		t.Fatalf("%s %f %v", d.Model(), r.Duration, r.Speakers)
	}
	heard := make([]float64, 3)
	for _, s := range r.Segments {
		if s.Start >= s.End || s.Name != r.Speakers[s.Speaker].Name || s.Confidence < 0 || s.Confidence > 1 {
			t.Errorf("%v", s)
		}
		heard[s.Speaker] += s.End - s.Start
	}
	for i, speaker := range r.Speakers {
		var norm float32
		for _, x := range speaker.Embedding {
			norm += x * x
		}
		if norm < 0.999 || norm > 1.001 || heard[i]-speaker.Seconds > 0.01 || speaker.Name != []string{"Ann", "Ben", "Cleo"}[i] {
			t.Errorf("%s: norm %f, %f s, heard %f s", speaker.Name, norm, speaker.Seconds, heard[i])
		}
	}
}

func TestFilesBytesAndSamplesAreTheSame(t *testing.T) {
	d := open(t)
	expected := diarize(t, d)
	file, err := os.Open(sample)
	if err != nil {
		t.Fatal(err)
	}
	defer file.Close()
	ofBytes, err := d.Diarize(ctx, file, "three-voices.wav")
	if err != nil {
		t.Fatal(err)
	}
	ofSamples, err := d.DiarizeSamples(ctx, samples(t), 1, 16000)
	if err != nil {
		t.Fatal(err)
	}
	if !reflect.DeepEqual(ofBytes.Segments, expected.Segments) || !reflect.DeepEqual(ofSamples.Segments, expected.Segments) {
		t.Error("segments differ")
	}
}

func TestOptionsAreAskedForAndRefused(t *testing.T) {
	d := open(t)
	if r := diarize(t, d, WithSpeakers(2), WithSensitivity(0.6), WithRefine(true)); len(r.Speakers) != 2 {
		t.Errorf("%d speakers", len(r.Speakers))
	}
	for _, wrong := range [][]Option{{WithSensitivity(7)}, {WithSpeakers(2), WithChannels(ChannelsSplit)},
		{WithMinSpeakers(3), WithMaxSpeakers(2)}, {WithSpeakerPrefix("a\x00b")}, {WithThreshold(0.1, 0.2, 0.3, 4)}} {
		_, err := d.DiarizeFile(ctx, sample, wrong...)
		expectStatus(t, err, Invalid)
	}
}

func TestFailuresAreErrors(t *testing.T) {
	_, err := Open("/nowhere.zx")
	expectStatus(t, err, Missing)
	d := open(t)
	_, err = d.DiarizeFile(ctx, "/nowhere.wav")
	expectStatus(t, err, Missing)
	if !strings.Contains(err.Error(), "nowhere.wav") {
		t.Error(err)
	}
	_, err = d.DiarizeFile(ctx, "go.mod")
	expectStatus(t, err, Invalid)
	for _, c := range [][3]int{{0, 1, 16000}, {16000, 0, 16000}, {16000, 3, 16000}, {16000, 1, -1}, {16000, -1, 16000}} {
		_, err = d.DiarizeSamples(ctx, make([]int16, c[0]), c[1], c[2])
		expectStatus(t, err, Invalid)
	}
	r := diarize(t, d)
	_, err = r.Write("no-such")
	expectStatus(t, err, Invalid)
	_, err = d.Recluster(r) // nothing was kept
	expectStatus(t, err, Invalid)
	r.Close()
	d.Close()
	if _, err = r.Write("rttm"); err != ErrClosed {
		t.Error(err)
	}
	if _, err = d.DiarizeFile(ctx, sample); err != ErrClosed {
		t.Error(err)
	}
}

func TestProgressRisesAndAContextCancels(t *testing.T) {
	d := open(t)
	last := 0.0
	diarize(t, d, WithProgress(func(done float64) {
		if done < last || done > 1 {
			t.Errorf("%f after %f", done, last)
		}
		last = done
	}))
	if last < 0.9 {
		t.Error(last)
	}
	var hours []int16
	for i, all := 0, samples(t); i < 100; i++ {
		hours = append(hours, all...)
	}
	limited, cancel := context.WithTimeout(ctx, 300*time.Millisecond)
	defer cancel()
	begun := time.Now()
	_, err := d.DiarizeSamples(limited, hours, 1, 16000)
	if !errors.Is(err, context.DeadlineExceeded) || time.Since(begun) > 500*time.Millisecond {
		t.Error(err, time.Since(begun))
	}
	cancelled, stop := context.WithCancel(ctx)
	_, err = d.DiarizeSamples(cancelled, hours, 1, 16000, WithProgress(func(float64) { stop() }))
	if !errors.Is(err, context.Canceled) {
		t.Error(err)
	}
}

func TestSamplesAreHeardAsTheyCome(t *testing.T) {
	d := open(t)
	content, err := os.ReadFile(sample)
	if err != nil {
		t.Fatal(err)
	}
	states := 0
	heard, err := d.ListenTo(ctx, bytes.NewReader(content[44:]), 16000, func(*Result) { states++ })
	if err != nil || states < 30 {
		t.Fatal(err, states)
	}
	expected, err := d.DiarizeSamples(ctx, samples(t), 1, 16000)
	if err != nil || !reflect.DeepEqual(heard.Segments, expected.Segments) {
		t.Error("segments differ", err)
	}
}

func TestAnotherNumberOfSpeakersTakesNoOtherPass(t *testing.T) {
	d := open(t)
	r := diarize(t, d, WithKeepEmbeddings(true))
	two, err := d.Recluster(r, WithSpeakers(2))
	kept, _ := r.WriteEmbeddings()
	r.Close() // what both share stays
	if err != nil || len(two.Speakers) != 2 {
		t.Fatal(err)
	}
	if again, err := d.Recluster(two); err != nil || len(again.Speakers) != 3 {
		t.Error(err)
	}
	if again, err := d.ReadEmbeddings(kept, "three-voices.wav", WithSpeakers(2)); err != nil || !reflect.DeepEqual(again.Segments, two.Segments) {
		t.Error(err)
	}
	_, err = d.ReadEmbeddings(nil, "")
	expectStatus(t, err, Invalid)
}

func TestKnownVoicesGetTheirNames(t *testing.T) {
	d := open(t)
	r := diarize(t, d)
	voices, err := AddVoice("", "Ann", r, 0, 0, 0)
	if err == nil {
		voices, err = AddVoice(voices, "Ben", r, 1, 0, 0)
	}
	if err == nil {
		voices, err = RemoveVoice(voices, "Ben")
	}
	if err != nil {
		t.Fatal(err)
	}
	_, err = AddVoice(voices, "Nobody", r, 99, 0, 0)
	expectStatus(t, err, Invalid)
	named := diarize(t, d)
	if err := named.NameVoices(voices, 0); err != nil || named.Segments[0].Name != "Ann" || named.Speakers[1].Name != "speaker 2" {
		t.Error(err, named.Segments[0])
	}
	if err := named.NameVoices("no voices", 0); err == nil {
		t.Error("a text that is no list of voices")
	}
}

func TestWordsHaveSpeakers(t *testing.T) {
	d := open(t)
	r := diarize(t, d)
	captions := "1\n00:00:01,000 --> 00:00:02,000\nHello\n\n2\n00:00:09,000 --> 00:00:10,000\nthere\n"
	if err := r.AddWords([]byte(captions), 1); err != nil || len(r.Words) != 2 || r.Words[1].Speaker != "speaker 2" {
		t.Fatal(err, r.Words)
	}
	if text, err := r.WriteWords("srt"); err != nil || !strings.Contains(string(text), "speaker 2: there") {
		t.Error(err, string(text))
	}
	json, err := r.Write("json")
	if err != nil {
		t.Fatal(err)
	}
	if read, err := Read(json, "sample.json"); err != nil || !reflect.DeepEqual(read.Words, r.Words) {
		t.Error(err)
	}
}

func TestGoroutinesShareADiarizer(t *testing.T) {
	d := open(t)
	expected := diarize(t, d).Segments
	var all sync.WaitGroup
	for i := 0; i < 4; i++ {
		all.Add(1)
		go func() {
			defer all.Done()
			r, err := d.DiarizeFile(ctx, sample)
			if err != nil || !reflect.DeepEqual(r.Segments, expected) {
				t.Error("segments differ", err)
			}
		}()
	}
	all.Wait()
}

func TestNothingIsLeftBehind(t *testing.T) {
	resident := func() int {
		pages, err := os.ReadFile("/proc/self/statm")
		if err != nil {
			t.Skip(err)
		}
		number, _ := strconv.Atoi(strings.Fields(string(pages))[1])
		return number * os.Getpagesize()
	}
	all, before := samples(t), 0
	for i := 0; i < 12; i++ {
		if i == 4 {
			before = resident()
		}
		d, err := Open("")
		if err != nil {
			t.Fatal(err)
		}
		if _, err = d.DiarizeFile(ctx, sample, WithKeepEmbeddings(true)); err != nil {
			t.Fatal(err)
		}
		s, err := d.Listen(1, 16000)
		if err != nil || s.Feed(all) != nil {
			t.Fatal(err)
		}
		d, s = nil, nil // nothing is closed: that is the collector's work
		for k := 0; k < 3; k++ {
			runtime.GC()
			time.Sleep(5 * time.Millisecond)
		}
	}
	if grown := resident() - before; grown > 16<<20 {
		t.Errorf("%d bytes more", grown)
	}
}

func TestFormatsAndVersionAreTold(t *testing.T) {
	if !strings.HasPrefix(Version(), "1.") || len(Formats()) < 10 || len(TranscriptFormats()) < 5 || Formats()[0].Purpose == "" {
		t.Error(Version(), Formats())
	}
}
