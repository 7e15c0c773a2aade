#pragma once

#include <QSize>
#include <QString>
#include <functional>

namespace app {

class Application;
class DocumentWindow;

// Waits until the window has settled (every clip hydrated, the media work it started
// done, the first frame painted), then saves the window's picture to `file` as PNG and
// calls `done` with whether that worked.
void screenshotWhenSettled(Application& app, DocumentWindow& window, const QString& file,
                           std::function<void(bool)> done);

// "1280x800" into a size; invalid when the text is not of that form.
QSize parseWindowSize(const QString& text);

}  // namespace app
