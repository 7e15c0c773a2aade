#include "timeline/timeline_accessibility.h"

#include <map>
#include <optional>
#include <variant>
#include <vector>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QPointer>
#include <QWindow>

#include "timeline/clip_bar.h"
#include "timeline/hit_testing.h"
#include "timeline/playhead_slider.h"
#include "timeline/timeline_labels.h"
#include "timeline/track_row.h"

namespace timeline {

namespace {

const QString kSelectAction = QStringLiteral("Select");

// The "Reversing…" badge on the bar of a clip: an element of its own beside the bar, whose
// children a screen reader doesn't see.
struct ReversingBadge {
    common::Uuid clipID;
};

// The bar of `id` if it shows the badge.
ClipBar* badgedBar(TrackRow& row, const common::Uuid& id) {
    ClipBar* bar = row.barFor(id);
    return bar && !bar->values().isMissing &&
                   showsReversingBadge(bar->values().isReversing, bar->values().width)
               ? bar
               : nullptr;
}

// One bar, badge or gap of a row, found again by its clip id or its gap value on every
// question, so that it stays right across edits and turns invalid when it is gone.
class RowElement : public QAccessibleInterface, public QAccessibleActionInterface {
  public:
    using Key = std::variant<common::Uuid, model::GapSelection, ReversingBadge>;
    RowElement(TrackRow* row, Key key) : row_(row), key_(std::move(key)) {}

    bool isValid() const override {
        if (!row_) return false;
        row_->ensureSynced();
        return bar() || gapIndex() || badge();
    }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override {
        return row_ && row_->window() ? row_->window()->windowHandle() : nullptr;
    }
    QAccessibleInterface* focusChild() const override { return nullptr; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QAccessibleInterface* parent() const override {
        return row_ ? QAccessible::queryAccessibleInterface(row_.data()) : nullptr;
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }

    QString text(QAccessible::Text t) const override {
        if (!isValid()) return {};
        if (badge()) return t == QAccessible::Name ? QStringLiteral("Reversing clip") : QString();
        if (ClipBar* b = bar()) {
            if (t == QAccessible::Name) return b->accessibleLabel();
            if (t == QAccessible::Value) return selectedValue(b->values().selected);
            return {};
        }
        auto i = *gapIndex();
        if (t == QAccessible::Name) return gapAccessibilityLabel(row_->gaps()[i]);
        if (t == QAccessible::Value) return selectedValue(row_->selectedGapIndex() == i);
        return {};
    }
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override {
        if (!isValid()) return {};
        QRectF r;
        if (ClipBar* b = badge())
            r = reversingBadgeRect(b->values().width, kBarHeight, row_->font())
                    .translated(b->drawnX(), kBarPadding);
        else if (ClipBar* b = bar())
            r = QRectF(b->drawnX(), kBarPadding, b->values().width, kBarHeight);
        else
            r = row_->gapRect(*gapIndex());
        return QRect(row_->mapToGlobal(r.topLeft().toPoint()), r.size().toSize());
    }
    QAccessible::Role role() const override {
        return std::holds_alternative<ReversingBadge>(key_) ? QAccessible::StaticText
                                                            : QAccessible::Button;
    }
    QAccessible::State state() const override {
        QAccessible::State s;
        if (!isValid()) {
            s.invalid = true;
            return s;
        }
        if (badge()) return s;
        s.selectable = true;
        if (ClipBar* b = bar()) s.selected = b->values().selected;
        if (auto i = gapIndex()) s.selected = row_->selectedGapIndex() == *i;
        return s;
    }
    void* interface_cast(QAccessible::InterfaceType type) override {
        // A badge only tells; it has nothing to do.
        return type == QAccessible::ActionInterface && !std::holds_alternative<ReversingBadge>(key_)
                   ? static_cast<QAccessibleActionInterface*>(this)
                   : nullptr;
    }

    QStringList actionNames() const override { return {kSelectAction}; }
    void doAction(const QString& name) override {
        if (name != kSelectAction || !isValid()) return;
        if (ClipBar* b = bar())
            b->tap();
        else
            row_->tapGap(*gapIndex());
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

  private:
    ClipBar* bar() const {
        if (!row_) return nullptr;
        auto* id = std::get_if<common::Uuid>(&key_);
        return id ? row_->barFor(*id) : nullptr;
    }
    ClipBar* badge() const {
        auto* badge = std::get_if<ReversingBadge>(&key_);
        return row_ && badge ? badgedBar(*row_, badge->clipID) : nullptr;
    }
    std::optional<std::size_t> gapIndex() const {
        auto* gap = std::get_if<model::GapSelection>(&key_);
        if (!row_ || !gap) return std::nullopt;
        const auto& gaps = row_->gaps();
        for (std::size_t i = 0; i < gaps.size(); ++i)
            if (gaps[i] == *gap) return i;
        return std::nullopt;
    }

    QPointer<TrackRow> row_;
    Key key_;
};

// A row: its gaps, then its bars from the bottom up, as they are drawn, then the badges on
// them in the same order.
class RowAccessible : public QAccessibleWidget {
  public:
    explicit RowAccessible(TrackRow* row)
        : QAccessibleWidget(
              row, QAccessible::Grouping,
              row->isAudioRow() ? QStringLiteral("Audio row") : QStringLiteral("Video row")) {}
    ~RowAccessible() override {
        for (const auto& [key, id] : elements_) QAccessible::deleteAccessibleInterface(id);
    }

    int childCount() const override {
        row()->ensureSynced();
        return static_cast<int>(row()->gaps().size() + row()->barsInOrder().size() +
                                badges().size());
    }
    QAccessibleInterface* child(int index) const override {
        row()->ensureSynced();
        const auto& gaps = row()->gaps();
        if (index < 0) return nullptr;
        auto i = static_cast<std::size_t>(index);
        if (i < gaps.size()) return element(gaps[i]);
        auto bars = row()->barsInOrder();
        i -= gaps.size();
        if (i < bars.size()) return element(bars[i]->values().clipID);
        auto badged = badges();
        i -= bars.size();
        return i < badged.size() ? element(ReversingBadge{badged[i]}) : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override {
        for (int i = 0; i < childCount(); ++i)
            if (this->child(i) == child) return i;
        return -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override {
        for (int i = childCount() - 1; i >= 0; --i)
            if (auto* c = child(i); c && c->rect().contains(x, y)) return c;
        return nullptr;
    }

  private:
    TrackRow* row() const { return static_cast<TrackRow*>(widget()); }
    std::vector<common::Uuid> badges() const {
        std::vector<common::Uuid> ids;
        for (ClipBar* bar : row()->barsInOrder())
            if (badgedBar(*row(), bar->values().clipID)) ids.push_back(bar->values().clipID);
        return ids;
    }
    QAccessibleInterface* element(RowElement::Key key) const {
        auto keyText = std::visit(
            [](const auto& k) {
                using K = std::decay_t<decltype(k)>;
                if constexpr (std::is_same_v<K, common::Uuid>)
                    return QString::fromStdString(k.toString());
                else if constexpr (std::is_same_v<K, ReversingBadge>)
                    return QStringLiteral("badge ") + QString::fromStdString(k.clipID.toString());
                else
                    return QStringLiteral("gap %1 %2")
                        .arg(k.startTime, 0, 'g', 17)
                        .arg(k.endTime, 0, 'g', 17);
            },
            key);
        auto it = elements_.find(keyText);
        if (it != elements_.end()) return QAccessible::accessibleInterface(it->second);
        auto* iface = new RowElement(row(), std::move(key));
        elements_[keyText] = QAccessible::registerAccessibleInterface(iface);
        return iface;
    }
    mutable std::map<QString, QAccessible::Id> elements_;
};

// The thumb: "Playhead", its position of the total, one second up or down.
class ThumbAccessible : public QAccessibleWidget {
  public:
    explicit ThumbAccessible(PlayheadThumb* thumb)
        : QAccessibleWidget(thumb, QAccessible::Slider, QStringLiteral("Playhead")) {}
    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Name) return QStringLiteral("Playhead");
        if (t == QAccessible::Value) return thumb()->value();
        return QAccessibleWidget::text(t);
    }
    int childCount() const override { return 0; }
    QAccessibleInterface* child(int) const override { return nullptr; }
    QStringList actionNames() const override { return {increaseAction(), decreaseAction()}; }
    void doAction(const QString& name) override {
        if (name == increaseAction()) thumb()->increment();
        if (name == decreaseAction()) thumb()->decrement();
    }

  private:
    PlayheadThumb* thumb() const { return static_cast<PlayheadThumb*>(widget()); }
};

QAccessibleInterface* timelineFactory(const QString&, QObject* object) {
    if (auto* row = qobject_cast<TrackRow*>(object)) return new RowAccessible(row);
    if (auto* thumb = qobject_cast<PlayheadThumb*>(object)) return new ThumbAccessible(thumb);
    return nullptr;
}

}  // namespace

void installTimelineAccessibility() {
    static const bool installed = [] {
        QAccessible::installFactory(timelineFactory);
        return true;
    }();
    (void)installed;
}

}  // namespace timeline
