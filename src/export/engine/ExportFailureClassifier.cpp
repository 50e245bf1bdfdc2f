#include "export/engine/ExportFailureClassifier.h"

#include "export/engine/ExportError.h"
#include "export/strategies/FFmpegEncoderError.h"

namespace folivox {

ExportFailureClassifier::Kind ExportFailureClassifier::classify(const std::exception_ptr& error,
                                                                const CancellationToken& token)
{
    if (token.isCancelled())
        return Kind::cancelled;
    if (!error)
        return Kind::other;
    try {
        std::rethrow_exception(error);
    } catch (const ExportError& e) {
        switch (e.kind()) {
        case ExportError::Kind::cancelled:
            return Kind::cancelled;
        case ExportError::Kind::outOfSpace:
            return Kind::outOfSpace;
        case ExportError::Kind::corruptedSourceRequiresTranscode:
            return Kind::corruptedSource;
        default:
            return Kind::other;
        }
    } catch (const FFmpegEncoderError& e) {
        return e.kind() == FFmpegEncoderError::Kind::cancelled ? Kind::cancelled : Kind::other;
    } catch (...) {
        return Kind::other;
    }
}

} // namespace folivox
