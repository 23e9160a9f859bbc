// SPDX-License-Identifier: Apache-2.0
package parley;

import com.sun.jna.Pointer;
import com.sun.jna.ptr.PointerByReference;
import java.nio.file.Path;
import java.util.concurrent.CompletableFuture;
import java.util.function.BooleanSupplier;
import java.util.function.Consumer;

/** A loaded model (about 4 MB), ready for any number of recordings, one at a time. Threads may share it, and take turns then. */
public final class Diarizer extends Parley.Handle {
    /** Loads the model that is installed with the library, or the one that $PARLEY_MODEL names. */
    public Diarizer() {
        this((String) null);
    }

    /**
     * Loads a model file.
     *
     * @param model its path
     */
    public Diarizer(Path model) {
        this(model.toString());
    }

    private Diarizer(String model) {
        super(Parley.made(opened -> Parley.C.parley_open(model, opened)), Parley.C::parley_close);
    }

    /** What is diarized. */
    public sealed interface Source {
        /**
         * An audio file.
         *
         * @param path where it is
         */
        record File(Path path) implements Source {}

        /**
         * The bytes of one.
         *
         * @param content all of them
         * @param name stands for its path
         */
        record Bytes(byte[] content, String name) implements Source {}

        /**
         * Samples of 16 bits, of all channels in turn.
         *
         * @param samples as many of each channel
         * @param channels 1 to 64
         * @param rate Hz: 8000, or 16000 and more
         */
        record Samples(short[] samples, int channels, int rate) implements Source {}
    }

    /**
     * Names the model: embeddings of two models cannot be compared.
     *
     * @return 16 digits
     */
    public String model() {
        return with(Parley.C::parley_model);
    }

    /**
     * Finds out who spoke when in an audio file.
     *
     * @param path where it is
     * @return who did
     */
    public Result diarize(Path path) {
        return diarize(new Source.File(path), new Options(), progress -> {});
    }

    /**
     * Finds out who spoke when. An interruption of the thread ends the run, as a {@link ParleyException}.
     *
     * @param source what is diarized
     * @param options what is asked for
     * @param progress called now and then; an exception of its own ends the run
     * @return who did
     */
    public Result diarize(Source source, Options options, Consumer<Progress> progress) {
        return run(source, options, progress, () -> Thread.currentThread().isInterrupted());
    }

    /**
     * The same on another thread.
     *
     * @param source what is diarized
     * @param options what is asked for
     * @param progress called now and then, by that thread
     * @return a future whose cancellation ends the run
     */
    public CompletableFuture<Result> diarizeAsync(Source source, Options options, Consumer<Progress> progress) {
        CompletableFuture<Result> future = new CompletableFuture<>();
        future.completeAsync(() -> {
            Result result = run(source, options, progress, future::isDone);
            if (future.isCancelled()) result.close();
            return result;
        });
        return future;
    }

    private Result run(Source source, Options options, Consumer<Progress> progress, BooleanSupplier isCancelled) {
        Throwable[] thrown = {null};
        CInterface.Progress report = (context, done) -> {
            try {
                if (isCancelled.getAsBoolean()) return 0;
                progress.accept(new Progress(done));
                return 1;
            } catch (RuntimeException | Error e) { // which must not cross C; it goes on behind it
                thrown[0] = e;
                return 0;
            }
        };
        Parley.Record record = new Parley.Record(options);
        try {
            return new Result(with(d -> record.with(o -> Parley.made(made -> start(d, source, o, report, made)))));
        } catch (ParleyException e) {
            if (thrown[0] instanceof RuntimeException exception) throw exception;
            if (thrown[0] instanceof Error error) throw error;
            throw e;
        }
    }

    private static int start(Pointer diarizer, Source source, Pointer options, CInterface.Progress report, PointerByReference made) {
        CInterface c = Parley.C;
        if (source instanceof Source.File file)
            return c.parley_diarize_file(diarizer, file.path().toString(), options, report, null, made);
        if (source instanceof Source.Bytes bytes) {
            CInterface.SizeT size = new CInterface.SizeT(bytes.content().length);
            return c.parley_diarize_memory(diarizer, bytes.content(), size, bytes.name(), options, report, null, made);
        }
        Source.Samples s = (Source.Samples) source;
        long frames = framesOf(s.samples(), s.channels());
        return c.parley_diarize_samples(
                diarizer, s.samples(), frames, s.channels(), s.rate(), "recording", options, report, null, made);
    }

    static long framesOf(short[] samples, int channels) {
        if (channels < 1 || samples.length % channels != 0)
            throw new IllegalArgumentException(samples.length + " samples are not those of " + channels + " channels");
        return samples.length / channels;
    }

    /**
     * Gives the same recording with other options, from the embeddings that a result has kept: without another pass.
     *
     * @param result made with {@link Options#keepEmbeddings}
     * @param options what is asked for
     * @return another result
     */
    public Result recluster(Result result, Options options) {
        Parley.Record record = new Parley.Record(options);
        return new Result(with(d -> result.with(
                r -> record.with(o -> Parley.made(made -> Parley.C.parley_recluster(d, r, o, made))))));
    }

    /**
     * Gives a recording of which {@link Result#writeEmbeddings} was kept with other options: without another pass.
     *
     * @param embeddings what was kept
     * @param name the recording's, which is not read
     * @param options what is asked for
     * @return another result
     */
    public Result readEmbeddings(byte[] embeddings, String name, Options options) {
        Parley.Record record = new Parley.Record(options);
        CInterface.SizeT size = new CInterface.SizeT(embeddings.length);
        return new Result(with(d -> record.with(
                o -> Parley.made(made -> Parley.C.parley_read_embeddings(d, embeddings, size, name, o, made)))));
    }

    /**
     * Begins to listen to samples that will come.
     *
     * @param channels of the samples
     * @param rate of them, in Hz
     * @param options what is asked for
     * @return the recording that is still going on
     */
    public Session listen(int channels, int rate, Options options) {
        Parley.Record record = new Parley.Record(options);
        Pointer begun = with(d -> record.with(
                o -> Parley.made(made -> Parley.C.parley_listen(d, "recording", channels, rate, o, made))));
        return new Session(this, begun, channels);
    }
}
