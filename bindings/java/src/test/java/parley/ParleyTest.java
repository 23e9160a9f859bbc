// SPDX-License-Identifier: Apache-2.0
package parley;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.Test;

/** Everything that the package offers, on the sample recording of the folder that PARLEY_SOURCE names, with the installed model. */
class ParleyTest {
    private static final Path SOURCE = Path.of(System.getenv("PARLEY_SOURCE"));
    private static final Path SAMPLE = SOURCE.resolve("examples/three-voices.wav");

    /** The sample's own samples, behind a header of 44 bytes. */
    private static short[] samples() throws IOException {
        byte[] content = Files.readAllBytes(SAMPLE);
        short[] samples = new short[(content.length - 44) / 2];
        ByteBuffer.wrap(content, 44, content.length - 44).order(ByteOrder.LITTLE_ENDIAN).asShortBuffer().get(samples);
        return samples;
    }

    private static short[] hours() throws IOException {
        short[] once = samples();
        short[] all = new short[once.length * 100];
        for (int i = 0; i < 100; i++) System.arraycopy(once, 0, all, i * once.length, once.length);
        return all;
    }

    private static Result diarize(Diarizer diarizer, Options options) {
        return diarizer.diarize(new Diarizer.Source.File(SAMPLE), options, progress -> {});
    }

    private static void fails(ParleyException.Status status, org.junit.jupiter.api.function.Executable work) {
        ParleyException failure = assertThrows(ParleyException.class, work);
        assertEquals(status, failure.status(), failure.getMessage());
        assertTrue(failure.getMessage().length() > 10, failure.getMessage());
    }

    /** The command line tool's RTTM, of the sample and of what PARLEY_RECORDINGS lists. */
    @Test
    void theToolWritesTheSameBytes() throws Exception {
        List<String> recordings = new ArrayList<>(List.of(SAMPLE.toString()));
        String others = System.getenv().getOrDefault("PARLEY_RECORDINGS", "");
        if (!others.isEmpty()) recordings.addAll(List.of(others.split(File.pathSeparator)));
        try (Diarizer diarizer = new Diarizer()) {
            for (String recording : recordings) {
                Process tool = new ProcessBuilder(System.getenv("PARLEY_TOOL"), "-q", "-f", "rttm", recording).start();
                byte[] expected = tool.getInputStream().readAllBytes();
                assertEquals(0, tool.waitFor());
                try (Result result = diarizer.diarize(Path.of(recording))) {
                    assertArrayEquals(expected, result.write("rttm"), recording);
                }
            }
        }
    }

    @Test
    void aResultTellsWhoSpeaksWhen() {
        try (Diarizer diarizer = new Diarizer();
                Result result = diarize(diarizer, new Options().names("Ann", "Ben", "Cléo"))) {
            assertEquals(16, diarizer.model().length());
            assertEquals(69, result.duration(), 1);
            assertEquals("", result.note());
            List<Speaker> speakers = result.speakers();
            assertEquals(List.of("Ann", "Ben", "Cléo"), speakers.stream().map(Speaker::name).toList());
            for (Speaker speaker : speakers) {
                double norm = 0;
                for (float x : speaker.embedding()) norm += x * x;
                assertEquals(1, norm, 1e-3);
            }
            double[] heard = new double[3];
            for (Segment s : result.segments()) {
                assertTrue(s.start() < s.end() && s.confidence() >= 0 && s.confidence() <= 1, s.toString());
                assertEquals(speakers.get(s.speaker()).name(), s.name());
                heard[s.speaker()] += s.end() - s.start();
            }
            for (int i = 0; i < 3; i++) assertEquals(speakers.get(i).seconds(), heard[i], 0.01);
        }
    }

    @Test
    void filesBytesAndSamplesAreTheSame() throws IOException {
        try (Diarizer diarizer = new Diarizer(SOURCE.resolve("models/parley.zx"))) {
            List<Segment> expected = diarizer.diarize(SAMPLE).segments();
            for (Diarizer.Source source : List.of(
                    new Diarizer.Source.Bytes(Files.readAllBytes(SAMPLE), "three-voices.wav"),
                    new Diarizer.Source.Samples(samples(), 1, 16000)))
                assertEquals(expected, diarizer.diarize(source, new Options(), p -> {}).segments());
        }
    }

    @Test
    void optionsAreAskedForAndRefused() {
        try (Diarizer diarizer = new Diarizer()) {
            assertEquals(2, diarize(diarizer, new Options().speakers(2).sensitivity(0.6).refine(true)).speakers().size());
            for (Options wrong : List.of(
                    new Options().sensitivity(7),
                    new Options().speakers(2).channels(Options.Channels.SPLIT),
                    new Options().minSpeakers(3).maxSpeakers(2),
                    new Options().threshold(0.1, 0.2, 0.3, 4)))
                fails(ParleyException.Status.INVALID, () -> diarize(diarizer, wrong));
        }
    }

    @Test
    void failuresAreExceptions() {
        fails(ParleyException.Status.MISSING, () -> new Diarizer(Path.of("/nowhere.zx")));
        Diarizer diarizer = new Diarizer();
        fails(ParleyException.Status.MISSING, () -> diarizer.diarize(Path.of("/nowhere.wav")));
        fails(ParleyException.Status.INVALID, () -> diarizer.diarize(SOURCE.resolve("README.md")));
        for (int rate : new int[] {0, -1, 7999})
            fails(ParleyException.Status.INVALID, () -> diarizer.diarize(
                    new Diarizer.Source.Samples(new short[16000], 1, rate), new Options(), p -> {}));
        assertThrows(IllegalArgumentException.class, () -> diarizer.diarize(
                new Diarizer.Source.Samples(new short[16000], 3, 16000), new Options(), p -> {}));
        Result result = diarizer.diarize(SAMPLE);
        fails(ParleyException.Status.INVALID, () -> result.write("no-such"));
        fails(ParleyException.Status.INVALID, () -> result.writeWords("text")); // there are none
        fails(ParleyException.Status.INVALID, () -> diarizer.recluster(result, new Options())); // nothing was kept
        result.close();
        diarizer.close();
        diarizer.close();
        assertThrows(IllegalStateException.class, result::segments);
        assertThrows(IllegalStateException.class, () -> diarizer.diarize(SAMPLE));
    }

    @Test
    void progressRisesAndItsExceptionsComeOut() {
        try (Diarizer diarizer = new Diarizer()) {
            double[] last = {0};
            diarizer.diarize(new Diarizer.Source.File(SAMPLE), new Options(), progress -> {
                assertTrue(progress.done() >= last[0] && progress.done() <= 1);
                last[0] = progress.done();
            });
            assertTrue(last[0] > 0.9);
            IllegalStateException mine = new IllegalStateException("no more");
            assertEquals(mine, assertThrows(IllegalStateException.class, () ->
                    diarizer.diarize(new Diarizer.Source.File(SAMPLE), new Options(), progress -> {
                        throw mine;
                    })));
        }
    }

    @Test
    void runsEndWhenTheyAreCancelled() throws Exception {
        try (Diarizer diarizer = new Diarizer()) {
            Diarizer.Source source = new Diarizer.Source.Samples(hours(), 1, 16000);
            CountDownLatch begun = new CountDownLatch(1);
            CompletableFuture<Result> future = diarizer.diarizeAsync(source, new Options(), p -> begun.countDown());
            begun.await();
            future.cancel(true);
            long asked = System.nanoTime();
            assertThrows(CancellationException.class, future::join);
            diarizer.model(); // whose turn comes when the run is over
            assertTrue(System.nanoTime() - asked < 200_000_000L);

            Throwable[] thrown = {null};
            CountDownLatch started = new CountDownLatch(1);
            Thread other = new Thread(() -> diarizer.diarize(source, new Options(), p -> started.countDown()));
            other.setUncaughtExceptionHandler((thread, exception) -> thrown[0] = exception);
            other.start();
            started.await();
            other.interrupt();
            other.join();
            assertEquals(ParleyException.Status.CANCELLED, ((ParleyException) thrown[0]).status());
            assertEquals(3, diarizer.diarizeAsync(new Diarizer.Source.File(SAMPLE), new Options(), p -> {}).join().speakers().size());
        }
    }

    @Test
    void samplesAreHeardAsTheyCome() throws IOException {
        try (Diarizer diarizer = new Diarizer();
                Session session = diarizer.listen(1, 16000, new Options())) {
            short[] samples = samples();
            int states = 0;
            for (int at = 0; at < samples.length; at += 80000) {
                session.feed(Arrays.copyOfRange(samples, at, Math.min(at + 80000, samples.length)));
                if (session.update(0.05).isPresent()) states++;
            }
            assertTrue(states > 5);
            List<Segment> whole =
                    diarizer.diarize(new Diarizer.Source.Samples(samples, 1, 16000), new Options(), p -> {}).segments();
            assertEquals(whole, session.end().segments());
        }
    }

    @Test
    void anotherNumberOfSpeakersTakesNoOtherPass() {
        try (Diarizer diarizer = new Diarizer()) {
            Result result = diarize(diarizer, new Options().keepEmbeddings(true));
            Result two = diarizer.recluster(result, new Options().speakers(2));
            byte[] kept = result.writeEmbeddings();
            result.close(); // what both share stays
            assertEquals(2, two.speakers().size());
            assertEquals(3, diarizer.recluster(two, new Options()).speakers().size());
            Options asked = new Options().speakers(2);
            assertEquals(two.segments(), diarizer.readEmbeddings(kept, "three-voices.wav", asked).segments());
            fails(ParleyException.Status.INVALID, () -> diarizer.readEmbeddings(new byte[9], "", asked));
        }
    }

    @Test
    void knownVoicesGetTheirNames() {
        try (Diarizer diarizer = new Diarizer()) {
            Result result = diarizer.diarize(SAMPLE);
            String voices = Parley.addVoice(Parley.addVoice("", "Ann", result, 0), "Ben", result, 1);
            fails(ParleyException.Status.INVALID, () -> Parley.addVoice(voices, "Nobody", result, 99));
            Result named = diarizer.diarize(SAMPLE);
            named.nameVoices(Parley.removeVoice(voices, "Ben"), 0);
            assertEquals(List.of("Ann", "speaker 2", "speaker 3"), named.speakers().stream().map(Speaker::name).toList());
            assertTrue(named.speakers().get(0).similarity() > 0.99);
            assertThrows(ParleyException.class, () -> named.nameVoices("no voices", 0));
        }
    }

    @Test
    void wordsHaveSpeakers() {
        try (Diarizer diarizer = new Diarizer()) {
            Result result = diarizer.diarize(SAMPLE);
            result.addWords("1\n00:00:01,000 --> 00:00:02,000\nÉté\n\n2\n00:00:09,000 --> 00:00:10,000\nthere\n", 1);
            assertEquals(List.of("Été", "there"), result.words().stream().map(Word::text).toList());
            assertEquals("speaker 2", result.words().get(1).speaker());
            assertTrue(new String(result.writeWords("srt"), StandardCharsets.UTF_8).contains("speaker 2: there"));
            Result read = Result.read(new String(result.write("json"), StandardCharsets.UTF_8), "sample.json");
            assertEquals(result.words(), read.words());
            assertArrayEquals(new byte[] {'P', 'K'}, Arrays.copyOf(result.writeWords("docx"), 2));
        }
    }

    @Test
    void nothingIsLeftBehind() throws Exception {
        long before = 0;
        for (int i = 0; i < 12; i++) {
            if (i == 4) before = resident();
            Diarizer diarizer = new Diarizer(); // not closed: that is the collector's work
            diarize(diarizer, new Options().keepEmbeddings(true)).write("json");
            diarizer.listen(1, 16000, new Options()).feed(samples());
            diarizer = null;
            System.gc();
            Thread.sleep(50);
        }
        assertTrue(resident() - before < 24 << 20, resident() - before + " bytes more");
    }

    private static long resident() throws IOException {
        return Long.parseLong(Files.readString(Path.of("/proc/self/statm")).split(" ")[1]) * 4096;
    }

    @Test
    void theVersionIsTold() {
        assertTrue(Parley.version().startsWith("1."));
    }
}
