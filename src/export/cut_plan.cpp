#include "export/cut_plan.h"

#include <algorithm>
#include <optional>

namespace exporting {

namespace {

// A group of pictures: a keyframe and what follows it in decode order up to the next one.
struct Group {
    std::size_t first = 0;
    std::size_t end = 0;
};

std::vector<Group> groupsOf(const std::vector<CodedFrame>& frames) {
    std::vector<Group> groups;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].keyframe || groups.empty()) groups.push_back({i, i});
        groups.back().end = i + 1;
    }
    return groups;
}

}  // namespace

CutPlan planCut(const std::vector<CodedFrame>& frames, std::int64_t inPts, std::int64_t outPts) {
    CutPlan plan;
    std::optional<std::int64_t> shownFrom;
    std::optional<std::int64_t> firstAfter;
    for (const auto& frame : frames) {
        if (frame.hidden) continue;
        if (frame.pts <= inPts && (!shownFrom || frame.pts > *shownFrom)) shownFrom = frame.pts;
        if (frame.pts > inPts && (!firstAfter || frame.pts < *firstAfter)) firstAfter = frame.pts;
    }
    // A stream that starts inside the range shows nothing before its first frame.
    if (!shownFrom) shownFrom = firstAfter;
    if (!shownFrom) return plan;
    plan.shownFrom = *shownFrom;
    plan.anchor = inPts;
    const std::int64_t limit = outPts;
    const auto wanted = [&](const CodedFrame& f) {
        return !f.hidden && f.pts >= *shownFrom && f.pts < limit;
    };

    const std::vector<Group> groups = groupsOf(frames);
    const auto copyable = [&](const Group& g) {
        const CodedFrame& key = frames[g.first];
        if (!key.keyframe || key.pts < *shownFrom) return false;
        for (std::size_t i = g.first; i < g.end; ++i) {
            const CodedFrame& f = frames[i];
            if (f.hidden || f.pts >= limit) return false;
        }
        return true;
    };
    std::optional<std::size_t> firstCopied;
    std::size_t lastCopied = 0;
    for (std::size_t g = 0; g < groups.size(); ++g) {
        if (!copyable(groups[g])) {
            if (firstCopied) break;
            continue;
        }
        if (!firstCopied) firstCopied = g;
        lastCopied = g;
    }

    std::vector<bool> copied(frames.size(), false);
    CutPiece copy{CutPiece::Kind::copy, {}, 0};
    if (firstCopied) {
        const std::int64_t keyPts = frames[groups[*firstCopied].first].pts;
        for (std::size_t i = groups[*firstCopied].first; i < groups[lastCopied].end; ++i) {
            // The first group's leading pictures need the group before, which is not copied.
            if (frames[i].pts < keyPts) continue;
            copied[i] = true;
            copy.frames.push_back(i);
        }
    }

    // The keyframe a re-encoded frame can be decoded from: its group's, or for a leading
    // picture the group's before.
    std::vector<std::size_t> groupOf(frames.size(), 0);
    for (std::size_t g = 0; g < groups.size(); ++g)
        for (std::size_t i = groups[g].first; i < groups[g].end; ++i) groupOf[i] = g;
    const auto decodeStart = [&](std::size_t i) {
        std::size_t g = groupOf[i];
        if (g > 0 && frames[i].pts < frames[groups[g].first].pts) --g;
        return groups[g].first;
    };

    std::vector<std::size_t> rest;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (!wanted(frames[i])) continue;
        ++plan.shownCount;
        if (!copied[i]) rest.push_back(i);
    }
    plan.reencodedCount = rest.size();
    std::sort(rest.begin(), rest.end(),
              [&](std::size_t a, std::size_t b) { return frames[a].pts < frames[b].pts; });
    const std::optional<std::int64_t> copyStart =
        copy.frames.empty() ? std::nullopt : std::optional{frames[copy.frames.front()].pts};
    CutPiece head{CutPiece::Kind::reencode, {}, frames.size()};
    CutPiece tail{CutPiece::Kind::reencode, {}, frames.size()};
    for (std::size_t i : rest) {
        CutPiece& piece = copyStart && frames[i].pts < *copyStart ? head : tail;
        piece.frames.push_back(i);
        piece.decodeFrom = std::min(piece.decodeFrom, decodeStart(i));
    }
    if (!head.frames.empty()) plan.pieces.push_back(std::move(head));
    if (!copy.frames.empty()) plan.pieces.push_back(std::move(copy));
    if (!tail.frames.empty()) plan.pieces.push_back(std::move(tail));
    return plan;
}

}  // namespace exporting
