// SPDX-License-Identifier: Apache-2.0
#include "recordings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "files.h"
#include "workers.h"

namespace fs = std::filesystem;

using namespace parley;

namespace {

class batch : public testing::Test {
protected:
    void SetUp() override {
        folder_ = fs::path(testing::TempDir()) / ("parley-batch-" + std::to_string(getpid()));
        for (const char *name : {"b.wav", "a.MP3", "notes.txt", "deep/er/c.opus", "deep/b.flac"}) {
            fs::create_directories((folder_ / name).parent_path());
            std::ofstream(folder_ / name) << "x";
        }
        std::error_code ignored;  // of a system without links
        fs::create_symlink("nowhere", folder_ / "link.wav", ignored);
        is_link_there_ = !ignored;
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::vector<std::string> outputs(const std::vector<std::string> &arguments,
                                     const std::vector<std::string> &manifests = {}) {
        others_ = {};
        std::vector<std::string> names;
        for (const recording_file &r : list_recordings(arguments, manifests, &others_))
            names.push_back(fs::path(r.output).generic_string());
        return names;
    }

    std::string in_folder(const char *name) const { return text_of(folder_ / name); }

    fs::path folder_;
    bool is_link_there_ = false;
    left_out others_;
};

TEST_F(batch, folders_are_searched_and_their_shape_kept) {
    EXPECT_THAT(outputs({text_of(folder_)}), testing::ElementsAre("a", "b", "deep/b", "deep/er/c"));
    EXPECT_EQ(others_.count, 1U);
    EXPECT_EQ(others_.example, in_folder("notes.txt"));
}

TEST_F(batch, files_patterns_and_manifests_mix) {
    std::ofstream(folder_ / "list.txt") << (folder_ / "b.wav").string() << "\r\n\n"
                                        << (folder_ / "deep").string() << "\n";
    EXPECT_THAT(outputs({in_folder("notes.txt"), in_folder("*.MP3"), "-"}),
                testing::ElementsAre("notes", "a", "stdin"));
    EXPECT_THAT(outputs({}, {in_folder("list.txt")}), testing::ElementsAre("b.wav", "b.flac", "er/c"));
    EXPECT_THROW(outputs({in_folder("*.aiff")}), std::runtime_error);
    EXPECT_THROW(outputs({}, {in_folder("no-list")}), std::runtime_error);
}

// As recorders and meeting programs write: the same names in folders of their own.
TEST_F(batch, folders_tell_apart_what_is_called_the_same) {
    for (const char *name : {"mon/audio.wav", "tue/audio.wav", "tue/x/audio.wav", "wed/x/audio.wav"}) {
        fs::create_directories((folder_ / name).parent_path());
        std::ofstream(folder_ / name) << "x";
    }
    const std::string mon = in_folder("mon"), tue = in_folder("tue"), wed = in_folder("wed");
    EXPECT_THAT(outputs({mon + "/audio.wav", tue + "/audio.wav"}),
                testing::ElementsAre("mon/audio.wav", "tue/audio.wav"));
    EXPECT_THAT(outputs({mon, tue}), testing::ElementsAre("mon/audio.wav", "tue/audio.wav", "x/audio"));
    EXPECT_THAT(outputs({tue + "/x", wed + "/x"}),
                testing::ElementsAre("tue/x/audio.wav", "wed/x/audio.wav"));
    EXPECT_THAT(outputs({in_folder("b.wav"), in_folder("b.*"), in_folder("deep/../b.wav")}),
                testing::ElementsAre("b"));
}

TEST_F(batch, every_item_is_worked_on_once) {
    for (int workers : {1, 3, 16}) {
        std::vector<std::atomic<int>> seen(100);
        run_workers(workers, seen.size(), [&](int worker, size_t item) {
            EXPECT_LT(worker, workers);
            seen[item]++;
        });
        for (const auto &n : seen) EXPECT_EQ(n, 1);
    }
}

TEST_F(batch, a_file_is_written_whole_or_not_at_all) {
    const std::string path = in_folder("out.txt");
    write_atomically(path, "first");
    write_atomically(path, "second");
    std::string content;
    std::getline(std::ifstream(path), content);
    EXPECT_EQ(content, "second");
    EXPECT_THROW(write_atomically(in_folder("missing/out.txt"), "x"), std::system_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}),
              is_link_there_ ? 6 : 5);  // nothing half-written is left
}

}  // namespace
