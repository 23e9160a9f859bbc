// parley score: compares two RTTM files.
#ifndef PARLEY_TOOLS_SCORE_COMMAND_H
#define PARLEY_TOOLS_SCORE_COMMAND_H

// Runs the command with the arguments behind its name; returns the exit status.
int score_command(int argc, char **argv);

#endif
