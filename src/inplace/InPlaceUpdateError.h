#pragma once

#include "platform/Error.h"

#include <QString>

#include <cstdint>

namespace folivox {

// Why an in-place update failed. `underlying` carries the text of the
// failure below (backup, metadata, chapters) or of the fallback writer.
class InPlaceUpdateError : public Error {
public:
    enum class Kind {
        backupFailed,
        metadataWriteFailed,
        chaptersWriteFailed,
        exportSessionFailed,
        writeVerificationFailed,
        fileNotFound,
        fileNotWritable,
        unsupportedFormat,
        exportSessionCreationFailed,
        noOutputFileCreated,
    };

    static InPlaceUpdateError backupFailed(const QString& underlying);
    static InPlaceUpdateError metadataWriteFailed(const QString& underlying);
    static InPlaceUpdateError chaptersWriteFailed(const QString& underlying);
    static InPlaceUpdateError exportSessionFailed(const QString& text);
    static InPlaceUpdateError writeVerificationFailed(std::uint64_t expected, std::uint64_t written);
    static InPlaceUpdateError fileNotFound(const QString& file);
    static InPlaceUpdateError fileNotWritable(const QString& file);
    static InPlaceUpdateError unsupportedFormat(const QString& file);
    static InPlaceUpdateError exportSessionCreationFailed();
    static InPlaceUpdateError noOutputFileCreated();

    Kind kind() const { return kind_; }
    const QString& detail() const { return detail_; }
    std::uint64_t expected() const { return expected_; }
    std::uint64_t written() const { return written_; }
    QString description() const override;

private:
    InPlaceUpdateError(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}

    Kind kind_;
    QString detail_;
    std::uint64_t expected_ = 0;
    std::uint64_t written_ = 0;
};

} // namespace folivox
