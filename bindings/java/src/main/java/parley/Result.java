// SPDX-License-Identifier: Apache-2.0
package parley;

import com.sun.jna.Memory;
import com.sun.jna.Native;
import com.sun.jna.Pointer;
import com.sun.jna.ptr.PointerByReference;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.function.IntFunction;
import java.util.stream.IntStream;

/** Who spoke when in one recording. */
public final class Result extends Parley.Handle {
    Result(Pointer made) {
        super(made, Parley.C::parley_result_delete);
    }

    /**
     * Makes a result of a text that was written earlier, and maybe corrected: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices,
     * Audacity labels.
     *
     * @param text what is read
     * @param name the text's file, for messages, and the recording's name where the text does not tell it
     * @return the result
     */
    public static Result read(String text, String name) {
        return new Result(Parley.made(made -> Parley.C.parley_read_result(text, sizeOf(text), name, made)));
    }

    private static CInterface.SizeT sizeOf(String text) {
        return new CInterface.SizeT(text.getBytes(StandardCharsets.UTF_8).length);
    }

    /**
     * Tells how long the audio is.
     *
     * @return seconds
     */
    public double duration() {
        return with(Parley.C::parley_result_duration);
    }

    /**
     * Tells what the user should know.
     *
     * @return a text, or ""
     */
    public String note() {
        return with(Parley.C::parley_result_note);
    }

    private static <T> List<T> list(int count, IntFunction<T> at) {
        return IntStream.range(0, count).mapToObj(at).toList();
    }

    /**
     * Gives the segments.
     *
     * @return in order of time
     */
    public List<Segment> segments() {
        return with(r -> list(Parley.C.parley_result_num_segments(r), i -> {
            CInterface.parley_segment s = Parley.C.parley_result_segment(r, i);
            return new Segment(s.start, s.end, s.speaker, Parley.C.parley_result_speaker(r, s.speaker).name, s.confidence);
        }));
    }

    /**
     * Gives the speakers.
     *
     * @return in order of appearance
     */
    public List<Speaker> speakers() {
        return with(r -> list(Parley.C.parley_result_num_speakers(r), i -> {
            CInterface.parley_speaker s = Parley.C.parley_result_speaker(r, i);
            float[] embedding = s.embedding_size == 0 ? new float[0] : s.embedding.getFloatArray(0, s.embedding_size);
            return new Speaker(s.name, s.seconds, embedding, s.similarity);
        }));
    }

    /**
     * Gives the words of a transcript, if one was added.
     *
     * @return in order of time
     */
    public List<Word> words() {
        return with(r -> list(Parley.C.parley_result_num_words(r), i -> {
            CInterface.parley_word w = Parley.C.parley_result_word(r, i);
            return new Word(w.start, w.end, w.text, w.speaker);
        }));
    }

    private interface Writer {
        int write(Pointer result, PointerByReference block, Pointer size);
    }

    private byte[] written(Writer writer) {
        return with(r -> {
            Memory size = new Memory(Native.SIZE_T_SIZE);
            Pointer block = Parley.made(made -> writer.write(r, made, size));
            try {
                return block.getByteArray(0, (int) (Native.SIZE_T_SIZE == 8 ? size.getLong(0) : size.getInt(0)));
            } finally {
                Parley.C.parley_free(block);
            }
        });
    }

    /**
     * Writes the result, byte for byte as the command line tool does.
     *
     * @param format a name such as "rttm", "json", "html" or "png"
     * @return what a file of that format holds
     */
    public byte[] write(String format) {
        return written((r, block, size) -> Parley.C.parley_write_text(r, format, block, size));
    }

    /**
     * Writes the words.
     *
     * @param format a name such as "text", "srt" or "docx"
     * @return what a file of that format holds
     */
    public byte[] writeWords(String format) {
        return written((r, block, size) -> Parley.C.parley_write_words(r, format, block, size));
    }

    /**
     * Gives what {@link Diarizer#readEmbeddings} takes, of a result that has kept its embeddings.
     *
     * @return 8 kB for each second
     */
    public byte[] writeEmbeddings() {
        return written(Parley.C::parley_write_embeddings);
    }

    /**
     * Adds a transcript, each word with its speaker.
     *
     * @param transcript JSON of recognizers, TSV, WebVTT, SRT or CTM
     * @param reach seconds as far as which words outside of all segments are the nearest's
     */
    public void addWords(String transcript, double reach) {
        int rule = CInterface.PARLEY_WORDS_WHOLE_SENTENCES;
        ParleyException.check(with(r -> Parley.C.parley_result_add_words(r, transcript, sizeOf(transcript), reach, rule)));
    }

    /**
     * Gives speakers the names of known people who are near enough.
     *
     * @param voices a list of them, the text of a file of voices
     * @param threshold cosine above which somebody is taken for the same; 0 stands for 0.8
     */
    public void nameVoices(String voices, double threshold) {
        ParleyException.check(with(r -> Parley.C.parley_result_name_voices(r, voices, threshold)));
    }
}
