// parley assign: a speaker for every word or caption of a transcript.
#ifndef PARLEY_TOOLS_ASSIGN_COMMAND_H
#define PARLEY_TOOLS_ASSIGN_COMMAND_H

// Returns the exit status.
int assign_command(int argc, char **argv);

#endif
