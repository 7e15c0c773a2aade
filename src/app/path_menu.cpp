#include "app/path_menu.h"

#include <QStorageInfo>

namespace app {

std::vector<std::filesystem::path> ancestorPaths(const std::filesystem::path& document) {
    std::filesystem::path current = std::filesystem::absolute(document).lexically_normal();
    std::vector<std::filesystem::path> items{current};
    while (current != current.root_path()) {
        auto parent = current.parent_path();
        if (parent == current) break;
        current = parent;
        items.push_back(current);
    }
    return items;
}

QString pathMenuDisplayName(const std::filesystem::path& item) {
    if (item == item.root_path()) {
        QString name = QStorageInfo(QString::fromStdString(item.string())).displayName();
        return name.isEmpty() || name == QStringLiteral("/") ? QStringLiteral("File System") : name;
    }
    auto name = item.filename().string();
    return QString::fromStdString(name.empty() ? item.string() : name);
}

}  // namespace app
