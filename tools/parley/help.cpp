// SPDX-License-Identifier: Apache-2.0
#include "help.h"

#include "parley.h"

namespace parley {

namespace {

// Names in lines, or with what each of them is.
std::string list_of_formats(bool with_purposes, const parley_format *(*at)(int32_t)) {
    std::string text = "\nFormats:\n", line = " ";
    for (int32_t i = 0; const parley_format *format = at(i); i++) {
        std::string name = format->name;
        if (with_purposes) {
            name.resize(10, ' ');
            text += "  " + name + format->purpose + "\n";
            continue;
        }
        if (line.size() + name.size() > 76) {
            text += line + "\n";
            line = " ";
        }
        line += " " + name;
    }
    return with_purposes ? text : text + line + "\n";
}

}  // namespace

std::string help_formatter::make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const {
    const bool is_all = mode == CLI::AppFormatMode::All;
    std::string text = make_description(app) + make_usage(app, name) + make_positionals(app) +
                       options_of(app, is_all) + make_subcommands(app, CLI::AppFormatMode::Normal);
    if (app->get_option_no_throw("--output-dir")) text += list_of_formats(is_all, parley_format_at);
    if (app->get_option_no_throw("--reach")) text += list_of_formats(is_all, parley_transcript_format_at);
    if (!is_all &&
        app->get_options([](const CLI::Option *o) { return o->get_group() == MORE_OPTIONS; }).size() > 0)
        text += "\n" + name + " --help-all lists more options.\n";
    return app->get_footer().empty() ? text : text + "\n" + make_footer(app);
}

std::string help_formatter::options_of(const CLI::App *app, bool with_more) const {
    std::string text;
    for (const std::string &group : app->get_groups()) {
        if (!with_more && group == MORE_OPTIONS) continue;
        const std::vector<const CLI::Option *> options = app->get_options([&](const CLI::Option *o) {
            return o->get_group() == group && o->nonpositional() &&
                   (with_more || o != app->get_help_all_ptr());
        });
        if (!options.empty()) text += make_group(group, false, options);
    }
    return text;
}

}  // namespace parley
