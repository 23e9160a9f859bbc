// SPDX-License-Identifier: Apache-2.0
// parley: who spoke when in audio files, and what can be done with the result.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "commands.h"
#include "files.h"
#include "help.h"
#include "parley.h"
#include "suggestion.h"
#include "system.h"
#include "terminal.h"

namespace parley {

std::string suggested_command(const CLI::App &app, const std::string &word) {
    std::vector<std::string> names;
    for (const CLI::App *sub : app.get_subcommands(nullptr)) {
        if (sub->get_name() == word) return "";
        names.push_back(sub->get_name());
        if (const std::string below = suggested_command(*sub, word); !below.empty()) return below;
    }
    return suggestion(word, names);
}

namespace {

int run_command(int argc, char **argv) {
    CLI::App app("Prints who spoke when in audio files.", "parley");
    app.allow_windows_style_options(false);  // names of files may begin with a slash there, too
    app.set_version_flag("--version", std::string("parley ") + parley_version(),
                         "print the version and exit");
    app.formatter(std::make_shared<help_formatter>());  // that of the commands, too
    app.set_help_flag("-h,--help", "print this help and exit");
    app.set_help_all_flag("--help-all", "print all options and exit")->group(MORE_OPTIONS);
    const struct {
        const char *name;
        command (*define)(CLI::App *);
    } COMMANDS[] = {
        {"diarize", diarize_command}, {"transcribe", transcribe_command}, {"listen", listen_command},
        {"assign", assign_command},   {"convert", convert_command},       {"score", score_command},
        {"voices", voices_command},   {"match", match_command},
    };
    command chosen = diarize_command(&app);
    for (const auto &[name, define] : COMMANDS) {
        CLI::App *sub = app.add_subcommand(name, "The command that needs no name.")->footer("");
        sub->parse_complete_callback([&chosen, run = define(sub)] { chosen = run; });
    }
    try {
        app.parse(argc, argv);
        return chosen();
    } catch (const CLI::Success &message) {  // --help and --version
        return app.exit(message);
    } catch (const CLI::ParseError &error) {
        std::string meant;
        for (int i = 1; i < argc && meant.empty(); i++) meant = suggested_command(app, argv[i]);
        const bool is_said = std::string_view(error.what()).ends_with('?');
        std::fprintf(stderr, "parley: %s%s\nparley --help tells more.\n", printable(error.what()).c_str(),
                     is_said ? "" : meant.c_str());
        return EXIT_USAGE;
    }
}

}  // namespace
}  // namespace parley

int main(int argc, char **argv) {
    try {
        return_large_blocks();
        prepare_streams();
        parley::remove_parts_on_signals();
        return parley::run_command(argc, argv);
    } catch (const std::exception &error) {
        parley::print_error(error);
        return EXIT_FAILURE;
    }
}
