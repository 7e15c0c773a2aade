#include <gtest/gtest.h>

#include "app/menu_bar.h"
#include "app/menu_commands.h"
#include "support/model_test_support.h"

namespace {

using app::Command;
using model_test::clipAt;

// The project states the menus are checked against.
enum class State { none = 1, empty, clips, selected, gap, modal, modalSelected };

std::unique_ptr<model::Project> make(State state) {
    if (state == State::none) return nullptr;
    auto p = std::make_unique<model::Project>();
    if (state != State::empty) {
        auto a = clipAt(0, 4), b = clipAt(6, 4);
        model_test::place(*p, {a, b});
        if (state == State::selected || state == State::modalSelected) p->setSelectedClipID(a.id);
        if (state == State::gap) p->selectGap({false, 4, 6});
        if (state == State::modal || state == State::modalSelected) p->setShowRetimeSheet(true);
    }
    return p;
}

struct Rule {
    Command command;
    std::vector<State> enabledIn;
};

const std::vector<State> kAll = {State::none, State::empty, State::clips,        State::selected,
                                 State::gap,  State::modal, State::modalSelected};

const Rule kRules[] = {
    {Command::importMedia, {State::empty, State::clips, State::selected, State::gap}},
    {Command::exportProject, {State::clips, State::selected, State::gap}},
    {Command::zoomIn, {State::empty, State::clips, State::selected, State::gap}},
    {Command::zoomToFit, {State::empty, State::clips, State::selected, State::gap}},
    {Command::fitWindowToVideo, {State::clips, State::selected, State::gap}},
    {Command::playPause, {State::clips, State::selected, State::gap}},
    {Command::splitAtPlayhead, {State::clips, State::selected, State::gap}},
    {Command::setIn, {State::selected}},
    {Command::setOut, {State::selected}},
    {Command::toggleLink, {State::selected}},
    {Command::reverse, {State::selected}},
    {Command::retime, {State::selected}},
    {Command::deleteSelection, {State::selected, State::gap}},
    {Command::nudgePlayheadBack, {State::empty, State::clips, State::selected, State::gap}},
    {Command::nudgeClipForward10, {State::selected}},
    {Command::cut, {State::selected, State::modalSelected}},
    {Command::copy, {State::selected, State::modalSelected}},
    {Command::paste,
     {State::empty, State::clips, State::selected, State::gap, State::modal, State::modalSelected}},
    {Command::copyCurrentFrame,
     {State::clips, State::selected, State::gap, State::modal, State::modalSelected}},
    {Command::undo, {}},
    {Command::redo, {}},
};

TEST(MenuCommands, EnabledRulesFollowTheProjectState) {
    for (const auto& rule : kRules) {
        for (State state : kAll) {
            bool expected = std::find(rule.enabledIn.begin(), rule.enabledIn.end(), state) !=
                            rule.enabledIn.end();
            EXPECT_EQ(app::commandState(rule.command, make(state).get()).enabled, expected)
                << "command " << static_cast<int>(rule.command) << " in state "
                << static_cast<int>(state);
        }
    }
}

TEST(MenuCommands, TitlesFollowTheProjectState) {
    struct Case {
        State state;
        Command command;
        std::string title;
    };
    const Case cases[] = {
        {State::none, Command::undo, "Undo"},
        {State::none, Command::redo, "Redo"},
        {State::none, Command::toggleLink, "Link Audio"},
        {State::gap, Command::deleteSelection, "Collapse Gap"},
        {State::selected, Command::deleteSelection, "Delete Clip"},
        {State::selected, Command::toggleLink, "Unlink Audio"},
        {State::none, Command::importMedia, "Import Media…"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(app::commandState(c.command, make(c.state).get()).title, c.title);
}

TEST(MenuCommands, EditsAreOneNamedStepEachAndZoomStopsAtItsLimits) {
    auto p = make(State::selected);
    p->setPlayheadGlobal(2);
    app::runProjectCommand(Command::setIn, *p);
    EXPECT_EQ(app::commandState(Command::undo, p.get()).title, "Undo Set In");
    app::runProjectCommand(Command::undo, *p);
    EXPECT_EQ(app::commandState(Command::redo, p.get()).title, "Redo Set In");
    EXPECT_TRUE(app::commandState(Command::redo, p.get()).enabled);
    app::runProjectCommand(Command::cut, *p);
    EXPECT_EQ(p->clips().size(), 1u);
    EXPECT_EQ(p->undoName(), "Cut");
    EXPECT_EQ(p->undoCount(), 1u);
    // Zooming steps up and down, stopping at the limits.
    p->setZoomFactor(10.0);
    app::runProjectCommand(Command::zoomIn, *p);
    EXPECT_DOUBLE_EQ(p->zoomFactor(), 12.0);
    p->setZoomFactor(0.3);
    app::runProjectCommand(Command::zoomOut, *p);
    EXPECT_DOUBLE_EQ(p->zoomFactor(), 0.25);
}

TEST(MenuCommands, AClipWithoutALinkCannotBeLinked) {
    model::Project p;
    auto picture = clipAt(0, 4, true, false);
    model_test::place(p, {picture}, picture.id);
    auto state = app::commandState(Command::toggleLink, &p);
    EXPECT_EQ(state.title, "Link Audio");
    EXPECT_FALSE(state.enabled);
}

TEST(MenuCommands, ShortcutsUseCtrlAndTheLinuxRedo) {
    using K = QKeySequence;
    EXPECT_EQ(app::commandShortcuts(Command::redo),
              (QList<K>{K(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), K(Qt::CTRL | Qt::Key_Y)}));
    EXPECT_EQ(app::commandShortcuts(Command::splitAtPlayhead).value(0), K(Qt::CTRL | Qt::Key_K));
    EXPECT_EQ(app::commandShortcuts(Command::setIn).value(0), K(Qt::Key_I));
    EXPECT_TRUE(app::commandShortcuts(Command::retime).isEmpty());
}

}  // namespace
