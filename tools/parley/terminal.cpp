// SPDX-License-Identifier: Apache-2.0
#include "terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "files.h"
#include "library.h"
#include "system.h"

namespace parley {

namespace {

// As parley_terminal counts them: 1 for any colour.
int32_t number_of_colors() {
    const char *color_depth = std::getenv("COLORTERM"), *kind = std::getenv("TERM");
    const std::string_view depth = color_depth ? color_depth : "", terminal = kind ? kind : "";
    if (depth == "truecolor" || depth == "24bit" || terminal.ends_with("direct")) return 1;
    return terminal.find("256color") != std::string_view::npos ? 256 : 16;
}

}  // namespace

std::FILE *take_standard_output() {
    const int results = dup(STDOUT_FILENO);
    const int nowhere = open(NOWHERE, O_WRONLY);
    if (results < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) throw_errno("standard output");
    close(nowhere);
    std::FILE *stream = fdopen(results, "wb");
    if (!stream) throw_errno("standard output");
    return stream;
}

void close_standard_output(std::FILE *stream) {
    const bool failed = std::ferror(stream) != 0;
    if (std::fclose(stream) != 0 || failed) throw_errno("standard output");
}

bool is_dumb_terminal() {
    const char *kind = std::getenv("TERM");
    return kind && std::string_view(kind) == "dumb";
}

parley_terminal terminal_of(std::FILE *stream, const std::string &color) {
    parley_terminal result = {0, 0};
    const char *no_color = std::getenv("NO_COLOR");
    const bool has_colors = color == "always" || (color == "auto" && is_terminal(stream) &&
                                                  !is_dumb_terminal() && !(no_color && *no_color));
    result.colors = has_colors ? number_of_colors() : 0;
    result.columns = columns_of_terminal(stream);
    return result;
}

void show(std::FILE *stream, const std::string &text) {
#if !defined(_WIN32)
    const char *pager = std::getenv("PAGER");
    const int lines = lines_of_terminal(stream);
    if (pager && *pager && lines > 0 && std::ranges::count(text, '\n') >= lines) {
        setenv("LESS", "FRX", 0);       // colours, and no more than a screen where that is enough
        std::signal(SIGPIPE, SIG_IGN);  // of a pager that was left early
        std::FILE *page = popen((std::string(pager) + " >/dev/tty").c_str(), "w");
        if (page) {
            std::fwrite(text.data(), 1, text.size(), page);
            if (pclose(page) == 0) return;
        }
    }
#endif
    std::fwrite(text.data(), 1, text.size(), stream);
}

std::string printable(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, '?');
    return text;
}

void print_error(const std::exception &error, bool verbose) {
    std::fprintf(stderr, "parley: %s\n", printable(error.what()).c_str());
    if (const auto *failure = dynamic_cast<const parley_error *>(&error); failure && verbose)
        std::fputs(failure->details.c_str(), stderr);
}

}  // namespace parley
