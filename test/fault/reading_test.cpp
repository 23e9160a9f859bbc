// SPDX-License-Identifier: Apache-2.0
// Every read fails once: model and audio files that end, or whose device fails, behind each of their bytes.
// fopen is replaced for the whole program by one that can hand out such a file. A call must then return (a
// model only with ZX_STATUS_IO_ERROR), leave messages when it fails, and the same engine must give the same
// result as before.

#include <dlfcn.h>

#include <cerrno>

#include "model_builder.h"
#include "mp4_builder.h"
#include "segments.h"

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int64_t PLACES = 100;  // each of which takes its time
#else
constexpr int64_t PLACES = 300;
#endif

enum class fault { none, end_of_file, input_output_error };

// What the next files opened for reading suffer from, behind their first `position` bytes.
struct {
    fault kind = fault::none;
    int64_t position = 0;
    bool was_reached = false;
} current;

using open_function = FILE *(*) (const char *, const char *);
open_function real_open() {
    static const auto function = reinterpret_cast<open_function>(dlsym(RTLD_NEXT, "fopen64"));
    return function;
}

ssize_t read_with_fault(void *cookie, char *buffer, size_t size) {
    FILE *file = static_cast<FILE *>(cookie);
    const int64_t left = std::max<int64_t>(current.position - std::ftell(file), 0);
    if (static_cast<int64_t>(size) > left) {
        current.was_reached = true;
        if (left == 0 && current.kind == fault::input_output_error) {
            errno = EIO;
            return -1;
        }
        size = static_cast<size_t>(left);
    }
    return static_cast<ssize_t>(std::fread(buffer, 1, size, file));
}

int seek(void *cookie, off64_t *offset, int whence) {
    FILE *file = static_cast<FILE *>(cookie);
    if (fseeko(file, *offset, whence) != 0) return -1;
    *offset = ftello(file);
    return 0;
}

int close(void *cookie) {
    return std::fclose(static_cast<FILE *>(cookie));
}

}  // namespace

namespace {

FILE *open_with_fault(const char *path, const char *mode) {
    FILE *file = real_open()(path, mode);
    if (!file || current.kind == fault::none) return file;
    cookie_io_functions_t functions = {};
    functions.read = read_with_fault;
    functions.seek = seek;
    functions.close = close;
    return fopencookie(file, mode, functions);
}

}  // namespace

// The C library's two names for it; which one is called depends on the type of file positions.
extern "C" FILE *fopen(const char *path, const char *mode) {
    return open_with_fault(path, mode);
}
extern "C" FILE *fopen64(const char *path, const char *mode) {
    return open_with_fault(path, mode);
}

namespace {

const char MODEL[] = PARLEY_SOURCE_DIR "/test/data/vectors/small.zx";

// Runs a call with a fault; returns whether the fault was met.
template <class Call>
bool with_fault(fault kind, int64_t position, Call call) {
    current = {kind, position, false};
    call();
    current.kind = fault::none;
    return current.was_reached;
}

class reading : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override { zx_log_disable(); }
    void TearDown() override { zx_log_enable(); }
};

struct result {
    zx_status_t status;
    std::string segments;
};

result process_file(zx_parley_t *engine, const char *path) {
    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    result r = {zx_parley_process_file(engine, path, &count, &segments), {}};
    r.segments = take_segments(segments, count);
    return r;
}

}  // namespace

TEST_F(reading, model_files_that_end_or_fail_anywhere) {
    const std::string bytes = model_builder().bytes();
    const temporary_file file(bytes);
    testing::internal::CaptureStdout();
    for (const fault kind : {fault::end_of_file, fault::input_output_error}) {
        for (int64_t position = 0; position < static_cast<int64_t>(bytes.size()); position++) {
            zx_parley_t *object = nullptr;
            zx_status_t status = ZX_STATUS_SUCCESS;
            ASSERT_TRUE(with_fault(kind, position, [&] { status = zx_parley_init(file.path(), &object); }));
            ASSERT_EQ(status, ZX_STATUS_IO_ERROR) << "behind byte " << position;
            ASSERT_EQ(object, nullptr);
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_THAT(take_messages(), testing::Contains(testing::HasSubstr("IO_ERROR")));
}

// One file per format. The text is the file's name, or empty for built ones.
TEST_P(reading, audio_files_that_end_or_fail_anywhere) {
    std::unique_ptr<temporary_file> built;
    std::string path = PARLEY_TEST_DATA "/audio/" + std::string(GetParam());
    if (GetParam() == std::string("built.wav")) {
        built = std::make_unique<temporary_file>(wav_bytes(random_int16(3000, 1), 16000));
    } else if (GetParam() == std::string("built.3gp")) {
        built = std::make_unique<temporary_file>(amr_file_builder(30).bytes());
    }
    if (built) path = built->path();
    zx_parley_t *object = nullptr;
    ASSERT_EQ(zx_parley_init(MODEL, &object), ZX_STATUS_SUCCESS);
    const auto engine = owned<zx_parley_delete>(object);
    const result expected = process_file(object, path.c_str());
    ASSERT_EQ(expected.status, ZX_STATUS_SUCCESS);

    const auto size = static_cast<int64_t>(std::filesystem::file_size(path));
    const int64_t stride = std::max<int64_t>(size / PLACES, 1);  // every byte of the headers, then some
    testing::internal::CaptureStdout();
    int num_failures = 0;
    for (const fault kind : {fault::end_of_file, fault::input_output_error}) {
        for (int64_t position = 0; position < size; position += position < 256 ? 1 : stride) {
            result r = {};
            with_fault(kind, position, [&] { r = process_file(object, path.c_str()); });
            if (r.status == ZX_STATUS_SUCCESS) continue;  // decoders may do without the end of a file
            num_failures++;
            ASSERT_TRUE(r.status == ZX_STATUS_IO_ERROR || r.status == ZX_STATUS_INVALID_ARGUMENT ||
                        r.status == ZX_STATUS_INVALID_STATE || r.status == ZX_STATUS_RUNTIME_ERROR)
                << zx_status_to_string(r.status) << " behind byte " << position;
            ASSERT_TRUE(r.segments.empty());
            if (num_failures % 16 != 1) continue;
            const result again = process_file(object, path.c_str());
            ASSERT_EQ(again.status, ZX_STATUS_SUCCESS) << "behind byte " << position;
            ASSERT_EQ(again.segments, expected.segments) << "behind byte " << position;
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GT(num_failures, 70);  // no format does without its first 35 bytes
}

INSTANTIATE_TEST_SUITE_P(formats, reading,
                         testing::Values("built.wav"
#if PARLEY_WITH_FLAC
                                         ,
                                         "flac_s16_stereo_44100.flac"
#endif
#if PARLEY_WITH_MP3
                                         ,
                                         "mp3_cbr64_mono_16000.mp3"
#endif
#if PARLEY_WITH_OPUS
                                         ,
                                         "opus_stereo_48000.opus"
#endif
#if PARLEY_WITH_VORBIS
                                         ,
                                         "vorbis_mono_16000.ogg"
#endif
#if PARLEY_WITH_WEBM
                                         ,
                                         "webm_opus_mono_48000.webm"
#endif
#if PARLEY_WITH_AAC
                                         ,
                                         "mp4_frag_dash_16000.mp4"
#endif
#if PARLEY_WITH_AMR
                                         ,
                                         "built.3gp"
#endif
                                         ),
                         [](const auto &param) {
                             std::string name = param.param;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });
