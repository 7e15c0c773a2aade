#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QUuid>

#include "app/instance_handover.h"

namespace {

TEST(InstanceHandover, ASecondLaunchHandsItsFilesToTheFirst) {
    QString name = QStringLiteral("vantrell-test-") + QUuid::createUuid().toString(QUuid::Id128);
    app::InstanceHandover second(name);
    EXPECT_FALSE(second.handOver({QStringLiteral("/tmp/a.mp4")}, 200)) << "nobody listens yet";

    app::InstanceHandover first(name);
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &app::InstanceHandover::filesReceived);
    QStringList files = {QStringLiteral("/tmp/a.mp4"), QStringLiteral("/tmp/b é.vantrell")};
    ASSERT_TRUE(second.handOver(files));
    ASSERT_TRUE(received.wait(5000));
    EXPECT_EQ(received.takeFirst().at(0).toStringList(), files);

    // A launch without files asks for a window: an empty list.
    ASSERT_TRUE(second.handOver({}));
    ASSERT_TRUE(received.wait(5000));
    EXPECT_TRUE(received.takeFirst().at(0).toStringList().isEmpty());
}

}  // namespace
