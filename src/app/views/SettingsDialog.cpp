#include "app/views/SettingsDialog.h"

#include "app/views/Ui.h"
#include "platform/L10n.h"
#include "queue/records/OrganizationContext.h"
#include "queue/records/OutputOrganization.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QThread>
#include <QVBoxLayout>

namespace folivox {

SettingsDialog::SettingsDialog(const AppPreferences& preferences, QWidget* parent)
    : QDialog(parent)
    , outputFolder_(Ui::named(new QLineEdit(preferences.defaultOutputFolder, this), "app.settings.output.name",
                              "Default output folder"))
    , preset_(Ui::named(new QComboBox(this), "app.settings.preset.name", "Preset for new books"))
    , jobs_(Ui::named(new QSpinBox(this), "app.settings.jobs.name", "Parallel jobs"))
    , toolsFolder_(Ui::named(new QLineEdit(preferences.toolsFolder, this), "app.settings.tools.name", "Tools folder"))
    , queueTemplate_(Ui::named(new QLineEdit(preferences.queueFolderTemplate, this), "app.settings.queueTemplate.name",
                               "Folders for queued books"))
    , templateExample_(new QLabel(this))
{
    setWindowTitle(L10n::text("app.settings.title", "Settings"));
    for (ExportPreset p : enumCases<ExportPreset>())
        preset_->addItem(presetName(p), static_cast<int>(p));
    preset_->setCurrentIndex(std::max(0, preset_->findData(static_cast<int>(preferences.defaultPreset))));
    jobs_->setRange(0, 64);
    jobs_->setSpecialValueText(L10n::text("app.settings.jobs.auto", "Automatic"));
    jobs_->setValue(preferences.parallelJobs.value_or(0));
    jobs_->setToolTip(L10n::format(L10n::text("app.settings.jobs.tip", "How many encodes run at once; this machine has %d cores"),
                                   {QString::number(QThread::idealThreadCount())}));
    toolsFolder_->setPlaceholderText(L10n::text("app.settings.tools.placeholder", "The installed tools"));

    auto* chooseOutput = Ui::named(new QPushButton(L10n::text("app.settings.choose", "Choose…"), this),
                                   "app.settings.output.choose", "Choose the default output folder");
    auto* chooseTools = Ui::named(new QPushButton(L10n::text("app.settings.choose", "Choose…"), this),
                                  "app.settings.tools.choose", "Choose the tools folder");
    auto* outputRow = new QHBoxLayout;
    outputRow->addWidget(outputFolder_, 1);
    outputRow->addWidget(chooseOutput);
    auto* toolsRow = new QHBoxLayout;
    toolsRow->addWidget(toolsFolder_, 1);
    toolsRow->addWidget(chooseTools);

    auto* form = new QFormLayout;
    form->addRow(L10n::text("app.settings.output", "Default output folder"), outputRow);
    form->addRow(L10n::text("app.settings.preset", "Preset for new books"), preset_);
    form->addRow(L10n::text("app.settings.jobs", "Parallel jobs"), jobs_);
    form->addRow(L10n::text("app.settings.tools", "Tools folder (mp4tags, mp4art, mp4chaps)"), toolsRow);
    queueTemplate_->setPlaceholderText(L10n::text("app.settings.queueTemplate.placeholder", "Books straight into the output folder"));
    queueTemplate_->setToolTip(L10n::format(L10n::text("app.settings.queueTemplate.tip",
                                                       "Folders inside the output folder for each book the queue builds, "
                                                       "from its tags: %@. A folder whose tags are empty is left out."),
                                            {QStringLiteral("{") + OutputOrganization::placeholderNames().join(QStringLiteral("}, {"))
                                             + QStringLiteral("}")}));
    templateExample_->setWordWrap(true);
    templateExample_->setForegroundRole(QPalette::PlaceholderText);
    form->addRow(L10n::text("app.settings.queueTemplate", "Queue: folders for each book"), queueTemplate_);
    form->addRow(QString(), templateExample_);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    ok_ = buttons->button(QDialogButtonBox::Ok);
    const auto checkTemplate = [this] {
        const OutputOrganization organization{queueTemplate_->text().trimmed()};
        const QStringList unknown = organization.unknownPlaceholders();
        if (!unknown.isEmpty()) {
            templateExample_->setText(L10n::format(L10n::text("app.settings.queueTemplate.unknown",
                                                              "Unknown: {%@}. Use %@."),
                                                   {unknown.join(QStringLiteral("}, {")),
                                                    QStringLiteral("{") + OutputOrganization::placeholderNames().join(QStringLiteral("}, {"))
                                                        + QStringLiteral("}")}));
            ok_->setEnabled(false);
            return;
        }
        OrganizationContext example;
        example.title = QStringLiteral("A Wizard of Earthsea");
        example.author = QStringLiteral("Ursula K. Le Guin");
        example.series = QStringLiteral("Earthsea");
        example.seriesIndex = QStringLiteral("1");
        example.year = QStringLiteral("1968");
        const QString folders = organization.folderFor(example);
        templateExample_->setText(L10n::format(L10n::text("app.settings.queueTemplate.example", "For example: %@"),
                                               {(folders.isEmpty() ? QString() : folders + u'/') + example.title + QStringLiteral(".m4b")}));
        ok_->setEnabled(true);
    };
    connect(queueTemplate_, &QLineEdit::textChanged, this, checkTemplate);
    buttons->button(QDialogButtonBox::Ok)->setAccessibleName(L10n::text("app.settings.ok.name", "Save the settings"));
    buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(L10n::text("app.settings.cancel.name", "Discard changes"));
    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        Q_EMIT preferencesChosen(this->preferences());
        accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(chooseOutput, &QPushButton::clicked, this, [this] {
        chooseFolder(outputFolder_, L10n::text("app.settings.output.dialog", "Default Output Folder"));
    });
    connect(chooseTools, &QPushButton::clicked, this, [this] {
        chooseFolder(toolsFolder_, L10n::text("app.settings.tools.dialog", "Tools Folder"));
    });

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    checkTemplate();
    resize(620, sizeHint().height());
}

AppPreferences SettingsDialog::preferences() const
{
    AppPreferences p;
    p.defaultOutputFolder = outputFolder_->text().trimmed();
    if (p.defaultOutputFolder.isEmpty())
        p.defaultOutputFolder = AppPreferences::fallbackOutputFolder();
    p.defaultPreset = static_cast<ExportPreset>(preset_->currentData().toInt());
    if (jobs_->value() > 0)
        p.parallelJobs = jobs_->value();
    p.toolsFolder = toolsFolder_->text().trimmed();
    p.queueFolderTemplate = queueTemplate_->text().trimmed();
    return p;
}

void SettingsDialog::chooseFolder(QLineEdit* edit, const QString& title)
{
    auto* dialog = new QFileDialog(this, title, edit->text());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    connect(dialog, &QFileDialog::fileSelected, edit, &QLineEdit::setText);
    dialog->open();
}

} // namespace folivox
