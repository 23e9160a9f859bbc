// SPDX-License-Identifier: Apache-2.0
package parley;

/**
 * A stretch of one speaker.
 *
 * @param start seconds from the start of the audio
 * @param end seconds, of the end of its last frame
 * @param speaker index of the speaker, from 0, in order of appearance
 * @param name the speaker's
 * @param confidence the probability that the speaker is right
 */
public record Segment(double start, double end, int speaker, String name, double confidence) {}
