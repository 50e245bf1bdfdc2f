#include "app/models/TrackTableModel.h"

#include "app/book/OpenBook.h"
#include "app/damage/TrackIntegrity.h"
#include "app/models/TimeText.h"
#include "platform/L10n.h"

#include <QColor>
#include <QFileInfo>
#include <QMimeData>

namespace folivox {

namespace {
const QString kRowMime = QStringLiteral("application/x-folivox-track-row");
}

TrackTableModel::TrackTableModel(OpenBook& book, QObject* parent)
    : QAbstractTableModel(parent)
    , book_(book)
{
    connect(&book_, &OpenBook::tracksChanged, this, [this] {
        beginResetModel();
        endResetModel();
    });
}

void TrackTableModel::setIntegrity(TrackIntegrity* source)
{
    integrity_ = source;
    connect(integrity_, &TrackIntegrity::changed, this, [this] {
        if (rowCount() > 0)
            Q_EMIT dataChanged(index(0, integrity), index(rowCount() - 1, integrity));
    });
}

int TrackTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(book_.tracks().size());
}

int TrackTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

QString TrackTableModel::formatText(const Track& t)
{
    QStringList parts;
    const QString ext = QFileInfo(t.url.toLocalFile()).suffix().toUpper();
    if (t.cachedCodec && !t.cachedCodec->isEmpty())
        parts << (t.cachedCodec->toLower() == u"mp3" ? QStringLiteral("MP3") : t.cachedCodec->toUpper());
    else if (!ext.isEmpty())
        parts << ext;
    if (t.cachedSampleRate)
        parts << QString::number(*t.cachedSampleRate / 1000.0, 'g', 3) + QStringLiteral(" kHz");
    if (t.cachedChannels)
        parts << (*t.cachedChannels == 1 ? L10n::text("app.track.mono", "Mono")
                                         : *t.cachedChannels == 2 ? L10n::text("app.track.stereo", "Stereo")
                                                                  : QString::number(*t.cachedChannels) + QStringLiteral(" ch"));
    if (t.cachedBitrate && *t.cachedBitrate > 0)
        parts << QString::number((*t.cachedBitrate + 500) / 1000) + QStringLiteral(" kbps");
    return parts.join(QStringLiteral(" · "));
}

QVariant TrackTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Track& t = book_.tracks()[static_cast<size_t>(index.row())];
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case number: return index.row() + 1;
        case file: return QFileInfo(t.url.toLocalFile()).fileName();
        case format: return formatText(t);
        case duration: return TimeText::format(t.duration, false);
        case integrity: return integrity_ ? TrackIntegrity::statusText(integrity_->status(t)) : QVariant();
        }
    }
    if (index.column() == integrity && integrity_) {
        const TrackIntegrity::Status status = integrity_->status(t);
        if (role == Qt::ForegroundRole && status == TrackIntegrity::Status::damaged)
            return QColor(190, 40, 40);
        if (role == Qt::ForegroundRole && status == TrackIntegrity::Status::clean)
            return QColor(46, 125, 50);
        if (role == Qt::ToolTipRole && status == TrackIntegrity::Status::damaged) {
            const auto r = integrity_->report(t.id);
            return L10n::format(L10n::text("app.damage.tip", "%d hole(s), %@ s of audio missing: the file plays short"),
                                {QString::number(r ? r->holes.size() : 0),
                                 QString::number(r ? r->missingSeconds() : 0, 'f', 1)});
        }
        if (role == Qt::ToolTipRole && status == TrackIntegrity::Status::unknown)
            return L10n::text("app.damage.unknown.tip", "No run of MP3 frames was found, or the file could not be read");
    }
    if (role == Qt::ToolTipRole && index.column() == file)
        return t.url.toLocalFile();
    if (role == Qt::TextAlignmentRole && (index.column() == duration || index.column() == number))
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QVariant TrackTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case number: return L10n::text("app.tracks.column.number", "#");
    case file: return L10n::text("app.tracks.column.file", "File");
    case format: return L10n::text("app.tracks.column.format", "Format");
    case duration: return L10n::text("app.tracks.column.duration", "Duration");
    case integrity: return L10n::text("app.tracks.column.integrity", "Check");
    }
    return {};
}

Qt::ItemFlags TrackTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsDragEnabled;
}

Qt::DropActions TrackTableModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

QStringList TrackTableModel::mimeTypes() const
{
    return {kRowMime};
}

QMimeData* TrackTableModel::mimeData(const QModelIndexList& indexes) const
{
    if (indexes.isEmpty())
        return nullptr;
    auto* data = new QMimeData;
    data->setData(kRowMime, QByteArray::number(indexes.first().row()));
    return data;
}

bool TrackTableModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int, const QModelIndex&) const
{
    return data && data->hasFormat(kRowMime);
}

bool TrackTableModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int, const QModelIndex& parent)
{
    if (!data || !data->hasFormat(kRowMime) || action != Qt::MoveAction)
        return false;
    const int from = data->data(kRowMime).toInt();
    int to = row >= 0 ? row : parent.isValid() ? parent.row() : rowCount();
    // Dropped below itself: the rows above close up once it is taken out.
    if (to > from)
        --to;
    to = std::clamp(to, 0, rowCount() - 1);
    book_.moveTrack(from, to);
    // The book has moved the row; the view must not remove it again.
    return false;
}

} // namespace folivox
