#include "app/views/LogDialog.h"

#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFontDatabase>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace folivox {

LogDialog::LogDialog(const QString& logFile, QWidget* parent)
    : QDialog(parent)
    , text_(Ui::named(new QPlainTextEdit(this), "app.log.text.name", "Build log"))
{
    setWindowTitle(L10n::text("app.log.title", "Build Log"));
    resize(900, 560);
    text_->setReadOnly(true);
    text_->setLineWrapMode(QPlainTextEdit::NoWrap);
    text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    QFile file(logFile);
    if (file.open(QIODevice::ReadOnly))
        text_->setPlainText(QString::fromUtf8(file.readAll()));
    else
        text_->setPlainText(L10n::format(L10n::text("app.log.unreadable", "Cannot read the log %@: %@"),
                                         {logFile, file.errorString()}));
    auto* path = new QLabel(logFile, this);
    path->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setAccessibleName(L10n::text("app.log.close.name", "Close the log"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(path);
    layout->addWidget(text_, 1);
    layout->addWidget(buttons);
}

} // namespace folivox
