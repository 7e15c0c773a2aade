#include "app/clipboard_pasteboard.h"

#include <QApplication>
#include <QClipboard>
#include <QImage>
#include <QMimeData>

namespace app {

QString mimeTypeFor(std::string_view pasteboardType) {
    if (pasteboardType == model::PasteboardType::vantrellClips) return kClipsMimeType;
    return QStringLiteral("application/x-vantrell-") +
           QString::fromUtf8(pasteboardType.data(), static_cast<qsizetype>(pasteboardType.size()));
}

common::Status ClipboardPasteboard::setContents(std::string_view type, const model::Bytes& data) {
    auto mime = std::make_unique<QMimeData>();
    mime->setData(mimeTypeFor(type), QByteArray(reinterpret_cast<const char*>(data.data()),
                                                static_cast<qsizetype>(data.size())));
    // The clipboard takes ownership of the mime data.
    QApplication::clipboard()->setMimeData(mime.release());
    return common::success();
}

std::optional<model::Bytes> ClipboardPasteboard::data(std::string_view type) {
    const QMimeData* mime = QApplication::clipboard()->mimeData();
    QString name = mimeTypeFor(type);
    if (!mime || !mime->hasFormat(name)) return std::nullopt;
    QByteArray bytes = mime->data(name);
    return model::Bytes(bytes.begin(), bytes.end());
}

void putImageOnClipboard(const model::Image& image) {
    if (!image || image->width <= 0 || image->height <= 0) return;
    QImage picture(image->rgba.data(), image->width, image->height, image->width * 4,
                   QImage::Format_RGBA8888);
    // copy(): the QImage above only borrows the model's pixels.
    QApplication::clipboard()->setImage(picture.copy());
}

}  // namespace app
