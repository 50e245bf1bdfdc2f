#pragma once

#include "export/strategies/BaseExportStrategy.h"
#include "export/strategies/FFmpegAudioEncoder.h"

#include <memory>

namespace folivox {

// Several AAC sources of one format and nothing to change: the files are
// joined by stream copy (ffmpeg's concat demuxer), each file's frames tiled
// after the previous file's so that nothing overlaps and the chapter marks
// land where each file's audio begins. A source whose structure does not
// hold, or whose join fails on damaged data, raises
// corruptedSourceRequiresTranscode so the driver can encode the book.
class PassthroughConcatStrategy : public BaseExportStrategy {
public:
    PassthroughConcatStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                              std::shared_ptr<const FFmpegAudioEncoder> encoder);

    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::passthroughConcat; }
    ExportOutcome run(ExportContext& context) override;

private:
    std::shared_ptr<const FFmpegAudioEncoder> encoder_;
};

} // namespace folivox
