#pragma once

#include "export/engine/ExportContext.h"
#include "export/decision/ExportDecision.h"

#include <QString>

namespace folivox {

// One way of building a book. run() does the whole build from the context and
// returns what it made; a failure is thrown as a typed error (ExportError,
// FFmpegEncoderError, ...) that ExportFailureClassifier sorts. It is
// synchronous: the driver waits on it.
class ExportStrategy {
public:
    virtual ~ExportStrategy() = default;

    virtual ExportDecision::Strategy kind() const = 0;
    virtual ExportOutcome run(ExportContext& context) = 0;

    QString name() const { return enumName(kind()); }
};

} // namespace folivox
