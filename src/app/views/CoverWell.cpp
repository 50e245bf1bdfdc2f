#include "app/views/CoverWell.h"

#include "platform/L10n.h"

#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QImage>
#include <QKeyEvent>
#include <QMimeData>
#include <QPixmap>

namespace folivox {

namespace {

QByteArray pngOf(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

CoverWell::CoverWell(QWidget* parent)
    : QLabel(parent)
{
    setAcceptDrops(true);
    setFocusPolicy(Qt::StrongFocus);
    setAlignment(Qt::AlignCenter);
    setFrameShape(QFrame::StyledPanel);
    setMinimumSize(160, 160);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    setWordWrap(true);
    setToolTip(L10n::text("app.cover.tip", "Drop an image here, paste one (Ctrl+V), or choose a file"));
    showImage();
}

void CoverWell::setImage(const QByteArray& bytes)
{
    bytes_ = bytes;
    showImage();
}

void CoverWell::showImage()
{
    QImage image;
    if (!bytes_.isEmpty())
        image = QImage::fromData(bytes_);
    if (image.isNull()) {
        setPixmap(QPixmap());
        setText(L10n::text("app.cover.empty", "No cover\n\nDrop or paste an image"));
        return;
    }
    const QSize target = contentsRect().size() - QSize(8, 8);
    setPixmap(QPixmap::fromImage(image.scaled(target.expandedTo(QSize(32, 32)), Qt::KeepAspectRatio,
                                              Qt::SmoothTransformation)));
}

void CoverWell::resizeEvent(QResizeEvent* event)
{
    QLabel::resizeEvent(event);
    if (!bytes_.isEmpty())
        showImage();
}

QByteArray CoverWell::readImageFile(const QString& path, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = L10n::format(L10n::text("app.cover.unreadable", "Cannot read %@: %@"), {path, file.errorString()});
        return {};
    }
    const QByteArray bytes = file.readAll();
    if (QImage::fromData(bytes).isNull()) {
        error = L10n::format(L10n::text("app.cover.notImage", "%@ is not an image Folivox can read."), {path});
        return {};
    }
    return bytes;
}

bool CoverWell::paste()
{
    const QMimeData* mime = QApplication::clipboard()->mimeData();
    if (!mime)
        return false;
    if (mime->hasImage()) {
        const QImage image = qvariant_cast<QImage>(mime->imageData());
        if (!image.isNull()) {
            Q_EMIT imageGiven(pngOf(image), QUrl());
            return true;
        }
    }
    if (mime->hasUrls() && !mime->urls().isEmpty() && mime->urls().first().isLocalFile()) {
        QString error;
        const QString path = mime->urls().first().toLocalFile();
        const QByteArray bytes = readImageFile(path, error);
        if (bytes.isEmpty()) {
            Q_EMIT problem(error);
            return false;
        }
        Q_EMIT imageGiven(bytes, QUrl::fromLocalFile(path));
        return true;
    }
    return false;
}

void CoverWell::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasImage() || event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void CoverWell::dropEvent(QDropEvent* event)
{
    const QMimeData* mime = event->mimeData();
    if (mime->hasImage()) {
        const QImage image = qvariant_cast<QImage>(mime->imageData());
        if (!image.isNull()) {
            Q_EMIT imageGiven(pngOf(image), QUrl());
            event->acceptProposedAction();
            return;
        }
    }
    for (const QUrl& url : mime->urls()) {
        if (!url.isLocalFile())
            continue;
        QString error;
        const QByteArray bytes = readImageFile(url.toLocalFile(), error);
        if (bytes.isEmpty()) {
            Q_EMIT problem(error);
            continue;
        }
        Q_EMIT imageGiven(bytes, url);
        event->acceptProposedAction();
        return;
    }
}

void CoverWell::keyPressEvent(QKeyEvent* event)
{
    if (event->matches(QKeySequence::Paste)) {
        paste();
        return;
    }
    QLabel::keyPressEvent(event);
}

} // namespace folivox
