// SPDX-License-Identifier: Apache-2.0
// Written by scripts/gen_options.
package parley;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** What can be asked of a run, by methods that each set one option: {@code new Options().speakers(2).sensitivity(0.6)}. */
public final class Options {
    private final List<Map.Entry<String, String>> values = new ArrayList<>();

    /** The defaults. */
    public Options() {}

    private Options set(String name, String value) {
        values.add(Map.entry(name, value));
        return this;
    }

    /** Names and values, as the library takes them. */
    List<Map.Entry<String, String>> values() {
        return Collections.unmodifiableList(values);
    }

    /** Mix them (default), split (each is a speaker), loudest. */
    public enum Channels {
        /** mix */
        MIX,
        /** split */
        SPLIT,
        /** loudest */
        LOUDEST;

        String word() {
            return name().toLowerCase(Locale.ROOT);
        }
    }

    /** When ffmpeg reads: auto (what nothing else can), never, always. */
    public enum ViaFfmpeg {
        /** auto */
        AUTO,
        /** never */
        NEVER,
        /** always */
        ALWAYS;

        String word() {
            return name().toLowerCase(Locale.ROOT);
        }
    }

    /**
     * Exact number of speakers.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options speakers(int value) {
        return set("speakers", Integer.toString(value));
    }

    /**
     * Minimum number of speakers.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options minSpeakers(int value) {
        return set("min-speakers", Integer.toString(value));
    }

    /**
     * Maximum number of speakers.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options maxSpeakers(int value) {
        return set("max-speakers", Integer.toString(value));
    }

    /**
     * Thresholds: offline (merging), prune, segment, background.
     *
     * @param offline cosine distance, 0 to 1
     * @param prune cosine distance, 0 to 1
     * @param segment cosine distance, 0 to 1
     * @param background cosine distance, 0 to 1
     * @return these options
     */
    public Options threshold(double offline, double prune, double segment, double background) {
        return set("threshold", offline + "," + prune + "," + segment + "," + background);
    }

    /**
     * How much is taken for speech: 0 little, 1 much (0.5).
     *
     * @param value what it is set to
     * @return these options
     */
    public Options sensitivity(double value) {
        return set("sensitivity", Double.toString(value));
    }

    /**
     * Mix them (default), split (each is a speaker), loudest.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options channels(Channels value) {
        return set("channels", value.word());
    }

    /**
     * Resegmentation.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options refine(boolean value) {
        return set("no-refine", value ? "0" : "1");
    }

    /**
     * Join a speaker's segments that are this close.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options mergeGap(double value) {
        return set("merge-gap", Double.toString(value));
    }

    /**
     * Drop shorter segments.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options minDuration(double value) {
        return set("min-duration", Double.toString(value));
    }

    /**
     * Lengthen segments on both sides where there is room.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options pad(double value) {
        return set("pad", Double.toString(value));
    }

    /**
     * Text before the number of a speaker.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options speakerPrefix(String value) {
        return set("speaker-prefix", value);
    }

    /**
     * Names of the speakers in the order they are heard.
     *
     * @param values what it is set to
     * @return these options
     */
    public Options names(String... values) {
        return set("names", String.join(",", values));
    }

    /**
     * Write the probability that each speaker is right.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options confidence(boolean value) {
        return set("confidence", value ? "1" : "0");
    }

    /**
     * Write speakers' embeddings (JSON).
     *
     * @param value what it is set to
     * @return these options
     */
    public Options embeddings(boolean value) {
        return set("embeddings", value ? "1" : "0");
    }

    /**
     * Add the second speaker where two speak at once.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options overlap(boolean value) {
        return set("overlap", value ? "1" : "0");
    }

    /**
     * Refuse longer recordings.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options maxDuration(double value) {
        return set("max-duration", Double.toString(value));
    }

    /**
     * When ffmpeg reads: auto (what nothing else can), never, always.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options viaFfmpeg(ViaFfmpeg value) {
        return set("via-ffmpeg", value.word());
    }

    /**
     * Number of threads; 0 (the tool's): one per core.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options jobs(int value) {
        return set("jobs", Integer.toString(value));
    }

    /**
     * Keep what parley_recluster takes.
     *
     * @param value what it is set to
     * @return these options
     */
    public Options keepEmbeddings(boolean value) {
        return set("keep-embeddings", value ? "1" : "0");
    }
}
