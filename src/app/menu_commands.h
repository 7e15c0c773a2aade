#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/project.h"

namespace app {

// Every menu command that works on the focused window's project.
enum class Command {
    importMedia = 1,
    exportProject,
    zoomIn,
    zoomOut,
    zoomToFit,
    fitWindowToVideo,
    playPause,
    splitAtPlayhead,
    setIn,
    setOut,
    toggleLink,
    reverse,
    retime,
    deleteSelection,
    nudgePlayheadBack,
    nudgePlayheadForward,
    nudgePlayheadBack10,
    nudgePlayheadForward10,
    nudgeClipBack,
    nudgeClipForward,
    nudgeClipBack10,
    nudgeClipForward10,
    cut,
    copy,
    paste,
    copyCurrentFrame,
    undo,
    redo,
};

// How a command's menu item looks and whether it runs, for a project or for none (no
// document window has the focus). Icons are freedesktop icon-theme names.
struct CommandState {
    bool enabled = false;
    std::string title;
    std::string icon;
    std::optional<bool> checked;  // only for toggles
    friend bool operator==(const CommandState&, const CommandState&) = default;
};

CommandState commandState(Command command, const model::Project* project);

// The commands in menu order, grouped; each inner list is one run between dividers.
struct CommandMenu {
    std::string title;
    std::vector<std::vector<Command>> groups;
};
const std::vector<CommandMenu>& commandMenus();

// The frame steps of the Navigate menu.
inline constexpr int kFineFrames = 1;
inline constexpr int kCoarseFrames = 10;

// Runs a command that the project carries out by itself; answers false for the ones that
// need the window (a file panel, the window's size, the clipboard's picture). Does
// nothing when the command is disabled.
bool runProjectCommand(Command command, model::Project& project);

}  // namespace app
