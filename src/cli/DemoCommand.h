#pragma once

#include "cli/Command.h"

#include <QString>
#include <QStringList>

namespace folivox::cli {

// `folivox demo`: makes a short sample book from generated audio (four
// chapters of tones, each an MP3 with its own title, and a cover) in a
// temporary folder, builds it with `folivox build` into the current
// directory, and prints what it made. [--json] [--quiet] and -o pass through
// to the build.
class DemoCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;

    static constexpr const char* bookTitle = "Folivox Sample Book";
    static constexpr const char* bookAuthor = "The Folivox Team";

    // The chapter titles of the sample book, in order.
    static QStringList chapterTitles();

    // Writes the sample audio and a cover into `folder`; returns the audio
    // files in order. Throws GenericError naming what could not be made.
    static QStringList makeSampleBook(const QString& folder, double secondsPerChapter = 6.0);

    // A name in `folder` for the book that stands on no existing file:
    // "<title>.m4b", else "<title> 2.m4b", ...
    static QString freeOutputPath(const QString& folder);
};

} // namespace folivox::cli
