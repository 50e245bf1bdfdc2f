#pragma once

// How a corpus case's expected.json is held against what a program printed.
// Expected JSON is a pattern, not a copy: an object names only the keys that
// matter (others in the output are not looked at), a null names a key that
// must be absent, an array must have exactly the expected elements, and
// numbers match within a tolerance. Every difference is reported with its
// path in the document, so one run lists all of them at once.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace folivox::test {

class CorpusExpectation {
public:
    // Appends one line per difference between expected and actual at path.
    static void compare(
        const QJsonValue& expected, const QJsonValue& actual, const QString& path, double tolerance, QStringList& differences)
    {
        const auto differ = [&](const QString& what) { differences << path + QStringLiteral(": ") + what; };
        if (expected.isNull()) {
            if (!actual.isUndefined())
                differ(QStringLiteral("expected no value, got ") + text(actual));
            return;
        }
        if (actual.isUndefined()) {
            differ(QStringLiteral("missing, expected ") + text(expected));
            return;
        }
        if (expected.isObject()) {
            if (!actual.isObject()) {
                differ(QStringLiteral("expected an object, got ") + text(actual));
                return;
            }
            const QJsonObject e = expected.toObject();
            const QJsonObject a = actual.toObject();
            for (auto it = e.constBegin(); it != e.constEnd(); ++it)
                compare(it.value(), a.value(it.key()), path + u'.' + it.key(), tolerance, differences);
            return;
        }
        if (expected.isArray()) {
            if (!actual.isArray()) {
                differ(QStringLiteral("expected an array, got ") + text(actual));
                return;
            }
            const QJsonArray e = expected.toArray();
            const QJsonArray a = actual.toArray();
            if (e.size() != a.size())
                differ(QStringLiteral("expected %1 elements, got %2: %3").arg(e.size()).arg(a.size()).arg(text(actual)));
            for (qsizetype i = 0; i < std::min(e.size(), a.size()); ++i)
                compare(e.at(i), a.at(i), path + QStringLiteral("[%1]").arg(i), tolerance, differences);
            return;
        }
        if (expected.isDouble()) {
            if (!actual.isDouble() || !(std::abs(actual.toDouble() - expected.toDouble()) <= tolerance))
                differ(QStringLiteral("expected %1, got %2").arg(text(expected), text(actual)));
            return;
        }
        if (expected != actual)
            differ(QStringLiteral("expected %1, got %2").arg(text(expected), text(actual)));
    }

    // A value as it would stand in JSON.
    static QString text(const QJsonValue& value)
    {
        if (value.isUndefined())
            return QStringLiteral("nothing");
        if (value.isObject())
            return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
        if (value.isArray())
            return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
        const QByteArray wrapped = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
        return QString::fromUtf8(wrapped.mid(1, wrapped.size() - 2));
    }
};

} // namespace folivox::test
