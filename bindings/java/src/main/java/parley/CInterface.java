// SPDX-License-Identifier: Apache-2.0
// Written by scripts/gen_options.
package parley;

import com.sun.jna.Callback;
import com.sun.jna.IntegerType;
import com.sun.jna.Library;
import com.sun.jna.Native;
import com.sun.jna.Pointer;
import com.sun.jna.Structure;
import com.sun.jna.ptr.IntByReference;
import com.sun.jna.ptr.PointerByReference;

/** The C interface; its header, parley.h, says what each function does. */
interface CInterface extends Library {
    /** Called with the share that is done; 0: stop. */
    interface Progress extends Callback {
        int report(Pointer context, double done);
    }

    /** size_t */
    class SizeT extends IntegerType {
        private static final long serialVersionUID = 1;

        public SizeT() {
            this(0);
        }

        SizeT(long value) {
            super(Native.SIZE_T_SIZE, value, true);
        }
    }

    int PARLEY_OK = 0;
    int PARLEY_OUT_OF_MEMORY = 1;
    int PARLEY_UNREADABLE = 2;
    int PARLEY_INVALID = 3;
    int PARLEY_CANCELLED = 4;
    int PARLEY_MISSING = 5;
    int PARLEY_FAILED = 7;
    int PARLEY_MAX_CHANNELS = 64;
    int PARLEY_MAX_JOBS = 64;
    int PARLEY_WORDS_WHOLE_SENTENCES = 0;
    int PARLEY_WORDS_BY_TIME = 1;

    @Structure.FieldOrder({"start", "end", "speaker", "confidence"})
    class parley_segment extends Structure implements Structure.ByValue {
        public double start;
        public double end;
        public int speaker;
        public double confidence;
    }

    @Structure.FieldOrder({"name", "seconds", "embedding", "embedding_size", "similarity"})
    class parley_speaker extends Structure implements Structure.ByValue {
        public String name;
        public double seconds;
        public Pointer embedding;
        public int embedding_size;
        public double similarity;
    }

    @Structure.FieldOrder({"start", "end", "text", "speaker"})
    class parley_word extends Structure implements Structure.ByValue {
        public double start;
        public double end;
        public String text;
        public String speaker;
    }

    String parley_message();
    String parley_details();
    String parley_version();
    void parley_options_init(Pointer options, SizeT size);
    Pointer parley_option_at(int index);
    int parley_options_set(Pointer options, String name, Pointer value);
    int parley_options_check(Pointer options);
    int parley_find_model(PointerByReference path);
    int parley_open(String model_path, PointerByReference diarizer);
    int parley_open_memory(byte[] model, SizeT size, PointerByReference diarizer);
    String parley_model(Pointer diarizer);
    void parley_close(Pointer diarizer);
    int parley_diarize_file(Pointer diarizer, String path, Pointer options, Progress progress, Pointer context, PointerByReference result);
    int parley_diarize_memory(Pointer diarizer, byte[] file, SizeT size, String name, Pointer options, Progress progress, Pointer context, PointerByReference result);
    int parley_diarize_samples(Pointer diarizer, short[] samples, long num_frames, int num_channels, int rate, String name, Pointer options, Progress progress, Pointer context, PointerByReference result);
    int parley_listen(Pointer diarizer, String name, int num_channels, int rate, Pointer options, PointerByReference session);
    int parley_session_feed(Pointer session, short[] samples, long num_frames);
    int parley_session_update(Pointer session, double share, PointerByReference result);
    int parley_session_end(Pointer session, PointerByReference result);
    void parley_session_delete(Pointer session);
    int parley_recluster(Pointer diarizer, Pointer result, Pointer options, PointerByReference again);
    int parley_write_embeddings(Pointer result, PointerByReference bytes, Pointer size);
    int parley_read_embeddings(Pointer diarizer, byte[] bytes, SizeT size, String path, Pointer options, PointerByReference result);
    void parley_result_delete(Pointer result);
    double parley_result_duration(Pointer result);
    int parley_result_num_segments(Pointer result);
    int parley_result_num_speakers(Pointer result);
    parley_segment parley_result_segment(Pointer result, int index);
    parley_speaker parley_result_speaker(Pointer result, int index);
    Pointer parley_result_waveform(Pointer result, IntByReference count, IntByReference rate);
    String parley_result_note(Pointer result);
    int parley_result_rename(Pointer result, String path);
    int parley_result_link_audio(Pointer result, String url, long embedded);
    int parley_url_of_path(String path, PointerByReference url);
    int parley_read_result(String text, SizeT size, String name, PointerByReference result);
    int parley_result_read_audio(Pointer diarizer, Pointer result, String path, Pointer options, Progress progress, Pointer context);
    String parley_result_model(Pointer result);
    String parley_result_path(Pointer result);
    Pointer parley_format_at(int index);
    int parley_write(Pointer result, String format, Pointer terminal, Pointer sink, Pointer context);
    int parley_write_text(Pointer result, String format, PointerByReference text, Pointer size);
    void parley_free(Pointer block);
    String parley_color(int speaker);
    int parley_assign(String transcript, SizeT size, Pointer turns, int num_turns, double reach, String format, PointerByReference text, Pointer text_size);
    int parley_result_add_words(Pointer result, String transcript, SizeT size, double reach, int rule);
    int parley_result_assign(Pointer result, String transcript, SizeT size, double reach, PointerByReference text, Pointer text_size);
    int parley_result_num_words(Pointer result);
    parley_word parley_result_word(Pointer result, int index);
    Pointer parley_recognizer_at(int index);
    void parley_transcription_init(Pointer how, SizeT size);
    int parley_transcribe(Pointer diarizer, Pointer result, String path, Pointer how, Pointer options, Progress progress, Pointer context);
    Pointer parley_transcript_format_at(int index);
    int parley_write_words(Pointer result, String format, PointerByReference text, Pointer size);
    int parley_read_rttm(String text, SizeT size, String name, PointerByReference turns, IntByReference num_turns);
    int parley_match(float[] first, int num_first, float[] second, int num_second, int dimension, double threshold, IntByReference matches, double[] cosines);
    int parley_voices_add(String voices, String name, Pointer result, int speaker, double start, double end, PointerByReference text);
    int parley_voices_remove(String voices, String name, PointerByReference text);
    int parley_voices_at(String voices, int index, PointerByReference name, IntByReference num_samples);
    int parley_voices_sample_at(String voices, int index, int sample, double[] seconds, Pointer date, PointerByReference source);
    int parley_result_name_voices(Pointer result, String voices, double threshold);
    int parley_score_turns(Pointer reference, int num_reference, Pointer hypothesis, int num_hypothesis, double[] parts, int num_parts, double collar, int skip_overlap, Pointer score);
}
