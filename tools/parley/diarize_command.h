// parley AUDIO...: diarizes files and writes the results.
#ifndef PARLEY_TOOLS_DIARIZE_COMMAND_H
#define PARLEY_TOOLS_DIARIZE_COMMAND_H

// Returns the exit status.
int diarize_command(int argc, char **argv);

#endif
