// SPDX-License-Identifier: Apache-2.0
// Error rates of a hypothesis against a reference.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "commands.h"
#include "files.h"
#include "library.h"

namespace parley {

namespace scoring {
namespace {

struct arguments {
    std::vector<double> collars;
    bool skip_overlap = false, each = false;
    std::string uem;
    std::vector<std::string> files;
};

int run(const arguments &a) {
    const std::vector<double> collars = a.collars.empty() ? std::vector<double>{0.25, 0} : a.collars;
    const std::string reference = read_text(a.files[0]), hypothesis = read_text(a.files[1]);
    const std::string uem = a.uem.empty() ? "" : read_text(a.uem);
    char *text = nullptr;
    check(parley_score_text(reference.c_str(), a.files[0].c_str(), hypothesis.c_str(), a.files[1].c_str(),
                            a.uem.empty() ? nullptr : uem.c_str(), collars.data(),
                            static_cast<int32_t>(collars.size()), a.skip_overlap, a.each, &text));
    const text_ptr owned(text);
    std::fputs(text, stdout);
    return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace scoring

command score_command(CLI::App *app) {
    using namespace scoring;
    const auto a = std::make_shared<arguments>();
    app->description("Prints error rates against a reference.");
    app->add_option("FILE", a->files, "the reference and the hypothesis, in RTTM")
        ->required()
        ->expected(2)
        ->type_name("");
    app->add_option("--collar", a->collars, "leave out that much around boundaries (0.25 and 0)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->allow_extra_args(false)
        ->type_name("SECONDS");
    app->add_flag("--skip-overlap", a->skip_overlap, "do not score where several speak in the reference");
    app->add_option("--uem", a->uem, "score only the parts that this UEM file lists")->type_name("FILE");
    app->add_flag("--each", a->each, "print a line for every recording, too");
    return [a] { return run(*a); };
}

}  // namespace parley
