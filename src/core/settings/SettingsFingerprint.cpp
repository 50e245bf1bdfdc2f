#include "core/settings/SettingsFingerprint.h"

#include <QCryptographicHash>
#include <QJsonDocument>

namespace folivox {

QString SettingsFingerprint::of(const ExportSettings& settings)
{
    QByteArray text = QByteArrayLiteral("ExportSettings/1\n");
    text += QJsonDocument(settings.toJson()).toJson(QJsonDocument::Compact);
    return QString::fromLatin1(QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex().left(16));
}

} // namespace folivox
