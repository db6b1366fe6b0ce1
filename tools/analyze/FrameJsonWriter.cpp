#include "FrameJsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace lorvane::tools {

void FrameJsonWriter::text(std::string_view text) {
    std::memcpy(end_, text.data(), text.size());
    end_ += text.size();
}

void FrameJsonWriter::number(double value) {
    // Six decimals, trailing zeros dropped: finer than the analysis' single-precision spectrum
    // can resolve, and a fraction of the cost of the shortest round-trip form, which dominated
    // the tool's time on long files.
    if (!std::isfinite(value)) {  // JSON has no NaN or infinity; "no value" is the honest answer
        text("null");
        return;
    }
    const bool negative = value < 0;
    const double magnitude = negative ? -value : value;
    if (magnitude >= 1e12) {  // never for the analysis' values; kept valid all the same
        end_ = std::to_chars(end_, end_ + 32, value).ptr;
        return;
    }
    const auto scaled = static_cast<std::uint64_t>(magnitude * 1e6 + 0.5);
    if (negative && scaled != 0) *end_++ = '-';
    const std::uint64_t whole = scaled / 1000000;
    if (whole < 10) {
        *end_++ = static_cast<char>('0' + whole);
    } else {
        end_ = std::to_chars(end_, end_ + 24, whole).ptr;
    }
    auto fraction = static_cast<std::uint32_t>(scaled % 1000000);
    if (fraction == 0) return;
    int digits = 6;
    while (fraction % 10 == 0) {
        fraction /= 10;
        --digits;
    }
    *end_++ = '.';
    for (int i = digits - 1; i >= 0; --i) {
        end_[i] = static_cast<char>('0' + fraction % 10);
        fraction /= 10;
    }
    end_ += digits;
}

void FrameJsonWriter::writeFrame(double time, const AudioVisualizationFrame& frame) {
    end_ = line_;
    text("{\"t\":");
    number(time);
    text(",\"level\":");
    number(frame.level);
    text(",\"motionRate\":");
    number(frame.motionRate);
    text(",\"beatPulse\":");
    number(frame.beatPulse);
    text(",\"spectrum\":[");
    for (std::size_t i = 0; i < frame.spectrum.size() && i < 96; ++i) {
        if (i > 0) *end_++ = ',';
        number(frame.spectrum[i]);
    }
    text("]}\n");
    flushLine();
}

void FrameJsonWriter::writeFailure(double time, AudioCaptureFailure failure) {
    end_ = line_;
    text("{\"t\":");
    number(time);
    text(",\"failure\":\"");
    text(rawValue(failure));
    text("\"}\n");
    flushLine();
}

void FrameJsonWriter::flushLine() {
    const auto size = static_cast<std::size_t>(end_ - line_);
    if (std::fwrite(line_, 1, size, out_) != size) failed_ = true;
}

bool FrameJsonWriter::finish() {
    if (std::fflush(out_) != 0) failed_ = true;
    return !failed_;
}

}  // namespace lorvane::tools
