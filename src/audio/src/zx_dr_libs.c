/* SPDX-License-Identifier: Apache-2.0 */
/* The implementations of dr_wav, dr_flac and dr_mp3, which are headers. Built with the project's own flags,
 * so that sanitizers see them. */
#define DR_WAV_IMPLEMENTATION
#include <dr_wav.h>
#if PARLEY_WITH_FLAC
#define DR_FLAC_IMPLEMENTATION
#include <dr_flac.h>
#endif
#if PARLEY_WITH_MP3
#define DR_MP3_IMPLEMENTATION
#include <dr_mp3.h>
#endif
