#include "app/menu_commands.h"

#include "export/export_planning.h"

namespace app {

namespace {

CommandState make(bool enabled, std::string title, std::string icon) {
    return {enabled, std::move(title), std::move(icon), std::nullopt};
}

std::string linkTitle(model::ClipLinkState state) {
    switch (state) {
        case model::ClipLinkState::linked:
            return "Unlink Audio";
        case model::ClipLinkState::unlinked:
            return "Re-link Audio";
        case model::ClipLinkState::none:
            break;
    }
    return "Link Audio";
}

}  // namespace

CommandState commandState(Command command, const model::Project* p) {
    const bool open = p != nullptr;
    const bool modal = open && p->isPresentingSheet();
    const bool free = open && !modal;
    const bool hasClips = open && !p->clips().empty();
    const bool selected = open && p->selectedClipID().has_value();
    switch (command) {
        case Command::importMedia:
            return make(free, "Import Media…", "document-import");
        case Command::exportProject:
            return make(free && hasClips, "Export…", "document-export");
        case Command::zoomIn:
            return make(free, "Zoom In", "zoom-in");
        case Command::zoomOut:
            return make(free, "Zoom Out", "zoom-out");
        case Command::zoomToFit:
            return make(free, "Zoom to Fit", "zoom-fit-best");
        case Command::fitWindowToVideo:
            return make(free && p->videoNaturalSize().has_value(), "Fit Window to Video",
                        "view-fullscreen");
        case Command::playPause:
            return make(free && hasClips, "Play / Pause",
                        open && p->isPlaying() ? "media-playback-pause" : "media-playback-start");
        case Command::splitAtPlayhead:
            return make(free && hasClips, "Split at Playhead", "edit-cut");
        case Command::setIn:
            return make(selected && !modal, "Set In", "go-first");
        case Command::setOut:
            return make(selected && !modal, "Set Out", "go-last");
        case Command::toggleLink: {
            auto state = selected ? p->linkState(*p->selectedClipID()) : model::ClipLinkState::none;
            return make(state != model::ClipLinkState::none && !modal, linkTitle(state),
                        state == model::ClipLinkState::linked ? "list-remove" : "insert-link");
        }
        case Command::reverse: {
            auto state = make(selected && !modal, "Reverse", "object-flip-horizontal");
            state.checked = open && p->allSelectedReversed();
            return state;
        }
        case Command::retime:
            return make(selected && !modal, "Retime…", "preferences-system-time");
        case Command::deleteSelection: {
            bool gap = open && p->selectedGap().has_value();
            return make((selected || gap) && !modal, gap ? "Collapse Gap" : "Delete Clip",
                        gap ? "format-justify-fill" : "edit-delete");
        }
        case Command::nudgePlayheadBack:
            return make(free, "Nudge Playhead Back 1 Frame", "go-previous");
        case Command::nudgePlayheadForward:
            return make(free, "Nudge Playhead Forward 1 Frame", "go-next");
        case Command::nudgePlayheadBack10:
            return make(free, "Nudge Playhead Back 10 Frames", "media-seek-backward");
        case Command::nudgePlayheadForward10:
            return make(free, "Nudge Playhead Forward 10 Frames", "media-seek-forward");
        case Command::nudgeClipBack:
            return make(selected && !modal, "Nudge Clip Back 1 Frame", "go-previous");
        case Command::nudgeClipForward:
            return make(selected && !modal, "Nudge Clip Forward 1 Frame", "go-next");
        case Command::nudgeClipBack10:
            return make(selected && !modal, "Nudge Clip Back 10 Frames", "go-first");
        case Command::nudgeClipForward10:
            return make(selected && !modal, "Nudge Clip Forward 10 Frames", "go-last");
        case Command::cut:
            return make(selected, "Cut", "edit-cut");
        case Command::copy:
            return make(selected, "Copy", "edit-copy");
        case Command::paste:
            return make(open, "Paste", "edit-paste");
        case Command::copyCurrentFrame:
            return make(open && p->videoAtPlayhead(), "Copy Current Frame", "image-x-generic");
        case Command::undo: {
            auto name = open ? p->undoName() : std::nullopt;
            return make(name.has_value(), name ? "Undo " + *name : "Undo", "edit-undo");
        }
        case Command::redo: {
            auto name = open ? p->redoName() : std::nullopt;
            return make(name.has_value(), name ? "Redo " + *name : "Redo", "edit-redo");
        }
    }
    return {};
}

const std::vector<CommandMenu>& commandMenus() {
    static const std::vector<CommandMenu> menus = {
        {"File", {{Command::importMedia, Command::exportProject}}},
        {"Edit",
         {{Command::undo, Command::redo},
          {Command::cut, Command::copy, Command::paste},
          {Command::copyCurrentFrame}}},
        {"View",
         {{Command::zoomIn, Command::zoomOut, Command::zoomToFit}, {Command::fitWindowToVideo}}},
        {"Clip",
         {{Command::playPause},
          {Command::splitAtPlayhead, Command::setIn, Command::setOut},
          {Command::toggleLink},
          {Command::reverse, Command::retime},
          {Command::deleteSelection}}},
        {"Navigate",
         {{Command::nudgePlayheadBack, Command::nudgePlayheadForward, Command::nudgePlayheadBack10,
           Command::nudgePlayheadForward10},
          {Command::nudgeClipBack, Command::nudgeClipForward, Command::nudgeClipBack10,
           Command::nudgeClipForward10}}},
    };
    return menus;
}

bool runProjectCommand(Command command, model::Project& p) {
    if (!commandState(command, &p).enabled) return true;
    switch (command) {
        case Command::exportProject:
            exporting::beginExport(p);
            return true;
        case Command::zoomIn:
            p.setZoom(p.zoomFactor() * 1.4);
            return true;
        case Command::zoomOut:
            p.setZoom(p.zoomFactor() / 1.4);
            return true;
        case Command::zoomToFit:
            p.setZoom(1.0);
            return true;
        case Command::playPause:
            p.togglePlayback();
            return true;
        case Command::splitAtPlayhead:
            p.splitAtPlayhead();
            return true;
        case Command::setIn:
            p.setInAtPlayhead();
            return true;
        case Command::setOut:
            p.setOutAtPlayhead();
            return true;
        case Command::toggleLink:
            if (auto id = p.selectedClipID()) p.toggleLinkAV(*id);
            return true;
        case Command::reverse:
            p.reverseSelected();
            return true;
        case Command::retime:
            p.setShowRetimeSheet(true);
            return true;
        case Command::deleteSelection:
            p.deleteSelected();
            return true;
        case Command::nudgePlayheadBack:
            p.nudgePlayheadByFrames(-kFineFrames);
            return true;
        case Command::nudgePlayheadForward:
            p.nudgePlayheadByFrames(kFineFrames);
            return true;
        case Command::nudgePlayheadBack10:
            p.nudgePlayheadByFrames(-kCoarseFrames);
            return true;
        case Command::nudgePlayheadForward10:
            p.nudgePlayheadByFrames(kCoarseFrames);
            return true;
        case Command::nudgeClipBack:
            p.nudgeSelectedClipByFrames(-kFineFrames);
            return true;
        case Command::nudgeClipForward:
            p.nudgeSelectedClipByFrames(kFineFrames);
            return true;
        case Command::nudgeClipBack10:
            p.nudgeSelectedClipByFrames(-kCoarseFrames);
            return true;
        case Command::nudgeClipForward10:
            p.nudgeSelectedClipByFrames(kCoarseFrames);
            return true;
        case Command::cut:
            if (p.selectedClipIDs().empty()) return true;
            p.copySelection();
            p.recordSnapshot("Cut");
            p.deleteSelected(std::nullopt);
            return true;
        case Command::copy:
            p.copySelection();
            return true;
        case Command::paste:
            p.pasteAtPlayhead();
            return true;
        case Command::undo:
            p.undo();
            return true;
        case Command::redo:
            p.redo();
            return true;
        case Command::importMedia:
        case Command::fitWindowToVideo:
        case Command::copyCurrentFrame:
            return false;
    }
    return false;
}

}  // namespace app
