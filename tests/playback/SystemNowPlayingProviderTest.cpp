#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "FakePlaybackServices.h"
#include "core/playback/SystemNowPlayingProvider.h"
#include "support/ManualMainQueue.h"

using namespace lorvane;
using lorvane::test::FakeNowPlayingSource;
using lorvane::test::ManualMainQueue;

namespace {

struct ProviderTest : ::testing::Test {
    ManualMainQueue queue;
    std::shared_ptr<FakeNowPlayingSource> source = std::make_shared<FakeNowPlayingSource>();
    std::unique_ptr<SystemNowPlayingProvider> provider = SystemNowPlayingProvider::make(source, queue);
    std::vector<std::optional<SystemNowPlayingSnapshot>> answers;
    std::vector<double> answeredAt;

    void fetch() {
        provider->fetch([this](std::optional<SystemNowPlayingSnapshot> answer) {
            answers.push_back(answer);
            answeredAt.push_back(queue.now());
        });
    }
};

}  // namespace

TEST(SystemNowPlayingProvider, NoServiceGivesNoProvider) {
    ManualMainQueue queue;
    EXPECT_EQ(SystemNowPlayingProvider::make(nullptr, queue), nullptr);
    EXPECT_NE(SystemNowPlayingProvider::make(std::make_shared<FakeNowPlayingSource>(), queue), nullptr);
}

TEST_F(ProviderTest, FetchAsksBothQuestionsAndReturnsAtOnce) {
    fetch();
    EXPECT_EQ(source->processIdentifierQuestions, 1);
    EXPECT_EQ(source->isPlayingQuestions, 1);
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(queue.delayedCount(), 1u);  // the time-out
}

TEST_F(ProviderTest, IdentifierWithoutPlayingFlagAnswersNothingAfterExactlyTheTimeLimit) {
    fetch();
    source->deliverProcessIdentifier(0, 4242);
    queue.advance(0.349);
    EXPECT_TRUE(answers.empty());
    queue.advance(0.001);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_FALSE(answers[0].has_value());
    EXPECT_DOUBLE_EQ(answeredAt[0], 0.35);
    queue.advance(5);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ProviderTest, NeitherValueAnswersNothingAtTheTimeLimit) {
    fetch();
    queue.advance(0.35);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_FALSE(answers[0].has_value());
}

TEST_F(ProviderTest, BothValuesInTimeGiveOneAnswerAndTheTimeOutDoesNothing) {
    fetch();
    queue.advance(0.1);
    source->deliverProcessIdentifier(0, 4242);
    EXPECT_TRUE(answers.empty());
    queue.advance(0.2);
    source->deliverIsPlaying(0, true);
    ASSERT_EQ(answers.size(), 1u);
    ASSERT_TRUE(answers[0].has_value());
    EXPECT_EQ(*answers[0], (SystemNowPlayingSnapshot{4242, true}));
    EXPECT_DOUBLE_EQ(answeredAt[0], 0.3);
    queue.advance(1);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ProviderTest, PlayingFlagFirstIdentifierSecondAnswersFromTheIdentifierCallback) {
    fetch();
    source->deliverIsPlaying(0, false);
    EXPECT_TRUE(answers.empty());
    source->deliverProcessIdentifier(0, 77);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(*answers[0], (SystemNowPlayingSnapshot{77, false}));
    queue.advance(1);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ProviderTest, ValueAfterTheTimeOutDoesNotAnswerTwice) {
    fetch();
    source->deliverIsPlaying(0, true);
    queue.advance(0.35);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_FALSE(answers[0].has_value());
    source->deliverProcessIdentifier(0, 4242);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ProviderTest, ZeroIdentifierIsDeliveredAsIs) {
    fetch();
    source->deliverProcessIdentifier(0, 0);
    source->deliverIsPlaying(0, false);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(*answers[0], (SystemNowPlayingSnapshot{0, false}));
}

TEST_F(ProviderTest, TwoQueriesAreIndependent) {
    fetch();
    fetch();
    source->deliverProcessIdentifier(1, 2);
    source->deliverIsPlaying(1, true);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(*answers[0], (SystemNowPlayingSnapshot{2, true}));
    queue.advance(0.35);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_FALSE(answers[1].has_value());
}

TEST_F(ProviderTest, AnswerStillArrivesAfterTheProviderIsGone) {
    fetch();
    provider.reset();
    source->deliverProcessIdentifier(0, 5);
    source->deliverIsPlaying(0, true);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(*answers[0], (SystemNowPlayingSnapshot{5, true}));
}
