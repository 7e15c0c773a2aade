#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/session.h"
#include "export/export_planning.h"
#include "media/file_pasteboard.h"
#include "media/project_document.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli edit PROJECT.vantrell [--dry-run] [--pasteboard FILE] [--ops FILE]\n"
    "                         [OP...]\n"
    "\n"
    "Applies the operations in order, as the window's commands do, and saves the project.\n"
    "Each OP is one argument; --ops FILE reads one operation per line (# starts a comment).\n"
    "CLIP is an index into the project's clips or a clip id. Times are in seconds.\n"
    "\n"
    "  select CLIP                 toggle CLIP                cycle CLIP video|audio\n"
    "  select-gap video|audio N    playhead SECONDS           set-in      set-out\n"
    "  split                       trim-in CLIP SECONDS       trim-out CLIP SECONDS\n"
    "  move CLIP SECONDS           delete                     collapse-gap\n"
    "  nudge-playhead FRAMES       nudge-clip FRAMES          link\n"
    "  retime RATE                 reverse                    relink CLIP FILE\n"
    "  crop TOP LEADING TRAILING BOTTOM (fractions)           zoom FACTOR\n"
    "  undo                        redo\n"
    "  copy                        paste\n"
    "\n"
    "copy puts the selected clips on the pasteboard; paste puts them back as new clips with\n"
    "the earliest at the playhead. --pasteboard FILE names the file that stands in for the\n"
    "clipboard, so that clips copied in one project paste into another.\n"
    "\n"
    "Prints the menu's undo text of each step that enters history, then the status line.\n"
    "--dry-run saves nothing. An unknown operation or a bad argument stops before anything\n"
    "is saved.\n";

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

struct UsageError {
    std::string message;
};

std::optional<double> parseNumber(const std::string& text) {
    double v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(v))
        return std::nullopt;
    return v;
}

std::optional<int> parseInteger(const std::string& text) {
    int v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return v;
}

// One parsed operation: its words, checked for shape; clip references are resolved when
// the operation runs, since earlier operations change the clip list.
struct Operation {
    std::string text;
    std::vector<std::string> words;
};

struct Shape {
    const char* name;
    std::vector<const char*> arguments;  // "CLIP", "SECONDS", "FRAMES", "ROW", "N", ...
};

const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"select", {"CLIP"}},
        {"toggle", {"CLIP"}},
        {"cycle", {"CLIP", "ROW"}},
        {"select-gap", {"ROW", "N"}},
        {"playhead", {"SECONDS"}},
        {"set-in", {}},
        {"set-out", {}},
        {"split", {}},
        {"trim-in", {"CLIP", "SECONDS"}},
        {"trim-out", {"CLIP", "SECONDS"}},
        {"move", {"CLIP", "SECONDS"}},
        {"delete", {}},
        {"collapse-gap", {}},
        {"nudge-playhead", {"FRAMES"}},
        {"nudge-clip", {"FRAMES"}},
        {"link", {}},
        {"retime", {"RATE"}},
        {"reverse", {}},
        {"relink", {"CLIP", "FILE"}},
        {"crop", {"FRACTION", "FRACTION", "FRACTION", "FRACTION"}},
        {"zoom", {"FACTOR"}},
        {"undo", {}},
        {"redo", {}},
        {"copy", {}},
        {"paste", {}},
    };
    return all;
}

Operation parseOperation(const std::string& text) {
    Operation op{text, words(text)};
    if (op.words.empty()) throw UsageError{"an empty operation"};
    const Shape* shape = nullptr;
    for (const auto& s : shapes())
        if (op.words[0] == s.name) shape = &s;
    if (!shape) throw UsageError{"unknown operation '" + op.words[0] + "'"};
    if (op.words.size() != shape->arguments.size() + 1) {
        std::string expected = shape->name;
        for (auto a : shape->arguments) expected += std::string(" ") + a;
        throw UsageError{"'" + text + "' should read '" + expected + "'"};
    }
    for (std::size_t i = 0; i < shape->arguments.size(); ++i) {
        std::string kind = shape->arguments[i];
        const std::string& w = op.words[i + 1];
        bool good = true;
        if (kind == "ROW")
            good = w == "video" || w == "audio";
        else if (kind == "FRAMES" || kind == "N")
            good = parseInteger(w).has_value() && (kind != "N" || *parseInteger(w) >= 0);
        else if (kind == "SECONDS" || kind == "RATE" || kind == "FACTOR" || kind == "FRACTION")
            good = parseNumber(w).has_value();
        if (!good) throw UsageError{"'" + w + "' is not a valid " + kind + " in '" + text + "'"};
    }
    return op;
}

common::Uuid resolveClip(const model::Project& p, const std::string& ref) {
    if (auto id = common::Uuid::parse(ref)) {
        if (p.clip(*id)) return *id;
        throw UsageError{"no clip has the id " + ref};
    }
    if (auto index = parseInteger(ref)) {
        if (*index >= 0 && static_cast<std::size_t>(*index) < p.clips().size())
            return p.clips()[static_cast<std::size_t>(*index)].id;
        throw UsageError{"there is no clip " + ref + " (the project has " +
                         std::to_string(p.clips().size()) + ")"};
    }
    throw UsageError{"'" + ref + "' is neither a clip index nor a clip id"};
}

bool usesPasteboard(const Operation& op) {
    return op.words[0] == "copy" || op.words[0] == "paste";
}

// The project says nothing of a failed copy, so the pasteboard is asked instead.
void copySelection(model::Project& p, media::FilePasteboard& pasteboard) {
    auto chosen = std::count_if(p.clips().begin(), p.clips().end(), [&](const model::Clip& c) {
        return p.selectedClipIDs().contains(c.id);
    });
    p.copySelection();
    if (const auto& failure = pasteboard.lastWriteFailure()) {
        std::string message = failure->message;
        if (message.ends_with('.')) message.pop_back();
        throw UsageError{message};
    }
    if (chosen == 0)
        std::cout << "Nothing copied: no clip is selected.\n";
    else
        std::cout << "Copied " << chosen << (chosen == 1 ? " clip" : " clips") << " to "
                  << pasteboard.file().string() << "\n";
}

// Runs one operation against the project as the window's command would.
void apply(model::Project& p, const Operation& op, media::FilePasteboard* pasteboard) {
    const auto& w = op.words;
    const std::string& name = w[0];
    auto number = [&](std::size_t i) { return *parseNumber(w[i]); };
    auto integer = [&](std::size_t i) { return *parseInteger(w[i]); };
    auto isAudio = [&](std::size_t i) { return w[i] == "audio"; };

    if (name == "select") {
        p.setSelectedClipID(resolveClip(p, w[1]));
    } else if (name == "toggle") {
        p.toggleSelection(resolveClip(p, w[1]));
    } else if (name == "cycle") {
        p.cycleSelection(resolveClip(p, w[1]), isAudio(2));
    } else if (name == "select-gap") {
        auto gaps = p.gaps(isAudio(1));
        auto n = static_cast<std::size_t>(integer(2));
        if (n >= gaps.size())
            throw UsageError{"the " + w[1] + " row has " + std::to_string(gaps.size()) +
                             " gaps; there is no gap " + w[2]};
        p.selectGap(gaps[n]);
    } else if (name == "playhead") {
        p.setPlayheadGlobal(std::max(number(1), 0.0));
    } else if (name == "set-in") {
        p.setInAtPlayhead();
    } else if (name == "set-out") {
        p.setOutAtPlayhead();
    } else if (name == "split") {
        p.splitAtPlayhead();
    } else if (name == "trim-in" || name == "trim-out" || name == "move") {
        // A drag: one history entry, live writes, then the commit.
        auto id = resolveClip(p, w[1]);
        p.recordSnapshot(name == "trim-in"    ? "Trim In"
                         : name == "trim-out" ? "Trim Out"
                                              : "Move Clip");
        if (name == "trim-in")
            p.setIn(id, number(2));
        else if (name == "trim-out")
            p.setOut(id, number(2));
        else
            p.moveClip(id, number(2));
        p.commitEdit();
    } else if (name == "delete") {
        p.deleteSelected();
    } else if (name == "collapse-gap") {
        p.collapseSelectedGap();
    } else if (name == "nudge-playhead") {
        p.nudgePlayheadByFrames(integer(1));
    } else if (name == "nudge-clip") {
        p.nudgeSelectedClipByFrames(integer(1));
    } else if (name == "link") {
        if (auto id = p.selectedClipID()) p.toggleLinkAV(*id);
    } else if (name == "retime") {
        p.retimeSelected(number(1));
    } else if (name == "reverse") {
        p.reverseSelected();
    } else if (name == "relink") {
        p.relinkClip(resolveClip(p, w[1]), std::filesystem::absolute(w[2]));
    } else if (name == "crop") {
        p.setCropInsetTop(number(1));
        p.setCropInsetLeading(number(2));
        p.setCropInsetTrailing(number(3));
        p.setCropInsetBottom(number(4));
    } else if (name == "zoom") {
        p.setZoom(number(1));
    } else if (name == "undo") {
        p.undo();
    } else if (name == "redo") {
        p.redo();
    } else if (name == "copy") {
        copySelection(p, *pasteboard);
    } else if (name == "paste") {
        p.pasteAtPlayhead();
    }
}

}  // namespace

int editCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    bool dryRun = false;
    std::optional<std::filesystem::path> file;
    std::optional<std::filesystem::path> pasteboardFile;
    std::vector<Operation> ops;
    try {
        for (std::size_t i = 0; i < args.size(); ++i) {
            const auto& a = args[i];
            if (a == "--dry-run") {
                dryRun = true;
            } else if (a == "--pasteboard") {
                if (++i == args.size()) throw UsageError{"--pasteboard needs a file"};
                pasteboardFile = std::filesystem::absolute(args[i]);
            } else if (a == "--ops") {
                if (++i == args.size()) throw UsageError{"--ops needs a file"};
                std::ifstream in(args[i]);
                if (!in) throw UsageError{"can't read the operations file " + args[i]};
                for (std::string line; std::getline(in, line);) {
                    if (auto hash = line.find('#'); hash != std::string::npos) line.erase(hash);
                    if (!words(line).empty()) ops.push_back(parseOperation(line));
                }
            } else if (!file) {
                file = a;
            } else {
                ops.push_back(parseOperation(a));
            }
        }
        if (!pasteboardFile && std::any_of(ops.begin(), ops.end(), usesPasteboard))
            throw UsageError{"copy and paste need --pasteboard FILE"};
    } catch (const UsageError& e) {
        return fail(e.message + "; nothing was changed.");
    }
    if (!file) {
        std::cerr << kUsage;
        return 2;
    }

    Session session;
    auto context = session.context();
    std::shared_ptr<media::FilePasteboard> pasteboard;
    if (pasteboardFile) {
        pasteboard = std::make_shared<media::FilePasteboard>(*pasteboardFile);
        context.pasteboard = pasteboard;
    }
    auto opened = media::ProjectDocument::open(*file, context);
    if (!opened) return fail(opened.error().message);
    auto& document = **opened;
    auto& project = document.project();
    session.drain();

    int historyNotices = 0;
    auto observer = project.addObserver([&](model::ProjectField f) {
        if (f == model::ProjectField::undoStack) ++historyNotices;
    });
    try {
        for (const auto& op : ops) {
            historyNotices = 0;
            apply(project, op, pasteboard.get());
            session.drain();
            bool stepped = op.words[0] == "undo" || op.words[0] == "redo";
            if (stepped && historyNotices > 0) {
                auto undo = project.undoName();
                auto redo = project.redoName();
                std::cout << (op.words[0] == "undo" ? "Undid " + redo.value_or("")
                                                    : "Redid " + undo.value_or(""))
                          << "\n";
            } else if (historyNotices > 0 && project.undoName()) {
                std::cout << "Undo " << *project.undoName() << "\n";
            } else if (op.words[0] == "paste") {
                std::cout << "Nothing pasted: " << pasteboardFile->string() << " holds no clips.\n";
            }
        }
    } catch (const UsageError& e) {
        return fail(e.message + "; nothing was saved.");
    }
    project.removeObserver(observer);
    std::cout << exporting::statusLine(project) << "\n";

    if (!dryRun)
        if (auto saved = document.save(); !saved) return fail(saved.error().message);
    return 0;
}

}  // namespace cli
