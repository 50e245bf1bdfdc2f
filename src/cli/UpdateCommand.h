#pragma once

#include "cli/Command.h"
#include "core/book/BookMetadataPatch.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

namespace folivox::cli {

// `folivox update FILE|FOLDER [tag options] [--chapter-titles FILE]
// [--chapters FILE] [--cover IMAGE | --remove-cover] [--json] [--dry-run]`
// and `folivox update --book ID`: rewrites a finished book's tags, cover and
// chapter titles in place, after backing every file up. A FOLDER holds the
// per-chapter files of one book. The update is refused (exit 1, with the
// reasons) when the chapter times differ from the file's or a file can't be
// written. Ctrl-C rolls every file back from its backup and exits 130.
class UpdateCommand : public Command {
public:
    struct Options {
        std::optional<QString> target;
        std::optional<QString> book;
        std::optional<QString> library;
        BookMetadataPatch tags;
        std::optional<QString> chapterTitles;
        std::optional<QString> chapters;
        std::optional<QString> cover;
        bool removeCover = false;
        bool json = false;
        bool dryRun = false;
        bool quiet = false;
        bool verbose = false;
    };

    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;

    // The options, or the usage error's text. Tag options are read as the
    // build command reads them.
    static std::variant<Options, QString> parse(const QStringList& args);
};

} // namespace folivox::cli
