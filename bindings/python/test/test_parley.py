# SPDX-License-Identifier: Apache-2.0
"""The package as users have it: an installed wheel. PARLEY_TOOL names the command line tool, whose results are the same."""
import concurrent.futures
import contextlib
import json
import os
import pathlib
import pickle
import re
import subprocess
import sys
import threading
import time
import wave

import numpy as np
import pytest

import parley

ROOT = pathlib.Path(os.environ["PARLEY_SOURCE"])  # set by run: the tests run far from the sources
RECORDING = ROOT / "examples" / "three-voices.wav"


@pytest.fixture(scope="module")
def diarizer():
    with parley.Diarizer() as diarizer:
        yield diarizer


@pytest.fixture(scope="module")
def samples():
    with wave.open(str(RECORDING)) as reader:
        assert reader.getframerate() == parley.SAMPLE_RATE
        return np.frombuffer(reader.readframes(reader.getnframes()), dtype="<i2")


@pytest.fixture(scope="module")
def expected(diarizer):
    result = diarizer.diarize(RECORDING)
    assert result.speakers == [1, 2, 3]
    return result


def test_segments_are_those_of_the_tool(expected):
    tool = os.environ.get("PARLEY_TOOL")
    if not tool:
        pytest.skip("PARLEY_TOOL is not set")
    result = subprocess.run([tool, "--format", "json", RECORDING], check=True, stdout=subprocess.PIPE)
    segments = json.loads(result.stdout)["segments"]
    assert [(s["start"], s["end"]) for s in segments] == [(s.start, s.end) for s in expected]
    names = list(dict.fromkeys(s["speaker"] for s in segments))
    assert [names.index(s["speaker"]) + 1 for s in segments] == [s.speaker for s in expected]


def test_another_number_without_another_pass(diarizer, expected, tmp_path):
    kept = diarizer.diarize(RECORDING, keep_embeddings=True)
    assert kept == expected
    for number in (2, 4):
        assert diarizer.recluster(kept, num_speakers=number) == diarizer.diarize(RECORDING, num_speakers=number)
    kept.write_embeddings(tmp_path / "kept")
    again = diarizer.read_embeddings(tmp_path / "kept", RECORDING, num_speakers=2)
    assert again.to_rttm() == diarizer.diarize(RECORDING, num_speakers=2).to_rttm()
    renamed = diarizer.recluster(kept, names=["Ann", "Ben"])
    assert renamed == expected and [renamed.names[1], renamed.names[2]] == ["Ann", "Ben"]
    with pytest.raises(parley.ParleyError, match="kept"):
        diarizer.recluster(expected, num_speakers=2)
    with pytest.raises(parley.ParleyError, match="kept"):
        expected.write_embeddings(tmp_path / "none")


def test_where_one_speaks_at_a_time_there_is_no_second_speaker(diarizer, expected):
    assert diarizer.diarize(RECORDING, overlap=True) == expected


@pytest.mark.parametrize("rate", [0, -1, -44100])
def test_rates_that_are_none_are_refused(diarizer, samples, rate):
    with pytest.raises(parley.ParleyError, match="rate"):
        diarizer.diarize(samples, sample_rate=rate)
    with pytest.raises(parley.ParleyError, match="rate"):
        list(diarizer.listen([samples], sample_rate=rate))


def test_a_rate_may_be_a_float_that_is_whole(diarizer, samples, expected):
    assert diarizer.diarize(samples, sample_rate=16000.0) == expected
    with pytest.raises(TypeError, match="sample_rate"):
        diarizer.diarize(samples, sample_rate=16000.5)


@pytest.mark.parametrize("convert", [
    lambda x: x,
    lambda x: x.astype(np.float32) / 32768,
    lambda x: x.astype(np.float64) / 32768,
    lambda x: np.stack([x, x], axis=1),
    lambda x: np.stack([x, x]).astype(np.float32) / 32768,
    lambda x: np.repeat(x, 2)[::2],
], ids=["int16", "float32", "float64", "stereo", "float stereo, channels first", "not contiguous"])
def test_samples_of_any_kind_give_what_the_file_gives(diarizer, samples, expected, convert):
    assert diarizer.diarize(convert(samples), 16000) == expected


def test_other_rates_are_converted_by_the_engine(diarizer, samples, expected):
    upsampled = np.interp(np.arange(3 * len(samples)) / 3, np.arange(len(samples)), samples).astype(np.int16)
    result = diarizer.diarize(upsampled, 48000)
    assert result.speakers == expected.speakers
    assert sum(result.talk_time().values()) == pytest.approx(sum(expected.talk_time().values()), rel=0.1)


@pytest.mark.parametrize("source, rate, error", [
    (np.zeros((2, 2, 2), np.int16), 16000, ValueError),
    (np.zeros((65, 16000), np.int16), 16000, ValueError),
    (np.full(16000, 1.5), 16000, ValueError),
    (np.zeros(16000, np.int32), 16000, TypeError),
    (np.full(16000, np.nan), 16000, ValueError),
    (np.zeros(16000, np.int16), None, TypeError),
    (str(RECORDING), 16000, TypeError),
])
def test_unusable_arguments_are_refused(diarizer, source, rate, error):
    with pytest.raises(error):
        diarizer.diarize(source, rate)


def test_failures_say_what_is_wrong(diarizer, tmp_path, capfd):
    with pytest.raises(FileNotFoundError, match="missing.wav: there is no such file"):
        diarizer.diarize(tmp_path / "missing.wav")
    with pytest.raises(parley.ParleyError, match="shorter than 32 ms") as failure:
        diarizer.diarize(np.zeros(511, np.int16), 16000)
    assert failure.value.status is parley.Status.INVALID
    text = tmp_path / "model.zx"
    text.write_text("not a model, but long enough to be looked at")
    with pytest.raises(parley.ParleyError, match="is no model") as failure:
        parley.Diarizer(text)
    assert any("incorrect format" in message for message in failure.value.messages)
    with pytest.raises(parley.ParleyError, match="is text, not audio"):
        diarizer.diarize(text)
    text.write_bytes(bytes(range(64)))
    with pytest.raises(parley.ParleyError, match="ffmpeg"):
        diarizer.diarize(text)
    with pytest.raises(parley.ParleyError, match="speakers takes a number from 1 to 1000"):
        diarizer.diarize(RECORDING, num_speakers=0)
    assert capfd.readouterr().out == ""  # which is the caller's


def test_options(diarizer, expected):
    assert diarizer.diarize(RECORDING, num_speakers=2).speakers == [1, 2]
    named = diarizer.diarize(RECORDING, names=["Ann", "Bob"], confidence=True, embeddings=True)
    assert list(named.names.values()) == ["Ann", "Bob", "speaker 3"] and named == expected
    assert np.linalg.norm(named.embeddings[1]) == pytest.approx(1, abs=1e-3)
    assert len(named.confidences) == len(named) and 0 < min(named.confidences) <= max(named.confidences) <= 1
    assert "Bob" in named.to_json() and '"confidence"' in named.to_json()
    assert all(s.duration >= 6.2 for s in diarizer.diarize(RECORDING, min_duration=6.2))
    assert len(diarizer.diarize(RECORDING, thresholds=(0, 0, 0, 1))) == 0
    assert diarizer.diarize(RECORDING, refine=False) != expected


def test_files_and_memory(diarizer, expected, tmp_path):
    with open(RECORDING, "rb") as file:
        assert diarizer.diarize(file) == expected
    for name in ("result.rttm", "result.json", "result.html", "result.TextGrid"):
        expected.write(tmp_path / name)
        assert (tmp_path / name).stat().st_size > 100
    with pytest.raises(ValueError):
        expected.write(tmp_path / "result.doc")


def test_progress_rises_and_can_stop(diarizer, samples):
    shares = []
    diarizer.diarize(samples, 16000, progress=shares.append)
    assert shares == sorted(shares) and shares[0] < 0.5 and shares[-1] <= 1
    with pytest.raises(parley.ParleyError) as failure:
        diarizer.diarize(samples, 16000, progress=lambda done: False)
    assert failure.value.status is parley.Status.CANCELLED
    with pytest.raises(ZeroDivisionError):
        diarizer.diarize(samples, 16000, progress=lambda done: 1 / 0)


def test_the_same_bytes_as_the_tool(diarizer, tmp_path, monkeypatch):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", "0")  # some formats tell the second in which they are written
    tool = os.environ.get("PARLEY_TOOL")
    if not tool:
        pytest.skip("PARLEY_TOOL is not set")
    recording = tmp_path / RECORDING.name
    recording.write_bytes(RECORDING.read_bytes())
    (tmp_path / "elsewhere").mkdir()
    for format in parley.FORMATS:
        for folder in (tmp_path, tmp_path / "elsewhere"):
            subprocess.run([tool, "-q", "-o", folder, "--format", format, recording], check=True)
            (file,) = [p for p in folder.iterdir() if p != recording and p.is_file()]
            expected = file.read_bytes()
            file.unlink()
            if folder == tmp_path:  # a document that lies beside the recording is the same on standard output
                said = subprocess.run([sys.executable, "-m", "parley", "--format", format, str(recording)], check=True,
                                      stdout=subprocess.PIPE).stdout
                assert said == expected, format
            diarizer.diarize(recording).write(file)
            assert file.read_bytes() == expected, (format, folder)
            file.unlink()


def test_matching_and_scoring(diarizer, expected, samples):
    later = diarizer.diarize(samples[30 * 16000:], 16000)
    same = parley.match(expected, later)
    assert len(same) == 3 and all(cosine > 0.5 for _, cosine in same.values())
    assert parley.score(expected, expected).der == 0
    assert parley.score(expected, [(s.start, s.end, 1) for s in expected]).confusion > 10


def test_a_closed_diarizer_says_so():
    diarizer = parley.Diarizer()
    diarizer.close()
    diarizer.close()
    with pytest.raises(ValueError, match="closed"):
        diarizer.diarize(RECORDING)


def test_silence_has_no_segments(diarizer):
    result = diarizer.diarize(np.zeros(16000, np.int16), 16000)
    assert result == () and result.to_rttm() == "" and result.duration == 1 and "Nobody" in result._repr_html_()
    assert repr(result) == "<Diarization of 1.0 s, 0 segments; nobody speaks>"


def test_conversions(expected):
    first = expected[0]
    line = expected.to_rttm().splitlines()[0].split()
    assert line == ["SPEAKER", "three-voices", "1", f"{first.start:.3f}", f"{first.duration:.3f}", "<NA>", "<NA>",
                    f"speaker_{first.speaker}", "<NA>", "<NA>"]
    assert pickle.loads(pickle.dumps(expected)) == expected
    assert all(getattr(expected, f"to_{name}")() for name in parley.FORMATS)
    assert expected._repr_html_().count("<rect") == len(expected)
    assert repr(expected).startswith("<Diarization of 6") and "speaker 3: " in repr(expected) and len(repr(expected)) < 150
    pandas = pytest.importorskip("pandas")
    table = expected.to_dataframe()
    assert isinstance(table, pandas.DataFrame) and len(table) == len(expected)
    assert list(table["name"]) == [expected.names[s.speaker] for s in expected]
    assert list(table["confidence"]) == expected.confidences
    assert table.groupby("speaker")["duration"].sum().to_dict() == pytest.approx(expected.talk_time())


def test_words_get_the_speaker_of_most_of_their_time():
    segments = [parley.Segment(0.0, 2.0, 1), parley.Segment(2.0, 4.0, 2)]
    words = [{"start": 0.5, "end": 0.9, "word": "a"}, {"start": 1.9, "end": 2.6, "word": "b"},
             {"start": 1.5, "end": 2.5, "word": "even"}, {"start": 9.0, "end": 9.5, "word": "late"}]
    assert [w["speaker"] for w in parley.assign_speakers(words, segments)] == [1, 2, 1, 2]
    whisper = {"segments": [{"start": 0, "end": 2, "text": "x", "words": words[:1]}, {"start": 3, "end": 4, "text": "y"}]}
    assert [w["speaker"] for w in parley.assign_speakers(whisper, segments)] == [1, 2]
    assert parley.assign_speakers(words[:1], [])[0]["speaker"] is None
    assert "speaker" not in words[0]
    without_times = {"segments": [{"start": 0, "end": 4, "text": "x", "words": [words[0], {"word": "$100"}, {"start": 3, "end": 4, "word": "b"}]}],
                     "word_segments": words}
    assert [(w["word"], w["speaker"]) for w in parley.assign_speakers(without_times, segments)] == [("a", 1), ("$100", 1), ("b", 2)]
    with pytest.raises(parley.ParleyError, match="milliseconds"):
        parley.assign_speakers([{"start": 63000, "end": 63500, "word": "x"}], segments)


def test_listening_ends_with_the_result_of_the_whole(diarizer, samples, expected):
    pieces = [samples[at:at + 7001] for at in range(0, len(samples), 7001)]
    states = list(diarizer.listen(iter(pieces), every=2.0, share=1.0))
    assert len(states) > 20 and all(a.duration < b.duration for a, b in zip(states, states[1:-1]))
    assert states[-1] == expected and all((states[-1].embeddings[k] == v).all() for k, v in expected.embeddings.items())
    stable = [s for s in states if s.duration > 10]
    assert all(s[0].speaker == stable[0][0].speaker for s in stable)
    stereo = np.stack([samples, samples], axis=1)
    assert [list(s) for s in diarizer.listen([stereo], share=0)][-1] == list(expected)
    with pytest.raises(ValueError, match="no samples"):
        list(diarizer.listen([]))
    with pytest.raises(ValueError, match="channels"):
        list(diarizer.listen([samples[:9000], stereo]))
    waiting = diarizer.listen(iter(pieces), every=1.0)
    next(waiting)
    waiting.close()  # releases the session


def test_the_readme_s_examples_run(tmp_path, monkeypatch, capsys, samples):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "meeting.wav").write_bytes(RECORDING.read_bytes())
    pytest.importorskip("pandas")
    names = {"samples": samples}
    blocks = re.findall(r"^```python\n(.*?)^```", (ROOT / "bindings/python/README.md").read_text(), re.M | re.S)
    assert len(blocks) >= 3
    for block in blocks:
        exec(block.replace("with parley.Diarizer() as diarizer:", "diarizer = parley.Diarizer()\nif True:"), names)  # others go on with it
    assert capsys.readouterr().out.count("speaker") > 5
    assert (tmp_path / "meeting.rttm").exists()


def test_other_threads_run_on(diarizer, samples):
    """Python's lock is released: while a long recording is processed a counter in another thread counts on."""
    counts, is_done = [], threading.Event()

    def count():
        while not is_done.is_set():
            counts.append(time.perf_counter())
            time.sleep(0.001)

    thread = threading.Thread(target=count)
    long_audio = np.tile(samples, 30)
    thread.start()
    begin = time.perf_counter()
    diarizer.diarize(long_audio, 16000)
    end = time.perf_counter()
    is_done.set()
    thread.join()
    inside = [t for t in counts if begin < t < end]
    assert len(inside) > 10 and max(np.diff(inside)) < (end - begin) / 2


def test_threads_with_a_diarizer_each_and_with_one_for_all(diarizer, samples, expected):
    def own(_):
        with parley.Diarizer() as mine:
            return mine.diarize(samples, 16000)

    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        for result in list(pool.map(own, range(4))) + list(pool.map(lambda _: diarizer.diarize(samples, 16000), range(4))):
            assert result == expected


def test_as_a_program(expected):
    def run(*arguments):
        return subprocess.run([sys.executable, "-m", "parley", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True)

    assert run("--format", "rttm", str(RECORDING)).stdout == expected.to_rttm()
    assert len(run(str(RECORDING)).stdout.splitlines()) == len(expected)
    failed = run("/missing.wav", str(RECORDING))
    assert failed.returncode == 1 and "no such file" in failed.stderr and "speaker 1" in failed.stdout


def test_known_people_get_their_names(diarizer, expected, tmp_path):
    kept = diarizer.diarize(RECORDING, keep_embeddings=True)
    voices = parley.Voices()
    voices.add("Ann", kept, 2)
    voices.add("Ann", kept, 2)  # the same sample counts once
    first = kept[0]
    voices.add("Bob", kept, 1, first.start, first.end)
    voices.save(tmp_path / "voices.json")
    assert (tmp_path / "voices.json").stat().st_mode & 0o077 == 0
    voices = parley.Voices.load(tmp_path / "voices.json")
    people = voices.people()
    assert list(people) == ["Ann", "Bob"] and len(people["Ann"]) == 1
    assert people["Ann"][0].source == "three-voices" and people["Ann"][0].seconds == pytest.approx(kept.talk_time()[2], abs=0.1)
    assert people["Bob"][0].seconds == pytest.approx(first.duration, abs=0.1)
    for named in (diarizer.diarize(RECORDING, voices=voices), diarizer.recluster(kept, voices=voices)):
        assert named == expected and [named.names[1], named.names[2]] == ["Bob", "Ann"]
        assert named.similarities[2] > 0.99 and 3 not in named.similarities
    voices.remove("Bob")
    assert diarizer.diarize(RECORDING, voices=voices).names[1] == "speaker 1"
    with pytest.raises(parley.ParleyError, match="too short"):
        voices.add("Cem", kept, 1, first.start, first.start + 1)
    with pytest.raises(parley.ParleyError, match="keep_embeddings"):
        voices.add("Cem", expected, 1, 0, 20)
    with pytest.raises(parley.ParleyError, match="none: damaged"):
        parley.Voices("{}")


def test_the_module_takes_the_options_of_the_tool(diarizer, expected, tmp_path):
    voices = parley.Voices()
    voices.add("Ann", expected, 2)
    voices.save(tmp_path / "voices.json")
    subprocess.run([sys.executable, "-m", "parley", "-n", "3", "-f", "rttm", "-o", tmp_path / "out", "--voices", tmp_path / "voices.json",
                    RECORDING], check=True)
    assert " Ann " in (tmp_path / "out/three-voices.rttm").read_text()


HEARD = {"words": [{"word": "Good", "start": 0.9, "end": 1.4}, {"word": "morning.", "start": 1.5, "end": 1.9}, {"word": "Yes", "start": 10, "end": 11}]}


def test_words(diarizer, expected, tmp_path):
    result = diarizer.diarize(RECORDING, names=["Ann", "Bob", "Cem"], keep_embeddings=True)
    for transcript in (HEARD, HEARD["words"], json.dumps(HEARD), json.dumps(HEARD).encode()):
        result.add_words(transcript)
        assert result.words == [(0.9, 1.4, "Good", "Ann"), (1.5, 1.9, "morning.", "Ann"), (10, 11, "Yes", "Bob")]
    result.write_transcript(tmp_path / "minutes.md")
    assert (tmp_path / "minutes.md").read_text() == "**Ann** 0:00  \nGood morning.\n\n**Bob** 0:10  \nYes\n"
    assert {f: len(result.transcript(f)) > 0 for f in parley.TRANSCRIPT_FORMATS} == dict.fromkeys(parley.TRANSCRIPT_FORMATS, True)
    result.write(tmp_path / "three-voices.json")
    again = parley.read(tmp_path / "three-voices.json")
    assert again.words == result.words == pickle.loads(pickle.dumps(result)).words and again == result and again.names == result.names
    with pytest.raises(parley.ParleyError, match="are these milliseconds"):
        result.add_words([{"start": 63000, "end": 63500, "word": "x"}])
    with pytest.raises(parley.ParleyError, match="no words"):
        expected.transcript()
    with pytest.raises(parley.ParleyError, match="holds no segments"):
        parley.read(tmp_path / "minutes.md")


def test_transcribing(tmp_path):
    recognizer = tmp_path / "recognizer.py"
    recognizer.write_text(f"import sys\nassert sys.argv[1].endswith('.wav')\nprint({json.dumps(json.dumps(HEARD))})")
    command, shares = f"'{sys.executable}' {recognizer} {{audio}}", []
    result = parley.transcribe(RECORDING, command, progress=shares.append, names=["Ann", "Bob", "Cem"])
    assert [w.text for w in result.words] == ["Good", "morning.", "Yes"] and shares == sorted(shares)
    with parley.Diarizer() as diarizer:
        assert diarizer.transcribe(RECORDING, command, result=result).words == result.words
        with pytest.raises(FileNotFoundError, match="is not installed"):
            diarizer.transcribe(RECORDING, "no-such-program {audio}")
        with pytest.raises(parley.ParleyError, match="cancelled"):
            diarizer.transcribe(RECORDING, f"'{sys.executable}' -c 'import time; time.sleep(60)' {{audio}}", progress=lambda share: False)
        with pytest.raises(parley.ParleyError, match="exit status 3: no luck"):
            diarizer.transcribe(RECORDING, f"'{sys.executable}' -c \"import sys; print('no luck', file=sys.stderr); sys.exit(3)\" {{audio}}")


NONSENSE = [None, 0, -1, 2**40, float("nan"), float("inf"), "", "\0", "nowhere", b"x", [], {}, object(), np.zeros((2, 2, 2)), np.zeros(0)]


def test_nonsense_is_an_exception(expected):
    """Whatever is passed to whatever is public: an exception of Python, not the end of the process."""
    diarizer, closed = parley.Diarizer(), parley.Diarizer()
    closed.close()
    kept = diarizer.diarize(RECORDING, keep_embeddings=True)
    samples = np.zeros(20000, np.int16)
    voices = parley.Voices()
    calls = [
        lambda x: parley.Diarizer(x if x is not None else "nowhere"), lambda x: diarizer.diarize(x), lambda x: diarizer.diarize(samples, x),
        lambda x: diarizer.diarize(x, 16000), lambda x: closed.diarize(RECORDING), lambda x: closed.recluster(kept),
        lambda x: diarizer.recluster(x), lambda x: list(diarizer.listen(x)), lambda x: list(diarizer.listen([x])),
        lambda x: list(diarizer.listen([samples], x)), lambda x: list(closed.listen([samples])), lambda x: kept.to_bytes(x),
        lambda x: kept.write(x), lambda x: parley.assign_speakers(x, kept), lambda x: parley.assign_speakers([{"start": x, "end": x}], kept),
        lambda x: parley.assign_speakers([{"start": 0, "end": 1}], x), lambda x: parley.match(x, kept), lambda x: parley.match(kept, kept, x),
        lambda x: parley.score(x, kept), lambda x: parley.score([(0, x, "a")], kept), lambda x: parley.score(kept, kept, x),
        lambda x: parley.Voices(x), lambda x: voices.add("a", kept, x), lambda x: voices.add(x, kept, 1), lambda x: voices.add("a", x, 1),
        lambda x: kept.add_words(x), lambda x: kept.add_words(HEARD, reach=x), lambda x: kept.transcript(x), lambda x: parley.read(x),
        lambda x: kept.write_transcript(x), lambda x: diarizer.transcribe(x), lambda x: diarizer.transcribe(RECORDING, x, result=kept),
        lambda x: diarizer.transcribe(RECORDING, "nowhere {audio}", x, result=kept), lambda x: diarizer.transcribe(RECORDING, "nowhere {audio}", result=x),
        lambda x: voices.add("a", kept, 1, x, x), lambda x: voices.remove(x), lambda x: parley.Voices.load(x),
        *[lambda x, name=name: diarizer.diarize(samples, 16000, **{name: x})
          for name in ("num_speakers", "thresholds", "pad", "names", "channels", "sensitivity", "via_ffmpeg", "jobs", "voices", "progress")],
    ]
    for call in calls:
        for x in NONSENSE:
            with contextlib.suppress(Exception):
                call(x)
    assert diarizer.diarize(RECORDING) == expected
    diarizer.close()
