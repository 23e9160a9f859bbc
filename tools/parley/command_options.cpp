// SPDX-License-Identifier: Apache-2.0
#include "command_options.h"

#include <string_view>

#include "help.h"
#include "library.h"
#include "suggestion.h"

namespace parley {

void command_options::define(CLI::App *app, const std::set<std::string> &common) {
    for (int32_t i = 0; const parley_option *option = parley_option_at(i); i++) {
        const auto set = [this, option](const std::string &value) {
            texts_.push_back(value);
            given_[option->name] = value;
            if (parley_options_set(&options_, option->name, texts_.back().c_str()) != PARLEY_OK)
                throw CLI::ValidationError(std::string("--") + parley_message());
        };
        static const std::map<std::string_view, std::string> SHORT = {{"speakers", "-n,"}, {"jobs", "-j,"}};
        const auto found = SHORT.find(option->name);
        const std::string name = (found == SHORT.end() ? "" : found->second) + "--" + option->name;
        CLI::Option *added;
        if (option->value) {
            added =
                app->add_option_function<std::string>(name, set, option->purpose)->type_name(option->value);
        } else {
            added = app->add_flag_callback(
                name, [set] { set("1"); }, option->purpose);
        }
        if (!common.contains(option->name)) added->group(MORE_OPTIONS);
    }
}

std::string command_options::text() const {
    std::string result;
    for (const auto &[name, value] : given_)
        if (name != "jobs") result += name + "=" + value + "\n";
    return result;
}

void define_files(CLI::App *app, std::string *voices, std::string *model) {
    app->add_option("--voices", *voices, "known voices, whose names are used ($PARLEY_VOICES)")
        ->type_name("FILE");
    app->add_option("-m,--model", *model, "model file ($PARLEY_MODEL)")->type_name("FILE");
}

CLI::Option *define_audio(CLI::App *app, std::string *how) {
    return app->add_option("--audio", *how, "audio of HTML pages: embed, link, copy (beside them), none")
        ->check(CLI::IsMember({"auto", "embed", "link", "copy", "none"}).description(""))
        ->type_name("HOW");
}

void refuse_format(const std::string &name, const parley_format *(*at)(int32_t)) {
    std::vector<std::string> known;
    for (int32_t i = 0; const parley_format *one = at(i); i++) known.emplace_back(one->name);
    throw CLI::ValidationError("unknown format " + name + suggestion(name, known));
}

std::vector<const parley_format *> formats_named(const std::vector<std::string> &names) {
    std::vector<const parley_format *> formats;
    for (const std::string &name : names) {
        const parley_format *format = find_format(name);
        if (!format) format = find_format_of_files(name);
        if (!format) refuse_format(name, parley_format_at);
        formats.push_back(format);
    }
    return formats;
}

}  // namespace parley
