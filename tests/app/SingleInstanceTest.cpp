// One instance per session bus: the first start owns the name, later ones hand over and end.

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>

#include "app/QtTestEnvironment.h"
#include "app/SingleInstance.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

[[maybe_unused]] auto* const environment = ::testing::AddGlobalTestEnvironment(new QtTestEnvironment);

class SingleInstanceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(bus.isRunning()) << bus.error(); }
    void TearDown() override {
        for (const QString& name : names) QDBusConnection::disconnectFromBus(name);
    }
    QDBusConnection connect() {
        const QString name = QStringLiteral("instance-test-%1").arg(names.size());
        names << name;
        return QDBusConnection::connectToBus(QString::fromStdString(bus.address()), name);
    }
    SessionBus bus;
    QStringList names;
};

}  // namespace

TEST_F(SingleInstanceTest, TheFirstStartOwnsTheName) {
    QDBusConnection connection = connect();
    SingleInstance first(connection);
    EXPECT_EQ(first.claim(), SingleInstance::Outcome::primary);
    EXPECT_TRUE(connection.interface()->isServiceRegistered(SingleInstance::serviceName).value());
}

TEST_F(SingleInstanceTest, ALaterStartAsksTheFirstToReopen) {
    int reopened = 0;
    SingleInstance first(connect());
    first.reopenRequested = [&] { ++reopened; };
    ASSERT_EQ(first.claim(), SingleInstance::Outcome::primary);

    SingleInstance second(connect());
    EXPECT_EQ(second.claim(), SingleInstance::Outcome::handedOver);
    EXPECT_EQ(reopened, 1);
    SingleInstance third(connect());
    EXPECT_EQ(third.claim(), SingleInstance::Outcome::handedOver);
    EXPECT_EQ(reopened, 2);
}

TEST_F(SingleInstanceTest, TheNameIsFreeAgainOnceTheFirstHasGone) {
    {
        SingleInstance first(connect());
        ASSERT_EQ(first.claim(), SingleInstance::Outcome::primary);
    }
    SingleInstance next(connect());
    EXPECT_EQ(next.claim(), SingleInstance::Outcome::primary);
}

TEST_F(SingleInstanceTest, AnOwnerThatDoesNotAnswerIsReported) {
    // Something else holds the name without serving the reopen call.
    QDBusConnection squatter = connect();
    ASSERT_TRUE(squatter.registerService(SingleInstance::serviceName));
    SingleInstance later(connect());
    EXPECT_EQ(later.claim(), SingleInstance::Outcome::unreachable);
}

TEST(SingleInstanceWithoutBus, RunsUnguarded) {
    SingleInstance instance(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"), "no-bus"));
    EXPECT_EQ(instance.claim(), SingleInstance::Outcome::noBus);
    QDBusConnection::disconnectFromBus("no-bus");
}
