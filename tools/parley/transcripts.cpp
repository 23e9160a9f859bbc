// SPDX-License-Identifier: Apache-2.0
#include "transcripts.h"

#include <algorithm>

#include "documents.h"
#include "help.h"
#include "model.h"
#include "suggestion.h"
#include "voices.h"

namespace parley {

void transcript_options::define(CLI::App *app) {
    app->add_option("-f,--format", format, "format of the words, see below")->type_name("NAME");
    app->add_option("-o,--output", output, "file to write (standard output)")->type_name("FILE");
    app->add_option("--reach", reach, "words may lie that far from a segment (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_flag("--by-time", by_time, "words that two share are whose part is longer");
    app->add_option("--audio", audio, "audio of HTML pages: embed, link, copy (beside them), none")
        ->check(CLI::IsMember({"auto", "embed", "link", "copy", "none"}).description(""))
        ->type_name("HOW")
        ->group(MORE_OPTIONS);
    run.define(app, {"speakers", "names"});
    define_files(app, &voices, &model);
}

const parley_format *transcript_options::chosen_format() const {
    const parley_format *chosen = find_transcript_format(format, output);
    if (chosen || format.empty()) return chosen;
    std::vector<std::string> known;
    for (int32_t i = 0; const parley_format *one = parley_transcript_format_at(i); i++)
        known.emplace_back(one->name);
    throw CLI::ValidationError("unknown format " + format + suggestion(format, known));
}

parley_diarizer *transcript_options::diarizer() {
    if (!diarizer_) diarizer_ = open_model(model.empty() ? find_model() : model);
    return diarizer_.get();
}

result_ptr transcript_options::diarize(const std::string &path, parley_progress progress, void *context) {
    const std::string known = read_voices(voices);
    parley_options options = *run.get();
    options.keep_embeddings = 1;
    parley_result *made = nullptr;
    check(parley_diarize_file(diarizer(), path.c_str(), &options, progress, context, &made));
    result_ptr result(made);
    name_known(made, known, 0);
    return result;
}

void transcript_options::write(parley_result *result, const std::string &recording,
                               const parley_format *chosen, std::FILE *out) {
    if (is_page(*chosen) && !recording.empty()) link_audio(audio, recording, output, result);
    char *text = nullptr;
    size_t size = 0;
    check(parley_write_words(result, chosen->name, &text, &size));
    const text_ptr owned(text);
    put_document({text, size}, chosen, output, out);
}

void read_sound(parley_diarizer *diarizer, const std::string &recording, parley_result *result) {
    if (!recording.empty())
        check(parley_result_read_audio(diarizer, result, recording.c_str(), nullptr, nullptr, nullptr));
}

}  // namespace parley
