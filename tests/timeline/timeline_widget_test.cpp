#include "timeline/timeline.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QAccessible>
#include <QApplication>
#include <QMenu>
#include <QNativeGestureEvent>
#include <QPointingDevice>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>
#include <QWheelEvent>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/model_test_support.h"
#include "timeline/playhead_slider.h"
#include "timeline/track_row.h"

namespace {

using model::Clip;
using model_test::clipAt;

// A project of two clips, A at 0 to 10 and B at 20 to 30 (10 s of a 20 s file), in a
// timeline whose strip is 1000 points wide: 100/3 points a second at zoom 1.
class TimelineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        a_ = clipAt(0, 10);
        b_ = clipAt(20, 10);
        b_.fullDurationSeconds = 20;
        b_.url = "/media/b.mov";
        b_.displayName = "b.mov";
        project_.setClips({a_, b_});
        timeline_ = std::make_unique<timeline::Timeline>(project_);
        timeline_->resize(1036, timeline_->minimumHeight());
        timeline_->show();
        QApplication::processEvents();
        pps_ = timeline_->stripLayout().pxPerSec;
        ASSERT_DOUBLE_EQ(pps_, 1000.0 / 30);
    }

    QWidget* videoRow() const { return timeline_->row(false); }
    const Clip& b() const { return *project_.clip(b_.id); }
    static QPoint at(double x) { return QPoint(static_cast<int>(x), 29); }

    void drag(QWidget* w, QPoint from, QPoint to) {
        QTest::mousePress(w, Qt::LeftButton, {}, from);
        QTest::mouseMove(w, to);
    }

    model::Project project_;
    Clip a_, b_;
    std::unique_ptr<timeline::Timeline> timeline_;
    double pps_ = 0;
};

TEST_F(TimelineTest, ATrimDragOnTheOutEdgeWritesTheOutPointLiveAndMakesOneStep) {
    QTest::mouseMove(videoRow(), at(833));
    EXPECT_EQ(videoRow()->cursor().shape(), Qt::OpenHandCursor);
    QTest::mouseMove(videoRow(), at(997));
    EXPECT_EQ(videoRow()->cursor().shape(), Qt::SizeHorCursor);

    auto steps = project_.undoCount();
    drag(videoRow(), at(997), at(947));

    EXPECT_NEAR(b().outSeconds, 10 - 50 / pps_, 1e-9);
    ASSERT_TRUE(project_.trimReadout());
    EXPECT_NEAR(project_.trimReadout()->timelineSeconds, 30 - 50 / pps_, 1e-9);
    ASSERT_TRUE(project_.trimPreview());
    EXPECT_EQ(project_.trimPreview()->url, b_.url);
    ASSERT_TRUE(timeline_->readoutBubble());
    EXPECT_EQ(timeline_->readoutBubble()->text(), "8.50s src · 28.50s timeline");

    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(947));
    EXPECT_NEAR(b().outSeconds, 8.5, 1e-9);
    EXPECT_EQ(project_.undoCount(), steps + 1);
    EXPECT_EQ(project_.undoName(), "Trim Out");
    EXPECT_FALSE(project_.trimReadout() || project_.trimPreview() || project_.dragLandingX());
    QApplication::processEvents();
    EXPECT_FALSE(timeline_->readoutBubble());
}

TEST_F(TimelineTest, AMoveSnapsWithinSixPointsOfAnEdgeAndNotBeyond) {
    // B's start lands 10 s * pps - |dx| points right of A's end.
    struct Case {
        int dx;
        double start;
    };
    for (Case c : {Case{-328, 10.0}, Case{-327, 20 - 327 / pps_}}) {
        project_.moveClip(b_.id, 20);
        timeline_->ensureSynced();
        drag(videoRow(), at(833), at(833 + c.dx));
        ASSERT_TRUE(project_.dragLandingX());
        EXPECT_EQ(b().startOnTimeline, 20) << "a move writes only at its end";
        QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(833 + c.dx));
        EXPECT_NEAR(b().startOnTimeline, c.start, 1e-9) << c.dx;
        EXPECT_EQ(project_.undoName(), "Move Clip");
        EXPECT_FALSE(project_.dragLandingX());
    }
}

TEST_F(TimelineTest, EscapeEndsADragWhereItBeganWithNoStepAndKeepsTheStepsToRedo) {
    drag(videoRow(), at(997), at(947));
    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(947));
    project_.undo();
    timeline_->ensureSynced();
    const auto steps = project_.undoCount();
    ASSERT_EQ(project_.redoName(), "Trim Out");

    drag(videoRow(), at(997), at(900));
    ASSERT_LT(b().outSeconds, 10);
    QTest::keyClick(videoRow(), Qt::Key_Escape);
    EXPECT_EQ(b().outSeconds, 10);
    EXPECT_FALSE(project_.trimReadout() || project_.trimPreview());
    QTest::mouseMove(videoRow(), at(800));
    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(800));
    EXPECT_EQ(b().outSeconds, 10) << "the rest of the gesture is ignored";

    drag(videoRow(), at(833), at(600));
    QTest::keyClick(videoRow(), Qt::Key_Escape);
    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(600));
    EXPECT_EQ(b().startOnTimeline, 20);
    EXPECT_FALSE(project_.dragLandingX());
    EXPECT_EQ(project_.undoCount(), steps);
    EXPECT_EQ(project_.redoCount(), 1u);
    EXPECT_EQ(project_.redoName(), "Trim Out");
    project_.redo();
    EXPECT_NEAR(b().outSeconds, 8.5, 1e-9);
}

TEST_F(TimelineTest, WheelAndPinchZoomByTheirFactorsAndLeaveTheScrollAlone) {
    project_.setZoom(2);
    timeline_->ensureSynced();
    QScrollBar* scroll = timeline_->strip()->horizontalScrollBar();
    scroll->setValue(300);
    auto wheel = [&](int dy, Qt::KeyboardModifiers modifiers) {
        QWheelEvent e(QPointF(50, 29), videoRow()->mapToGlobal(QPointF(50, 29)), QPoint(),
                      QPoint(0, dy), Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
        QApplication::sendEvent(videoRow(), &e);
        QApplication::processEvents();
    };
    wheel(120, Qt::ControlModifier);
    EXPECT_DOUBLE_EQ(project_.zoomFactor(), 2 * 1.1);
    timeline_->ensureSynced();
    EXPECT_EQ(scroll->value(), 300);
    // A plain wheel scrolls the strip sideways and leaves the zoom.
    wheel(-120, Qt::NoModifier);
    EXPECT_GT(scroll->value(), 300);
    EXPECT_DOUBLE_EQ(project_.zoomFactor(), 2 * 1.1);

    const int scrolled = scroll->value();
    auto pinch = [&](Qt::NativeGestureType type, double value) {
        QNativeGestureEvent e(type, QPointingDevice::primaryPointingDevice(), 2, QPointF(50, 29),
                              QPointF(50, 29), videoRow()->mapToGlobal(QPointF(50, 29)), value,
                              QPointF());
        QApplication::sendEvent(videoRow(), &e);
    };
    pinch(Qt::BeginNativeGesture, 0);
    pinch(Qt::ZoomNativeGesture, 0.5);
    EXPECT_DOUBLE_EQ(project_.zoomFactor(), 2.2 * 1.5);
    pinch(Qt::ZoomNativeGesture, 0.2);
    EXPECT_DOUBLE_EQ(project_.zoomFactor(), 2.2 * 1.5 * 1.2);
    pinch(Qt::EndNativeGesture, 0);
    EXPECT_EQ(scroll->value(), scrolled);
}

TEST_F(TimelineTest, ADragPastTheStripsEdgeScrollsItAndCarriesTheClipAlong) {
    project_.setZoom(4);
    timeline_->ensureSynced();
    QScrollBar* scroll = timeline_->strip()->horizontalScrollBar();
    const double pps = timeline_->stripLayout().pxPerSec;
    // Grab A in its middle and hold the pointer past the right end of the visible strip.
    drag(videoRow(), at(5 * pps), at(1010));
    ASSERT_TRUE(QTest::qWaitFor([&] { return scroll->value() > 100; }, 5000));
    QPoint pointer =
        videoRow()->mapFromGlobal(timeline_->strip()->viewport()->mapToGlobal(QPoint(1010, 0)));
    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, QPoint(pointer.x(), 29));
    EXPECT_GT(project_.clip(a_.id)->startOnTimeline, (1010 - 5 * pps) / pps);
}

TEST_F(TimelineTest, TheRulerAndTheSliderPutThePlayheadWhereThePointerIsAndPause) {
    project_.setIsPlaying(true);
    QTest::mouseClick(timeline_->ruler(), Qt::LeftButton, {}, QPoint(500, 10));
    EXPECT_NEAR(project_.playheadGlobal(), 15, 1e-9);
    EXPECT_FALSE(project_.isPlaying());

    QWidget* slider = timeline_->slider();
    drag(slider, QPoint(500, 11), QPoint(250, 11));
    EXPECT_NEAR(project_.playheadGlobal(), 7.5, 1e-9);
    QTest::mouseMove(slider, QPoint(5000, 11));
    EXPECT_DOUBLE_EQ(project_.playheadGlobal(), 30);
    QTest::mouseMove(slider, QPoint(-40, 11));
    EXPECT_DOUBLE_EQ(project_.playheadGlobal(), 0);
    QTest::mouseRelease(slider, Qt::LeftButton, {}, QPoint(-40, 11));
}

// The menu's entries, the disabled ones in brackets.
QString entries(QMenu* menu) {
    QStringList texts;
    for (QAction* a : menu->actions())
        if (!a->isSeparator()) texts << (a->isEnabled() ? a->text() : "[" + a->text() + "]");
    return texts.join(", ");
}

QAction* entry(QMenu* menu, const QString& title) {
    for (QAction* a : menu->actions())
        if (a->text() == title) return a;
    return nullptr;
}

TEST_F(TimelineTest, ARightClickOpensTheClipMenuWithItsEnabledEntries) {
    QTest::mouseClick(videoRow(), Qt::RightButton, {}, at(100));
    ASSERT_TRUE(timeline_->openMenu());
    EXPECT_EQ(entries(timeline_->openMenu()),
              "Split at Playhead, Set In, Set Out, Unlink Audio, Reverse, Retime…, Cut, Copy, "
              "Paste, Delete Clip");
    // While a sheet is open only the clipboard entries act.
    project_.setShowRetimeSheet(true);
    QTest::mouseClick(videoRow(), Qt::RightButton, {}, at(100));
    EXPECT_EQ(entries(timeline_->openMenu()),
              "[Split at Playhead], [Set In], [Set Out], [Unlink Audio], [Reverse], [Retime…], "
              "Cut, Copy, Paste, [Delete Clip]");
    project_.setShowRetimeSheet(false);

    QTest::mouseClick(videoRow(), Qt::RightButton, {}, at(100));
    entry(timeline_->openMenu(), "Delete Clip")->trigger();
    ASSERT_EQ(project_.clips().size(), 1u);
    EXPECT_EQ(project_.clips()[0].id, b_.id);
}

TEST_F(TimelineTest, AMissingClipOffersItsFileToTheOwnerAndCannotBeDragged) {
    project_.updateClip(b_.id, [](Clip& c) { c.isMissing = true; });
    std::optional<common::Uuid> asked;
    timeline_->onRelinkRequested = [&](const common::Uuid& id) { asked = id; };
    QTest::mouseClick(videoRow(), Qt::RightButton, {}, at(900));
    EXPECT_EQ(entries(timeline_->openMenu()), "Locate File…, Delete Clip");
    entry(timeline_->openMenu(), "Locate File…")->trigger();
    EXPECT_EQ(asked, b_.id);

    auto steps = project_.undoCount();
    drag(videoRow(), at(850), at(700));
    QTest::mouseRelease(videoRow(), Qt::LeftButton, {}, at(700));
    EXPECT_EQ(b().startOnTimeline, 20);
    EXPECT_EQ(project_.undoCount(), steps);
}

TEST_F(TimelineTest, ScreenReadersReadAndSelectGapsClipsAndThePlayheadAndHearOfReversing) {
    QAccessibleInterface* row = QAccessible::queryAccessibleInterface(videoRow());
    ASSERT_TRUE(row);
    ASSERT_EQ(row->childCount(), 3);
    QAccessibleInterface* gap = row->child(0);
    EXPECT_EQ(gap->text(QAccessible::Name), "Gap, 10.00 seconds, video row");
    EXPECT_EQ(gap->text(QAccessible::Value), "");
    gap->actionInterface()->doAction("Select");
    EXPECT_EQ(project_.selectedGap(), (model::GapSelection{false, 10, 20}));
    EXPECT_EQ(gap->text(QAccessible::Value), "Selected");
    EXPECT_TRUE(gap->state().selected);

    QAccessibleInterface* bar = row->child(2);
    EXPECT_EQ(bar->text(QAccessible::Name), "Video and audio clip, 10.00 seconds, b.mov");
    bar->actionInterface()->doAction("Select");
    EXPECT_EQ(project_.selectedClipID(), b_.id);
    EXPECT_EQ(bar->text(QAccessible::Value), "Selected");

    QAccessibleInterface* thumb = QAccessible::queryAccessibleInterface(timeline_->thumb());
    EXPECT_EQ(thumb->text(QAccessible::Name), "Playhead");
    project_.setPlayheadGlobal(29.5);
    thumb->actionInterface()->doAction(QAccessibleActionInterface::increaseAction());
    EXPECT_EQ(project_.playheadGlobal(), 30);
    EXPECT_EQ(thumb->text(QAccessible::Value), "00:30.00 of 00:30.00");

    // A reversing badge is an element of its own beside its bar.
    Clip reversing = b();
    reversing.isReversed = true;
    project_.setClips({a_, reversing});
    ASSERT_EQ(row->childCount(), 4);
    QAccessibleInterface* badge = row->child(3);
    EXPECT_EQ(badge->text(QAccessible::Name), "Reversing clip");
    EXPECT_EQ(badge->role(), QAccessible::StaticText);
    EXPECT_FALSE(badge->actionInterface());
    EXPECT_TRUE(row->child(2)->rect().contains(badge->rect()));

    reversing.reversedURL = "/media/b.reversed.mov";
    project_.setClips({a_, reversing});
    EXPECT_EQ(row->childCount(), 3) << "the badge goes once the backward file is made";
}

TEST_F(TimelineTest, ScaledPicturesAreKeptUntilTheZoomChanges) {
    auto frame = std::make_shared<model::ImageData>();
    frame->width = 160;
    frame->height = 90;
    frame->rgba.assign(160 * 90 * 4, 128);
    auto peaks = std::make_shared<std::vector<float>>(1600, 0.5f);
    for (const auto& id : {a_.id, b_.id})
        project_.updateClip(id, [&](Clip& c) {
            c.filmstrip.assign(3, frame);
            c.waveformPeaks = peaks;
        });
    timeline_->grab();
    EXPECT_GT(timeline_->pictureCache().bytes(), 0u);
    project_.setZoom(3);
    EXPECT_EQ(timeline_->pictureCache().bytes(), 0u);
}

}  // namespace
