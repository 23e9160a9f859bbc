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
        fs::create_symlink("nowhere", folder_ / "link.wav");
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::vector<std::string> outputs(const std::vector<std::string> &arguments,
                                     const std::vector<std::string> &manifests = {}) {
        others_ = {};
        std::vector<std::string> names;
        for (const recording_file &r : list_recordings(arguments, manifests, &others_))
            names.push_back(r.output);
        return names;
    }

    fs::path folder_;
    left_out others_;
};

TEST_F(batch, folders_are_searched_and_their_shape_kept) {
    EXPECT_THAT(outputs({folder_}), testing::ElementsAre("a", "b", "deep/b", "deep/er/c"));
    EXPECT_EQ(others_.count, 1U);
    EXPECT_EQ(others_.example, folder_ / "notes.txt");
}

TEST_F(batch, files_patterns_and_manifests_mix) {
    std::ofstream(folder_ / "list.txt") << (folder_ / "b.wav").string() << "\r\n\n"
                                        << (folder_ / "deep").string() << "\n";
    EXPECT_THAT(outputs({folder_ / "notes.txt", folder_ / "*.MP3", "-"}),
                testing::ElementsAre("notes", "a", "stdin"));
    EXPECT_THAT(outputs({}, {folder_ / "list.txt"}), testing::ElementsAre("b.wav", "b.flac", "er/c"));
    EXPECT_THROW(outputs({folder_ / "*.aiff"}), std::runtime_error);
    EXPECT_THROW(outputs({}, {folder_ / "no-list"}), std::runtime_error);
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
    const std::string path = folder_ / "out.txt";
    write_atomically(path, "first");
    write_atomically(path, "second");
    std::string content;
    std::getline(std::ifstream(path), content);
    EXPECT_EQ(content, "second");
    EXPECT_THROW(write_atomically(folder_ / "missing" / "out.txt", "x"), std::system_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 6);  // nothing half-written is left
}

}  // namespace
