#pragma once

#include "core/book/BookStateDTO.h"

#include <QString>

#include <optional>

namespace folivox {

// The open book's working state between runs of the window:
// "LastSession.json" in the application data folder, one BookStateDTO.
// Saved on quit (atomically), read at the next start. A file that cannot be
// read as a book state is set aside under "LastSession.json.damaged-<time>"
// so that a bad file never stops the window from starting, and is kept for
// whoever wants to look at it.
class WorkingStateStore {
public:
    // The default: LastSession.json in AppPaths::appSupportDir().
    WorkingStateStore();
    explicit WorkingStateStore(QString path);

    const QString& path() const { return path_; }

    // Throws Error when the file cannot be written.
    void save(const BookStateDTO& state) const;
    // Removes the saved state (the window was closed with no book open).
    void clear() const;

    struct Loaded {
        std::optional<BookStateDTO> state;
        // Where a damaged file was moved, and why it could not be read.
        QString setAsidePath;
        QString problem;
    };
    // The saved state, nothing when there is none, or a damaged file set aside.
    Loaded load() const;

private:
    QString path_;
};

} // namespace folivox
