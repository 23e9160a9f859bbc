// SPDX-License-Identifier: Apache-2.0
#include "transcripts.h"

#include "documents.h"
#include "help.h"
#include "model.h"
#include "voices.h"

namespace parley {

void transcript_options::define(CLI::App *app) {
    app->add_option("-f,--format", format, "format of the words, see below")->type_name("NAME");
    app->add_option("-o,--output", output, "file to write (standard output)")->type_name("FILE");
    app->add_option("--reach", reach, "words may lie that far from a segment (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_flag("--by-time", by_time, "words that two share are whose part is longer");
    define_audio(app, &audio)->group(MORE_OPTIONS);
    run.define(app, {"speakers", "names"});
    define_files(app, &voices, &model);
}

const parley_format *transcript_options::chosen_format() const {
    const parley_format *chosen = find_transcript_format(format, output);
    if (chosen || format.empty()) return chosen;
    refuse_format(format, parley_transcript_format_at);
}

parley_diarizer *transcript_options::diarizer() {
    if (!diarizer_) diarizer_ = open_given_model(model);
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
    put_document(write_words(result, chosen->name), output, out);
}

void read_sound(parley_diarizer *diarizer, const std::string &recording, parley_result *result) {
    if (!recording.empty())
        check(parley_result_read_audio(diarizer, result, recording.c_str(), nullptr, nullptr, nullptr));
}

}  // namespace parley
