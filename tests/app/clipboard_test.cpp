#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QMimeData>

#include "app/application.h"
#include "app/clipboard_pasteboard.h"
#include "app/document_window.h"
#include "support/media_fixtures.h"

namespace {

TEST(Clipboard, ClipsPasteBetweenWindowsAndTheFrameAtThePlayheadCopiesAsAnImage) {
    app::Application application;
    auto movie = testing_support::makeMedia(
        "clipboard.mp4", "-f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -pix_fmt yuv420p");
    auto* from = application.newDocument();
    auto* to = application.newDocument();
    from->project().importURLs({movie});
    application.executor().drain();
    ASSERT_EQ(from->project().clips().size(), 1u);
    from->project().setSelectedClipID(from->project().clips()[0].id);

    from->runCommand(app::Command::copy);
    const QMimeData* mime = QApplication::clipboard()->mimeData();
    ASSERT_NE(mime, nullptr);
    EXPECT_TRUE(mime->hasFormat(QStringLiteral("application/x-vantrell-clips")));
    to->project().setPlayheadGlobal(0);
    to->runCommand(app::Command::paste);
    application.executor().drain();
    ASSERT_EQ(to->project().clips().size(), 1u);
    EXPECT_EQ(to->project().clips()[0].url, movie);
    EXPECT_NE(to->project().clips()[0].id, from->project().clips()[0].id);
    EXPECT_EQ(to->project().undoName(), "Paste");

    QApplication::clipboard()->clear();
    from->project().setPlayheadGlobal(1);
    from->runCommand(app::Command::copyCurrentFrame);
    application.executor().drain();
    EXPECT_EQ(QApplication::clipboard()->image().size(), QSize(320, 240));
}

}  // namespace
