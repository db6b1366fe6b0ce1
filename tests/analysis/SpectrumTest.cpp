// The 96-band log-frequency spectrum of one 1024-sample window.

#include <gtest/gtest.h>

#include <cmath>

#include "AnalysisTestSupport.h"

using namespace lorvane;
using namespace lorvane::analysistest;

namespace {

double bandLowEdge(int band) { return 45.0 * std::pow(400.0, band / 96.0); }

int peakBand(const std::vector<double>& spectrum) {
    return static_cast<int>(std::max_element(spectrum.begin(), spectrum.end()) - spectrum.begin());
}

}  // namespace

TEST(Spectrum, KnownBandsReadTheirBins) {
    struct Known {
        int band, first, last;
    };
    for (const Known k : {Known{0, 1, 1}, Known{40, 11, 12}, Known{60, 40, 43}, Known{80, 141, 150},
                          Known{95, 360, 383}}) {
        const auto bins = AudioAnalyzer::bandBins(k.band);
        EXPECT_EQ(bins.lo, k.first) << "band " << k.band;
        EXPECT_EQ(bins.hi - 1, k.last) << "band " << k.band;
    }
    for (int band = 0; band <= 10; ++band) {
        EXPECT_EQ(AudioAnalyzer::bandBins(band).lo, 1);
        EXPECT_EQ(AudioAnalyzer::bandBins(band).hi, 2);
    }
}

TEST(Spectrum, ThirtyOneBandsSpanASingleBinAndBandsClimbWithoutGaps) {
    int single = 0;
    for (int band = 0; band < 96; ++band) {
        const auto bins = AudioAnalyzer::bandBins(band);
        EXPECT_GE(bins.lo, 1);
        EXPECT_GT(bins.hi, bins.lo);
        EXPECT_LE(bins.hi, 512);
        if (bins.hi - bins.lo == 1) ++single;
        if (band > 0) {
            const auto below = AudioAnalyzer::bandBins(band - 1);
            EXPECT_GE(bins.lo, below.lo);
            EXPECT_LE(bins.lo, below.hi);  // neighbouring bands touch or share a bin
        }
    }
    EXPECT_EQ(single, 31);
}

TEST(Spectrum, AnythingButExactly1024SamplesGivesThePreviousSpectrum) {
    AudioAnalyzer analyzer;
    EXPECT_EQ(analyzer.spectrum({}), std::vector<double>(96, 0.0));
    EXPECT_EQ(analyzer.spectrum(noise(1023, 0.5, 1)), std::vector<double>(96, 0.0));

    // After a publish the previous spectrum is that publish's raw spectrum.
    analyzer.beginRun(1.0);
    const auto window = noise(1024, 0.5, 2);
    const auto raw = analyzer.spectrum(window);
    ASSERT_NE(raw, std::vector<double>(96, 0.0));
    analyzer.process(extracted(window), 1.0);
    EXPECT_EQ(analyzer.spectrum(noise(2048, 0.5, 3)), raw);
    EXPECT_EQ(analyzer.spectrum(window), raw);
}

TEST(Spectrum, MagnitudesAreTwiceThePlainDftAndBandsMapDecibelsOntoZeroToOne) {
    // A sine centred on bin 40 under the window 0.8165 (1 − cos): the plain DFT has 0.8165·A·N/2 at
    // bin 40 and a quarter of 0.8165·A·N at bins 39 and 41, nothing elsewhere. Doubled and divided
    // by N, band 60 (bins 40...43) averages (0.8165·A + 0.8165·A/2) / 4.
    for (double amplitude : {0.001, 0.0003, 0.01}) {
        AudioAnalyzer analyzer;
        std::vector<float> samples(1024);
        for (std::size_t n = 0; n < samples.size(); ++n) {
            samples[n] = static_cast<float>(amplitude * std::cos(twoPi * 40.0 * static_cast<double>(n) / 1024.0));
        }
        const auto spectrum = analyzer.spectrum(samples);
        const double mean = (0.8165 * amplitude * 1.5) / 4.0;
        const double expected = std::pow(std::clamp((20 * std::log10(mean) + 92) / 68, 0.0, 1.0), 0.74);
        EXPECT_NEAR(spectrum[60], expected, 1e-5) << amplitude;
        // Far from the tone the bins are empty: the floor.
        EXPECT_EQ(spectrum[0], 0.0);
        EXPECT_EQ(spectrum[95], 0.0);
    }
}

TEST(Spectrum, SilenceIsAtTheFloorAndFullScaleNoiseLiftsEveryBandNearTheTop) {
    AudioAnalyzer analyzer;
    EXPECT_EQ(analyzer.spectrum(std::vector<float>(1024, 0.0f)), std::vector<double>(96, 0.0));
    const auto loud = analyzer.spectrum(noise(1024, 1.0, 8));
    for (int band = 0; band < 96; ++band) {
        EXPECT_GT(loud[band], 0.75) << band;
        EXPECT_LE(loud[band], 1.0) << band;
    }
}

TEST(Spectrum, AOneKilohertzSinePeaksInTheBandHoldingOneKilohertzAndFarBandsStayNearTheFloor) {
    int band = 0;
    while (!(bandLowEdge(band) <= 1000.0 && 1000.0 < bandLowEdge(band + 1))) ++band;
    ASSERT_EQ(band, 49);

    AudioAnalyzer analyzer;
    const auto spectrum = analyzer.spectrum(sine(1000.0, sineAmplitude(-10), 1024));
    EXPECT_EQ(peakBand(spectrum), band);
    EXPECT_GT(spectrum[band], 0.95);
    // Two octaves (23 bands) and more away the window's leakage is below the floor.
    for (int b = 0; b < 96; ++b) {
        if (std::abs(b - band) >= 23) {
            EXPECT_EQ(spectrum[b], 0.0) << "band " << b;
        }
    }
}
