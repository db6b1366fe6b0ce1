#pragma once
// One JSON object per line: a published frame, or the silence failure that ends a run.

#include <cstdio>
#include <string_view>

#include "core/AudioCaptureFailure.h"
#include "core/AudioVisualizationFrame.h"

namespace lorvane::tools {

class FrameJsonWriter {
public:
    explicit FrameJsonWriter(std::FILE* out) : out_(out) {}

    void writeFrame(double time, const AudioVisualizationFrame& frame);
    void writeFailure(double time, AudioCaptureFailure failure);
    // False when anything could not be written.
    bool finish();

private:
    void text(std::string_view text);
    void number(double value);
    void flushLine();

    std::FILE* out_;
    // One line at a time; a frame line is under 2 KB.
    char line_[4096];
    char* end_ = line_;
    bool failed_ = false;
};

}  // namespace lorvane::tools
