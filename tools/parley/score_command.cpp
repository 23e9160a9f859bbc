#include "score_command.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "score.h"

namespace {

constexpr char USAGE[] =
    "usage: parley score [OPTION]... REFERENCE.rttm HYPOTHESIS.rttm\n"
    "\n"
    "Prints diarization and Jaccard error rates of a hypothesis, and how often the number of speakers is "
    "right.\n"
    "\n"
    "  --collar SECONDS  leave out that much to either side of every boundary of the reference; may be "
    "given\n"
    "                    several times (default: 0.25 and 0)\n"
    "  --skip-overlap    leave out where the reference has several speakers at once\n"
    "  --uem FILE        look only at the parts of the recordings that FILE lists\n"
    "  --each            print a line for every recording too\n";

struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct score_arguments {
    std::vector<double> collars;
    bool skip_overlap = false;
    bool each = false;
    std::string uem_path;
    std::vector<std::string> files;
};

double parse_collar(const char *text) {
    char *end = nullptr;
    const double collar = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(collar >= 0 && collar < 3600)) {
        throw usage_error(std::string("--collar takes a number of seconds, not ") + text);
    }
    return collar;
}

score_arguments parse(int argc, char **argv) {
    score_arguments result;
    for (int i = 0; i < argc; i++) {
        const std::string_view argument = argv[i];
        const bool has_value = i + 1 < argc;
        if (argument == "--collar" && has_value) {
            result.collars.push_back(parse_collar(argv[++i]));
        } else if (argument == "--uem" && has_value) {
            result.uem_path = argv[++i];
        } else if (argument == "--skip-overlap") {
            result.skip_overlap = true;
        } else if (argument == "--each") {
            result.each = true;
        } else if (argument.starts_with("-")) {
            throw usage_error("unknown or incomplete option " + std::string(argument));
        } else {
            result.files.emplace_back(argument);
        }
    }
    if (result.files.size() != 2) throw usage_error("a reference and a hypothesis are needed");
    if (result.collars.empty()) result.collars = {0.25, 0};
    return result;
}

std::ifstream open(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    return file;
}

void print_row(const std::string &name, const score &s) {
    const auto percent = [&s](double part) { return s.speech > 0 ? 100 * part / s.speech : 0; };
    std::printf("%-24s %7.2f %8.2f %12.2f %10.2f %7.2f %9d %6d\n", name.c_str(), s.der(), percent(s.missed),
                percent(s.false_alarm), percent(s.confusion), s.jer(), s.num_speakers, s.num_found);
}

void print_scores(const rttm &reference, const rttm &hypothesis, const uem *parts,
                  const score_arguments &arguments) {
    std::set<std::string> names;
    for (const auto &[name, turns] : reference) names.insert(name);
    for (const auto &[name, turns] : hypothesis) names.insert(name);
    if (parts) std::erase_if(names, [parts](const std::string &name) { return !parts->contains(name); });

    const std::vector<turn> nobody;
    const auto turns_of = [&nobody](const rttm &all, const std::string &name) -> const std::vector<turn> & {
        const auto found = all.find(name);
        return found == all.end() ? nobody : found->second;
    };
    for (double collar : arguments.collars) {
        std::printf("collar %.2f s to either side, overlaps %s, %s\n", collar,
                    arguments.skip_overlap ? "left out" : "scored",
                    parts ? "parts that the UEM lists" : "from first to last boundary");
        std::printf("%-24s %7s %8s %12s %10s %7s %9s %6s\n", "", "DER %", "missed %", "false alarm %",
                    "confusion %", "JER %", "speakers", "found");
        score total;
        for (const std::string &name : names) {
            const score s =
                score_recording(turns_of(reference, name), turns_of(hypothesis, name),
                                parts ? &parts->at(name) : nullptr, {collar, arguments.skip_overlap});
            if (arguments.each) print_row(name, s);
            total += s;
        }
        print_row("total", total);
        std::printf("speakers counted right in %d of %d recordings", total.num_counted_right,
                    total.num_recordings);
        std::printf(" (%d of %d with 2 to 4 speakers), off by %.2f on average\n\n", total.num_small_right,
                    total.num_small,
                    total.num_recordings > 0 ? double(total.count_error) / total.num_recordings : 0.0);
    }
}

}  // namespace

int score_command(int argc, char **argv) {
    if (argc == 1 && std::string_view(argv[0]) == "--help") {
        std::fputs(USAGE, stdout);
        return EXIT_SUCCESS;
    }
    try {
        const score_arguments arguments = parse(argc, argv);
        std::ifstream reference_file = open(arguments.files[0]), hypothesis_file = open(arguments.files[1]);
        const rttm reference = read_rttm(reference_file, arguments.files[0]);
        const rttm hypothesis = read_rttm(hypothesis_file, arguments.files[1]);
        uem parts;
        if (!arguments.uem_path.empty()) {
            std::ifstream uem_file = open(arguments.uem_path);
            parts = read_uem(uem_file, arguments.uem_path);
        }
        print_scores(reference, hypothesis, arguments.uem_path.empty() ? nullptr : &parts, arguments);
    } catch (const usage_error &error) {
        std::fprintf(stderr, "parley score: %s\n\n%s", error.what(), USAGE);
        return 2;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "parley score: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
