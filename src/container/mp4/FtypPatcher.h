#pragma once

#include "platform/Error.h"

#include <QString>

#include <cstdint>

namespace folivox {

class FtypPatcherError : public Error {
public:
    enum class Kind { invalidFtypSize, fileTooSmall, noFtypAtom };
    explicit FtypPatcherError(Kind kind, std::uint32_t size = 0) : kind_(kind), size_(size) {}
    Kind kind() const { return kind_; }
    std::uint32_t size() const { return size_; }
    QString description() const override;

private:
    Kind kind_;
    std::uint32_t size_;
};

// Marks a file as an audiobook: the `ftyp` major brand becomes "M4B ", and
// each compatible brand "M4A " becomes "M4B ". Edits in place; a file whose
// major brand is already "M4B " is left alone.
class FtypPatcher {
public:
    static constexpr std::uint32_t minFtypSize = 16;
    static constexpr std::uint32_t maxFtypSize = 4096;

    // Returns true when something was written. Throws FtypPatcherError or MP4FileError.
    static bool patch(const QString& path);
};

} // namespace folivox
