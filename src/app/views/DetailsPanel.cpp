#include "app/views/DetailsPanel.h"

#include "app/book/OpenBook.h"
#include "app/views/CoverWell.h"
#include "app/views/Ui.h"
#include "export/settings/CoverOptions.h"
#include "platform/L10n.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace folivox {

namespace {

struct LineSpec {
    const char* name;
    const char* key;
    const char* label;
    std::optional<QString> BookMetadata::* member;
};

const LineSpec kLines[] = {
    {"title", "app.details.title", "Title", nullptr},
    {"author", "app.details.author", "Author", &BookMetadata::author},
    {"narrator", "app.details.narrator", "Narrator", &BookMetadata::narrator},
    {"seriesName", "app.details.series", "Series", &BookMetadata::seriesName},
    {"year", "app.details.year", "Year", &BookMetadata::year},
    {"genre", "app.details.genre", "Genre", &BookMetadata::genre},
    {"language", "app.details.language", "Language", &BookMetadata::language},
    {"publisher", "app.details.publisher", "Publisher", &BookMetadata::publisher},
    {"copyright", "app.details.copyright", "Copyright", &BookMetadata::copyright},
    {"encodedBy", "app.details.encodedBy", "Encoded by", &BookMetadata::encodedBy},
    {"encodedWith", "app.details.encodedWith", "Encoded with", &BookMetadata::encodedWith},
    {"sortTitle", "app.details.sortTitle", "Sort title", &BookMetadata::sortTitle},
    {"sortAuthor", "app.details.sortAuthor", "Sort author", &BookMetadata::sortAuthor},
    {"sortAlbum", "app.details.sortAlbum", "Sort album", &BookMetadata::sortAlbum},
    {"sortAlbumArtist", "app.details.sortAlbumArtist", "Sort album artist", &BookMetadata::sortAlbumArtist},
};

const LineSpec kTexts[] = {
    {"summary", "app.details.summary", "Summary", &BookMetadata::summary},
    {"description", "app.details.description", "Description", &BookMetadata::description},
    {"comment", "app.details.comment", "Comment", &BookMetadata::comment},
};

std::optional<QString> valueOf(const QString& text)
{
    const QString t = text.trimmed();
    return t.isEmpty() ? std::nullopt : std::optional<QString>(t);
}

void setTextKeepingCursor(QLineEdit* edit, const QString& text)
{
    if (edit->text() != text)
        edit->setText(text);
}

} // namespace

DetailsPanel::DetailsPanel(OpenBook& book, QWidget* parent)
    : QWidget(parent)
    , book_(book)
    , seriesIndex_(Ui::named(new QLineEdit(this), "app.details.seriesIndex.name", "Series index"))
    , seriesPrefix_(Ui::named(new QCheckBox(L10n::text("app.details.seriesPrefix", "Put the series before the album name"), this),
                              "app.details.seriesPrefix.name", "Series before the album name"))
    , cover_(Ui::named(new CoverWell(this), "app.details.cover.name", "Cover image"))
    , chooseCover_(Ui::named(new QPushButton(L10n::text("app.details.cover.choose", "Choose…"), this),
                             "app.details.cover.choose.name", "Choose a cover image"))
    , pasteCover_(Ui::named(new QPushButton(L10n::text("app.details.cover.paste", "Paste"), this),
                            "app.details.cover.paste.name", "Paste a cover image"))
    , removeCover_(Ui::named(new QPushButton(L10n::text("app.details.cover.remove", "Remove"), this),
                             "app.details.cover.remove.name", "Remove the cover"))
    , coverInfo_(new QLabel(this))
    , coverSize_(Ui::named(new QComboBox(this), "app.details.coverSize.name", "Cover size in the book"))
    , coverQuality_(Ui::named(new QComboBox(this), "app.details.coverQuality.name", "Cover quality in the book"))
{
    auto* content = new QWidget;
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    for (const LineSpec& spec : kLines) {
        auto* edit = new QLineEdit(content);
        const QString label = L10n::text(spec.key, spec.label);
        edit->setAccessibleName(label);
        edit->setObjectName(QString::fromLatin1(spec.name));
        lines_.push_back({QString::fromLatin1(spec.name), edit, spec.member});
        if (QLatin1StringView(spec.name) == QLatin1StringView("seriesName")) {
            auto* row = new QHBoxLayout;
            row->addWidget(edit, 1);
            row->addWidget(new QLabel(L10n::text("app.details.seriesIndex", "No."), content));
            seriesIndex_->setMaximumWidth(90);
            seriesIndex_->setPlaceholderText(QStringLiteral("1"));
            row->addWidget(seriesIndex_);
            form->addRow(label, row);
            form->addRow(QString(), seriesPrefix_);
        } else {
            form->addRow(label, edit);
        }
        connect(edit, &QLineEdit::textEdited, this, &DetailsPanel::commit);
    }
    for (const LineSpec& spec : kTexts) {
        auto* edit = new QPlainTextEdit(content);
        const QString label = L10n::text(spec.key, spec.label);
        edit->setAccessibleName(label);
        edit->setObjectName(QString::fromLatin1(spec.name));
        edit->setTabChangesFocus(true);
        edit->setFixedHeight(edit->fontMetrics().lineSpacing() * 3 + 12);
        texts_.push_back({QString::fromLatin1(spec.name), edit, spec.member});
        form->addRow(label, edit);
        connect(edit, &QPlainTextEdit::textChanged, this, [this] {
            if (!refreshing_)
                commit();
        });
    }
    connect(seriesIndex_, &QLineEdit::textEdited, this, [this](const QString& typed) {
        const QString reduced = SeriesIndex::reducedInput(typed);
        if (reduced != typed)
            seriesIndex_->setText(reduced);
        commit();
    });
    connect(seriesPrefix_, &QCheckBox::toggled, this, [this] {
        if (!refreshing_)
            commit();
    });

    // The cover, with its options, above the tags: the side pane is narrow.
    auto* coverControls = new QVBoxLayout;
    coverControls->addWidget(Ui::heading(L10n::text("app.details.cover", "Cover"), content));
    auto* coverButtons = new QHBoxLayout;
    coverButtons->addWidget(chooseCover_);
    coverButtons->addWidget(pasteCover_);
    coverButtons->addWidget(removeCover_);
    coverButtons->addStretch();
    coverControls->addLayout(coverButtons);
    coverInfo_->setForegroundRole(QPalette::PlaceholderText);
    coverControls->addWidget(coverInfo_);
    auto* coverForm = new QFormLayout;
    coverForm->addRow(L10n::text("app.details.coverSize", "Size in the book"), coverSize_);
    coverForm->addRow(L10n::text("app.details.coverQuality", "Quality"), coverQuality_);
    coverControls->addLayout(coverForm);
    coverControls->addStretch();
    cover_->setFixedSize(168, 168);
    auto* coverRow = new QHBoxLayout;
    coverRow->addWidget(cover_, 0, Qt::AlignTop);
    coverRow->addSpacing(8);
    coverRow->addLayout(coverControls, 1);

    auto* columns = new QVBoxLayout(content);
    columns->addLayout(coverRow);
    columns->addSpacing(8);
    columns->addLayout(form);

    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    connect(cover_, &CoverWell::imageGiven, this, &DetailsPanel::setCover);
    connect(cover_, &CoverWell::problem, this, &DetailsPanel::problem);
    connect(chooseCover_, &QPushButton::clicked, this, &DetailsPanel::chooseCover);
    connect(pasteCover_, &QPushButton::clicked, this, [this] {
        if (!cover_->paste())
            Q_EMIT problem(L10n::text("app.details.cover.noImage", "The clipboard holds no image."));
    });
    connect(removeCover_, &QPushButton::clicked, this, [this] {
        BookMetadata m = book_.metadata();
        m.coverImageData.reset();
        m.coverSourceURL.reset();
        book_.setMetadata(m);
    });
    const auto coverOption = [this] {
        if (refreshing_)
            return;
        ExportSettings s = book_.settings();
        s.coverSize = static_cast<CoverSize>(coverSize_->currentData().toInt());
        s.coverQuality = static_cast<CoverQuality>(coverQuality_->currentData().toInt());
        book_.setSettings(s);
    };
    connect(coverSize_, &QComboBox::activated, this, coverOption);
    connect(coverQuality_, &QComboBox::activated, this, coverOption);
    connect(&book_, &OpenBook::metadataChanged, this, &DetailsPanel::refresh);
    connect(&book_, &OpenBook::settingsChanged, this, &DetailsPanel::refreshCoverOptions);
    refresh();
}

QLineEdit* DetailsPanel::lineEdit(const QString& field) const
{
    for (const LineField& f : lines_)
        if (f.name == field)
            return f.edit;
    return nullptr;
}

QPlainTextEdit* DetailsPanel::textEdit(const QString& field) const
{
    for (const TextField& f : texts_)
        if (f.name == field)
            return f.edit;
    return nullptr;
}

void DetailsPanel::commit()
{
    if (refreshing_)
        return;
    BookMetadata m = book_.metadata();
    for (const LineField& f : lines_) {
        if (f.member)
            m.*(f.member) = valueOf(f.edit->text());
        else
            m.title = f.edit->text().trimmed();
    }
    for (const TextField& f : texts_)
        m.*(f.member) = valueOf(f.edit->toPlainText());
    m.seriesIndex = SeriesIndex::parse(seriesIndex_->text());
    m.albumUsesSeriesPrefix = seriesPrefix_->isChecked();
    book_.setMetadata(m);
}

void DetailsPanel::refresh()
{
    refreshing_ = true;
    const BookMetadata& m = book_.metadata();
    for (const LineField& f : lines_)
        setTextKeepingCursor(f.edit, f.member ? (m.*(f.member)).value_or(QString()) : m.title);
    for (const TextField& f : texts_) {
        const QString text = (m.*(f.member)).value_or(QString());
        if (f.edit->toPlainText().trimmed() != text)
            f.edit->setPlainText(text);
    }
    const QString index = m.seriesIndex ? m.seriesIndex->text() : QString();
    if (SeriesIndex::parse(seriesIndex_->text()) != m.seriesIndex)
        seriesIndex_->setText(index);
    seriesPrefix_->setChecked(m.albumUsesSeriesPrefix);
    cover_->setImage(m.coverImageData.value_or(QByteArray()));
    removeCover_->setEnabled(m.coverImageData.has_value());
    refreshing_ = false;
    refreshCoverOptions();
}

void DetailsPanel::refreshCoverOptions()
{
    refreshing_ = true;
    const BookMetadata& m = book_.metadata();
    QSize size;
    if (m.coverImageData) {
        const QImage image = QImage::fromData(*m.coverImageData);
        size = image.size();
        coverInfo_->setText(image.isNull() ? QString()
                                           : QStringLiteral("%1 × %2 px").arg(image.width()).arg(image.height()));
    } else {
        coverInfo_->clear();
    }
    const ExportSettings& s = book_.settings();
    coverSize_->clear();
    for (CoverSize c : CoverOptions::availableSizes(size))
        coverSize_->addItem(label(c), static_cast<int>(c));
    coverSize_->setCurrentIndex(std::max(0, coverSize_->findData(static_cast<int>(CoverOptions::effectiveSize(s.coverSize, size)))));
    coverQuality_->clear();
    for (CoverQuality q : enumCases<CoverQuality>())
        coverQuality_->addItem(q == CoverQuality::original ? L10n::text("app.details.coverQuality.original", "Original (100%)")
                                                           : label(q),
                               static_cast<int>(q));
    coverQuality_->setCurrentIndex(std::max(0, coverQuality_->findData(static_cast<int>(s.coverQuality))));
    const bool hasCover = m.coverImageData.has_value();
    coverSize_->setEnabled(hasCover);
    coverQuality_->setEnabled(hasCover);
    refreshing_ = false;
}

void DetailsPanel::setCover(const QByteArray& bytes, const QUrl& source)
{
    BookMetadata m = book_.metadata();
    m.coverImageData = bytes;
    if (source.isEmpty())
        m.coverSourceURL.reset();
    else
        m.coverSourceURL = source;
    book_.setMetadata(m);
}

QString DetailsPanel::setCoverFile(const QString& path)
{
    QString error;
    const QByteArray bytes = CoverWell::readImageFile(path, error);
    if (bytes.isEmpty())
        return error;
    setCover(bytes, QUrl::fromLocalFile(path));
    return QString();
}

void DetailsPanel::chooseCover()
{
    auto* dialog = new QFileDialog(this, L10n::text("app.details.cover.dialog", "Choose a Cover Image"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilter(L10n::text("app.details.cover.filter", "Images (*.jpg *.jpeg *.png)"));
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
        const QString error = setCoverFile(path);
        if (!error.isEmpty())
            Q_EMIT problem(error);
    });
    dialog->open();
}

} // namespace folivox
