#pragma once

#include "core/settings/ExportSettings.h"

#include <QString>

namespace folivox {

// A short text that names one set of export settings: 16 lower-case hex
// digits, the start of the SHA-256 of the settings' compact JSON (whose keys
// Qt writes in sorted order, enumerations by case name) behind a version
// line. The same settings give the same fingerprint in every run and on
// every machine, and any change of a field gives another, so a library can
// tell whether a book's settings changed since its last build.
class SettingsFingerprint {
public:
    static QString of(const ExportSettings& settings);
};

} // namespace folivox
