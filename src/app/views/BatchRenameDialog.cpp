#include "app/views/BatchRenameDialog.h"

#include "app/views/Ui.h"
#include "chapters/BatchRenameService.h"
#include "platform/L10n.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

namespace folivox {

namespace {

struct SwitchSpec {
    const char* field;
    const char* key;
    const char* text;
};

const SwitchSpec kSwitches[] = {
    {"removeRepeatedBeginning", "app.rename.removeRepeatedBeginning", "Remove the beginning all titles share"},
    {"removeRepeatedEnd", "app.rename.removeRepeatedEnd", "Remove the end all titles share"},
    {"removeNumericPrefix", "app.rename.removeNumericPrefix", "Remove leading numbers (“Track 03 - ”)"},
    {"removeTrailingNumbers", "app.rename.removeTrailingNumbers", "Remove trailing numbers"},
    {"removeBracketContents", "app.rename.removeBracketContents", "Remove text in brackets"},
    {"removeAllBrackets", "app.rename.removeAllBrackets", "Remove bracket characters"},
    {"removeCommonPrefixes", "app.rename.removeCommonPrefixes", "Remove “Chapter 5:”, “Part II -”"},
    {"removeFileExtensions", "app.rename.removeFileExtensions", "Remove file extensions"},
    {"removeDuplicateWords", "app.rename.removeDuplicateWords", "Remove repeated words"},
    {"normalizeWhitespace", "app.rename.normalizeWhitespace", "Tidy spaces"},
    {"normalizeDelimiters", "app.rename.normalizeDelimiters", "Tidy dashes and separators"},
    {"trimWhitespace", "app.rename.trimWhitespace", "Trim spaces at the ends"},
    {"findReplaceEnabled", "app.rename.findReplace", "Find and replace"},
    {"addNumbering", "app.rename.addNumbering", "Add numbers"},
    {"changeCaseEnabled", "app.rename.changeCase", "Change case"},
};

} // namespace

BatchRenameDialog::BatchRenameDialog(const QStringList& titles, QWidget* parent)
    : QDialog(parent)
    , titles_(titles)
    , find_(Ui::named(new QLineEdit(this), "app.rename.find.name", "Find"))
    , replace_(Ui::named(new QLineEdit(this), "app.rename.replace.name", "Replace with"))
    , regex_(Ui::named(new QCheckBox(L10n::text("app.rename.regex", "Regular expression"), this), "app.rename.regex.name",
                       "Find with a regular expression"))
    , matchCase_(Ui::named(new QCheckBox(L10n::text("app.rename.matchCase", "Match case"), this),
                           "app.rename.matchCase.name", "Match case"))
    , prefix_(Ui::named(new QLineEdit(this), "app.rename.prefix.name", "Number prefix"))
    , start_(Ui::named(new QSpinBox(this), "app.rename.start.name", "First number"))
    , numberFormat_(Ui::named(new QComboBox(this), "app.rename.format.name", "Number format"))
    , separator_(Ui::named(new QLineEdit(QStringLiteral(". "), this), "app.rename.separator.name", "Number separator"))
    , case_(Ui::named(new QComboBox(this), "app.rename.case.name", "Case"))
    , table_(Ui::named(new QTableWidget(this), "app.rename.preview.name", "Preview of the new titles"))
    , error_(new QLabel(this))
{
    setWindowTitle(L10n::text("app.rename.title", "Batch Rename Chapters"));
    resize(860, 600);

    auto* switches = new QGroupBox(L10n::text("app.rename.steps", "Steps"), this);
    auto* grid = new QGridLayout(switches);
    int i = 0;
    for (const SwitchSpec& spec : kSwitches) {
        auto* box = new QCheckBox(L10n::text(spec.key, spec.text), switches);
        box->setAccessibleName(box->text());
        box->setObjectName(QString::fromLatin1(spec.field));
        switches_.emplace_back(QString::fromLatin1(spec.field), box);
        grid->addWidget(box, i % 8, i / 8);
        connect(box, &QCheckBox::toggled, this, &BatchRenameDialog::update);
        ++i;
    }

    auto* details = new QFormLayout;
    auto* findRow = new QHBoxLayout;
    findRow->addWidget(find_, 1);
    findRow->addWidget(regex_);
    findRow->addWidget(matchCase_);
    details->addRow(L10n::text("app.rename.find", "Find"), findRow);
    details->addRow(L10n::text("app.rename.replace", "Replace with"), replace_);
    start_->setRange(0, 9999);
    start_->setValue(1);
    for (NumberingFormat f : {NumberingFormat::digits, NumberingFormat::twoDigits, NumberingFormat::threeDigits})
        numberFormat_->addItem(numberingFormatRawValue(f), static_cast<int>(f));
    auto* numberRow = new QHBoxLayout;
    numberRow->addWidget(new QLabel(L10n::text("app.rename.prefix", "Prefix"), this));
    numberRow->addWidget(prefix_);
    numberRow->addWidget(new QLabel(L10n::text("app.rename.start", "From"), this));
    numberRow->addWidget(start_);
    numberRow->addWidget(numberFormat_);
    numberRow->addWidget(new QLabel(L10n::text("app.rename.separator", "Then"), this));
    numberRow->addWidget(separator_);
    details->addRow(L10n::text("app.rename.numbers", "Numbers"), numberRow);
    for (CapitalizationStyle s : {CapitalizationStyle::unchanged, CapitalizationStyle::titleCase,
                                  CapitalizationStyle::sentenceCase, CapitalizationStyle::lowercase,
                                  CapitalizationStyle::uppercase})
        case_->addItem(capitalizationStyleLabel(s), static_cast<int>(s));
    details->addRow(L10n::text("app.rename.case", "Case"), case_);

    table_->setColumnCount(2);
    table_->setHorizontalHeaderLabels(
        {L10n::text("app.rename.before", "Now"), L10n::text("app.rename.after", "After renaming")});
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table_->verticalHeader()->hide();
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    error_->setWordWrap(true);
    error_->setStyleSheet(QStringLiteral("color: #b00020"));
    Ui::setAccessibleName(error_, "app.rename.error.name", "Problem with the find pattern");

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    auto* apply = buttons->addButton(L10n::text("app.rename.apply", "Rename"), QDialogButtonBox::AcceptRole);
    apply->setAccessibleName(L10n::text("app.rename.apply.name", "Rename the chapters"));
    buttons->button(QDialogButtonBox::Cancel)->setAccessibleName(L10n::text("app.rename.cancel.name", "Cancel renaming"));
    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        Q_EMIT titlesChosen(preview_);
        accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(switches);
    layout->addLayout(details);
    layout->addWidget(error_);
    layout->addWidget(table_, 1);
    layout->addWidget(buttons);

    for (QLineEdit* e : {find_, replace_, prefix_, separator_})
        connect(e, &QLineEdit::textChanged, this, &BatchRenameDialog::update);
    connect(regex_, &QCheckBox::toggled, this, &BatchRenameDialog::update);
    connect(matchCase_, &QCheckBox::toggled, this, &BatchRenameDialog::update);
    connect(start_, &QSpinBox::valueChanged, this, &BatchRenameDialog::update);
    connect(numberFormat_, &QComboBox::currentIndexChanged, this, &BatchRenameDialog::update);
    connect(case_, &QComboBox::currentIndexChanged, this, &BatchRenameDialog::update);
    update();
}

QCheckBox* BatchRenameDialog::option(const QString& field) const
{
    for (const auto& [name, box] : switches_)
        if (name == field)
            return box;
    return nullptr;
}

BatchRenameOptions BatchRenameDialog::options() const
{
    BatchRenameOptions o;
    const auto on = [this](const char* field) { return option(QString::fromLatin1(field))->isChecked(); };
    o.removeRepeatedBeginning = on("removeRepeatedBeginning");
    o.removeRepeatedEnd = on("removeRepeatedEnd");
    o.removeNumericPrefix = on("removeNumericPrefix");
    o.removeTrailingNumbers = on("removeTrailingNumbers");
    o.removeBracketContents = on("removeBracketContents");
    o.removeAllBrackets = on("removeAllBrackets");
    o.removeCommonPrefixes = on("removeCommonPrefixes");
    o.removeFileExtensions = on("removeFileExtensions");
    o.removeDuplicateWords = on("removeDuplicateWords");
    o.findReplaceEnabled = on("findReplaceEnabled");
    o.findText = find_->text();
    o.replaceText = replace_->text();
    o.addNumbering = on("addNumbering");
    o.numberingPrefix = prefix_->text();
    o.numberingStart = start_->value();
    o.numberingFormat = static_cast<NumberingFormat>(numberFormat_->currentData().toInt());
    o.numberingSeparator = separator_->text();
    o.changeCaseEnabled = on("changeCaseEnabled");
    o.capitalization = static_cast<CapitalizationStyle>(case_->currentData().toInt());
    o.normalizeWhitespace = on("normalizeWhitespace");
    o.normalizeDelimiters = on("normalizeDelimiters");
    o.trimWhitespace = on("trimWhitespace");
    return o;
}

void BatchRenameDialog::update()
{
    const BatchRenameResult result = BatchRenameService().apply(titles_, options(), regex_->isChecked(),
                                                                matchCase_->isChecked());
    preview_ = result.titles;
    if (result.error)
        error_->setText(result.error->displayText());
    error_->setVisible(result.error.has_value());
    table_->setRowCount(static_cast<int>(titles_.size()));
    for (int row = 0; row < titles_.size(); ++row) {
        table_->setItem(row, 0, new QTableWidgetItem(titles_[row]));
        auto* after = new QTableWidgetItem(preview_.value(row));
        if (preview_.value(row) != titles_[row]) {
            QFont f = after->font();
            f.setBold(true);
            after->setFont(f);
        }
        table_->setItem(row, 1, after);
    }
}

} // namespace folivox
