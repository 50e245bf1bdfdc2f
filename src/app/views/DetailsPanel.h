#pragma once

#include "core/book/BookMetadata.h"

#include <QWidget>

#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace folivox {

class CoverWell;
class OpenBook;

// The book's details: every tag of BookMetadata, the series with its index,
// and the cover (dropped, pasted or chosen) with the cover options of the
// export. Edits go to the book as they are typed.
class DetailsPanel : public QWidget {
    Q_OBJECT
public:
    explicit DetailsPanel(OpenBook& book, QWidget* parent = nullptr);

    // The editor of one text tag, by its field name ("title", "author", ...).
    QLineEdit* lineEdit(const QString& field) const;
    QPlainTextEdit* textEdit(const QString& field) const;
    QLineEdit* seriesIndexEdit() const { return seriesIndex_; }
    CoverWell* coverWell() const { return cover_; }
    QPushButton* chooseCoverButton() const { return chooseCover_; }
    QComboBox* coverSizeBox() const { return coverSize_; }
    QComboBox* coverQualityBox() const { return coverQuality_; }

    // Sets the cover from an image file; an error text when it is not one.
    QString setCoverFile(const QString& path);
    void setCover(const QByteArray& bytes, const QUrl& source);

Q_SIGNALS:
    void problem(const QString& text);

private:
    struct LineField {
        QString name;
        QLineEdit* edit;
        std::optional<QString> BookMetadata::* member; // null for the title
    };
    struct TextField {
        QString name;
        QPlainTextEdit* edit;
        std::optional<QString> BookMetadata::* member;
    };

    void commit();
    void refresh();
    void refreshCoverOptions();
    void chooseCover();

    OpenBook& book_;
    std::vector<LineField> lines_;
    std::vector<TextField> texts_;
    QLineEdit* seriesIndex_;
    QCheckBox* seriesPrefix_;
    CoverWell* cover_;
    QPushButton* chooseCover_;
    QPushButton* pasteCover_;
    QPushButton* removeCover_;
    QLabel* coverInfo_;
    QComboBox* coverSize_;
    QComboBox* coverQuality_;
    bool refreshing_ = false;
};

} // namespace folivox
