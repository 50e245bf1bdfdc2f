#include "app/inplace/InPlaceUpdateViewModel.h"

#include "app/book/OpenBook.h"
#include "import/probe/LibavAudioInspector.h"
#include "inplace/DefaultInPlaceEligibilityService.h"
#include "inplace/DefaultInPlaceUpdateService.h"
#include "platform/Error.h"
#include "platform/L10n.h"

#include <QFileInfo>

#include <cmath>

namespace folivox {

InPlaceUpdateViewModel::InPlaceUpdateViewModel(OpenBook& book, QObject* parent)
    : QObject(parent)
    , book_(book)
    , controller_(std::make_unique<InPlaceUpdateController>(std::make_shared<DefaultInPlaceUpdateService>()))
{
    holdTimer_.setSingleShot(true);
    connect(&holdTimer_, &QTimer::timeout, this, [this] {
        invalidate();
    });
    for (auto signal : {&OpenBook::tracksChanged, &OpenBook::chaptersChanged, &OpenBook::lastBuildChanged})
        connect(&book_, signal, this, &InPlaceUpdateViewModel::invalidate);
}

InPlaceUpdateViewModel::~InPlaceUpdateViewModel()
{
    ++generation_; // what the run still reports is dropped
    controller_->cancel();
    controller_->wait();
}

void InPlaceUpdateViewModel::invalidate()
{
    // The outcome of a run on another book is no longer this book's news.
    if (outcome_ && book_.id() != runBook_) {
        holdTimer_.stop();
        outcome_.reset();
    }
    // The files may be in the middle of being written: the check waits for the run.
    stale_ = true;
    cachedEligibility_.reset();
    Q_EMIT changed();
}

QString InPlaceUpdateViewModel::phaseText(const QString& key)
{
    if (key == u"inplace.progress.creating.backup")
        return L10n::text("inplace.progress.creating.backup", "Making a backup of the book…");
    if (key == u"inplace.progress.writing.metadata")
        return L10n::text("inplace.progress.writing.metadata", "Writing the tags…");
    if (key == u"inplace.progress.writing.chapters")
        return L10n::text("inplace.progress.writing.chapters", "Writing the chapter titles…");
    if (key == u"inplace.progress.writing.cover")
        return L10n::text("inplace.progress.writing.cover", "Writing the cover…");
    if (key == u"inplace.progress.completed")
        return L10n::text("inplace.progress.completed", "Done");
    return key;
}

QStringList InPlaceUpdateViewModel::outputFiles() const
{
    QStringList files;
    if (book_.lastBuild())
        for (const BuildRecord::Output& out : book_.lastBuild()->outputs)
            files << out.path;
    return files;
}

QList<ChapterSnapshot> InPlaceUpdateViewModel::chaptersOnDisk(const QStringList& files) const
{
    const LibavAudioInspector inspector;
    const auto probed = [&](const QString& path) -> const QList<ChapterSnapshot>& {
        const QFileInfo info(path);
        const QString key = path + u'|' + QString::number(info.size()) + u'|'
                            + QString::number(info.lastModified().toMSecsSinceEpoch());
        auto it = fileChapters_.find(key);
        if (it == fileChapters_.end()) {
            QList<ChapterSnapshot> chapters;
            try {
                const MediaProbe probe = inspector.probe(path);
                for (const MediaChapterMark& m : probe.chapters)
                    chapters << ChapterSnapshot{m.title, m.start, m.end - m.start, std::nullopt, std::nullopt};
                // A file without marks is one chapter: the whole file.
                if (chapters.isEmpty())
                    chapters << ChapterSnapshot{probe.tag({"title"}).value_or(info.completeBaseName()), 0, probe.duration,
                                                std::nullopt, std::nullopt};
            } catch (const Error&) {
                // Unreadable: no chapters, which the comparison reports.
            }
            it = fileChapters_.insert(key, chapters);
        }
        return *it;
    };
    if (files.size() == 1)
        return probed(files.first());
    QList<ChapterSnapshot> out;
    double start = 0;
    for (const QString& f : files) {
        const QList<ChapterSnapshot>& one = probed(f);
        const double duration = one.isEmpty() ? 0 : one.last().startTime + one.last().duration;
        out << ChapterSnapshot{one.isEmpty() ? QString() : one.first().title, start, duration, std::nullopt, std::nullopt};
        start += duration;
    }
    return out;
}

void InPlaceUpdateViewModel::evaluate() const
{
    stale_ = false;
    cachedEligibility_.reset();
    const QStringList files = outputFiles();
    if (files.isEmpty())
        return;
    // The chapters now, and as built: from the build's record, on the same
    // clock as the book's (the files' own marks can differ from the
    // sources' probed lengths by a few milliseconds a chapter); for a record
    // without them, the files' chapters.
    const BuildRecord& built = *book_.lastBuild();
    const bool recorded = !built.chapters.empty();
    QList<ChapterSnapshot> current;
    double start = 0;
    for (const Bookmark& b : book_.chapters()) {
        std::optional<QUrl> first;
        if (recorded && !b.tracks.empty())
            first = b.tracks.front().url;
        current << ChapterSnapshot{b.title, start, b.duration, first, std::nullopt};
        start += b.duration;
    }
    const QList<IneligibilityReason> fileReasons = DefaultInPlaceEligibilityService::checkFiles(files);
    const bool readable = !fileReasons.contains(IneligibilityReason::fileNotFound)
                          && !fileReasons.contains(IneligibilityReason::unsupportedFormat);
    InPlaceEligibilityRequest request;
    if (recorded)
        request.lastBuildChapters = QList<ChapterSnapshot>(built.chapters.begin(), built.chapters.end());
    else
        request.lastBuildChapters = readable ? chaptersOnDisk(files) : current;
    request.currentChapters = current;
    request.currentTrackCount = int(book_.tracks().size());
    request.outputFiles = files;
    cachedEligibility_ = DefaultInPlaceEligibilityService().evaluate(request);
}

const std::optional<InPlaceEligibility>& InPlaceUpdateViewModel::cachedEligibility() const
{
    if (stale_ && !running_)
        evaluate();
    return cachedEligibility_;
}

QList<IneligibilityReason> InPlaceUpdateViewModel::ineligibilityReasons() const
{
    const auto& e = cachedEligibility();
    return e ? e->reasons : QList<IneligibilityReason>{};
}

InPlaceUpdateViewModel::State InPlaceUpdateViewModel::state() const
{
    if (running_)
        return State::running;
    if (outcome_ && holdTimer_.isActive())
        return State::finished;
    const auto& e = cachedEligibility();
    if (!e)
        return State::notBuilt;
    return e->isEligible ? State::eligible : State::ineligible;
}

QString InPlaceUpdateViewModel::outcomeText() const
{
    if (!outcome_)
        return {};
    const QStringList& files = runFiles_;
    const QString what = files.size() == 1 ? QFileInfo(files.first()).fileName()
                                           : L10n::format(L10n::text("app.inplace.files", "%d files"), {QString::number(files.size())});
    switch (outcome_->kind) {
    case InPlaceUpdateController::Outcome::Kind::completed:
        return L10n::format(L10n::text("app.inplace.completed", "Updated %@ in place. A backup is kept in %@."),
                            {what, outcome_->backupURL});
    case InPlaceUpdateController::Outcome::Kind::cancelled:
        if (outcome_->recovery)
            return L10n::format(L10n::text("app.inplace.cancelled.recovery",
                                           "Cancelled, but %@ could not be put back completely; a whole copy is kept at %@."),
                                {outcome_->recovery->targetPath(), outcome_->recovery->preservedCopyPath()});
        return outcome_->allRestored ? L10n::format(L10n::text("app.inplace.cancelled", "Cancelled: %@ is as it was."), {what})
                                     : L10n::format(L10n::text("app.inplace.cancelled.partly",
                                                               "Cancelled; not every file could be put back. The backups are in %@."),
                                                    {outcome_->backupURL});
    case InPlaceUpdateController::Outcome::Kind::failed:
        return L10n::format(L10n::text("app.inplace.failed", "The update failed: %@"), {outcome_->error})
               + (outcome_->allRestored ? L10n::text("app.inplace.failed.restored", " The files are as they were.")
                                        : L10n::format(L10n::text("app.inplace.failed.backup", " The backups are in %@."),
                                                       {outcome_->backupURL}));
    }
    return {};
}

bool InPlaceUpdateViewModel::start()
{
    if (running_)
        return false;
    const auto& e = cachedEligibility();
    if (!e || !e->isEligible || !e->mode)
        return false;
    const InPlaceUpdateMode mode = *e->mode;
    QList<ChapterInfo> chapters;
    if (mode.kind == InPlaceUpdateMode::Kind::singleFile) {
        double start = 0;
        for (const Bookmark& b : book_.chapters()) {
            chapters << ChapterInfo{b.title, start, std::nullopt};
            start += b.duration;
        }
    }
    const int generation = ++generation_;
    const bool started = controller_->start(
        book_.metadata(), chapters, mode,
        [this, generation](const QString& key, double fraction) {
            QMetaObject::invokeMethod(
                this,
                [this, generation, key, fraction] {
                    if (generation != generation_ || !running_)
                        return;
                    phase_ = phaseText(key);
                    fraction_ = fraction;
                    Q_EMIT changed();
                },
                Qt::QueuedConnection);
        },
        InPlaceUpdateOptions{},
        [this, generation](const InPlaceUpdateController::Outcome& outcome) {
            QMetaObject::invokeMethod(
                this,
                [this, generation, outcome] {
                    if (generation == generation_)
                        deliver(outcome);
                },
                Qt::QueuedConnection);
        });
    if (!started)
        return false;
    running_ = true;
    outcome_.reset();
    holdTimer_.stop();
    runBook_ = book_.id();
    runFiles_ = mode.paths();
    phase_ = phaseText(QStringLiteral("inplace.progress.creating.backup"));
    fraction_ = 0;
    Q_EMIT changed();
    return true;
}

void InPlaceUpdateViewModel::cancel()
{
    if (!running_)
        return;
    controller_->cancel();
    phase_ = L10n::text("app.inplace.cancelling", "Cancelling: putting the files back…");
    Q_EMIT changed();
}

void InPlaceUpdateViewModel::deliver(const InPlaceUpdateController::Outcome& outcome)
{
    controller_->wait();
    running_ = false;
    outcome_ = outcome;
    stale_ = true;
    cachedEligibility_.reset();
    if (outcome.hold > 0)
        holdTimer_.start(int(std::lround(outcome.hold * 1000)));
    Q_EMIT finished(outcome);
    Q_EMIT changed();
}

} // namespace folivox
