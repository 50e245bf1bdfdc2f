#pragma once

#include "export/strategies/BaseExportStrategy.h"
#include "export/strategies/FFmpegAudioEncoder.h"

#include <memory>

namespace folivox {

// M4A and MP3 output: one file per chapter in the output folder, named with
// a zero-padded number and the chapter's title ("03 - The Storm.mp3"). A
// chapter that is one whole source file already in the target format is
// copied as it is (FolderPassthroughRule); every other chapter is encoded.
// Copies and encodes run in parallel, then each file gets the book's tags
// with its track number, and the files are put in the folder. Files of the
// folder that are not this build's are left alone.
class MultiFileExportStrategy : public BaseExportStrategy {
public:
    MultiFileExportStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                            std::shared_ptr<const FFmpegAudioEncoder> encoder);

    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::multiFile; }
    ExportOutcome run(ExportContext& context) override;

    // "NN - Title.ext": the number zero-padded to at least two digits (more
    // for 100 chapters and up), the title made safe for file systems.
    static QString outputFileName(int number, int count, const QString& title, const QString& extension);
    // A title as a file name: path separators, characters that Windows and
    // macOS refuse, and control characters become "_"; leading dots and
    // trailing dots and spaces go; at most 120 characters. Empty becomes
    // "Chapter".
    static QString sanitizedTitle(const QString& title);

private:
    std::shared_ptr<const FFmpegAudioEncoder> encoder_;
};

} // namespace folivox
