#pragma once

#include "export/engine/ExportContext.h"
#include "export/decision/ExportDecision.h"

#include <QString>

namespace folivox {

// One way of building a book. run() does the whole build from the context:
// it throws on failure, and on success it calls context.completion itself
// with what it made. It is synchronous: the driver waits on it.
class ExportStrategy {
public:
    virtual ~ExportStrategy() = default;

    virtual ExportDecision::Strategy kind() const = 0;
    virtual void run(ExportContext& context) = 0;

    QString name() const { return enumName(kind()); }
};

} // namespace folivox
