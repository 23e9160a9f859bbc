// SPDX-License-Identifier: Apache-2.0
// Who spoke when in one recording: what diarizing gives and every output format takes.
#ifndef PARLEY_DIARIZATION_RECORD_H
#define PARLEY_DIARIZATION_RECORD_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct segment {
    double start;  // seconds
    double end;
    int speaker;  // index into the speakers
    // How much nearer the segment lies to its own speaker than to the next best one (another speaker, or
    // "nobody speaks"): (d' - d) / (d' + d) with cosine distances d to the own centroid and d' to the other,
    // between 0 (equally near) and 1.
    double confidence;
    bool edited = false;    // by hand
    std::string comment{};  // somebody's note
    // Of a second speaker, beside another's segment. Captions and words leave these out.
    bool is_overlap = false;
};

struct speaker {
    std::string name;
    double seconds;                // of speech
    std::vector<float> embedding;  // of unit length: the mean over the speaker's frames
    double similarity = 0;         // cosine with the known voice that gave the name; 0 where none did
};

struct spoken_word {
    double start, end;
    std::string text, speaker;               // nobody's is ""
    std::optional<bool> begins_paragraph{};  // said by hand; else speakers and pauses tell
};

struct kept_embeddings;  // api/diarizer.h

struct diarization {
    std::string path;                       // as the user named it; "-" for standard input
    std::string recording;                  // the file's name without folder and extension
    std::string model;                      // whose vectors the embeddings are
    double duration = 0;                    // seconds
    std::vector<segment> segments;          // by start
    std::vector<speaker> speakers;          // in the order in which they are first heard
    std::vector<float> waveform;            // loudest sample of every 1 / WAVEFORM_RATE second, 0 to 1
    std::vector<spoken_word> words;         // of a transcript, if there is one; by start
    std::string file;                       // where its bytes are, if not at the path
    std::optional<std::string> sound;       // the URL that documents use; pages for what is larger than
    int64_t max_embedded = 64 << 20;        // bytes; "" for none
    std::string note;                       // what the user should know, or nothing
    std::shared_ptr<kept_embeddings> kept;  // to find speakers again, if that was asked for
    bool with_confidence = false;           // whether formats tell these
    bool with_embeddings = false;
};

// Adds to what the user should know, if there is anything to add.
inline void add_note(std::string *note, const std::string &text) {
    if (text.empty()) return;
    *note += (note->empty() ? "" : "; ") + text;
}

inline constexpr int WAVEFORM_RATE = 20;  // per second

#endif
