#pragma once

#include "core/settings/ExportSettings.h"
#include "export/settings/ExportPreset.h"
#include "export/settings/UserPresetStore.h"
#include "platform/AppSettings.h"

#include <QUuid>
#include <QWidget>

#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace folivox {

class OpenBook;

// What the build makes and where: format, preset (built-in or the user's
// own, saved, renamed and deleted through UserPresetStore), codec, bitrate
// steps with their texts ("Keep original" among them), channels, sample rate,
// splitting, and the destination folder. The choices offered follow the
// book's sources (BitrateOptionsCalculator, SampleRateOptionsService);
// warnings and adjustments are shown under the controls.
class ExportPanel : public QWidget {
    Q_OBJECT
public:
    explicit ExportPanel(OpenBook& book, QWidget* parent = nullptr);

    QString destinationFolder() const;
    void setDestinationFolder(const QString& folder);
    // The file (M4B) or folder (M4A, MP3) the build will write.
    QString outputPath() const;

    // Presets the user saved. Saving under a taken name fails (false).
    bool savePreset(const QString& name);
    UserPresetStore::RenameResult renameSelectedPreset(const QString& name);
    bool deleteSelectedPreset();
    // Picks a built-in preset, or a saved one by id.
    void choosePreset(ExportPreset preset);
    void chooseUserPreset(const QUuid& id);
    UserPresetStore& presetStore() { return presets_; }

    // Whether HE-AAC can be encoded here (learnt from ffmpeg off the main thread).
    void setHeAACAvailable(bool available);

    QComboBox* formatBox() const { return format_; }
    QComboBox* presetBox() const { return preset_; }
    QComboBox* codecBox() const { return codec_; }
    QComboBox* bitrateBox() const { return bitrate_; }
    QComboBox* channelsBox() const { return channels_; }
    QComboBox* sampleRateBox() const { return sampleRate_; }
    QComboBox* splitBox() const { return split_; }
    QLabel* notesLabel() const { return notes_; }
    QLabel* outputLabel() const { return output_; }

Q_SIGNALS:
    void problem(const QString& text);

private:
    void refresh();
    void fillPresets();
    void settingsEdited();
    void askPresetName(bool rename);
    void chooseDestination();

    OpenBook& book_;
    AppSettings appSettings_;
    UserPresetStore presets_;
    std::optional<ExportPreset> builtIn_ = ExportPreset::balanced;
    std::optional<QUuid> userPreset_;
    bool heAAC_ = false;
    bool refreshing_ = false;
    QString adjustment_;

    QComboBox* format_;
    QComboBox* preset_;
    QPushButton* savePreset_;
    QPushButton* renamePreset_;
    QPushButton* deletePreset_;
    QComboBox* codec_;
    QComboBox* bitrate_;
    QComboBox* channels_;
    QComboBox* sampleRate_;
    QComboBox* split_;
    QSpinBox* splitValue_;
    QCheckBox* snap_;
    QLineEdit* destination_;
    QPushButton* chooseDestination_;
    QLabel* output_;
    QLabel* notes_;
};

} // namespace folivox
