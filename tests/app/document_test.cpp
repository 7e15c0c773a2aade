#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>

#include "app/application.h"
#include "app/content_view.h"
#include "app/crop_sheet.h"
#include "app/document_window.h"
#include "app/empty_state_view.h"
#include "app/export_sheet.h"
#include "app/retime_sheet.h"
#include "media/project_document.h"
#include "support/media_fixtures.h"
#include "support/model_test_support.h"

namespace {

namespace ts = testing_support;

// Panels that answer from the test instead of asking a person; the ones no test reaches are
// left empty, so that reaching one throws.
struct Answers {
    app::SaveAnswer save = app::SaveAnswer::cancel;
    std::optional<std::filesystem::path> destination;
    int asked = 0;
};

app::Panels testPanels(Answers& answers) {
    app::Panels panels;
    panels.chooseProjectDestination = [&answers](QWidget*, const std::filesystem::path&) {
        return answers.destination;
    };
    panels.askToSave = [&answers](QWidget*, const QString&) {
        ++answers.asked;
        return answers.save;
    };
    return panels;
}

// Makes an edit that marks the document modified without touching media.
void edit(app::DocumentWindow& window) {
    window.project().setClips({model_test::clipAt(0, 3)});
    window.project().raiseCompositionToken();
}

class DocumentTest : public ::testing::Test {
  protected:
    Answers answers;
    app::Application application{testPanels(answers)};
};

TEST_F(DocumentTest, ANewWindowIsUntitledUntilAnEditMarksIt) {
    auto* window = application.newDocument();
    EXPECT_EQ(window->displayName(), QStringLiteral("Untitled"));
    EXPECT_FALSE(window->isWindowModified());
    EXPECT_FALSE(window->contentView()->emptyState()->isHidden());
    EXPECT_FALSE(window->contentView()->playButton()->isEnabled());
    EXPECT_FALSE(window->contentView()->exportButton()->isEnabled());
    EXPECT_EQ(application.newDocument()->displayName(), QStringLiteral("Untitled 2"));
    edit(*window);
    EXPECT_TRUE(window->isWindowModified());
    EXPECT_TRUE(window->contentView()->emptyState()->isHidden());
    EXPECT_TRUE(window->contentView()->playButton()->isEnabled());
}

TEST_F(DocumentTest, CloseAsksOnlyAboutEditsAndFollowsTheAnswer) {
    auto dir = ts::freshDir("document-close");
    struct Case {
        bool edited;
        app::SaveAnswer answer;
        bool chosen;  // a destination is chosen when saving
        bool closes, saved;
    };
    const Case cases[] = {{true, app::SaveAnswer::cancel, true, false, false},
                          {true, app::SaveAnswer::dontSave, true, true, false},
                          {true, app::SaveAnswer::save, true, true, true},
                          {true, app::SaveAnswer::save, false, false, false},
                          {false, app::SaveAnswer::save, true, true, false}};
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(++n);
        auto file = dir / ("answer" + std::to_string(n) + ".vantrell");
        answers = {c.answer, c.chosen ? std::optional(file) : std::nullopt, 0};
        QPointer<app::DocumentWindow> window = application.newDocument();
        if (c.edited) edit(*window);
        EXPECT_EQ(window->close(), c.closes);
        EXPECT_EQ(answers.asked, c.edited ? 1 : 0);
        EXPECT_EQ(std::filesystem::exists(file), c.saved);
        EXPECT_TRUE(!window || window->isWindowModified() == (c.edited && !c.saved));
        delete window.data();
    }
}

TEST_F(DocumentTest, SaveAsThenOpenFindsTheSameWindowAndTheRecentFile) {
    auto file = ts::freshDir("document-save") / "cut";
    answers.destination = file;
    auto* window = application.newDocument();
    edit(*window);
    window->project().setZoomFactor(3);
    ASSERT_TRUE(window->saveAs());
    auto saved = file;
    saved += ".vantrell";
    EXPECT_TRUE(std::filesystem::exists(saved));
    EXPECT_FALSE(window->isWindowModified());
    EXPECT_EQ(window->displayName(), QStringLiteral("cut"));
    EXPECT_TRUE(window->windowTitle().startsWith(QStringLiteral("cut")));
    EXPECT_TRUE(application.recentFiles().contains(QString::fromStdString(saved.string())));
    EXPECT_EQ(application.openProject(saved), window);
    delete window;

    auto* reopened = application.openProject(saved);
    ASSERT_NE(reopened, nullptr);
    EXPECT_DOUBLE_EQ(reopened->project().zoomFactor(), 3);
    EXPECT_FALSE(reopened->isWindowModified());
    // The path menu lists the document first.
    EXPECT_EQ(reopened->contentView()->pathMenu()->actions().value(0)->text(),
              QStringLiteral("cut.vantrell"));
    application.executor().drain();
    delete reopened;
}

TEST_F(DocumentTest, MenuItemsAndSheetsFollowTheWindowsProject) {
    auto* window = application.newDocument();
    QAction* exportAction = window->commandAction(app::Command::exportProject);
    ASSERT_NE(exportAction, nullptr);
    EXPECT_FALSE(exportAction->isEnabled());
    EXPECT_EQ(exportAction->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_E));
    edit(*window);
    window->refreshCommands();
    EXPECT_TRUE(exportAction->isEnabled());
    window->runCommand(app::Command::exportProject);
    ASSERT_NE(window->exportSheet(), nullptr);
    EXPECT_EQ(window->exportSheet()->windowModality(), Qt::WindowModal);
    window->exportSheet()->reject();
    EXPECT_FALSE(window->project().exportSheet());
    window->project().setShowCropSheet(true);
    window->refreshCommands();
    EXPECT_FALSE(exportAction->isEnabled());
    ASSERT_NE(window->cropSheet(), nullptr);
    window->cropSheet()->reject();
    EXPECT_FALSE(window->project().showCropSheet());
    window->project().setSelectedClipID(window->project().clips()[0].id);
    window->runCommand(app::Command::retime);
    ASSERT_NE(window->retimeSheet(), nullptr);
    window->project().setShowRetimeSheet(false);
    EXPECT_EQ(window->retimeSheet(), nullptr);
    delete window;
}

TEST_F(DocumentTest, DroppedFilesImportInOneStepAndOpenedOnesMakeAWindowPerProjectAndOneForMedia) {
    auto movie = ts::makeMedia("document.mp4",
                               "-f lavfi -i testsrc2=size=320x240:rate=25 -t 1 -pix_fmt yuv420p");
    auto* window = application.newDocument();
    auto* view = window->contentView();
    QMimeData files;
    auto url = QUrl::fromLocalFile(QString::fromStdString(movie.string()));
    files.setUrls({url, url});
    QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_TRUE(view->isTargetedForDrop());
    QDropEvent drop(QPointF(50, 50), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view, &drop);
    EXPECT_FALSE(view->isTargetedForDrop());
    application.executor().drain();
    EXPECT_EQ(window->project().clips().size(), 2u);
    EXPECT_EQ(window->project().undoCount(), 1u);
    delete window;

    auto dir = ts::freshDir("document-open-files");
    ASSERT_TRUE(media::ProjectDocument(application.context()).save(dir / "A.VANTRELL"));
    auto before = application.windows().size();
    application.openFiles({dir / "A.VANTRELL", movie, movie});
    auto windows = application.windows();
    ASSERT_EQ(windows.size(), before + 2);
    application.executor().drain();
    std::size_t imported = 0;
    for (auto* opened : windows) imported += opened->project().clips().size();
    EXPECT_EQ(imported, 2u);
    for (auto* opened : windows) delete opened;
}

}  // namespace
