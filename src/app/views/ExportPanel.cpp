#include "app/views/ExportPanel.h"

#include "app/book/OpenBook.h"
#include "app/views/Ui.h"
#include "build/BuildOutputPlanner.h"
#include "export/settings/BitrateChoice.h"
#include "export/settings/BitrateOptionsCalculator.h"
#include "export/settings/ExportSettingsCapService.h"
#include "export/settings/PresetManager.h"
#include "export/settings/SampleRateOptionsService.h"
#include "platform/L10n.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace folivox {

namespace {

const QString kKeep = QStringLiteral("keep");

template<class E>
void selectData(QComboBox* box, E value)
{
    box->setCurrentIndex(std::max(0, box->findData(static_cast<int>(value))));
}

template<class E>
E dataOf(const QComboBox* box)
{
    return static_cast<E>(box->currentData().toInt());
}

} // namespace

ExportPanel::ExportPanel(OpenBook& book, QWidget* parent)
    : QWidget(parent)
    , book_(book)
    , presets_(appSettings_)
    , format_(Ui::named(new QComboBox(this), "app.export.format.name", "Output format"))
    , preset_(Ui::named(new QComboBox(this), "app.export.preset.name", "Preset"))
    , savePreset_(Ui::named(new QPushButton(L10n::text("app.export.preset.save", "Save…"), this),
                            "app.export.preset.save.name", "Save these settings as a preset"))
    , renamePreset_(Ui::named(new QPushButton(L10n::text("app.export.preset.rename", "Rename…"), this),
                              "app.export.preset.rename.name", "Rename the saved preset"))
    , deletePreset_(Ui::named(new QPushButton(L10n::text("app.export.preset.delete", "Delete"), this),
                              "app.export.preset.delete.name", "Delete the saved preset"))
    , codec_(Ui::named(new QComboBox(this), "app.export.codec.name", "Codec"))
    , bitrate_(Ui::named(new QComboBox(this), "app.export.bitrate.name", "Bitrate"))
    , channels_(Ui::named(new QComboBox(this), "app.export.channels.name", "Channels"))
    , sampleRate_(Ui::named(new QComboBox(this), "app.export.sampleRate.name", "Sample rate"))
    , split_(Ui::named(new QComboBox(this), "app.export.split.name", "Split the book"))
    , splitValue_(Ui::named(new QSpinBox(this), "app.export.splitValue.name", "Length of each part"))
    , snap_(Ui::named(new QCheckBox(L10n::text("app.export.snap", "Split at chapter boundaries"), this),
                      "app.export.snap.name", "Split at chapter boundaries"))
    , destination_(Ui::named(new QLineEdit(this), "app.export.destination.name", "Destination folder"))
    , chooseDestination_(Ui::named(new QPushButton(L10n::text("app.export.destination.choose", "Choose…"), this),
                                   "app.export.destination.choose.name", "Choose the destination folder"))
    , output_(new QLabel(this))
    , notes_(new QLabel(this))
{
    for (OutputFormat f : enumCases<OutputFormat>())
        format_->addItem(label(f), static_cast<int>(f));
    for (ChannelSetting c : enumCases<ChannelSetting>())
        channels_->addItem(label(c), static_cast<int>(c));
    for (SplitMode m : enumCases<SplitMode>())
        split_->addItem(label(m), static_cast<int>(m));
    splitValue_->setRange(1, 100000);

    auto* form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(L10n::text("app.export.format", "Format"), format_);
    auto* presetRow = new QHBoxLayout;
    presetRow->addWidget(preset_, 1);
    presetRow->addWidget(savePreset_);
    presetRow->addWidget(renamePreset_);
    presetRow->addWidget(deletePreset_);
    form->addRow(L10n::text("app.export.preset", "Preset"), presetRow);
    form->addRow(L10n::text("app.export.codec", "Codec"), codec_);
    form->addRow(L10n::text("app.export.bitrate", "Bitrate"), bitrate_);
    form->addRow(L10n::text("app.export.channels", "Channels"), channels_);
    form->addRow(L10n::text("app.export.sampleRate", "Sample rate"), sampleRate_);
    auto* splitRow = new QHBoxLayout;
    splitRow->addWidget(split_, 1);
    splitRow->addWidget(splitValue_);
    form->addRow(L10n::text("app.export.split", "Split"), splitRow);
    form->addRow(QString(), snap_);
    auto* destinationRow = new QHBoxLayout;
    destinationRow->addWidget(destination_, 1);
    destinationRow->addWidget(chooseDestination_);
    form->addRow(L10n::text("app.export.destination", "Destination"), destinationRow);
    output_->setWordWrap(true);
    output_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    Ui::setAccessibleName(output_, "app.export.output.name", "The file the build will write");
    form->addRow(L10n::text("app.export.output", "Writes"), output_);
    notes_->setWordWrap(true);
    notes_->setTextFormat(Qt::MarkdownText);
    Ui::setAccessibleName(notes_, "app.export.notes.name", "Notes on these settings");
    form->addRow(notes_);

    for (QComboBox* box : {format_, codec_, bitrate_, channels_, sampleRate_, split_})
        connect(box, &QComboBox::activated, this, &ExportPanel::settingsEdited);
    connect(splitValue_, &QSpinBox::valueChanged, this, [this] {
        if (!refreshing_)
            settingsEdited();
    });
    connect(snap_, &QCheckBox::toggled, this, [this] {
        if (!refreshing_)
            settingsEdited();
    });
    connect(preset_, &QComboBox::activated, this, [this](int i) {
        const QString key = preset_->itemData(i).toString();
        if (key.startsWith(QStringLiteral("builtin:"))) {
            if (const auto p = enumFromName<ExportPreset>(key.mid(8)))
                choosePreset(*p);
        } else if (key.startsWith(QStringLiteral("user:"))) {
            chooseUserPreset(QUuid::fromString(key.mid(5)));
        }
    });
    connect(savePreset_, &QPushButton::clicked, this, [this] { askPresetName(false); });
    connect(renamePreset_, &QPushButton::clicked, this, [this] { askPresetName(true); });
    connect(deletePreset_, &QPushButton::clicked, this, [this] { deleteSelectedPreset(); });
    connect(destination_, &QLineEdit::textChanged, this, &ExportPanel::refresh);
    connect(chooseDestination_, &QPushButton::clicked, this, &ExportPanel::chooseDestination);
    connect(&book_, &OpenBook::settingsChanged, this, &ExportPanel::refresh);
    connect(&book_, &OpenBook::tracksChanged, this, &ExportPanel::refresh);
    connect(&book_, &OpenBook::metadataChanged, this, &ExportPanel::refresh);
    refresh();
}

QString ExportPanel::destinationFolder() const
{
    return destination_->text().trimmed();
}

void ExportPanel::setDestinationFolder(const QString& folder)
{
    destination_->setText(folder);
}

QString ExportPanel::outputPath() const
{
    QString title = book_.metadata().title.trimmed();
    if (title.isEmpty())
        title = QStringLiteral("Audiobook");
    return BuildOutputPlanner::defaultOutput(title, book_.settings().outputFormat, destinationFolder());
}

void ExportPanel::setHeAACAvailable(bool available)
{
    heAAC_ = available;
    refresh();
}

void ExportPanel::choosePreset(ExportPreset preset)
{
    const PresetManager manager{book_.isEmpty() ? std::nullopt : std::optional(book_.sourceInfo())};
    const PresetManager::PresetApplication applied = manager.apply(preset, book_.settings());
    builtIn_ = preset;
    userPreset_.reset();
    adjustment_ = applied.codecAdjustmentReason.value_or(QString());
    book_.setSettings(SampleRateOptionsService{std::nullopt, std::nullopt, heAAC_}.constrained(applied.settings));
    refresh();
}

void ExportPanel::chooseUserPreset(const QUuid& id)
{
    const auto preset = presets_.preset(id);
    if (!preset)
        return;
    builtIn_.reset();
    userPreset_ = id;
    adjustment_.clear();
    ExportSettings s = preset->settings;
    if (!book_.isEmpty()) {
        const ExportSettingsCapService caps{book_.sourceInfo(), std::nullopt};
        if (const auto warning = caps.capWarning(*preset))
            adjustment_ = warning->presetName + QStringLiteral(": ") + warning->appliedSummary;
        s = caps.capped(s).settings;
    }
    book_.setSettings(SampleRateOptionsService{std::nullopt, std::nullopt, heAAC_}.constrained(s));
    refresh();
}

bool ExportPanel::savePreset(const QString& name)
{
    const auto added = presets_.add(name, book_.settings());
    if (!added) {
        Q_EMIT problem(L10n::format(L10n::text("app.export.preset.nameTaken",
                                               "A preset named “%@” already exists, or the name is empty."),
                                    {name.trimmed()}));
        return false;
    }
    builtIn_.reset();
    userPreset_ = added->id;
    refresh();
    return true;
}

UserPresetStore::RenameResult ExportPanel::renameSelectedPreset(const QString& name)
{
    if (!userPreset_)
        return UserPresetStore::RenameResult::notFound();
    const auto result = presets_.rename(*userPreset_, name);
    if (result.kind == UserPresetStore::RenameResult::Kind::nameTaken)
        Q_EMIT problem(L10n::format(L10n::text("app.export.preset.renameTaken", "A preset named “%@” already exists."),
                                    {result.takenName}));
    refresh();
    return result;
}

bool ExportPanel::deleteSelectedPreset()
{
    if (!userPreset_ || !presets_.remove(*userPreset_))
        return false;
    userPreset_.reset();
    builtIn_ = ExportPreset::custom;
    refresh();
    return true;
}

void ExportPanel::askPresetName(bool rename)
{
    auto* dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(rename ? L10n::text("app.export.preset.renameTitle", "Rename Preset")
                                  : L10n::text("app.export.preset.saveTitle", "Save Preset"));
    dialog->setLabelText(L10n::text("app.export.preset.nameLabel", "Preset name:"));
    if (rename && userPreset_)
        if (const auto p = presets_.preset(*userPreset_))
            dialog->setTextValue(p->name);
    connect(dialog, &QInputDialog::textValueSelected, this, [this, rename](const QString& name) {
        if (rename)
            renameSelectedPreset(name);
        else
            savePreset(name);
    });
    dialog->open();
}

void ExportPanel::chooseDestination()
{
    auto* dialog = new QFileDialog(this, L10n::text("app.export.destination.dialog", "Choose Where Books Go"),
                                   destinationFolder());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    connect(dialog, &QFileDialog::fileSelected, this, &ExportPanel::setDestinationFolder);
    dialog->open();
}

void ExportPanel::settingsEdited()
{
    if (refreshing_)
        return;
    ExportSettings s = book_.settings();
    s.outputFormat = dataOf<OutputFormat>(format_);
    if (codec_->currentIndex() >= 0)
        s.codec = dataOf<AudioCodec>(codec_);
    const QVariant rate = bitrate_->currentData();
    if (rate.toString() == kKeep)
        s = BitrateChoice::keepOriginal().appliedTo(s);
    else if (rate.isValid())
        s = BitrateChoice::kbps(rate.toInt()).appliedTo(s);
    s.channels = dataOf<ChannelSetting>(channels_);
    if (sampleRate_->currentIndex() >= 0)
        s.sampleRate = dataOf<SampleRateOption>(sampleRate_);
    s.splitMode = dataOf<SplitMode>(split_);
    if (s.splitMode == SplitMode::byDuration)
        s.splitHours = splitValue_->value();
    else if (s.splitMode == SplitMode::bySize)
        s.splitSizeMB = splitValue_->value();
    s.snapToChapters = snap_->isChecked();
    adjustment_.clear();
    book_.setSettings(SampleRateOptionsService{std::nullopt, std::nullopt, heAAC_}.constrained(s));
    refresh();
}

void ExportPanel::fillPresets()
{
    const ExportSettings& s = book_.settings();
    preset_->clear();
    int current = -1;
    for (ExportPreset p : enumCases<ExportPreset>()) {
        const bool chosen = builtIn_ == p;
        preset_->addItem(chosen ? presetDisplayName(p, s) : presetName(p), QStringLiteral("builtin:") + enumName(p));
        if (chosen)
            current = preset_->count() - 1;
    }
    const auto saved = presets_.presets();
    if (!saved.empty())
        preset_->insertSeparator(preset_->count());
    for (const UserExportPreset& p : saved) {
        const bool chosen = userPreset_ == p.id;
        preset_->addItem(chosen && p.settings != s ? quickSetupEditedName(p.name) : p.name,
                         QStringLiteral("user:") + p.id.toString(QUuid::WithoutBraces));
        if (chosen)
            current = preset_->count() - 1;
    }
    preset_->setCurrentIndex(std::max(0, current));
    renamePreset_->setEnabled(userPreset_.has_value());
    deletePreset_->setEnabled(userPreset_.has_value());
}

void ExportPanel::refresh()
{
    refreshing_ = true;
    const ExportSettings& s = book_.settings();
    const std::optional<AudiobookSourceInfo> info = book_.isEmpty() ? std::nullopt : std::optional(book_.sourceInfo());
    const SampleRateOptionsService rates{info, std::nullopt, heAAC_};
    const BitrateOptionsCalculator bitrates(info);

    selectData(format_, s.outputFormat);
    fillPresets();

    codec_->clear();
    for (AudioCodec c : rates.availableCodecs(s.outputFormat))
        codec_->addItem(label(c), static_cast<int>(c));
    selectData(codec_, s.codec);
    codec_->setEnabled(s.outputFormat != OutputFormat::mp3);

    bitrate_->clear();
    const BitrateOptionsCalculator::PickerModel model = bitrates.pickerModel(s);
    if (model.offersKeepOriginal())
        bitrate_->addItem(bitrates.choiceLabel(BitrateChoice::keepOriginal(), model), kKeep);
    for (int kbps : model.options)
        bitrate_->addItem(bitrates.choiceLabel(BitrateChoice::kbps(kbps), model), kbps);
    if (s.keepSourceBitrate && model.offersKeepOriginal()) {
        bitrate_->setCurrentIndex(0);
    } else {
        const int wanted = s.cbrBitrateKbps.value_or(128);
        int index = bitrate_->findData(wanted);
        if (index < 0) {
            bitrate_->addItem(bitrates.choiceLabel(BitrateChoice::kbps(wanted), model), wanted);
            index = bitrate_->count() - 1;
        }
        bitrate_->setCurrentIndex(index);
    }

    selectData(channels_, s.channels);
    sampleRate_->clear();
    for (SampleRateOption r : rates.availableOptions(s.codec))
        sampleRate_->addItem(label(r), static_cast<int>(r));
    selectData(sampleRate_, s.sampleRate);

    selectData(split_, s.splitMode);
    splitValue_->setEnabled(s.splitMode != SplitMode::off);
    snap_->setEnabled(s.splitMode != SplitMode::off);
    if (s.splitMode == SplitMode::bySize) {
        splitValue_->setSuffix(L10n::text("app.export.split.mb", " MB"));
        splitValue_->setValue(s.splitSizeMB);
    } else {
        splitValue_->setSuffix(L10n::text("app.export.split.hours", " h"));
        splitValue_->setValue(s.splitHours);
    }
    snap_->setChecked(s.snapToChapters);

    output_->setText(outputPath());

    QStringList notes;
    if (!adjustment_.isEmpty())
        notes << adjustment_;
    if (info) {
        if (const auto low = bitrates.lowBitrateRecommendation(s))
            notes << *low;
        if (const auto limit = bitrates.encoderLimitWarning(s))
            notes << *limit;
        if (const auto heAAC = PresetManager{info}.heAACReencodeWarning(s, heAAC_))
            notes << heAAC->message;
        if (const auto capped = ExportSettingsCapService{info, std::nullopt}.capped(s).bitrateLabel())
            notes << *capped;
        notes << info->makePrimaryLine();
    }
    // Markdown: a single line break inside a paragraph would be lost.
    QString text = notes.join(QStringLiteral("\n\n"));
    text.replace(QStringLiteral("**\n"), QStringLiteral("**  \n"));
    notes_->setText(text);
    refreshing_ = false;
}

} // namespace folivox
