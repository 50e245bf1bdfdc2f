#pragma once

#include "build/BuildRequest.h"
#include "cli/BuildOptions.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

namespace folivox::cli {

// Reads the options of `folivox build` into BuildOptions and turns them into
// the build they ask for. `folivox queue add` and `folivox update` read their
// build and tag options through it too, so the three agree on every option.
class BuildOptionParser {
public:
    // The options, or the usage error's text.
    static std::variant<BuildOptions, QString> parse(const QStringList& args);

    // The help text of `folivox build`.
    static QString usage();

    // The preset's settings (`base` without one) with every option given
    // written over them, for the given format.
    static ExportSettings settingsFrom(const BuildOptions& options, OutputFormat format, const ExportSettings& base = {});

    // The build the options ask for. Throws a usage BuildFailure when -o and
    // --format disagree.
    static BuildRequest requestFrom(const BuildOptions& options, const std::optional<ExportSettings>& base = std::nullopt);
};

} // namespace folivox::cli
