#pragma once

#include "platform/Error.h"

#include <QString>

#include <cstdint>

namespace folivox {

// Errors in the "Sidecar" domain: reading and decoding chapter files.
class SidecarError : public Error {
public:
    enum class Kind { fileTooLarge, unsupportedEncoding, readFailed, notFound, folder, notRegularFile, permissionDenied };

    static SidecarError fileTooLarge(const QString& name, std::int64_t size);
    static SidecarError unsupportedEncoding(const QString& name);
    static SidecarError readFailed(const QString& name, const QString& reason);
    // The path names nothing.
    static SidecarError notFound(const QString& name);
    // The path is a folder.
    static SidecarError folder(const QString& name);
    // A pipe, socket or device: never opened, since reading one may never end.
    static SidecarError notRegularFile(const QString& name);
    // The file exists but this user may not read it.
    static SidecarError permissionDenied(const QString& name);

    Kind kind() const { return kind_; }
    const QString& fileName() const { return name_; }
    std::int64_t size() const { return size_; }
    static QString domain() { return QStringLiteral("Sidecar"); }

    QString description() const override;

private:
    SidecarError(Kind kind, QString name, std::int64_t size, QString reason);
    Kind kind_;
    QString name_;
    std::int64_t size_ = 0;
    QString reason_;
};

} // namespace folivox
