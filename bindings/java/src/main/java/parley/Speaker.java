// SPDX-License-Identifier: Apache-2.0
package parley;

/**
 * Somebody who is heard.
 *
 * @param name "speaker 1", or who it is
 * @param seconds of speech
 * @param embedding of unit length: the mean over the speaker's frames
 * @param similarity cosine with the known voice that gave the name; 0 where none did
 */
public record Speaker(String name, double seconds, float[] embedding, double similarity) {}
