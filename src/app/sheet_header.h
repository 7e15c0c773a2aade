#pragma once

#include <QBoxLayout>
#include <QLabel>
#include <QString>

namespace app {

// The header row of a sheet: an icon, the title in large type and, under it, a caption.
// `caption` may be null when the sheet has none; the label is returned so the sheet can
// update it.
QHBoxLayout* sheetHeader(const QString& icon, const QString& title, const QString& caption,
                         QLabel** captionLabel = nullptr);

}  // namespace app
