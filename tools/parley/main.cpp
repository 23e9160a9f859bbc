// parley: who spoke when in audio files, and what can be done with the answer.

#include <string_view>

#include "assign_command.h"
#include "diarize_command.h"
#include "match_command.h"
#include "score_command.h"

int main(int argc, char **argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "score") return score_command(argc - 2, argv + 2);
    if (command == "assign") return assign_command(argc - 1, argv + 1);
    if (command == "match") return match_command(argc - 1, argv + 1);
    return diarize_command(argc, argv);
}
