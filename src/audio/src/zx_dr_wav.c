/* The implementation of dr_wav, which is a header. Built with the project's own flags so that sanitizers see
 * it. */
#define DR_WAV_IMPLEMENTATION
#include <dr_wav.h>
