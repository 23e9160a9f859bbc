// SPDX-License-Identifier: Apache-2.0
package parley;

import com.sun.jna.Pointer;
import java.util.Optional;

/** A recording that is still going on. Its diarizer may work on others meanwhile, in turns. */
public final class Session extends Parley.Handle {
    private final Diarizer diarizer;
    private final int channels;

    Session(Diarizer diarizer, Pointer begun, int channels) {
        super(begun, Parley.C::parley_session_delete);
        this.diarizer = diarizer;
        this.channels = channels;
    }

    /**
     * Takes samples.
     *
     * @param samples of all channels in turn
     */
    public void feed(short[] samples) {
        long frames = Diarizer.framesOf(samples, channels);
        ParleyException.check(diarizer.with(d -> with(s -> Parley.C.parley_session_feed(s, samples, frames))));
    }

    /**
     * Tells what is known so far. Speakers keep their names from one result to the next.
     *
     * @param share of the time that passes, which clustering takes at most (0.05: a twentieth of a core)
     * @return nothing if nothing is new
     */
    public Optional<Result> update(double share) {
        return diarizer.with(d -> with(s -> Optional.ofNullable(
                Parley.made(made -> Parley.C.parley_session_update(s, share, made))).map(Result::new)));
    }

    /**
     * Ends the recording.
     *
     * @return what diarizing all samples at once would
     */
    public Result end() {
        return new Result(diarizer.with(d -> with(s -> Parley.made(made -> Parley.C.parley_session_end(s, made)))));
    }
}
