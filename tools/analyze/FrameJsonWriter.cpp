#include "FrameJsonWriter.h"

#include <charconv>

namespace lorvane::tools {

void FrameJsonWriter::number(double value) {
    // Shortest text that reads back as the same double, so the output is exact.
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    line_.append(text, end);
}

void FrameJsonWriter::writeFrame(double time, const AudioVisualizationFrame& frame) {
    line_.clear();
    line_ += "{\"t\":";
    number(time);
    line_ += ",\"level\":";
    number(frame.level);
    line_ += ",\"motionRate\":";
    number(frame.motionRate);
    line_ += ",\"beatPulse\":";
    number(frame.beatPulse);
    line_ += ",\"spectrum\":[";
    for (std::size_t i = 0; i < frame.spectrum.size(); ++i) {
        if (i > 0) line_ += ',';
        number(frame.spectrum[i]);
    }
    line_ += "]}\n";
    flushLine();
}

void FrameJsonWriter::writeFailure(double time, AudioCaptureFailure failure) {
    line_.clear();
    line_ += "{\"t\":";
    number(time);
    line_ += ",\"failure\":\"";
    line_ += rawValue(failure);
    line_ += "\"}\n";
    flushLine();
}

void FrameJsonWriter::flushLine() {
    if (std::fwrite(line_.data(), 1, line_.size(), out_) != line_.size()) failed_ = true;
}

bool FrameJsonWriter::finish() {
    if (std::fflush(out_) != 0) failed_ = true;
    return !failed_;
}

}  // namespace lorvane::tools
