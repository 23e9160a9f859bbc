// SPDX-License-Identifier: Apache-2.0
package parley;

/**
 * A word of a transcript.
 *
 * @param start seconds from the start of the audio
 * @param end seconds
 * @param text what is said
 * @param speaker a name; "" where nobody is known to speak
 */
public record Word(double start, double end, String text, String speaker) {}
