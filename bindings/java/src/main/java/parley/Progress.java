// SPDX-License-Identifier: Apache-2.0
package parley;

/**
 * How far a run is.
 *
 * @param done the share that is done, from 0 to 1, never falling
 */
public record Progress(double done) {}
