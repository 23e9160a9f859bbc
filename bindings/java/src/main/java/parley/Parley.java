// SPDX-License-Identifier: Apache-2.0
package parley;

import com.sun.jna.Library;
import com.sun.jna.Memory;
import com.sun.jna.Native;
import com.sun.jna.Pointer;
import com.sun.jna.ptr.PointerByReference;
import java.lang.ref.Cleaner;
import java.lang.ref.Reference;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;
import java.util.function.Function;
import java.util.function.ToIntFunction;

/** The library itself: what it is, and lists of known voices. */
public final class Parley {
    /** $PARLEY_LIBRARY, or what the system knows by its name. */
    static final CInterface C = Native.load(
            System.getenv().getOrDefault("PARLEY_LIBRARY", "parley-diarization"),
            CInterface.class,
            Map.of(Library.OPTION_STRING_ENCODING, "UTF-8"));

    private static final Cleaner CLEANER = Cleaner.create();

    private Parley() {}

    /**
     * Tells the version of the library.
     *
     * @return such as "1.0.0"
     */
    public static String version() {
        return C.parley_version();
    }

    /**
     * Adds somebody to a list of known voices, the text of a file of them.
     *
     * @param voices the list; "" is the empty one
     * @param name whose voice it is
     * @param result what the voice is taken from
     * @param speaker index of the speaker, all of whose speech is the sample
     * @return the longer list
     */
    public static String addVoice(String voices, String name, Result result, int speaker) {
        return result.with(r -> text(made -> C.parley_voices_add(voices, name, r, speaker, 0, 0, made)));
    }

    /**
     * Takes somebody out of a list of known voices.
     *
     * @param voices the list
     * @param name who goes
     * @return the shorter list
     */
    public static String removeVoice(String voices, String name) {
        return text(made -> C.parley_voices_remove(voices, name, made));
    }

    private static String text(ToIntFunction<PointerByReference> call) {
        Pointer block = made(call);
        try {
            return block.getString(0, "UTF-8");
        } finally {
            C.parley_free(block);
        }
    }

    /** What a call makes, or null. */
    static Pointer made(ToIntFunction<PointerByReference> call) {
        PointerByReference made = new PointerByReference();
        ParleyException.check(call.applyAsInt(made));
        return made.getValue();
    }

    /** A record of options, and the texts that it refers to. */
    static final class Record {
        private static final int SIZE = 1024; // room for options of later versions
        private final Memory options = new Memory(SIZE);
        private final List<Memory> texts = new ArrayList<>();

        Record(Options asked) {
            C.parley_options_init(options, new CInterface.SizeT(SIZE));
            for (Map.Entry<String, String> option : asked.values()) {
                byte[] text = option.getValue().getBytes(StandardCharsets.UTF_8);
                Memory kept = new Memory(text.length + 1);
                kept.write(0, text, 0, text.length);
                kept.setByte(text.length, (byte) 0);
                texts.add(kept);
                ParleyException.check(C.parley_options_set(options, option.getKey(), kept));
            }
        }

        /** Calls with the record, which lives until the call is over. */
        <T> T with(Function<Pointer, T> call) {
            try {
                return call.apply(options);
            } finally {
                Reference.reachabilityFence(this);
            }
        }
    }

    /** An object of the library's, which is released when it is closed or nobody has it any more. */
    abstract static class Handle implements AutoCloseable {
        private final Pointer[] pointer; // null once it is released
        private final Cleaner.Cleanable cleanable;

        Handle(Pointer made, Consumer<Pointer> release) {
            Pointer[] kept = {made};
            pointer = kept;
            cleanable = CLEANER.register(this, () -> {
                release.accept(kept[0]);
                kept[0] = null;
            });
        }

        /** Calls with the object, which lives until the call is over. */
        synchronized <T> T with(Function<Pointer, T> call) {
            if (pointer[0] == null) throw new IllegalStateException("it is closed");
            try {
                return call.apply(pointer[0]);
            } finally {
                Reference.reachabilityFence(this);
            }
        }

        /** Releases it. It may be called again. */
        @Override
        public synchronized void close() {
            cleanable.clean();
        }
    }
}
