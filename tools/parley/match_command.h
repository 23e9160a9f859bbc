// parley match: finds the same voices in several recordings.
#ifndef PARLEY_TOOLS_MATCH_COMMAND_H
#define PARLEY_TOOLS_MATCH_COMMAND_H

// Returns the exit status.
int match_command(int argc, char **argv);

#endif
