#include "AudioFileReader.h"

#include <sndfile.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace lorvane::tools {

struct AudioFileReader::Handle {
    SNDFILE* file = nullptr;
    ~Handle() {
        if (file != nullptr) sf_close(file);
    }
};

AudioFileReader::AudioFileReader(std::unique_ptr<Handle> handle, int channels, int sampleRate)
    : handle_(std::move(handle)), channels_(channels), sampleRate_(sampleRate) {}

AudioFileReader::~AudioFileReader() = default;

AudioFileReader::Opened AudioFileReader::open(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return {nullptr, "cannot open '" + path + "': " + std::strerror(errno)};
    }
    if (S_ISDIR(info.st_mode)) return {nullptr, "cannot open '" + path + "': it is a directory"};
    if (info.st_size == 0) return {nullptr, "'" + path + "' is empty"};

    SF_INFO format{};
    auto handle = std::make_unique<Handle>();
    handle->file = sf_open(path.c_str(), SFM_READ, &format);
    if (handle->file == nullptr) {
        return {nullptr, "cannot read '" + path + "' as audio: " + sf_strerror(nullptr)};
    }
    if (format.channels < 1) return {nullptr, "'" + path + "' has no audio channels"};
    // Integer files come back scaled to -1...1.
    sf_command(handle->file, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
    return {std::unique_ptr<AudioFileReader>(new AudioFileReader(std::move(handle), format.channels,
                                                                 format.samplerate)),
            {}};
}

std::size_t AudioFileReader::read(float* out, std::size_t frames) {
    const sf_count_t got = sf_readf_float(handle_->file, out, static_cast<sf_count_t>(frames));
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace lorvane::tools
