// Turning a captured block into an RMS and mono samples.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "AnalysisTestSupport.h"
#include "core/analysis/SampleBlock.h"

using namespace lorvane;
using namespace lorvane::analysistest;

namespace {

SampleBlock planar(const std::vector<float>& left, const std::vector<float>& right) {
    SampleBlock block;
    block.channelsPerFrame = 2;
    block.interleaved = false;
    block.buffers = {std::as_bytes(std::span(left)), std::as_bytes(std::span(right))};
    return block;
}

double plainRms(std::initializer_list<const std::vector<float>*> buffers) {
    double sum = 0;
    std::size_t count = 0;
    for (const auto* buffer : buffers) {
        for (float v : *buffer) sum += static_cast<double>(v) * v;
        count += buffer->size();
    }
    return std::sqrt(sum / static_cast<double>(count));
}

}  // namespace

TEST(SampleExtraction, InterleavedStereoIsAveragedPlanarUsesTheLeftChannelAndRmsCoversBothChannels) {
    const std::vector<float> left{0.5f, -0.25f, 1.0f, 0.125f};
    const std::vector<float> right{0.25f, 0.75f, -1.0f, 0.375f};
    std::vector<float> interleaved;
    for (std::size_t i = 0; i < left.size(); ++i) {
        interleaved.push_back(left[i]);
        interleaved.push_back(right[i]);
    }
    const double rms = plainRms({&left, &right});

    const auto mixed = audioData(interleavedBlock(interleaved, 2));
    ASSERT_TRUE(mixed.has_value());
    EXPECT_EQ(mixed->samples, (std::vector<float>{0.375f, 0.25f, 0.0f, 0.25f}));
    EXPECT_NEAR(mixed->rms, rms, 1e-7);

    const auto firstChannel = audioData(planar(left, right));
    ASSERT_TRUE(firstChannel.has_value());
    EXPECT_EQ(firstChannel->samples, left);
    EXPECT_NEAR(firstChannel->rms, rms, 1e-7);
    EXPECT_GT(std::abs(firstChannel->rms - plainRms({&left})), 0.01);  // the right channel counted
}

TEST(SampleExtraction, IntegerPcmIsRejected) {
    const std::vector<float> samples(64, 0.5f);
    for (auto format : {SampleFormat::int16, SampleFormat::int32}) {
        auto block = interleavedBlock(samples, 2);
        block.format = format;
        EXPECT_FALSE(audioData(block).has_value()) << rawValue(format);
    }
}

TEST(SampleExtraction, ABlockWithoutBuffersGivesNothing) {
    SampleBlock block;
    EXPECT_FALSE(audioData(block).has_value());
}

TEST(SampleExtraction, BuffersShorterThanFourBytesAreSkipped) {
    const std::vector<float> samples{0.5f, 0.5f};
    auto bytes = std::as_bytes(std::span(samples));

    SampleBlock tooShort;
    tooShort.channelsPerFrame = 1;
    tooShort.buffers = {bytes.first(3)};
    EXPECT_FALSE(audioData(tooShort).has_value());

    // Seven bytes hold one whole float; the stray three are ignored.
    SampleBlock oneFloat = tooShort;
    oneFloat.buffers = {bytes.first(7)};
    const auto one = audioData(oneFloat);
    ASSERT_TRUE(one.has_value());
    EXPECT_EQ(one->samples, std::vector<float>{0.5f});
    EXPECT_NEAR(one->rms, 0.5, 1e-7);

    // A short or absent buffer after the first adds nothing, not even to the RMS count.
    SampleBlock withShortSecond = tooShort;
    withShortSecond.buffers = {bytes, bytes.first(2), std::span<const std::byte>()};
    const auto both = audioData(withShortSecond);
    ASSERT_TRUE(both.has_value());
    EXPECT_EQ(both->samples.size(), 2u);
    EXPECT_NEAR(both->rms, 0.5, 1e-7);
}

TEST(SampleExtraction, OnlyTheFirstBufferYieldsSamplesAndASkippedFirstBufferGivesNothing) {
    const std::vector<float> first{0.1f, 0.2f, 0.3f};
    const std::vector<float> second{0.9f, 0.9f, 0.9f, 0.9f};
    SampleBlock block;
    block.channelsPerFrame = 1;
    block.buffers = {std::as_bytes(std::span(first)), std::as_bytes(std::span(second))};
    const auto audio = audioData(block);
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->samples, first);
    EXPECT_NEAR(audio->rms, plainRms({&first, &second}), 1e-7);

    block.buffers[0] = std::as_bytes(std::span(first)).first(2);
    EXPECT_FALSE(audioData(block).has_value());
    block.buffers[0] = {};
    EXPECT_FALSE(audioData(block).has_value());
}

TEST(SampleExtraction, InterleavedFramesAreAveragedOverEveryChannelAndAPartialFrameOnlyCountsForRms) {
    // Three channels, two whole frames and one stray value.
    const std::vector<float> samples{0.3f, 0.6f, 0.9f, -0.3f, 0.0f, 0.6f, 0.8f};
    const auto audio = audioData(interleavedBlock(samples, 3));
    ASSERT_TRUE(audio.has_value());
    ASSERT_EQ(audio->samples.size(), 2u);
    EXPECT_EQ(audio->samples[0], (0.3f + 0.6f + 0.9f) / 3.0f);
    EXPECT_EQ(audio->samples[1], (-0.3f + 0.0f + 0.6f) / 3.0f);
    EXPECT_NEAR(audio->rms, plainRms({&samples}), 1e-7);
}

TEST(SampleExtraction, MoreChannelsThanFloatsGivesNothing) {
    const std::vector<float> samples{0.5f, 0.5f, 0.5f};
    EXPECT_FALSE(audioData(interleavedBlock(samples, 4)).has_value());
}

TEST(SampleExtraction, ChannelCountsBelowTwoMeanMono) {
    const std::vector<float> samples{0.5f, -0.5f, 0.25f};
    for (int channels : {1, 0, -3}) {
        const auto audio = audioData(interleavedBlock(samples, channels));
        ASSERT_TRUE(audio.has_value()) << channels;
        EXPECT_EQ(audio->samples, samples) << channels;
    }
}

TEST(SampleExtraction, BuffersNeedNotBeFloatAligned) {
    const std::vector<float> samples = noise(37, 0.8, 3);  // odd length exercises the tail of the sum
    std::vector<std::byte> storage(samples.size() * sizeof(float) + 1);
    std::memcpy(storage.data() + 1, samples.data(), samples.size() * sizeof(float));
    SampleBlock block;
    block.channelsPerFrame = 1;
    block.buffers = {std::span<const std::byte>(storage).subspan(1)};
    const auto audio = audioData(block);
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->samples, samples);
    EXPECT_NEAR(audio->rms, plainRms({&samples}), 1e-6);
}

TEST(SampleExtraction, RmsIsSummedInSinglePrecision) {
    // 2^24 + 1 is not a float: a double sum would see the last small square, a float sum does not.
    std::vector<float> samples(2, 0.0f);
    samples[0] = 4096.0f;  // square 2^24
    samples[1] = 1.0f;
    const auto audio = audioData(interleavedBlock(samples, 1));
    ASSERT_TRUE(audio.has_value());
    EXPECT_EQ(audio->rms, static_cast<double>(std::sqrt(16777216.0f / 2.0f)));
}
