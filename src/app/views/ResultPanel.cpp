#include "app/views/ResultPanel.h"

#include "app/models/TimeText.h"
#include "app/views/Ui.h"
#include "export/decision/ExportDecision.h"
#include "platform/L10n.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>

namespace folivox {

ResultPanel::ResultPanel(QWidget* parent)
    : QWidget(parent)
    , headline_(new QLabel(this))
    , strategy_(new QLabel(this))
    , reasons_(Ui::named(new QListWidget(this), "app.result.reasons.name", "Why the build went this way"))
    , chapters_(Ui::named(new QTableWidget(this), "app.result.chapters.name", "Chapters in the output"))
    , showFile_(Ui::named(new QPushButton(L10n::text("app.result.showFile", "Show in File Manager"), this),
                          "app.result.showFile.name", "Show the book in the file manager"))
    , showLog_(Ui::named(new QPushButton(L10n::text("app.result.showLog", "Show Build Log"), this),
                         "app.result.showLog.name", "Show the build's log"))
{
    headline_->setWordWrap(true);
    headline_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont f = headline_->font();
    f.setBold(true);
    headline_->setFont(f);
    Ui::setAccessibleName(headline_, "app.result.headline.name", "Build result");
    strategy_->setWordWrap(true);
    Ui::setAccessibleName(strategy_, "app.result.strategy.name", "How the book was made");
    reasons_->setMaximumHeight(90);
    chapters_->setColumnCount(3);
    chapters_->setHorizontalHeaderLabels({L10n::text("app.result.column.title", "Chapter"),
                                          L10n::text("app.result.column.start", "Start"),
                                          L10n::text("app.result.column.duration", "Duration")});
    chapters_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    chapters_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    chapters_->horizontalHeader()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    chapters_->verticalHeader()->hide();
    chapters_->setEditTriggers(QAbstractItemView::NoEditTriggers);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(showFile_);
    buttons->addWidget(showLog_);
    buttons->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(headline_);
    layout->addWidget(strategy_);
    layout->addWidget(reasons_);
    layout->addWidget(chapters_, 1);
    layout->addLayout(buttons);
    connect(showFile_, &QPushButton::clicked, this, &ResultPanel::showInFileManager);
    connect(showLog_, &QPushButton::clicked, this, &ResultPanel::showLogRequested);
    clear();
}

QString ResultPanel::strategyText(int strategy)
{
    switch (static_cast<ExportDecision::Strategy>(strategy)) {
    case ExportDecision::Strategy::passthroughEntireFile:
        return L10n::text("app.result.strategy.passthroughEntireFile", "Copied the audio as it was (no re-encoding)");
    case ExportDecision::Strategy::passthroughRange:
        return L10n::text("app.result.strategy.passthroughRange", "Copied part of the audio (no re-encoding)");
    case ExportDecision::Strategy::passthroughConcat:
        return L10n::text("app.result.strategy.passthroughConcat", "Joined the files without re-encoding");
    case ExportDecision::Strategy::transcode:
        return L10n::text("app.result.strategy.transcode", "Encoded the audio");
    case ExportDecision::Strategy::splitTranscode:
        return L10n::text("app.result.strategy.splitTranscode", "Encoded the audio in parallel pieces");
    case ExportDecision::Strategy::multiFile:
        return L10n::text("app.result.strategy.multiFile", "Wrote one file per chapter");
    }
    return {};
}

void ResultPanel::showResult(const BuildResult& result)
{
    outputPath_ = result.outcome.outputPath;
    logFile_ = result.logFile;
    headline_->setText(L10n::format(L10n::text("app.result.built", "Built “%@”: %@"),
                                    {result.title, QDir::toNativeSeparators(outputPath_)}));
    QStringList made{strategyText(static_cast<int>(result.outcome.strategy)), label(result.settings.outputFormat)};
    if (result.settings.outputFormat != OutputFormat::mp3)
        made << label(result.settings.codec);
    if (result.settings.keepSourceBitrate)
        made << L10n::text("app.result.keptBitrate", "source bitrate kept");
    else if (result.settings.cbrBitrateKbps)
        made << QString::number(*result.settings.cbrBitrateKbps) + QStringLiteral(" kbps");
    made << TimeText::format(result.duration, false);
    strategy_->setText(made.join(QStringLiteral(" · ")));
    reasons_->clear();
    for (const QString& r : result.outcome.reasons)
        reasons_->addItem(r);
    for (const QString& w : result.warnings)
        reasons_->addItem(QStringLiteral("⚠ ") + w);
    reasons_->setVisible(reasons_->count() > 0);
    chapters_->setRowCount(static_cast<int>(result.outcome.chapters.size()));
    int row = 0;
    for (const ExportedChapter& c : result.outcome.chapters) {
        chapters_->setItem(row, 0, new QTableWidgetItem(c.title));
        chapters_->setItem(row, 1, new QTableWidgetItem(TimeText::format(c.start)));
        chapters_->setItem(row, 2, new QTableWidgetItem(TimeText::format(c.duration)));
        ++row;
    }
    chapters_->setVisible(true);
    showFile_->setEnabled(true);
    showLog_->setEnabled(!logFile_.isEmpty());
}

void ResultPanel::showFailure(const QString& message, const QString& logFile)
{
    clear();
    logFile_ = logFile;
    headline_->setText(message);
    showLog_->setEnabled(!logFile_.isEmpty());
}

void ResultPanel::clear()
{
    outputPath_.clear();
    logFile_.clear();
    headline_->setText(L10n::text("app.result.none", "No build yet. Press Build to make the audiobook."));
    strategy_->clear();
    reasons_->clear();
    reasons_->setVisible(false);
    chapters_->setRowCount(0);
    chapters_->setVisible(false);
    showFile_->setEnabled(false);
    showLog_->setEnabled(false);
}

void ResultPanel::showInFileManager()
{
    if (outputPath_.isEmpty())
        return;
    const QFileInfo info(outputPath_);
    const QString folder = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

} // namespace folivox
